// The call site of one function call in a prepared statement. SQLite keeps
// it as auxiliary data of every argument until the statement is reset, and
// drops it after each row from arguments that are not constant, so it lives
// as long as one constant argument holds it. Its frame points straight at
// SQLite's values: nothing is copied per row.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/binder.h"

namespace txsqlite {

struct Registration;

struct SqlCallSite {
    txhost::BoundFrame call;    // the frame, and with it the parsed-set cache
    Registration* owner;
    int references = 1;         // SQLite's holds plus the running call's
    std::int64_t rows = 0;      // calls served
    // Whether the site may keep a parsed set is settled on its second call,
    // once SQLite has shown which arguments are constant (see evaluateRow).
    bool kindSettled = false;
    // Arguments that are constant in the statement, bound once when the
    // kind is settled (bit k for argument k) and skipped on every later
    // row; a constant text is bound from this site's own copy of it.
    std::uint32_t boundOnce = 0;
    std::string constantTexts[txscan::contract::kMaxArguments];
    std::unique_ptr<char[]> result;   // the KSCANX word
    std::int64_t resultCapacity = 0;

    explicit SqlCallSite(Registration& registration);
};

}  // namespace txsqlite
