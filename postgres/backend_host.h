// The C++ half of the PostgreSQL extension: one host (Session and Module)
// per backend process and one call site per place a function is called.
// PostgreSQL's half (extension.cpp) reports errors with ereport, which
// longjmps; so nothing here is reached by PostgreSQL's headers, every entry
// is noexcept, and what crosses over is plain data the other side need not
// destroy.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/sql_functions.h"

namespace txpg {

using txhost::SqlFunction;
using txhost::kSqlFunctions;

inline constexpr int kSqlFunctionCount = static_cast<int>(kSqlFunctions.size());

// The most SQL arguments any function takes.
inline constexpr int kMaxSqlArguments = 6;

// One SQL argument of one row; the bytes stay PostgreSQL's.
struct RowArgument {
    bool isNull = true;
    bool isText = false;
    const char* data = nullptr;
    std::int64_t length = 0;
    double number = 0;
};

struct RowAnswer {
    enum class Outcome { Integer, Text, Null, Refused, NoMemory, HostError } outcome = Outcome::Null;
    std::int64_t integer = 0;
    const char* text = nullptr;   // valid until the site's next call
    std::int64_t textLength = 0;
    std::int32_t status = 0;
    int blamedArgument = 0;       // SQL position of the argument at fault, 0 for none
    char words[200] = {};         // the status in words with its number, or why the host failed
    char note[200] = {};          // the first note a site issues, once
};

// Loads the module into this process with the session encoding `encoding`
// (a host name such as "UTF-8"); later calls do nothing. False, and why in
// `error`, when it cannot.
bool startBackendHost(const char* encoding, char* error, std::size_t errorSize) noexcept;

struct Site;
// A call site of SQL function `function` (an index of kSqlFunctions) with
// `count` arguments, stable[k - 1] telling whether argument k keeps one value
// for every row the site serves (a constant or a parameter); null, and why
// in `error`, when the host refuses.
Site* newSite(int function, const bool* stable, int count, char* error, std::size_t errorSize) noexcept;
void deleteSite(Site* site) noexcept;
// Whether SQL argument `position` (1-based) of the function may be text, a
// number, or both: what the install script's overloads are made of.
bool takesText(int function, int position) noexcept;
bool takesNumber(int function, int position) noexcept;
// The SQL argument counts (the call routine's outputs are no SQL arguments).
int minArguments(int function) noexcept;
int maxArguments(int function) noexcept;

void callRow(Site& site, const RowArgument* arguments, int count, RowAnswer& answer) noexcept;

}  // namespace txpg
