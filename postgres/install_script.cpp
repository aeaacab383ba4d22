// Writes the extension's install script (txscan--1.0.sql) to standard
// output: one CREATE FUNCTION per SQL name and argument list, read from the
// module's function table, so the overloads follow the table (a position
// that takes text or a number gets both).
#include <cstdio>
#include <string>
#include <vector>

#include "postgres/backend_host.h"

namespace {

void overloads(int function, int position, int count, std::vector<const char*>& types) {
    if (position > count) {
        const txpg::SqlFunction& f = txpg::kSqlFunctions[function];
        std::string arguments;
        for (const char* type : types) arguments += std::string(arguments.empty() ? "" : ", ") + type;
        const char* result = f.output == txpg::SqlFunction::Output::Result && !f.callRoutine &&
                                     std::string(f.moduleName) == "KSCANX"
                                 ? "text"
                                 : "integer";
        std::printf("CREATE FUNCTION %s(%s) RETURNS %s\n  AS 'MODULE_PATHNAME', '%s' LANGUAGE C IMMUTABLE PARALLEL SAFE;\n",
                    f.sqlName, arguments.c_str(), result, f.sqlName);
        return;
    }
    for (const bool text : {true, false}) {
        if (text ? !txpg::takesText(function, position) : !txpg::takesNumber(function, position)) continue;
        types.push_back(text ? "text" : "double precision");
        overloads(function, position + 1, count, types);
        types.pop_back();
    }
}

}  // namespace

int main() {
    char error[256];
    if (!txpg::startBackendHost("UTF-8", error, sizeof error)) {
        std::fprintf(stderr, "txscan_pg_install_script: %s\n", error);
        return 1;
    }
    std::printf("-- The txscan functions (made from the module's function table).\n"
                "\\echo Use \"CREATE EXTENSION txscan\" to load this file. \\quit\n");
    for (int function = 0; function < txpg::kSqlFunctionCount; ++function) {
        for (int count = txpg::minArguments(function); count <= txpg::maxArguments(function); ++count) {
            std::vector<const char*> types;
            overloads(function, 1, count, types);
        }
    }
    return 0;
}
