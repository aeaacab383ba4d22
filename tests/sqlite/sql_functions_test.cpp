// The SQL functions through SQLite itself: the extension loaded into real
// connections, over a database file of generated rows.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer's allocator serves every malloc then (g++ ships no header for it).
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

using Rows = std::vector<std::string>;
std::string gLastLog;   // the last sqlite3_log line (the cases run on one thread)

// A connection to `path` with the extension loaded.
struct Connection {
    sqlite3* db = nullptr;
    explicit Connection(const std::string& path = ":memory:") {
        sqlite3_open(path.c_str(), &db);
        sqlite3_enable_load_extension(db, 1);
        EXPECT_EQ(sqlite3_load_extension(db, TXSCAN_SQLITE_EXTENSION, nullptr, nullptr), SQLITE_OK);
    }
    ~Connection() { sqlite3_close(db); }
    // Each row of each statement, its columns joined by '|' (NULL as "NULL"),
    // with `parameter` bound to ?1; a failure ends the rows with "error: <message>".
    Rows rows(const std::string& sql, const char* parameter = nullptr) {
        Rows out;
        for (const char* next = sql.c_str(); *next != '\0';) {
            sqlite3_stmt* statement = nullptr;
            int code = sqlite3_prepare_v2(db, next, -1, &statement, &next);
            if (parameter != nullptr) sqlite3_bind_text(statement, 1, parameter, -1, SQLITE_TRANSIENT);
            while (statement != nullptr && (code = sqlite3_step(statement)) == SQLITE_ROW) {
                std::string& row = out.emplace_back();
                for (int k = 0; k < sqlite3_column_count(statement); ++k) {
                    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, k));
                    row += (k > 0 ? "|" : "") + std::string(text != nullptr ? text : "NULL");
                }
            }
            if (code != SQLITE_OK && code != SQLITE_DONE) out.push_back(std::string("error: ") + sqlite3_errmsg(db));
            sqlite3_finalize(statement);
            if (code != SQLITE_OK && code != SQLITE_DONE) break;
        }
        return out;
    }
};

// A database file of 100k generated rows in people(id, name, address, note)
// and, in table `applied`, the calls of the queries below made outside SQL:
// `txscan apply` over the rows exported as CSV.
std::string rowsFile() {
    const std::string db = ::testing::TempDir() + "txscan_rows_" + std::to_string(getpid());
    const std::string command =
        "rm -f " + db + ".db && sqlite3 " + db + ".db 'CREATE TABLE people(id INTEGER PRIMARY KEY, name, address, note)'"
        " '.parameter set :rows 100000' '.read " TXSCAN_ROWS_SQL "' && sqlite3 -csv -header " + db +
        ".db 'SELECT * FROM people' > " + db + ".csv && " TXSCAN_CLI " apply --quiet " + db + ".csv -o " + db +
        ".out.csv 'f = KFIND(name, \"an\", \"i\")' 'w = KCOUNTW(address)' 's = KSCANX(note, -1)' && sqlite3 " + db +
        ".db '.import --csv " + db + ".out.csv applied'";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return db + ".db";
}

TEST(SqlFunctions, CallsNullsTypesAndStatuses) {
    const std::string invalid = "error: kfind: invalid argument (status 0x1D804) in argument ";
    const std::string cases[][3] = {   // the call, its row or the start of its error, the start of the log
        {"kfind('abcabc', 'bc', -4), kcountx('aXaxAX', 'ax', 'i'), kfindc('Grüße', 'ßü'), "
         "kcountc('Grüße aus Köln', 'äöüß'), kfindw('one two three', 'three')", "2|3|3|3|9", ""},
        {"kcountw('日本語 の テキスト'), kscanx('Grüße aus, Köln', -1), kscanx_position('日本語 の テキスト', 3), "
         "kscanx_length('日本語 の テキスト', 3)", "3|Köln|7|4", ""},
        // NULL: absent text (the function's answer for it), absent start, missing count.
        {"kfind(NULL, 'a'), kfindc('abc', NULL), kfind('abc', 'b', NULL), kscanx(NULL, 1)", "0|0|2| ", ""},
        {"kfind('abc', 'b', 'i', NULL)", invalid + "4 (NULL)", ""},
        // Numbers where text goes read as printed; text where a number goes must be one.
        {"kcountw(12345, 3), kscanx('a b', ' 2 '), kfind(3.5, '.')", "2|b|2", ""},
        {"kscanx('a b', NULL)", "error: kscanx: invalid argument (status 0x1D804) in argument 2 (NULL)", ""},
        {"kscanx('a b', 'two')", "error: kscanx: argument 2 ('two') is not a number", ""},
        {"kfind(x'616263', 'b')", "error: kfind: argument 1 is a blob", ""},
        {"kfind('abc')", "error: wrong number of arguments to function kfind()", ""},
        // Modifiers: an unknown letter is a note, a text where a start goes an error.
        {"kfind('abc', 'b', 'q')", "2", "kfind: note 744: "},
        {"kfind('abc', 'b', 'i', 'x')", invalid + "4 ('x')", ""},
    };
    Connection c;
    for (const auto& [call, expected, logged] : cases) {
        gLastLog.clear();
        const Rows rows = c.rows("SELECT " + call);
        EXPECT_EQ(rows.at(0).substr(0, expected.size()), expected) << call;
        EXPECT_EQ(gLastLog.substr(0, logged.size()), logged) << call;
    }
}

