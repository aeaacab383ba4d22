// The SQL functions the extension registers and what one registration
// carries into every row it evaluates.
#pragma once

#include <memory>
#include <span>

#include <sqlite3ext.h>

#include "host/binder.h"
#include "host/sql_functions.h"
#include "sqlite/sql_call_site.h"

namespace txsqlite {

using txhost::SqlFunction;

std::span<const SqlFunction> sqlFunctions();

// One connection's task: the call context its calls share (and in which the
// word functions keep their environment). It goes back to the session when
// the connection's last registration goes, that is when the connection
// closes, so connections opened and closed all day hold no memory.
struct ConnectionTask {
    txhost::Module* module = nullptr;
    txscan::contract::CallContext* callContext = nullptr;
    ConnectionTask(txhost::Module& m, txscan::contract::CallContext* context) : module(&m), callContext(context) {}
    ~ConnectionTask() { module->session().releaseCallContext(callContext); }
    ConnectionTask(const ConnectionTask&) = delete;
    ConnectionTask& operator=(const ConnectionTask&) = delete;
};

// User data of one registration (SQLite destroys each one on its own).
struct Registration {
    std::shared_ptr<ConnectionTask> task;
    const SqlFunction* function;
    txhost::Binding binding;
    int inputs;   // the SQL argument count this registration serves
    // Calls whose arguments all change from row to row keep no site, so
    // they share this one (see evaluateRow); touched only by the
    // connection's thread.
    std::unique_ptr<SqlCallSite> spare;
    int shortLivedSites = 0;
    std::int64_t spareCalls = 0;

    Registration(std::shared_ptr<ConnectionTask> connection, const SqlFunction& f, const txhost::Binding& b,
                 int argc)
        : task(std::move(connection)), function(&f), binding(b), inputs(argc) {}
};

// The xFunc of every registration.
void evaluateRow(sqlite3_context* context, int argc, sqlite3_value** argv);

}  // namespace txsqlite
