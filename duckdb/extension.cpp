// The extension's entry point (txscan_init_c_api, on DuckDB's C extension
// API v1.2.0): loads the module once per process and registers the
// functions, one overload per signature the module's descriptors allow,
// and txscan_messages(), in each database that loads the extension.
#include "duckdb_extension.h"
DUCKDB_EXTENSION_EXTERN

#include <array>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <string>

#include "duckdb/duckdb_function.h"
#include "host/binder.h"
#include "module/abi/function_table.h"
#include "host/extension_host.h"

namespace txduckdb {

namespace {

namespace contract = txscan::contract;

using txhost::kSqlFunctions;

// Every signature of every function, made once per process (the addresses
// are the registrations' extra info in every database).
const std::deque<Overload>& overloads(txhost::Module& module) {
    static std::deque<Overload> all;
    static std::once_flag once;
    // Made whole before it is kept: call_once runs again after a throw.
    std::call_once(once, [&module] {
        std::deque<Overload> made;
        for (const SqlFunction& function : kSqlFunctions) {
            const txhost::Binding binding(module, function.moduleName, function.callRoutine);
            const txhost::FunctionInfo& info = binding.function();
            for (int count = binding.minInputs(); count <= binding.maxInputs(); ++count) {
                // Positions that take text or a number get both: DuckDB's
                // binder then picks the one the argument's type fits.
                std::vector<std::vector<bool>> signatures{{}};
                for (int k = 1; k <= count; ++k) {
                    std::vector<std::vector<bool>> longer;
                    for (const auto& prefix : signatures) {
                        for (const bool numeric : {false, true}) {
                            if (!(numeric ? binding.takesNumber(k) : binding.takesText(k))) continue;
                            longer.push_back(prefix);
                            longer.back().push_back(numeric);
                        }
                    }
                    signatures.swap(longer);
                }
                for (auto& numeric : signatures) {
                    made.push_back(Overload{&function, &info, &module, static_cast<int>(made.size()), std::move(numeric)});
                }
            }
        }
        all.swap(made);
    });
    return all;
}

struct LogicalType {
    duckdb_logical_type type;
    explicit LogicalType(duckdb_type id) : type(duckdb_create_logical_type(id)) {}
    ~LogicalType() { duckdb_destroy_logical_type(&type); }
};

bool registerFunctions(duckdb_connection connection, std::string& error) {
    error.clear();
    const txhost::SharedHost* host = txhost::sharedHost(error);
    if (host == nullptr) return false;
    const LogicalType text(DUCKDB_TYPE_VARCHAR), number(DUCKDB_TYPE_DOUBLE), integer(DUCKDB_TYPE_BIGINT);
    const std::deque<Overload>& all = overloads(*host->module);
    for (const SqlFunction& function : kSqlFunctions) {
        duckdb_scalar_function_set set = duckdb_create_scalar_function_set(function.sqlName);
        for (const Overload& o : all) {
            if (o.function != &function) continue;
            duckdb_scalar_function f = duckdb_create_scalar_function();
            duckdb_scalar_function_set_name(f, function.sqlName);
            for (const bool numeric : o.numeric) duckdb_scalar_function_add_parameter(f, numeric ? number.type : text.type);
            const bool word = o.info->descriptor->resultKind == contract::kCharacterResult;
            duckdb_scalar_function_set_return_type(f, word ? text.type : integer.type);
            // NULLs reach the function: a NULL text is an absent argument,
            // which the module answers.
            duckdb_scalar_function_set_special_handling(f);
            duckdb_scalar_function_set_extra_info(f, const_cast<Overload*>(&o), nullptr);
            duckdb_scalar_function_set_function(f, evaluateChunk);
            duckdb_add_scalar_function_to_set(set, f);
            duckdb_destroy_scalar_function(&f);
        }
        const duckdb_state state = duckdb_register_scalar_function_set(connection, set);
        duckdb_destroy_scalar_function_set(&set);
        if (state != DuckDBSuccess) {
            error = std::string("cannot register ") + function.sqlName;
            return false;
        }
    }
    if (!registerMessagesFunction(connection)) {
        error = "cannot register txscan_messages";
        return false;
    }
    return true;
}

}  // namespace

}  // namespace txduckdb

// The function table DuckDB hands over, through which every duckdb_* call
// of the extension goes.
duckdb_ext_api_v1 duckdb_ext_api{};

// The entry DuckDB looks for in txscan.duckdb_extension: it asks for the C
// API v1.2.0 table and registers on a connection of its own.
extern "C" __attribute__((visibility("default"))) bool txscan_init_c_api(duckdb_extension_info info,
                                                                         duckdb_extension_access* access) {
    const auto* api = static_cast<const duckdb_ext_api_v1*>(access->get_api(info, "v1.2.0"));
    if (api == nullptr) return false;   // DuckDB has set the error
    duckdb_ext_api = *api;
    duckdb_connection connection = nullptr;
    if (duckdb_connect(*access->get_database(info), &connection) == DuckDBError) {
        access->set_error(info, "txscan: cannot open a connection to register the functions");
        return false;
    }
    std::string error;
    try {
        txduckdb::registerFunctions(connection, error);
    } catch (const std::bad_alloc&) {
        error = "out of memory";   // a later LOAD tries again
    } catch (const std::exception& e) {
        error = e.what();
    }
    duckdb_disconnect(&connection);
    if (error.empty()) return true;
    access->set_error(info, ("txscan: " + error).c_str());
    return false;
}
