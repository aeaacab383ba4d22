// `txscan sql`: an embedded DuckDB with the extension loaded, so the
// functions run in SQL over CSV and Parquet files. Results print as a table,
// as CSV (--csv), or go to a file through COPY ... TO (-o, Parquet or CSV by
// the file's extension).
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "cli/apply/csv_writer.h"
#include "cli/commands.h"
#include "cli/sql/sql_library.h"

namespace txcli {

namespace {

struct SqlOptions {
    std::string query;
    std::string output;
    bool csv = false;
    int threads = 0;
};

// The extension and the DuckDB side of this command sit in lib/ beside the
// program's bin/, in the build tree and in an installation alike.
std::string besideProgram(const char* name, const char* builtAt) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const auto beside = self.parent_path().parent_path() / "lib" / name;
        if (std::filesystem::exists(beside, error)) return beside.string();
    }
    return builtAt;
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

// Rows as an aligned table, numbers to the right (all rows are read first,
// to know the widths).
class TablePrinter : public SqlRows {
public:
    void columns(const std::vector<std::string>& names, const std::vector<bool>& numeric) override {
        cells_.assign(1, names);
        numeric_ = numeric;
    }
    void row(const std::vector<std::optional<std::string>>& fields) override {
        auto& row = cells_.emplace_back();
        for (const auto& field : fields) row.push_back(field.value_or("NULL"));
    }
    void print() const {
        if (cells_.empty()) return;
        const std::size_t columns = numeric_.size();
        std::vector<int> widths(columns, 0);
        for (const auto& row : cells_) {
            for (std::size_t c = 0; c < columns; ++c) widths[c] = std::max(widths[c], width(row[c]));
        }
        auto line = [&](const std::vector<std::string>& row, bool header) {
            for (std::size_t c = 0; c < columns; ++c) {
                const std::string pad(static_cast<std::size_t>(widths[c] - width(row[c])), ' ');
                const bool right = !header && numeric_[c];
                std::cout << (c > 0 ? "  " : "") << (right ? pad + row[c] : row[c] + (c + 1 < columns ? pad : ""));
            }
            std::cout << "\n";
        };
        line(cells_[0], true);
        for (std::size_t c = 0; c < columns; ++c) {
            std::cout << (c > 0 ? "  " : "") << std::string(static_cast<std::size_t>(widths[c]), '-');
        }
        std::cout << "\n";
        for (std::size_t r = 1; r < cells_.size(); ++r) line(cells_[r], false);
    }

private:
    std::vector<std::vector<std::string>> cells_;
    std::vector<bool> numeric_;
};

// NULL is an empty cell, as txscan apply writes a missing value.
class CsvPrinter : public SqlRows {
public:
    void columns(const std::vector<std::string>& names, const std::vector<bool>&) override {
        fields_ = names;
        writer_.appendRecord(out_, fields_);
    }
    void row(const std::vector<std::optional<std::string>>& fields) override {
        for (std::size_t c = 0; c < fields.size(); ++c) fields_[c] = fields[c].value_or("");
        writer_.appendRecord(out_, fields_);
        if (out_.size() > (1u << 16)) flush();
    }
    void flush() {
        std::cout.write(out_.data(), static_cast<std::streamsize>(out_.size()));
        out_.clear();
    }

private:
    const CsvWriter writer_{CsvBytes{}, "\n"};
    OutputText out_;
    std::vector<std::string> fields_;
};

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
    std::string query = options.query;
    while (!query.empty() && (query.back() == ';' || std::isspace(static_cast<unsigned char>(query.back())))) query.pop_back();
    SqlRequest request;
    request.statements = {
        "LOAD " + quoted(besideProgram("txscan.duckdb_extension", TXSCAN_DUCKDB_EXTENSION)),
        options.output.empty() ? query : "COPY (" + query + ") TO " + quoted(options.output) + copyTo,
    };
    request.rowsWanted = options.output.empty();
    request.threads = options.threads;

    // Opened for good: DuckDB's threads and globals outlive this call.
    const std::string library = besideProgram("txscan_sql.so", TXSCAN_SQL_LIBRARY);
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    const auto run = handle != nullptr ? reinterpret_cast<SqlRun>(dlsym(handle, kSqlRunSymbol)) : nullptr;
    if (run == nullptr) {
        std::cerr << "txscan sql: cannot load " << library << ": " << dlerror() << "\n";
        return 1;
    }
    TablePrinter table;
    CsvPrinter csv;
    std::string error;
    const int code = run(request, options.csv ? static_cast<SqlRows&>(csv) : table, error);
    if (code != 0) {
        std::cerr << "txscan sql: " << error << "\n";
    } else if (options.csv) {
        csv.flush();
    } else {
        table.print();
    }
    std::cout.flush();
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
