// The DuckDB side of `txscan sql`, built as its own library: an embedded
// database with the extension loaded runs one statement and hands its rows
// over as text.
#include <duckdb.h>

#include "cli/commands.h"
#include "cli/sql/sql_library.h"

namespace txcli {

namespace {

bool numericColumn(duckdb_type type) {
    switch (type) {
    case DUCKDB_TYPE_TINYINT: case DUCKDB_TYPE_SMALLINT: case DUCKDB_TYPE_INTEGER: case DUCKDB_TYPE_BIGINT:
    case DUCKDB_TYPE_UTINYINT: case DUCKDB_TYPE_USMALLINT: case DUCKDB_TYPE_UINTEGER: case DUCKDB_TYPE_UBIGINT:
    case DUCKDB_TYPE_HUGEINT: case DUCKDB_TYPE_FLOAT: case DUCKDB_TYPE_DOUBLE: case DUCKDB_TYPE_DECIMAL: return true;
    default: return false;
    }
}

void handOver(duckdb_result& result, SqlRows& rows) {
    const idx_t columns = duckdb_column_count(&result);
    std::vector<std::string> names;
    std::vector<bool> numeric;
    for (idx_t c = 0; c < columns; ++c) {
        names.emplace_back(duckdb_column_name(&result, c));
        numeric.push_back(numericColumn(duckdb_column_type(&result, c)));
    }
    rows.columns(names, numeric);
    std::vector<std::optional<std::string>> fields(static_cast<std::size_t>(columns));
    for (idx_t r = 0; r < duckdb_row_count(&result); ++r) {
        for (idx_t c = 0; c < columns; ++c) {
            char* value = duckdb_value_varchar(&result, c, r);
            fields[c] = value != nullptr ? std::optional<std::string>(value) : std::nullopt;
            duckdb_free(value);
        }
        rows.row(fields);
    }
}

int run(const SqlRequest& request, SqlRows& rows, std::string& error) {
    duckdb_config config = nullptr;
    duckdb_create_config(&config);
    duckdb_set_config(config, "allow_unsigned_extensions", "true");
    if (request.threads > 0) duckdb_set_config(config, "threads", std::to_string(request.threads).c_str());
    duckdb_database db = nullptr;
    char* openError = nullptr;
    if (duckdb_open_ext(nullptr, &db, config, &openError) != DuckDBSuccess) {
        error = openError != nullptr ? openError : "cannot open DuckDB";
        duckdb_free(openError);
        duckdb_destroy_config(&config);
        return 1;
    }
    duckdb_destroy_config(&config);
    duckdb_connection con = nullptr;
    duckdb_connect(db, &con);
    int code = 0;
    for (const std::string& statement : request.statements) {
        duckdb_result result;
        if (duckdb_query(con, statement.c_str(), &result) != DuckDBSuccess) {
            error = duckdb_result_error(&result);
            code = kUsageError;
        } else if (&statement == &request.statements.back() && request.rowsWanted &&
                   duckdb_result_return_type(result) == DUCKDB_RESULT_TYPE_QUERY_RESULT) {
            handOver(result, rows);
        }
        duckdb_destroy_result(&result);
        if (code != 0) break;
    }
    duckdb_disconnect(&con);
    duckdb_close(&db);
    return code;
}

}  // namespace

}  // namespace txcli

extern "C" __attribute__((visibility("default"))) int txscan_sql_run(const txcli::SqlRequest& request,
                                                                     txcli::SqlRows& rows, std::string& error) {
    return txcli::run(request, rows, error);
}
