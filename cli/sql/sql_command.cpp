// `txscan sql`: an embedded DuckDB with the extension loaded, so the
// functions run in SQL over CSV and Parquet files. Results print as a table,
// as CSV (--csv), or go to a file through COPY ... TO (-o, Parquet or CSV by
// the file's extension).
#include <duckdb.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "cli/apply/csv_writer.h"
#include "cli/commands.h"

namespace txcli {

namespace {

struct SqlOptions {
    std::string query;
    std::string output;
    bool csv = false;
    int threads = 0;
};

// The extension sits in lib/ beside the program's bin/, in the build tree
// and in an installation alike.
std::string extensionPath() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const auto beside = self.parent_path().parent_path() / "lib" / "txscan.duckdb_extension";
        if (std::filesystem::exists(beside, error)) return beside.string();
    }
    return TXSCAN_DUCKDB_EXTENSION;
}

// Columns of a wide East Asian character take two cells on a terminal.
int cells(char32_t c) {
    const bool wide = (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0xA4CF) || (c >= 0xAC00 && c <= 0xD7A3) ||
                      (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) || (c >= 0xFF00 && c <= 0xFF60) ||
                      (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x20000 && c <= 0x3FFFD);
    return wide ? 2 : 1;
}

int width(const std::string& text) {
    int w = 0;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t n = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        char32_t c = n == 1 ? lead : lead & (0x7F >> n);
        for (std::size_t k = 1; k < n && i + k < text.size(); ++k) c = (c << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        w += cells(c);
        i += n;
    }
    return w;
}

bool numericColumn(duckdb_type type) {
    switch (type) {
    case DUCKDB_TYPE_TINYINT: case DUCKDB_TYPE_SMALLINT: case DUCKDB_TYPE_INTEGER: case DUCKDB_TYPE_BIGINT:
    case DUCKDB_TYPE_UTINYINT: case DUCKDB_TYPE_USMALLINT: case DUCKDB_TYPE_UINTEGER: case DUCKDB_TYPE_UBIGINT:
    case DUCKDB_TYPE_HUGEINT: case DUCKDB_TYPE_FLOAT: case DUCKDB_TYPE_DOUBLE: case DUCKDB_TYPE_DECIMAL: return true;
    default: return false;
    }
}

void printTable(duckdb_result& result) {
    const idx_t columns = duckdb_column_count(&result);
    const idx_t rows = duckdb_row_count(&result);
    std::vector<std::vector<std::string>> cellsOf(rows + 1);
    std::vector<int> widths(columns, 0);
    for (idx_t c = 0; c < columns; ++c) cellsOf[0].emplace_back(duckdb_column_name(&result, c));
    for (idx_t r = 0; r < rows; ++r) {
        for (idx_t c = 0; c < columns; ++c) {
            char* value = duckdb_value_varchar(&result, c, r);
            cellsOf[r + 1].emplace_back(value != nullptr ? value : "NULL");
            duckdb_free(value);
        }
    }
    for (const auto& row : cellsOf) {
        for (idx_t c = 0; c < columns; ++c) widths[c] = std::max(widths[c], width(row[c]));
    }
    auto line = [&](const std::vector<std::string>& row, bool header) {
        for (idx_t c = 0; c < columns; ++c) {
            const std::string pad(static_cast<std::size_t>(widths[c] - width(row[c])), ' ');
            const bool right = !header && numericColumn(duckdb_column_type(&result, c));
            std::cout << (c > 0 ? "  " : "") << (right ? pad + row[c] : row[c] + (c + 1 < columns ? pad : ""));
        }
        std::cout << "\n";
    };
    line(cellsOf[0], true);
    for (idx_t c = 0; c < columns; ++c) std::cout << (c > 0 ? "  " : "") << std::string(static_cast<std::size_t>(widths[c]), '-');
    std::cout << "\n";
    for (idx_t r = 1; r <= rows; ++r) line(cellsOf[r], false);
}

