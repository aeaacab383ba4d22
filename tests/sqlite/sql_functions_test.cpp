// The SQL functions through SQLite itself: the extension loaded into real
// connections, over a database file of generated rows.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::vector<std::string> gLog;   // sqlite3_log lines (the cases run on one thread)

// A connection to `path` with the extension loaded.
struct Connection {
    sqlite3* db = nullptr;
    explicit Connection(const std::string& path = ":memory:") {
        EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
        sqlite3_enable_load_extension(db, 1);
        char* error = nullptr;
        if (sqlite3_load_extension(db, TXSCAN_SQLITE_EXTENSION, nullptr, &error) != SQLITE_OK) ADD_FAILURE() << error;
        sqlite3_free(error);
    }
    ~Connection() { sqlite3_close(db); }

    // Each row of a statement run once, its columns joined by '|' (NULL as
    // "NULL"); a failure gives one row "error: <message>".
    std::vector<std::string> rows(sqlite3_stmt* statement) {
        std::vector<std::string> out;
        int rc = 0;
        while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
            std::string row;
            for (int c = 0; c < sqlite3_column_count(statement); ++c) {
                const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, c));
                row += (c > 0 ? "|" : "") + std::string(text != nullptr ? text : "NULL");
            }
            out.push_back(row);
        }
        if (rc != SQLITE_DONE) out.push_back(std::string("error: ") + sqlite3_errmsg(db));
        sqlite3_reset(statement);
        return out;
    }
    std::vector<std::string> rows(const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
            return {std::string("error: ") + sqlite3_errmsg(db)};
        }
        auto out = rows(statement);
        sqlite3_finalize(statement);
        return out;
    }
};

// A database file of `count` generated rows in people(id, name, address, note).
std::string rowsFile(int count) {
    const std::string path = ::testing::TempDir() + "txscan_rows_" + std::to_string(getpid()) + ".db";
    std::remove(path.c_str());
    Connection c(path);
    std::stringstream sql;
    sql << std::ifstream(TXSCAN_ROWS_SQL).rdbuf();
    EXPECT_TRUE(c.rows("CREATE TABLE people(id INTEGER PRIMARY KEY, name TEXT, address TEXT, note TEXT)").empty());
    sqlite3_stmt* insert = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(c.db, sql.str().c_str(), -1, &insert, nullptr), SQLITE_OK) << sqlite3_errmsg(c.db);
    sqlite3_bind_int(insert, sqlite3_bind_parameter_index(insert, ":rows"), count);
    EXPECT_TRUE(c.rows(insert).empty());
    sqlite3_finalize(insert);
    return path;
}

std::string quotedForShell(const std::string& text) {
    std::string out = "'";
    for (char ch : text) out += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
    return out + "'";
}

// The results of call(value) for every value, computed outside SQL, as SQL
// prints them. The one place where the comparison with `txscan apply` plugs
// in: until apply lands, `txscan eval` evaluates each distinct value.
std::map<std::string, std::string> outsideSql(const std::string& call, const std::vector<std::string>& values) {
    std::vector<std::string> calls;
    std::string command = TXSCAN_CLI " eval";
    for (const std::string& value : values) {
        std::string literal = "'";
        for (char ch : value) literal += ch == '\'' ? std::string("''") : std::string(1, ch);
        calls.push_back(call.substr(0, call.find('@')) + literal + "'" + call.substr(call.find('@') + 1));
        command += " " + quotedForShell(calls.back());
    }
    std::map<std::string, std::string> results;
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    for (char buffer[4096]; std::fgets(buffer, sizeof buffer, pipe) != nullptr;) output += buffer;
    EXPECT_EQ(pclose(pipe), 0) << command.substr(0, 200);
    std::istringstream lines(output);
    std::size_t next = 0;
    for (std::string line; std::getline(lines, line);) {
        if (next == calls.size() || line.rfind(calls[next] + " = ", 0) != 0) continue;
        std::string value = line.substr(calls[next].size() + 3);
        if (value == ".") value = "NULL";
        if (value.front() == '"') value = value.substr(1, value.size() - 2);   // no quotes inside these words
        results[values[next++]] = value;
    }
    EXPECT_EQ(next, calls.size());
    return results;
}

TEST(SqlFunctions, CallsNullsTypesAndStatuses) {
    struct Case {
        const char* sql;
        const char* expected;   // the row, or the start of the error
        const char* logged = "";
    };
    const Case cases[] = {
        {"kfind('abcabc', 'bc', -4), kcountx('aXaxAX', 'ax', 'i'), kfindc('Grüße', 'ßü'), "
         "kcountc('Grüße aus Köln', 'äöüß'), kfindw('one two three', 'three')",
         "2|3|3|3|9"},
        {"kcountw('日本語 の テキスト'), kscanx('Grüße aus, Köln', -1), kscanx_position('日本語 の テキスト', 3), "
         "kscanx_length('日本語 の テキスト', 3)",
         "3|Köln|7|4"},
        // NULL: absent text (the function's answer for it), absent start, missing count.
        {"kfind(NULL, 'a'), kfindc('abc', NULL), kfind('abc', 'b', NULL), kscanx(NULL, 1), kscanx('a b', 3)",
         "0|0|2| | "},
        {"kscanx('a b', NULL)", "error: kscanx: invalid argument (status 120836 = 0x1D804) in argument 2 (NULL)"},
        {"kfind('abc', 'b', 'i', NULL)", "error: kfind: invalid argument (status 120836 = 0x1D804) in argument 4"},
        // Numbers where text goes read as printed; text where a number goes must be one.
        {"kcountw(12345, 3), kscanx('a b', ' 2 '), kfind(3.5, '.')", "2|b|2"},
        {"kscanx('a b', 'two')", "error: kscanx: argument 2 ('two') is not a number"},
        {"kfind(x'616263', 'b')", "error: kfind: argument 1 is a blob"},
        {"kfind('abc')", "error: wrong number of arguments to function kfind()"},
        // Modifiers: an unknown letter is a note, a text where a start goes an error.
        {"kfind('abc', 'b', 'q')", "2", "kfind: note 744: "},
        {"kfind('abc', 'b', 'i', 'x')", "error: kfind: invalid argument (status 120836 = 0x1D804) in argument 4 ('x')"},
    };
    Connection c;
    for (const Case& k : cases) {
        gLog.clear();
        const auto rows = c.rows(std::string("SELECT ") + k.sql);
        ASSERT_EQ(rows.size(), 1u) << k.sql;
        EXPECT_EQ(rows[0].substr(0, std::string(k.expected).size()), k.expected) << k.sql;
        EXPECT_EQ(gLog.empty() ? "" : gLog[0].substr(0, std::string(k.logged).size()), k.logged) << k.sql;
    }
}

