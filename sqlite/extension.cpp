// The extension's entry point: loads the module once per process and
// registers its functions in each connection that loads the extension.
#include <sqlite3ext.h>
SQLITE_EXTENSION_INIT1

#include <array>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>

#include "host/extension_host.h"
#include "sqlite/sql_function.h"

namespace txsqlite {

namespace {

using txhost::kSqlFunctions;

// The host's random-number services serve one task at a time, and a call
// context builds its function environment (which makes a random stream) on
// its first word count; so each connection's is built here, one at a time,
// before any of its calls can run. False when memory for it was refused:
// a connection without it would build it on its first word count, at the
// same time as others.
bool buildFunctionEnvironment(txhost::Module& module, txscan::contract::CallContext* context) {
    static std::mutex oneAtATime;
    std::lock_guard<std::mutex> lock(oneAtATime);
    txhost::CallSite site(module, module.functionIndex("KCOUNTW"));
    site.useCallContext(context);
    return site.call({std::string("a")}).status == txscan::contract::kStatusOk;
}

void destroyRegistration(void* registration) { delete static_cast<Registration*>(registration); }

// The same results for the same arguments, and nothing outside the call
// touched, so SQLite may use them in indexes, views and triggers.
constexpr int kFunctionFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;

int registerFunctions(txhost::SharedHost* host, sqlite3* db, char** errorMessage) {
    std::shared_ptr<ConnectionTask> task;
    {
        txscan::contract::CallContext* context = host->session->newCallContext();
        try {
            task = std::make_shared<ConnectionTask>(*host->module, context);
        } catch (...) {
            host->session->releaseCallContext(context);
            throw;
        }
    }
    if (!buildFunctionEnvironment(*host->module, task->callContext)) throw std::bad_alloc();
    for (const SqlFunction& function : kSqlFunctions) {
        const txhost::Binding binding(*host->module, function.moduleName, function.callRoutine);
        // One registration per argument count: SQLite itself refuses the
        // others with its usual message. The call routine's two outputs are
        // no SQL arguments.
        for (int argc = binding.minInputs(); argc <= binding.maxInputs(); ++argc) {
            // SQLite destroys the registration itself, also when this fails.
            const int rc = sqlite3_create_function_v2(db, function.sqlName, argc, kFunctionFlags,
                                                      new Registration(task, function, binding, argc), evaluateRow,
                                                      nullptr, nullptr, destroyRegistration);
            if (rc != SQLITE_OK) {
                *errorMessage = sqlite3_mprintf("txscan_sqlite: cannot register %s: %s", function.sqlName,
                                                sqlite3_errmsg(db));
                return rc;
            }
        }
    }
    return SQLITE_OK;
}

// SQLite passes on no exception: memory refused on the way is its own
// error, and registrations made before stay until the next load replaces
// them or the connection closes.
int registerFunctions(sqlite3* db, char** errorMessage) {
    std::string error;
    try {
        txhost::SharedHost* host = txhost::sharedHost(error);
        if (host != nullptr) return registerFunctions(host, db, errorMessage);
    } catch (const std::bad_alloc&) {
        *errorMessage = sqlite3_mprintf("txscan_sqlite: out of memory");
        return SQLITE_NOMEM;
    } catch (const std::exception& e) {
        *errorMessage = sqlite3_mprintf("txscan_sqlite: %s", e.what());
        return SQLITE_ERROR;
    }
    *errorMessage = sqlite3_mprintf("txscan_sqlite: %s", error.c_str());
    return SQLITE_ERROR;
}

}  // namespace

std::span<const SqlFunction> sqlFunctions() { return kSqlFunctions; }

}  // namespace txsqlite

// The default entry point names SQLite tries: the generic one, and the one
// made from the file name txscan_sqlite.
extern "C" __attribute__((visibility("default"))) int sqlite3_extension_init(sqlite3* db, char** errorMessage,
                                                                             const sqlite3_api_routines* api) {
    // Connections on other threads may be calling through the table already;
    // it is the same table every time, so it is stored once.
    static std::once_flag apiStored;
    std::call_once(apiStored, [api] { SQLITE_EXTENSION_INIT2(api); });
    return txsqlite::registerFunctions(db, errorMessage);
}

extern "C" __attribute__((visibility("default"))) int sqlite3_txscansqlite_init(sqlite3* db, char** errorMessage,
                                                                                const sqlite3_api_routines* api) {
    return sqlite3_extension_init(db, errorMessage, api);
}
