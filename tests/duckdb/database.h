// An in-memory DuckDB database with the extension loaded, for the tests of
// the functions inside DuckDB.
#pragma once

#include <duckdb.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace txtest {

using Rows = std::vector<std::string>;

// An in-memory database with the extension loaded (unsigned, so the
// database allows unsigned extensions).
struct Database {
    duckdb_database db = nullptr;
    duckdb_connection con = nullptr;
    // `threads`: DuckDB's own number of threads, when given.
    explicit Database(const char* threads = nullptr) {
        duckdb_config config = nullptr;
        duckdb_create_config(&config);
        duckdb_set_config(config, "allow_unsigned_extensions", "true");
        if (threads != nullptr) duckdb_set_config(config, "threads", threads);
        char* error = nullptr;
        EXPECT_EQ(duckdb_open_ext(nullptr, &db, config, &error), DuckDBSuccess) << (error ? error : "");
        duckdb_destroy_config(&config);
        duckdb_connect(db, &con);
        EXPECT_EQ(rows("LOAD '" TXSCAN_DUCKDB_EXTENSION "'"), Rows{});
    }
    ~Database() {
        duckdb_disconnect(&con);
        duckdb_close(&db);
    }
    // Each row, its columns joined by '|' (NULL as "NULL"); a failure is
    // one row "error: <message>".
    Rows rows(const std::string& sql) {
        duckdb_result result;
        Rows out;
        if (duckdb_query(con, sql.c_str(), &result) != DuckDBSuccess) {
            out.push_back(std::string("error: ") + duckdb_result_error(&result));
        } else if (duckdb_result_return_type(result) == DUCKDB_RESULT_TYPE_QUERY_RESULT) {
            for (idx_t r = 0; r < duckdb_row_count(&result); ++r) {
                std::string& row = out.emplace_back();
                for (idx_t c = 0; c < duckdb_column_count(&result); ++c) {
                    char* value = duckdb_value_varchar(&result, c, r);
                    row += (c > 0 ? "|" : "") + std::string(value != nullptr ? value : "NULL");
                    duckdb_free(value);
                }
            }
        }
        duckdb_destroy_result(&result);
        return out;
    }
    std::string one(const std::string& sql) {
        const Rows r = rows(sql);
        return r.size() == 1 ? r[0] : "(" + std::to_string(r.size()) + " rows)";
    }
};

}  // namespace txtest