// Queries over 100k rows filter, group and sort on function results exactly
// as the same queries over the results `txscan apply` gives, also in two
// connections at once on two threads.
TEST(SqlFunctions, QueriesOverAFileMatchTheResultsOutsideSql) {
    const std::string path = rowsFile();
    Connection c(path);
    const std::string outside = " FROM people JOIN applied a ON a.id = people.id";
    const std::string queries[][2] = {   // with the functions, and over their results outside SQL
        {"SELECT id, kfind(name, 'an', 'i'), kcountw(address), kscanx(note, -1) FROM people ORDER BY id",
         "SELECT people.id, f, w, s" + outside + " ORDER BY people.id"},
        {"SELECT kcountw(address) AS n, count(*), max(kfind(name, 'an', 'i')) FROM people "
         "WHERE kscanx(note, -1) <> 'thanks' GROUP BY n ORDER BY n",
         "SELECT CAST(w AS INTEGER) AS n, count(*), max(CAST(f AS INTEGER))" + outside +
             " WHERE s <> 'thanks' GROUP BY n ORDER BY n"},
        {"SELECT kscanx(note, -1) AS t, count(*) FROM people GROUP BY t ORDER BY count(*) DESC, t",
         "SELECT s AS t, count(*)" + outside + " GROUP BY t ORDER BY count(*) DESC, t"},
        // Deterministic and innocuous: usable in an index even of an untrusted schema.
        {"PRAGMA trusted_schema = OFF; CREATE INDEX by_words ON people(kcountw(address))", ""},
    };
    for (const auto& [inSql, overResults] : queries) EXPECT_EQ(c.rows(inSql), c.rows(overResults)) << inSql;
    const Rows expected = c.rows(queries[0][1]);
    ASSERT_EQ(expected.size(), 100000u);
    Rows results[2];
    std::thread first([&] { results[0] = Connection(path).rows(queries[0][0]); });
    std::thread second([&] { results[1] = Connection(path).rows(queries[0][0]); });
    first.join();
    second.join();
    EXPECT_EQ(results[0], expected);
    EXPECT_EQ(results[1], expected);
    std::system(("rm -f " + path.substr(0, path.size() - 3) + ".*").c_str());
}

// A call site lives for one run of a statement, and a reset starts afresh; a
// list made from a column is parsed on every row, O or not.
TEST(SqlFunctions, PreparedStatementReusedWithNewParameters) {
    Connection c;
    sqlite3_stmt* statement = nullptr;
    const char* sql = "SELECT kfindc(column1, ?1 || column2, 'O') FROM (VALUES ('xa', ''), ('ab', 'b'))";
    sqlite3_prepare_v2(c.db, sql, -1, &statement, nullptr);
    const std::pair<const char*, Rows> runs[] = {{"a", {"2", "1"}}, {"b", {"0", "2"}}, {"a", {"2", "1"}}};
    for (const auto& [characters, expected] : runs) {
        sqlite3_bind_text(statement, 1, characters, -1, SQLITE_STATIC);
        Rows rows;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            rows.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
        }
        EXPECT_EQ(rows, expected) << characters;
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
}

