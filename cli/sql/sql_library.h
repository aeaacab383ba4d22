// The line between `txscan sql` and DuckDB. DuckDB lives in its own library
// (txscan_sql.so beside the extension), opened only when `txscan sql` runs:
// linked into the program, its relocations alone cost every other command
// a fifth of a pass over a million-row CSV at start-up.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace txcli {

struct SqlRequest {
    std::vector<std::string> statements;   // run in turn until one fails
    bool rowsWanted = false;               // whether the last one's rows go to `SqlRows`
    int threads = 0;                       // DuckDB's threads; 0: its default
};

// Where the rows of a query go, as text (an empty optional is NULL).
class SqlRows {
public:
    virtual ~SqlRows() = default;
    virtual void columns(const std::vector<std::string>& names, const std::vector<bool>& numeric) = 0;
    virtual void row(const std::vector<std::optional<std::string>>& fields) = 0;
};

// Runs the request: 0, or 1 when DuckDB cannot start and kUsageError when a
// statement fails, with `error` saying why.
using SqlRun = int (*)(const SqlRequest& request, SqlRows& rows, std::string& error);
inline constexpr const char* kSqlRunSymbol = "txscan_sql_run";

}  // namespace txcli
