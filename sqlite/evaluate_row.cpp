// One row of an SQL function call: SQLite's values become the module's
// arguments, the call site of this place in the statement makes the call,
// and its result, status and notes become SQLite's result, error and log.
#include <sqlite3ext.h>
SQLITE_EXTENSION_INIT3

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/host.h"
#include "sqlite/shared_host.h"
#include "sqlite/sql_function.h"

namespace txsqlite {

namespace {

namespace contract = txscan::contract;

// The call site of one function call in a prepared statement. SQLite keeps
// it as auxiliary data of every argument until the statement is reset, and
// drops it from arguments that change from row to row, so it lives as long
// as one constant argument holds it (and for one row when none is constant).
struct SqlCallSite {
    txhost::CallSite site;
    int references = 1;
    std::int64_t resultCapacity = 0;   // the KSCANX result buffer's size

    SqlCallSite(txhost::Module& module, const Registration& registration)
        : site(module, registration.functionIndex, kCachingSiteKind) {
        site.useCallContext(registration.task->callContext);
    }
    // A site kind at which the workers keep a parsed set (modifier O).
    static constexpr std::uint8_t kCachingSiteKind = 0x48;
};

void releaseSite(void* site) {
    auto* s = static_cast<SqlCallSite*>(site);
    if (--s->references == 0) {
        auto lock = hostCallLock();
        delete s;
    }
}

SqlCallSite* siteOfThisCall(sqlite3_context* context, int argc) {
    for (int i = 0; i < argc; ++i) {
        if (void* found = sqlite3_get_auxdata(context, i)) return static_cast<SqlCallSite*>(found);
    }
    return nullptr;
}

// Text of an argument for an error message, cut to whole UTF-8 characters.
std::string describeValue(sqlite3_value* value) {
    switch (sqlite3_value_type(value)) {
    case SQLITE_NULL: return "NULL";
    case SQLITE_BLOB: return "";
    case SQLITE_INTEGER:
    case SQLITE_FLOAT: return reinterpret_cast<const char*>(sqlite3_value_text(value));
    default: break;
    }
    constexpr std::size_t kShown = 60;
    std::string text(reinterpret_cast<const char*>(sqlite3_value_text(value)),
                     static_cast<std::size_t>(sqlite3_value_bytes(value)));
    if (text.size() > kShown) {
        std::size_t cut = kShown;
        while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
        text = text.substr(0, cut) + "...";
    }
    return "'" + text + "'";
}

// The value in parentheses after an argument's number, or nothing for a blob.
std::string shownValue(sqlite3_value* value) {
    const std::string shown = describeValue(value);
    return shown.empty() ? shown : " (" + shown + ")";
}

// A text that reads whole as a number, as a user typing '3' means 3.
bool parseNumber(sqlite3_value* value, double& number) {
    const char* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (text == nullptr) return false;
    char* end = nullptr;
    number = std::strtod(text, &end);
    if (end == text) return false;
    while (*end == ' ' || *end == '\t') ++end;
    return *end == '\0';
}

// SQLite's value as the module argument of type `code`; false and a reason
// when the value cannot be one.
bool toArgument(sqlite3_value* value, std::uint32_t code, txhost::Argument& argument, std::string& reason) {
    const bool takesNumber = (code & contract::kArgNumeric) != 0;
    const bool takesText = (code & contract::kArgCharacter) != 0;
    switch (sqlite3_value_type(value)) {
    case SQLITE_NULL:
        if (takesText) argument = txhost::Absent{};
        else argument = contract::missingValue();
        return true;
    case SQLITE_INTEGER:
    case SQLITE_FLOAT:
        if (takesNumber) argument = sqlite3_value_double(value);
        else argument = std::string(reinterpret_cast<const char*>(sqlite3_value_text(value)));
        return true;
    case SQLITE_TEXT:
        if (takesText) {
            argument = std::string(reinterpret_cast<const char*>(sqlite3_value_text(value)),
                                   static_cast<std::size_t>(sqlite3_value_bytes(value)));
            return true;
        }
        if (double number = 0; parseNumber(value, number)) {
            argument = number;
            return true;
        }
        reason = "is not a number";
        return false;
    default:
        reason = "is a blob; text or a number is expected";   // its bytes need not be text at all
        return false;
    }
}

// The module's position of SQL argument k: the call routine's two outputs
// sit at 3 and 4 and are no SQL arguments.
int modulePosition(const Registration& r, int sqlArgument) {
    return r.function->callRoutine && sqlArgument >= 3 ? sqlArgument + 2 : sqlArgument;
}

void resultNumber(sqlite3_context* context, const std::optional<double>& number) {
    if (!number || contract::exponentAllOnes(*number)) {
        sqlite3_result_null(context);
    } else if (*number == std::trunc(*number) && std::fabs(*number) < 9.0e15) {
        sqlite3_result_int64(context, static_cast<sqlite3_int64>(*number));
    } else {
        sqlite3_result_double(context, *number);
    }
}

// The argument a failed call blames: the one the module marked, else the
// first number that is missing (a missing start or count).
int blamedArgument(const Registration& r, const txhost::CallResult& result, int argc, sqlite3_value** argv) {
    for (int k = 1; k <= argc; ++k) {
        const auto position = static_cast<std::size_t>(modulePosition(r, k) - 1);
        if (position < result.errorMarks.size() && result.errorMarks[position] != 0) return k;
    }
    for (int k = 1; k <= argc; ++k) {
        const std::uint32_t code = contract::argumentTypeAt(r.descriptor->argTypes, modulePosition(r, k));
        if (sqlite3_value_type(argv[k - 1]) == SQLITE_NULL && code == contract::kArgNumeric) return k;
    }
    return 0;
}

void reportStatus(sqlite3_context* context, const Registration& r, const txhost::CallResult& result, int argc,
                  sqlite3_value** argv) {
    char status[64];
    std::snprintf(status, sizeof status, "%s (status %d = 0x%X)", txhost::statusName(result.status).c_str(),
                  result.status, static_cast<unsigned>(result.status));
    std::string message = std::string(r.function->sqlName) + ": " + status;
    if (const int k = blamedArgument(r, result, argc, argv); k > 0) {
        message += " in argument " + std::to_string(k) + shownValue(argv[k - 1]);
    }
    sqlite3_result_error(context, message.c_str(), -1);
}

void logMessages(const Registration& r, const std::vector<txhost::Message>& messages) {
    for (const txhost::Message& m : messages) {
        const bool note = m.source == txhost::Message::Source::Note;
        sqlite3_log(note ? SQLITE_NOTICE : SQLITE_WARNING, "%s: %s %d: %s", r.function->sqlName,
                    note ? "note" : "error", m.code, m.text.c_str());
    }
}

}  // namespace

void evaluateRow(sqlite3_context* context, int argc, sqlite3_value** argv) {
    const Registration& r = *static_cast<const Registration*>(sqlite3_user_data(context));
    std::vector<txhost::Argument> arguments;
    arguments.reserve(static_cast<std::size_t>(r.descriptor->maxArgs));
    for (int k = 1; k <= argc; ++k) {
        if (r.function->callRoutine && k == 3) arguments.insert(arguments.end(), 2, txhost::Argument{0.0});
        txhost::Argument argument;
        std::string reason;
        const std::uint32_t code = contract::argumentTypeAt(r.descriptor->argTypes, modulePosition(r, k));
        if (!toArgument(argv[k - 1], code, argument, reason)) {
            const std::string message = std::string(r.function->sqlName) + ": argument " + std::to_string(k) +
                                        shownValue(argv[k - 1]) + " " + reason;
            sqlite3_result_error(context, message.c_str(), -1);
            return;
        }
        arguments.push_back(std::move(argument));
    }
    if (r.function->callRoutine && argc == 2) arguments.insert(arguments.end(), 2, txhost::Argument{0.0});

    SqlCallSite* site = siteOfThisCall(context, argc);
    const bool newSite = site == nullptr;
    txhost::CallResult result;
    try {
        auto lock = hostCallLock();
        if (newSite) site = new SqlCallSite(*r.task->module, r);
        if (r.descriptor->resultKind == contract::kCharacterResult) {
            // A word is never longer than the text it comes from, so the
            // result is never cut (an absent text gives one blank).
            const std::int64_t needed = std::max<std::int64_t>(sqlite3_value_bytes(argv[0]), 1);
            if (needed > site->resultCapacity) {
                site->resultCapacity = std::max(needed, 2 * site->resultCapacity);
                site->site.useFixedResult(site->resultCapacity);
            }
        }
        result = site->site.call(arguments);
    } catch (const std::exception& e) {
        sqlite3_result_error(context, (std::string(r.function->sqlName) + ": " + e.what()).c_str(), -1);
        if (newSite) releaseSite(site);
        return;
    }

    logMessages(r, result.messages);
    if (result.status != contract::kStatusOk) {
        reportStatus(context, r, result, argc, argv);
    } else if (r.function->output == SqlFunction::Output::Position) {
        resultNumber(context, result.position);
    } else if (r.function->output == SqlFunction::Output::Length) {
        resultNumber(context, result.length);
    } else if (r.descriptor->resultKind == contract::kCharacterResult) {
        if (result.text) {
            sqlite3_result_text64(context, result.text->data(), result.text->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        } else {
            sqlite3_result_null(context);
        }
    } else {
        resultNumber(context, result.number);
    }

    if (newSite) {
        // Every argument holds the site, so it lives while any constant one
        // does; the set_auxdata calls come last because each may drop it.
        for (int i = 0; i < argc; ++i) {
            ++site->references;
            sqlite3_set_auxdata(context, i, site, releaseSite);
        }
        releaseSite(site);
    }
}

}  // namespace txsqlite
