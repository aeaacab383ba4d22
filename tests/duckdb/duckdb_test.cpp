// The functions inside DuckDB: the real libduckdb in process, the extension
// LOADed into each database, and its answers compared with `txscan apply`
// over the same rows.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/duckdb/database.h"

namespace {

using txtest::Database;
using txtest::Rows;

std::string scratch(const std::string& name) { return ::testing::TempDir() + "txscan_duckdb_" + std::to_string(getpid()) + "_" + name; }

void run(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

TEST(DuckDb, CallsNullsTypesAndStatuses) {
    const std::string invalid = "error: Invalid Input Error: kfind: invalid argument (status 0x1D804) in argument ";
    const std::string cases[][2] = {   // the calls, their row or the start of their error
        {"kfind('abcabc', 'bc', -4), kcountx('aXaxAX', 'ax', 'i'), kfindc('Grüße', 'ßü'), "
         "kcountc('Grüße aus Köln', 'äöüß'), kfindw('one two three', 'three')", "2|3|3|3|9"},
        {"kcountw('日本語 の テキスト'), kscanx('Grüße aus, Köln', -1), kscanx_position('日本語 の テキスト', 3), "
         "kscanx_length('日本語 の テキスト', 3), kfind('Grüße aus Köln', 'köln', 'i')", "3|Köln|7|4|11"},
        // Whole numbers of any type where a number goes; the receiving variable never cuts a word.
        {"kscanx('a b c', 2::TINYINT), kfind('abcabc', 'c', 4::BIGINT), length(kscanx(repeat('é', 300), 1))", "b|6|300"},
        // NULL text is an absent argument; a NULL start (DuckDB binds a bare NULL as one) a missing result.
        {"kfind(NULL, 'a'), kfindc('abc', NULL), kfind('abc', 'b', NULL::VARCHAR), kscanx(NULL, 1), kfind('abc', 'b', NULL)",
         "0|0|2| |NULL"},
        {"kfind('', 'a'), kcountw(''), kscanx('', 1), kfindc('abc', ''), kcountc('', 'a', 'v')", "0|0| |0|0"},
        {"kfind('abc', 'b', 'i', 'x')", invalid + "4 ('x')"},
        {"kscanx('a b', NULL)", "error: Invalid Input Error: kscanx: invalid argument (status 0x1D804) in argument 2 (NULL)"},
        // Types DuckDB's binder refuses or cannot cast.
        {"kscanx('a b', 'two')", "error: Conversion Error: Could not convert string 'two' to DOUBLE"},
        {"kfind(12345, '3')", "error: Binder Error: No function matches"},
        {"kfind('abc')", "error: Binder Error: No function matches"},
        {"kscanx('a b', x) FROM (VALUES ('1')) t(x)", "error: Binder Error: No function matches"},
        // An unknown modifier letter is a note: the call goes on.
        {"kfind('abc', 'b', 'q')", "2"},
        {"function, kind, code, letter, count FROM txscan_messages() WHERE letter = 'Q'", "kfind|note|744|Q|1"},
    };
    Database d;
    for (const auto& [call, expected] : cases) {
        EXPECT_EQ(d.one("SELECT " + call).substr(0, expected.size()), expected) << call;
    }
}

// Constant lists are parsed once per thread and call (modifier O): two calls
// of one function with different constants, and lists that change from
// chunk to chunk or row to row, give the answers of calls that parse each time.
TEST(DuckDb, CachedSetsBelongToTheirArguments) {
    Database d;
    d.rows("CREATE TABLE t AS SELECT 'xyz ' || i::VARCHAR || ' abc' AS s, CASE WHEN i < 5000 THEN 'ab' ELSE 'yz' END AS l "
           "FROM range(10000) r(i)");
    const std::string cached = "SELECT sum(kfindc(s, 'ab', 'o')), sum(kfindc(s, 'yz', 'o')), sum(kfindc(s, l, 'o')), "
                               "sum(kcountw(s, l, 'o')) FROM t";
    const std::string parsed = "SELECT sum(kfindc(s, 'ab')), sum(kfindc(s, 'yz')), sum(kfindc(s, l)), sum(kcountw(s, l)) FROM t";
    EXPECT_EQ(d.rows(cached), d.rows(parsed));
}

// Every function over 100k generated rows (copied to 400k, four row groups
// that DuckDB's threads share) answers as `txscan apply` does on the same
// file, on one thread and on two.
TEST(DuckDb, ColumnsMatchTxscanApply) {
    const std::string dir = scratch("rows");
    run("mkdir -p " + dir + " && " TXSCAN_EXAMPLES "/make_samples.py --rows 100000 --only utf8 --out " + dir);
    const std::string assignments[][2] = {   // as apply computes it, as SQL does
        {"a = KFIND(name, \"an\", \"i\")", "kfind(name, 'an', 'i')"},
        {"b = KCOUNTX(comment, \"e\")", "kcountx(comment, 'e')"},
        {"c = KFINDC(address, \"0123456789\", \"b\")", "kfindc(address, '0123456789', 'b')"},
        {"d = KCOUNTC(comment, \"aeiouäöü\", \"io\")", "kcountc(comment, 'aeiouäöü', 'io')"},
        {"e = KCOUNTW(address, \", \")", "kcountw(address, ', ')"},
        {"f = KFINDW(comment, \"the\", \" \", \"i\")", "kfindw(comment, 'the', ' ', 'i')"},
        {"g = KSCANX(name, -1)", "kscanx(name, -1)"},
        {"h = KCOUNTC(comment, name)", "kcountc(comment, name)"},
        {"i = KSCANX(comment, id)", "kscanx(comment, id)"},
        {"(p, l) = CALL KSCANX(address, 2, \", \")", ""},
    };
    std::string command = std::string(TXSCAN_CLI) + " apply --quiet --length 100000 " + dir + "/people.csv -o " + dir + "/applied.csv";
    std::string differs;
    for (const auto& [apply, sql] : assignments) {
        command += " '" + apply + "'";
        if (sql.empty()) continue;
        differs += std::string(differs.empty() ? "" : " OR ") + "coalesce(" + sql + "::VARCHAR, '') <> " + apply.substr(0, 1);
    }
    differs += " OR coalesce(kscanx_position(address, 2, ', ')::VARCHAR, '') <> p"
               " OR coalesce(kscanx_length(address, 2, ', ')::VARCHAR, '') <> l";
    run(command);
    Database d;
    // Empty cells stay empty texts, as apply reads them.
    d.rows("CREATE TABLE t AS SELECT * FROM read_csv('" + dir + "/applied.csv', all_varchar = true, nullstr = '\\N', "
           "types = {'id': 'BIGINT'})");
    d.rows("INSERT INTO t SELECT * FROM t");
    d.rows("INSERT INTO t SELECT * FROM t");
    for (const char* threads : {"1", "2"}) {
        d.rows(std::string("PRAGMA threads = ") + threads);
        EXPECT_EQ(d.one("SELECT count(*), count(*) FILTER (WHERE " + differs + ") FROM t"), "400000|0") << threads;
    }
    run("rm -rf " + dir);
}

// The example file through read_csv, and through a Parquet file made from
// it: the same answers as apply's; results written to Parquet read back whole.
TEST(DuckDb, ExamplesThroughReadCsvAndParquet) {
    const std::string applied = scratch("people.csv"), parquet = scratch("people.parquet"), out = scratch("out.parquet");
    run(std::string(TXSCAN_CLI) + " apply --quiet " TXSCAN_EXAMPLES "/people.csv -o " + applied +
        " 's = KSCANX(name, -1)' 'n = KCOUNTW(comment)' 'f = KFIND(address, \"street\", \"i\")'");
    Database d;
    const std::string csv = "read_csv('" TXSCAN_EXAMPLES "/people.csv')";
    d.rows("COPY (SELECT * FROM " + csv + ") TO '" + parquet + "' (FORMAT parquet)");
    const std::string ours = "SELECT id, kscanx(name, -1) AS s, kcountw(comment) AS n, kfind(address, 'street', 'i') AS f FROM ";
    const std::string theirs = "SELECT id, s, n, f FROM read_csv('" + applied + "')";
    for (const std::string& source : {csv, "'" + parquet + "'"}) {
        EXPECT_EQ(d.one("SELECT count(*) FROM (" + ours + source + " EXCEPT ALL " + theirs + ")"), "0") << source;
        EXPECT_EQ(d.one("SELECT count(*) FROM (" + theirs + " EXCEPT ALL " + ours + source + ")"), "0") << source;
    }
    d.rows("COPY (" + ours + csv + ") TO '" + out + "' (FORMAT parquet)");
    EXPECT_EQ(d.one("SELECT count(*) FROM (SELECT * FROM '" + out + "' EXCEPT ALL " + theirs + ")"), "0");
    EXPECT_EQ(d.one("SELECT count(*) FROM '" + out + "'"), "2000");
    run("rm -f " + applied + " " + parquet + " " + out);
}

// `txscan sql` as the README shows it: a Parquet file written with -o, read
// back as CSV; a file type COPY is not asked to write is refused.
TEST(DuckDb, TxscanSqlWritesParquetAndPrintsCsv) {
    const std::string parquet = scratch("sql.parquet");
    run(std::string(TXSCAN_CLI) + " sql -o " + parquet + " \"SELECT * FROM read_csv('" TXSCAN_EXAMPLES "/people.csv')\"");
    FILE* pipe = popen((std::string(TXSCAN_CLI) + " sql --csv \"SELECT id, kscanx(name, -1) AS surname, kcountw(comment) AS words "
                        "FROM '" + parquet + "' ORDER BY id LIMIT 3\"").c_str(), "r");
    std::string printed;
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) printed += buffer;
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_EQ(printed, "id,surname,words\n1,Nakamura,4\n2,Søndergaard,5\n3,García,10\n");
    EXPECT_NE(std::system((std::string(TXSCAN_CLI) + " sql -o out.json 'SELECT 1' 2>/dev/null").c_str()), 0);
    run("rm -f " + parquet);
}

}  // namespace