// Modifier O keeps a parsed set only where what it is made from is constant
// in the statement: with the list in a column, each row answers for its own
// list, in whichever order the table is scanned.
TEST(SqlFunctions, ModifierOAnswersAlikeInEitherScanOrder) {
    Connection c;
    c.rows("CREATE TABLE t(id INTEGER PRIMARY KEY, s, list); "
           "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 3000) "
           "INSERT INTO t SELECT i, 'abc de', substr('ca e', 1 + i % 4, 1) FROM n");
    const std::string calls[][2] = {   // with O, and the same call parsing every row
        {"kfindc(s, list, 'O')", "kfindc(s, list)"},
        {"kcountc(s, list, 'oi')", "kcountc(s, list, 'i')"},
        {"kcountw(s, list, 'o')", "kcountw(s, list)"},
        {"kfindc(s, 'e', 'O')", "kfindc(s, 'e')"},
        {"kfindc(list, 'c', 'O')", "kfindc(list, 'c')"},
    };
    for (const auto& [cached, parsed] : calls) {
        const Rows expected = c.rows("SELECT id, " + parsed + " FROM t ORDER BY id");
        Rows descending = c.rows("SELECT id, " + cached + " FROM t ORDER BY id DESC");
        std::reverse(descending.begin(), descending.end());
        EXPECT_EQ(c.rows("SELECT id, " + cached + " FROM t ORDER BY id"), expected) << cached;
        EXPECT_EQ(descending, expected) << cached;
    }
}

// A constant argument (a literal, an expression of literals, a parameter)
// answers as a column holding the same value on every row does, over rows
// of ASCII and of multi-byte text.
TEST(SqlFunctions, ConstantArgumentsAnswerAsColumnsOfTheSameValue) {
    Connection c;
    c.rows("CREATE TABLE t(id INTEGER PRIMARY KEY, s, an, i, two, twelve, u, none); "
           "WITH RECURSIVE n(k) AS (SELECT 1 UNION ALL SELECT k + 1 FROM n WHERE k < 400) "
           "INSERT INTO t SELECT k, CASE k % 5 WHEN 0 THEN 'banana 12 AN' WHEN 1 THEN 'Grüße ünd an 12' "
           "WHEN 2 THEN '東京 an 12 ü' WHEN 3 THEN '' ELSE NULL END, 'an', 'i', 2, 12, 'ü', NULL FROM n");
    const std::string calls[][2] = {   // with constants, and with the columns holding them
        {"kfind(s, 'an', 'i')", "kfind(s, an, i)"},
        {"kfind(s, 'a' || 'n', 2)", "kfind(s, an, two)"},
        {"kfind(s, ?1)", "kfind(s, u)"},
        {"kcountx(s, 12)", "kcountx(s, twelve)"},
        {"kscanx(s, '2')", "kscanx(s, two)"},
        {"kfindc(s, NULL), kfindw(s, 'an', 'I')", "kfindc(s, none), kfindw(s, an, upper(i))"},
    };
    for (const auto& [constant, column] : calls) {
        EXPECT_EQ(c.rows("SELECT id, " + constant + " FROM t", "ü"), c.rows("SELECT id, " + column + " FROM t")) << constant;
    }
}

std::int64_t allocatedBytes() {
#if defined(__SANITIZE_ADDRESS__)
    return static_cast<std::int64_t>(__sanitizer_get_current_allocated_bytes());
#else
    return static_cast<std::int64_t>(mallinfo2().uordblks);
#endif
}

// A closed connection gives back all it took (its call context and the
// function environment in it): the process does not grow with the number of
// connections it has opened.
TEST(SqlFunctions, ConnectionsOpenedAndClosedLeaveMemoryFlat) {
    const auto openAndClose = [] {
        Connection c;
        EXPECT_EQ(c.rows("SELECT kcountw('a b c'), kfind('abc', 'c'), kscanx('a b', 2)"), Rows{"3|3|b"});
    };
    for (int i = 0; i < 50; ++i) openAndClose();
    const std::int64_t before = allocatedBytes();
    for (int i = 0; i < 2000; ++i) openAndClose();
    // About 5 kB a connection, 10 MB in all, before contexts went back.
    EXPECT_LT(allocatedBytes() - before, 200 * 1024);
}

}  // namespace

int main(int argc, char** argv) {
    // The log is set before SQLite starts, as SQLite requires.
    // A line the heap cannot take is dropped: SQLite cannot pass on an exception.
    sqlite3_config(SQLITE_CONFIG_LOG, +[](void*, int, const char* line) noexcept {
        try {
            gLastLog = line;
        } catch (const std::bad_alloc&) {
        }
    }, nullptr);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