// Queries over 100k rows filter, group and sort on function results exactly
// as the same queries over the results computed outside SQL.
TEST(SqlFunctions, QueriesOverAFileMatchTheResultsOutsideSql) {
    Connection c(rowsFile(100000));
    struct Column {
        const char* table;
        const char* source;
        const char* call;   // @ stands for the value
    };
    const Column columns[] = {{"found", "name", "KFIND(@, 'an', 'i')"},
                              {"words", "address", "KCOUNTW(@)"},
                              {"last", "note", "KSCANX(@, -1)"}};
    for (const Column& column : columns) {
        const std::string source = column.source;
        const auto values = c.rows("SELECT DISTINCT " + source + " FROM people");
        ASSERT_TRUE(c.rows("CREATE TEMP TABLE " + std::string(column.table) + "(v TEXT PRIMARY KEY, r)").empty());
        for (const auto& [value, result] : outsideSql(column.call, values)) {
            sqlite3_stmt* insert = nullptr;
            sqlite3_prepare_v2(c.db, ("INSERT INTO " + std::string(column.table) + " VALUES (?, ?)").c_str(), -1,
                               &insert, nullptr);
            sqlite3_bind_text(insert, 1, value.c_str(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_text(insert, 2, result.c_str(), -1, SQLITE_TRANSIENT);
            c.rows(insert);
            sqlite3_finalize(insert);
        }
    }
    const std::string outside = " FROM people JOIN found ON found.v = name JOIN words ON words.v = address"
                                " JOIN last ON last.v = note ";
    const std::pair<std::string, std::string> queries[] = {
        {"SELECT id, kfind(name, 'an', 'i'), kcountw(address), kscanx(note, -1) FROM people ORDER BY id",
         "SELECT id, found.r, words.r, last.r" + outside + "ORDER BY id"},
        {"SELECT kcountw(address) AS w, count(*), max(kfind(name, 'an', 'i')) FROM people "
         "WHERE kscanx(note, -1) <> 'thanks' GROUP BY w ORDER BY w",
         "SELECT CAST(words.r AS INTEGER) AS w, count(*), max(CAST(found.r AS INTEGER))" + outside +
             "WHERE last.r <> 'thanks' GROUP BY w ORDER BY w"},
        {"SELECT kscanx(note, -1) AS s, count(*) FROM people GROUP BY s ORDER BY count(*) DESC, s",
         "SELECT last.r AS s, count(*)" + outside + "GROUP BY s ORDER BY count(*) DESC, s"},
    };
    for (const auto& [inSql, outsideSqlQuery] : queries) EXPECT_EQ(c.rows(inSql), c.rows(outsideSqlQuery)) << inSql;
    // Deterministic and innocuous: usable in an index even of an untrusted schema.
    EXPECT_TRUE(c.rows("PRAGMA trusted_schema = OFF").empty());
    EXPECT_EQ(c.rows("CREATE INDEX by_words ON people(kcountw(address))"), std::vector<std::string>{});
}

// A call site lives for one run of a statement: its cached set (modifier O)
// holds across the rows, and a reset with new parameters starts afresh.
TEST(SqlFunctions, PreparedStatementReusedWithNewParameters) {
    Connection c;
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(c.db, "SELECT kfindc(column1, ?1, 'O') FROM (VALUES ('xa'), ('ab'), ('bb'))", -1,
                                 &statement, nullptr),
              SQLITE_OK);
    const std::pair<const char*, std::vector<std::string>> runs[] = {
        {"a", {"2", "1", "0"}}, {"b", {"0", "2", "1"}}, {"a", {"2", "1", "0"}}};
    for (const auto& [characters, expected] : runs) {
        sqlite3_bind_text(statement, 1, characters, -1, SQLITE_STATIC);
        EXPECT_EQ(c.rows(statement), expected) << characters;
    }
    sqlite3_finalize(statement);
}

TEST(SqlFunctions, TwoConnectionsOnTwoThreads) {
    const std::string path = rowsFile(20000);
    const std::string query =
        "SELECT kcountw(address), kscanx(note, 2), kfindw(note, 'café', ' ', 'O'), kscanx_length(name, 1) "
        "FROM people ORDER BY id";
    const auto expected = Connection(path).rows(query);
    std::vector<std::string> results[2];
    std::thread threads[2];
    for (int t = 0; t < 2; ++t) threads[t] = std::thread([&, t] { results[t] = Connection(path).rows(query); });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(expected.size(), 20000u);
    for (const auto& result : results) EXPECT_EQ(result, expected);
}

}  // namespace

int main(int argc, char** argv) {
    // The log is configured before SQLite starts, as SQLite requires.
    sqlite3_config(SQLITE_CONFIG_LOG, +[](void*, int, const char* line) { gLog.push_back(line); }, nullptr);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
