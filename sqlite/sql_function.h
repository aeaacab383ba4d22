// The SQL functions the extension registers and what one registration
// carries into every row it evaluates.
#pragma once

#include <memory>
#include <span>

#include <sqlite3ext.h>

#include "host/host.h"
#include "module/abi/argument_frame.h"
#include "module/abi/function_table.h"
#include "module/abi/host_vector.h"
#include "sqlite/sql_call_site.h"

namespace txsqlite {

// One SQL name. The call routine appears twice, once per output, since an
// SQL function gives one value.
struct SqlFunction {
    const char* sqlName;        // "kfind"
    const char* moduleName;     // "KFIND"
    bool callRoutine;
    enum class Output { Result, Position, Length } output;
};

std::span<const SqlFunction> sqlFunctions();

// One connection's task: the call context its calls share (and in which the
// word functions keep their environment).
struct ConnectionTask {
    txhost::Module* module = nullptr;
    txscan::contract::CallContext* callContext = nullptr;
};

// User data of one registration (SQLite destroys each one on its own).
struct Registration {
    std::shared_ptr<ConnectionTask> task;
    const SqlFunction* function = nullptr;
    int functionIndex = 0;
    const txscan::contract::FunctionDescriptor* descriptor = nullptr;
    txscan::contract::EntryRoutine entry = nullptr;
    // Calls whose arguments all change from row to row keep no site, so
    // they share this one (see evaluateRow); touched only by the
    // connection's thread.
    std::unique_ptr<SqlCallSite> spare;
    int shortLivedSites = 0;
    std::int64_t spareCalls = 0;
};

// The xFunc of every registration.
void evaluateRow(sqlite3_context* context, int argc, sqlite3_value** argv);

}  // namespace txsqlite
