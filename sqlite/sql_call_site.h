// The call site of one function call in a prepared statement. SQLite keeps
// it as auxiliary data of every argument until the statement is reset, and
// drops it from arguments that change from row to row, so it lives as long
// as one constant argument holds it. Its frame points straight at SQLite's
// values: nothing is copied per row.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "host/host.h"
#include "module/abi/argument_frame.h"

namespace txsqlite {

struct Registration;

struct SqlCallSite {
    // Site kinds: one at which the workers keep a parsed set (modifier O),
    // and one at which they parse every call, for a site that serves calls
    // whose lists change from row to row.
    static constexpr std::uint8_t kCaching = 0x48;
    static constexpr std::uint8_t kParsingEachCall = 0;

    txhost::CallSite site;      // the frame, and with it the parsed-set cache
    Registration* owner;
    int references = 1;         // SQLite's holds plus the running call's
    std::int64_t rows = 0;      // calls served
    std::array<double, txscan::contract::kMaxArguments> numbers{};
    std::array<txscan::contract::StringValue, txscan::contract::kMaxArguments> strings{};
    std::unique_ptr<char[]> result;   // the KSCANX word
    std::int64_t resultCapacity = 0;

    SqlCallSite(Registration& registration, std::uint8_t siteKind);
};

}  // namespace txsqlite