// NULL is an empty cell, as txscan apply writes a missing value.
void printCsv(duckdb_result& result) {
    const idx_t columns = duckdb_column_count(&result);
    const CsvWriter writer(CsvBytes{}, "\n");
    OutputText out;
    std::vector<std::string> fields(static_cast<std::size_t>(columns));
    for (idx_t c = 0; c < columns; ++c) fields[c] = duckdb_column_name(&result, c);
    writer.appendRecord(out, fields);
    for (idx_t r = 0; r < duckdb_row_count(&result); ++r) {
        for (idx_t c = 0; c < columns; ++c) {
            char* value = duckdb_value_varchar(&result, c, r);
            fields[c] = value != nullptr ? value : "";
            duckdb_free(value);
        }
        writer.appendRecord(out, fields);
        if (out.size() > (1u << 16)) {
            std::cout.write(out.data(), static_cast<std::streamsize>(out.size()));
            out.clear();
        }
    }
    std::cout.write(out.data(), static_cast<std::streamsize>(out.size()));
}

std::string quoted(const std::string& path) {
    std::string out = "'";
    for (const char c : path) out += c == '\'' ? std::string("''") : std::string(1, c);
    return out + "'";
}

int runSql(const SqlOptions& options) {
    std::string copyTo;
    if (!options.output.empty()) {
        const std::string extension = std::filesystem::path(options.output).extension().string();
        if (extension == ".parquet") {
            copyTo = " (FORMAT parquet)";
        } else if (extension == ".csv") {
            copyTo = " (FORMAT csv, HEADER)";
        } else {
            std::cerr << "txscan sql: -o takes a .parquet or .csv file, not " << options.output << "\n";
            return kUsageError;
        }
    }
    duckdb_config config = nullptr;
    duckdb_create_config(&config);
    duckdb_set_config(config, "allow_unsigned_extensions", "true");
    if (options.threads > 0) duckdb_set_config(config, "threads", std::to_string(options.threads).c_str());
    duckdb_database db = nullptr;
    char* openError = nullptr;
    if (duckdb_open_ext(nullptr, &db, config, &openError) != DuckDBSuccess) {
        std::cerr << "txscan sql: " << (openError != nullptr ? openError : "cannot open DuckDB") << "\n";
        duckdb_free(openError);
        duckdb_destroy_config(&config);
        return 1;
    }
    duckdb_destroy_config(&config);
    duckdb_connection con = nullptr;
    duckdb_connect(db, &con);
    std::string query = options.query;
    while (!query.empty() && (query.back() == ';' || std::isspace(static_cast<unsigned char>(query.back())))) query.pop_back();
    const std::string statements[] = {
        "LOAD " + quoted(extensionPath()),
        options.output.empty() ? query : "COPY (" + query + ") TO " + quoted(options.output) + copyTo,
    };
    int code = 0;
    for (const std::string& statement : statements) {
        duckdb_result result;
        if (duckdb_query(con, statement.c_str(), &result) != DuckDBSuccess) {
            std::cerr << "txscan sql: " << duckdb_result_error(&result) << "\n";
            code = kUsageError;
        } else if (&statement == &statements[1] && options.output.empty() &&
                   duckdb_result_return_type(result) == DUCKDB_RESULT_TYPE_QUERY_RESULT) {
            if (options.csv) {
                printCsv(result);
            } else {
                printTable(result);
            }
        }
        duckdb_destroy_result(&result);
        if (code != 0) break;
    }
    std::cout.flush();
    duckdb_disconnect(&con);
    duckdb_close(&db);
    return code;
}

}  // namespace

void addSqlCommand(CLI::App& app) {
    auto options = std::make_shared<SqlOptions>();
    CLI::App* sql = app.add_subcommand("sql", "Run SQL in an embedded DuckDB with the functions loaded");
    sql->add_option("query", options->query, "SQL; files are read with read_csv('people.csv') or 'people.parquet'")->required();
    sql->add_option("-o,--output", options->output, "write the query's rows to a .parquet or .csv file");
    sql->add_flag("--csv", options->csv, "print CSV instead of a table");
    sql->add_option("--threads", options->threads, "DuckDB's threads (default: one per core)")->check(CLI::Range(1, 1024));
    sql->callback([options] {
        if (const int code = runSql(*options); code != 0) throw CLI::RuntimeError(code);
    });
}

}  // namespace txcli
