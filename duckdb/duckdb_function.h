// What the DuckDB extension registers: one SQL name per function (the call
// routine twice, once per output), one overload per argument count and
// argument types the module's descriptor allows, and the process-wide tally
// of the module's notes that txscan_messages() shows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "duckdb_extension.h"
#include "host/host.h"
#include "host/sql_functions.h"

namespace txduckdb {

using txhost::SqlFunction;

// One registered signature; its address is the scalar function's extra info.
struct Overload {
    const SqlFunction* function = nullptr;
    const txhost::FunctionInfo* info = nullptr;
    txhost::Module* module = nullptr;
    int id = 0;                        // distinct per overload: keys the per-thread programs
    std::vector<bool> numeric;         // per SQL argument: DOUBLE (true) or VARCHAR
};

// The DuckDB scalar function of every overload: one data chunk at a time.
void evaluateChunk(duckdb_function_info info, duckdb_data_chunk input, duckdb_vector output);

// Notes and errors the functions issued in this process, per function and kind.
struct MessageTotal {
    std::string function;   // SQL name
    bool error = false;
    std::int32_t code = 0;
    std::int32_t character = 0;
    std::string text;
    std::int64_t count = 0;
};
std::vector<MessageTotal> messageTotals();

// Registers the table function txscan_messages() on the connection.
bool registerMessagesFunction(duckdb_connection connection);

}  // namespace txduckdb
