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
#include <new>
#include <optional>

#include "host/binder.h"
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

// Constants are most often the later arguments, so they are asked first.
SqlCallSite* siteOfThisCall(sqlite3_context* context, int argc) {
    for (int i = argc - 1; i >= 0; --i) {
        if (void* found = sqlite3_get_auxdata(context, i)) return static_cast<SqlCallSite*>(found);
    }
    return nullptr;
}

// Text of an argument for an error message, cut to whole UTF-8 characters.
std::string describeValue(sqlite3_value* value) {
    switch (sqlite3_value_type(value)) {
    case SQLITE_NULL: return "NULL";
    case SQLITE_BLOB: return "";
    default: break;
    }
    // SQLite gives no text when it has no memory to make one.
    const auto* data = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (data == nullptr) return "";
    if (sqlite3_value_type(value) != SQLITE_TEXT) return data;
    constexpr std::size_t kShown = 60;
    std::string text(data, static_cast<std::size_t>(sqlite3_value_bytes(value)));
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

enum class Bound { Refused, NoMemory, Text, Other };

// Binds SQLite's value as input k, saying whether it went as a text; a
// refused value leaves a reason.
inline Bound bindValue(sqlite3_value* value, const txhost::Binding& binding, int k, txhost::BoundFrame& call,
                       const char*& reason) {
    switch (sqlite3_value_type(value)) {
    case SQLITE_TEXT:
        if (binding.takesText(k)) break;
        if (sqlite3_value_text(value) == nullptr) return Bound::NoMemory;
        if (double number = 0; parseNumber(value, number)) {
            call.number(k, number);
            return Bound::Other;
        }
        reason = "is not a number";
        return Bound::Refused;
    case SQLITE_INTEGER:
    case SQLITE_FLOAT:
        if (!binding.takesNumber(k)) break;   // a number where text goes reads as SQLite prints it
        call.number(k, sqlite3_value_double(value));
        return Bound::Other;
    case SQLITE_NULL:
        // Absent where text may go; else the missing value.
        if (binding.takesText(k)) {
            call.absent(k);
        } else {
            call.number(k, contract::missingValue());
        }
        return Bound::Other;
    default:
        reason = "is a blob; text or a number is expected";   // its bytes need not be text at all
        return Bound::Refused;
    }
    // The text first, then its length: asking for the text may convert it,
    // which takes memory.
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (text == nullptr) return Bound::NoMemory;
    call.text(k, text, sqlite3_value_bytes(value));
    return Bound::Text;
}

// SQLite keeps a function's auxiliary data on an argument from one row to
// the next only when the argument is constant in the statement (a literal,
// a bound parameter, or an expression of those), and drops it from every
// other argument after the row that set it. So on a site's second call each
// argument still holding it is a constant one, and the site may keep a
// parsed set only when every argument the set depends on is: a set parsed
// from a column would otherwise answer for the next rows, and the answers
// would depend on the order of the scan. The constant arguments are bound
// here for good.
void settleSiteKind(SqlCallSite& site, sqlite3_context* context, const Registration& r, int argc,
                    sqlite3_value** argv) {
    site.kindSettled = true;
    bool setIsConstant = true;
    for (int k = 1; k <= argc; ++k) {
        if (sqlite3_get_auxdata(context, k - 1) != &site) {
            if (r.binding.setDependsOn(k)) setIsConstant = false;
            continue;
        }
        // A constant's value is the same on every row the site serves, so
        // it is bound here once; SQLite promises nothing about where its
        // text stays, so the site binds its own copy.
        const char* reason = nullptr;
        const Bound bound = bindValue(argv[k - 1], r.binding, k, site.call, reason);
        if (bound == Bound::Refused || bound == Bound::NoMemory) continue;   // bound again on each row
        if (bound == Bound::Text) {
            const contract::StringValue& text = *site.call.frame().string(r.binding.position(k));
            std::string& copy = site.constantTexts[k - 1];
            copy.assign(text.data, static_cast<std::size_t>(text.length));
            site.call.text(k, copy.data(), text.length);
        }
        site.boundOnce |= 1u << k;
    }
    if (setIsConstant) site.call.setSiteKind(txhost::kCachingSiteKind);
}

void resultNumber(sqlite3_context* context, std::optional<double> stored) {
    const double number = stored.value_or(contract::missingValue());
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
int blamedArgument(const txhost::BoundFrame& call, int argc, sqlite3_value** argv) {
    for (int k = 1; k <= argc; ++k) {
        if (call.errorMarks(k) != 0) return k;
    }
    const txhost::Binding& binding = call.binding();
    for (int k = 1; k <= argc; ++k) {
        if (sqlite3_value_type(argv[k - 1]) == SQLITE_NULL && !binding.takesText(k)) return k;
    }
    return 0;
}

void reportStatus(sqlite3_context* context, const Registration& r, std::int32_t status,
                  const txhost::BoundFrame& call, int argc, sqlite3_value** argv) {
    std::string message = std::string(r.function->sqlName) + ": " + txhost::statusText(status);
    if (const int k = blamedArgument(call, argc, argv); k > 0) {
        message += " in argument " + std::to_string(k) + shownValue(argv[k - 1]);
    }
    sqlite3_result_error(context, message.c_str(), -1);
    // SQLite's own code for it, so that a program tells it from bad input.
    if (status == contract::kStatusNoMemory) sqlite3_result_error_code(context, SQLITE_NOMEM);
}

// The row fails as SQLite's own calls do when memory runs out, in words
// that say which function it was.
void noMemory(sqlite3_context* context, const Registration& r) noexcept {
    char message[96];
    std::snprintf(message, sizeof message, "%s: out of memory", r.function->sqlName);
    sqlite3_result_error(context, message, -1);
    sqlite3_result_error_code(context, SQLITE_NOMEM);
}

// Notes and errors of a call go to SQLite's log as they happen; without
// the memory for its text, a message goes without it. Nothing may leave
// here: the module, which called, passes on no exception.
void logMessage(void* registration, const txhost::MessageEvent& e) noexcept {
    const auto& r = *static_cast<const Registration*>(registration);
    const bool note = e.source == txhost::Message::Source::Note;
    const int level = note ? SQLITE_NOTICE : SQLITE_WARNING;
    const char* kind = note ? "note" : "error";
    try {
        sqlite3_log(level, "%s: %s %d: %s", r.function->sqlName, kind, e.code, txhost::messageText(e).c_str());
    } catch (const std::bad_alloc&) {
        sqlite3_log(level, "%s: %s %d", r.function->sqlName, kind, e.code);
    }
}

void argumentError(sqlite3_context* context, const Registration& r, int k, sqlite3_value* value,
                   const char* reason) {
    const std::string message =
        std::string(r.function->sqlName) + ": argument " + std::to_string(k) + shownValue(value) + " " + reason;
    sqlite3_result_error(context, message.c_str(), -1);
}

// One row; may throw std::bad_alloc (see evaluateRow).
void evaluate(sqlite3_context* context, Registration& r, int argc, sqlite3_value** argv) {
    SqlCallSite* site = siteOfThisCall(context, argc);
    const bool newSite = site == nullptr &&
                         (r.shortLivedSites < kShortLivedLimit || ++r.spareCalls % kRetryAfter == 0);
    if (newSite) {
        site = new SqlCallSite(r);
    } else if (site == nullptr) {
        if (!r.spare) r.spare = std::make_unique<SqlCallSite>(r);
        site = r.spare.get();
    } else if (!site->kindSettled) {
        settleSiteKind(*site, context, r, argc, argv);
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

    // One registration serves one argument count, so the frame's shape was
    // set once (SqlCallSite); the arguments that change are bound anew.
    txhost::BoundFrame& call = site->call;
    for (int k = 1; k <= argc; ++k) {
        if ((site->boundOnce & (1u << k)) != 0) continue;
        const char* reason = nullptr;
        const Bound bound = bindValue(argv[k - 1], r.binding, k, call, reason);
        if (bound == Bound::NoMemory) {
            noMemory(context, r);
            return;
        }
        if (bound == Bound::Refused) {
            argumentError(context, r, k, argv[k - 1], reason);
            return;
        }
    }
    if (r.binding.callRoutine()) call.primeOutputs();
    if (r.binding.resultKind() == contract::kCharacterResult) {
        // A word is never longer than the text it comes from, so the
        // result is never cut (an absent text gives one blank).
        const std::int64_t needed = std::max<std::int64_t>(sqlite3_value_bytes(argv[0]), 1);
        if (needed > site->resultCapacity) {
            const std::int64_t capacity = std::max(needed, 2 * site->resultCapacity);
            site->result.reset(new char[static_cast<std::size_t>(capacity)]);
            site->resultCapacity = capacity;
            call.useTextResult(site->result.get(), site->resultCapacity);
        }
    }

    std::int32_t status = 0;
    {
        const txhost::MessageSink sink{&r, logMessage};
        txhost::TaskScope task(r.task->module->session(), &sink);
        status = call.call();
    }

    if (status != contract::kStatusOk) {
        reportStatus(context, r, status, call, argc, argv);
    } else if (r.function->output == SqlFunction::Output::Length) {
        resultNumber(context, call.length());
    } else if (r.binding.resultKind() != contract::kCharacterResult) {
        resultNumber(context, call.number());   // the call routine's position among them
    } else if (const contract::StringValue* word = call.text()) {
        sqlite3_result_text64(context, word->data, static_cast<sqlite3_uint64>(word->length), SQLITE_TRANSIENT,
                              SQLITE_UTF8);
    } else {
        sqlite3_result_null(context);
    }
}

}  // namespace

// SQLite passes on no exception, so none leaves here; what a row had made
// of its site before it failed stays usable by the next row.
void evaluateRow(sqlite3_context* context, int argc, sqlite3_value** argv) {
    Registration& r = *static_cast<Registration*>(sqlite3_user_data(context));
    try {
        evaluate(context, r, argc, argv);
    } catch (const std::bad_alloc&) {
        noMemory(context, r);
    } catch (const std::exception& e) {
        sqlite3_result_error(context, e.what(), -1);
    }
}

}  // namespace txsqlite

// Sites start parsing on every call, until their second call shows whether
// what a parsed set depends on is constant.
txsqlite::SqlCallSite::SqlCallSite(Registration& registration)
    : call(registration.binding, registration.task->callContext, txhost::kParsingSiteKind), owner(&registration) {
    call.start(registration.inputs);
}
