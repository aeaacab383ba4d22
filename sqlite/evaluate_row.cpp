// One row of an SQL function call: SQLite's values become the module's
// arguments, the call site of this place in the statement makes the call,
// and its result, status and notes become SQLite's result, error and log.
#include <sqlite3ext.h>
SQLITE_EXTENSION_INIT3

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <memory>

#include "host/host.h"
#include "host/session_impl.h"
#include "sqlite/sql_call_site.h"
#include "sqlite/sql_function.h"

namespace txsqlite {

namespace {

namespace contract = txscan::contract;

// After this many sites in a row that served a single call (no argument
// held them), calls without a site share the registration's spare one;
// every kRetryAfter calls they try a held site again, in case the
// statement now running has a constant argument.
constexpr int kShortLivedLimit = 2;
constexpr std::int64_t kRetryAfter = 4096;

void releaseSite(void* site) {
    auto* s = static_cast<SqlCallSite*>(site);
    if (--s->references > 0) return;
    s->owner->shortLivedSites = s->rows <= 1 ? s->owner->shortLivedSites + 1 : 0;
    delete s;
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

// Points the frame's slot at SQLite's value as an argument of type `code`;
// false and a reason when the value cannot be one.
bool fillSlot(sqlite3_value* value, std::uint32_t code, contract::ArgumentSlot& slot, double& number,
              contract::StringValue& string, std::string& reason) {
    const bool takesNumber = (code & contract::kArgNumeric) != 0;
    const bool takesText = (code & contract::kArgCharacter) != 0;
    const int type = sqlite3_value_type(value);
    if (type == SQLITE_BLOB) {
        reason = "is a blob; text or a number is expected";   // its bytes need not be text at all
        return false;
    }
    if (type == SQLITE_NULL && takesText) return true;   // absent: the slot's value stays null
    if (type == SQLITE_NULL) {
        number = contract::missingValue();
    } else if ((type == SQLITE_INTEGER || type == SQLITE_FLOAT) && takesNumber) {
        number = sqlite3_value_double(value);
    } else if (takesText) {
        // A number where text is expected reads as SQLite prints it.
        const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
        const std::int64_t length = sqlite3_value_bytes(value);
        string = contract::StringValue{length, length, const_cast<char*>(text), nullptr, length};
        slot.typeFlags = contract::kTypeCharacter;
        slot.value = &string;
        return true;
    } else if (!parseNumber(value, number)) {
        reason = "is not a number";
        return false;
    }
    slot.typeFlags = contract::kTypeNumeric;
    slot.value = &number;
    return true;
}

// The module's position of SQL argument k: the call routine's two outputs
// sit at 3 and 4 and are no SQL arguments.
int modulePosition(const Registration& r, int sqlArgument) {
    return r.function->callRoutine && sqlArgument >= 3 ? sqlArgument + 2 : sqlArgument;
}

void resultNumber(sqlite3_context* context, double number) {
    if (contract::exponentAllOnes(number)) {   // the missing value, or nothing stored
        sqlite3_result_null(context);
    } else if (number == std::trunc(number) && std::fabs(number) < 9.0e15) {
        sqlite3_result_int64(context, static_cast<sqlite3_int64>(number));
    } else {
        sqlite3_result_double(context, number);
    }
}

// The argument a failed call blames: the one the module marked, else the
// first number that is missing (a missing start or count).
int blamedArgument(const Registration& r, const contract::ArgumentFrame& frame, int argc, sqlite3_value** argv) {
    for (int k = 1; k <= argc; ++k) {
        if (frame.arg(modulePosition(r, k)).errorMarks != 0) return k;
    }
    for (int k = 1; k <= argc; ++k) {
        const std::uint32_t code = contract::argumentTypeAt(r.descriptor->argTypes, modulePosition(r, k));
        if (sqlite3_value_type(argv[k - 1]) == SQLITE_NULL && code == contract::kArgNumeric) return k;
    }
    return 0;
}

void reportStatus(sqlite3_context* context, const Registration& r, std::int32_t status,
                  const contract::ArgumentFrame& frame, int argc, sqlite3_value** argv) {
    char text[64];
    std::snprintf(text, sizeof text, "%s (status %d = 0x%X)", txhost::statusName(status).c_str(), status,
                  static_cast<unsigned>(status));
    std::string message = std::string(r.function->sqlName) + ": " + text;
    if (const int k = blamedArgument(r, frame, argc, argv); k > 0) {
        message += " in argument " + std::to_string(k) + shownValue(argv[k - 1]);
    }
    sqlite3_result_error(context, message.c_str(), -1);
}

// Notes and errors of a call go to SQLite's log as they happen.
void logMessage(void* registration, const txhost::MessageEvent& e) {
    const auto& r = *static_cast<const Registration*>(registration);
    const bool note = e.source == txhost::Message::Source::Note;
    const std::string text = e.text != nullptr ? *e.text
                             : note            ? txhost::formatNote(e.code, e.functionName, e.character)
                                               : txhost::formatError(e.code, e.detail);
    sqlite3_log(note ? SQLITE_NOTICE : SQLITE_WARNING, "%s: %s %d: %s", r.function->sqlName, note ? "note" : "error",
                e.code, text.c_str());
}

void argumentError(sqlite3_context* context, const Registration& r, int k, sqlite3_value* value,
                   const std::string& reason) {
    const std::string message =
        std::string(r.function->sqlName) + ": argument " + std::to_string(k) + shownValue(value) + " " + reason;
    sqlite3_result_error(context, message.c_str(), -1);
}

}  // namespace

void evaluateRow(sqlite3_context* context, int argc, sqlite3_value** argv) {
    Registration& r = *static_cast<Registration*>(sqlite3_user_data(context));
    SqlCallSite* site = siteOfThisCall(context, argc);
    const bool newSite = site == nullptr &&
                         (r.shortLivedSites < kShortLivedLimit || ++r.spareCalls % kRetryAfter == 0);
    try {
        if (newSite) {
            site = new SqlCallSite(r, SqlCallSite::kCaching);
        } else if (site == nullptr) {
            if (!r.spare) r.spare = std::make_unique<SqlCallSite>(r, SqlCallSite::kParsingEachCall);
            site = r.spare.get();
        }
    } catch (const std::exception& e) {
        sqlite3_result_error(context, (std::string(r.function->sqlName) + ": " + e.what()).c_str(), -1);
        return;
    }
    ++site->rows;
    // Every argument holds a new site, so it lives while any constant one
    // does; set_auxdata may drop it at once, so that comes last.
    struct Handover {
        sqlite3_context* context;
        SqlCallSite* site;
        int argc;
        bool newSite;
        ~Handover() {
            if (!newSite) return;
            for (int i = 0; i < argc; ++i) {
                ++site->references;
                sqlite3_set_auxdata(context, i, site, releaseSite);
            }
            releaseSite(site);
        }
    } handover{context, site, argc, newSite};

    contract::ArgumentFrame& frame = site->site.frame();
    const int count = argc + (r.function->callRoutine ? 2 : 0);
    frame.argCount = count;
    for (int position = 1; position <= contract::kMaxArguments; ++position) {
        frame.arg(position) = contract::ArgumentSlot{};
    }
    for (int k = 1; k <= argc; ++k) {
        const int position = modulePosition(r, k);
        const auto i = static_cast<std::size_t>(position - 1);
        std::string reason;
        if (!fillSlot(argv[k - 1], contract::argumentTypeAt(r.descriptor->argTypes, position), frame.arg(position),
                      site->numbers[i], site->strings[i], reason)) {
            argumentError(context, r, k, argv[k - 1], reason);
            return;
        }
    }
    if (frame.arg(1).value != nullptr) frame.arg(1).typeFlags |= contract::kTypeRecheck;
    if (r.function->callRoutine) {
        for (const int output : {3, 4}) {
            double& place = site->numbers[static_cast<std::size_t>(output - 1)];
            place = 0;
            frame.arg(output) = contract::ArgumentSlot{contract::kTypeNumeric, 0, {}, &place};
        }
    }

    double number = std::bit_cast<double>(txhost::kResultSentinelBits);
    contract::StringValue word{};
    void* resultPlace = &number;
    if (r.descriptor->resultKind == contract::kCharacterResult) {
        // A word is never longer than the text it comes from, so the
        // result is never cut (an absent text gives one blank).
        const std::int64_t needed = std::max<std::int64_t>(sqlite3_value_bytes(argv[0]), 1);
        if (needed > site->resultCapacity) {
            site->resultCapacity = std::max(needed, 2 * site->resultCapacity);
            site->result.reset(new char[static_cast<std::size_t>(site->resultCapacity)]);
        }
        word = contract::StringValue{site->resultCapacity, -1, site->result.get(), nullptr, site->resultCapacity};
        resultPlace = &word;
    }

    std::int32_t status = 0;
    {
        const txhost::MessageSink sink{&r, logMessage};
        txhost::TaskScope task(r.task->module->session(), &sink);
        status = r.entry(&frame, resultPlace);
    }

    if (status != contract::kStatusOk) {
        reportStatus(context, r, status, frame, argc, argv);
    } else if (r.function->output == SqlFunction::Output::Position) {
        resultNumber(context, site->numbers[2]);
    } else if (r.function->output == SqlFunction::Output::Length) {
        resultNumber(context, site->numbers[3]);
    } else if (r.descriptor->resultKind == contract::kCharacterResult) {
        if (word.length >= 0) {
            sqlite3_result_text64(context, word.data, static_cast<sqlite3_uint64>(word.length), SQLITE_TRANSIENT,
                                  SQLITE_UTF8);
        } else {
            sqlite3_result_null(context);
        }
    } else {
        resultNumber(context, number);
    }
}

}  // namespace txsqlite

txsqlite::SqlCallSite::SqlCallSite(Registration& registration, std::uint8_t siteKind)
    : site(*registration.task->module, registration.functionIndex, siteKind), owner(&registration) {
    site.useCallContext(registration.task->callContext);
}
