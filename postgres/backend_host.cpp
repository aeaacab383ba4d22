// One backend's host and its call sites (see backend_host.h).
#include "postgres/backend_host.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "host/binder.h"
#include "host/extension_host.h"
#include "host/host.h"
#include "module/abi/argument_frame.h"
#include "module/abi/function_table.h"

namespace txpg {

namespace contract = txscan::contract;

namespace {

// A backend is one process serving one database, so its host lives as long
// as the process (parallel workers are processes of their own and load
// theirs). Never destroyed: PostgreSQL ends backends with exit().
txhost::Session* gSession = nullptr;
txhost::Module* gModule = nullptr;

void copyText(char* out, std::size_t size, const std::string& text) {
    if (size == 0) return;
    std::snprintf(out, size, "%s", text.c_str());
}

txhost::Binding bindingOf(int function) {
    const SqlFunction& f = kSqlFunctions[function];
    return txhost::Binding(*gModule, f.moduleName, f.callRoutine);
}

}  // namespace

struct Site {
    int function;
    txhost::Binding binding;
    txhost::BoundFrame frame;   // points at `binding`
    std::unique_ptr<char[]> result;   // the KSCANX word
    std::int64_t resultCapacity = 0;
    bool noteShown = false;
    std::string note;   // the first note, until the call that issued it returns

    Site(int f, std::uint8_t siteKind)
        : function(f), binding(bindingOf(f)), frame(binding, gSession->defaultCallContext(), siteKind) {}
};

bool startBackendHost(const char* encoding, char* error, std::size_t errorSize) noexcept {
    if (gModule != nullptr) return true;
    try {
        txhost::SessionOptions options;
        options.encoding = encoding;
        auto session = std::make_unique<txhost::Session>(options);
        auto module = txhost::Module::load(*session, txhost::moduleBesideThisLibrary());
        gSession = session.release();
        gModule = module.release();
        return true;
    } catch (const std::exception& e) {
        copyText(error, errorSize, e.what());
    }
    return false;
}

Site* newSite(int function, const bool* stable, int count, char* error, std::size_t errorSize) noexcept {
    try {
        const txhost::Binding binding = bindingOf(function);
        bool caching = true;
        for (int k = 1; k <= count; ++k) caching = caching && (stable[k - 1] || !binding.setDependsOn(k));
        return new Site(function, caching ? txhost::kCachingSiteKind : txhost::kParsingSiteKind);
    } catch (const std::exception& e) {
        copyText(error, errorSize, e.what());
    }
    return nullptr;
}

void deleteSite(Site* site) noexcept { delete site; }

bool takesText(int function, int position) noexcept { return bindingOf(function).takesText(position); }
bool takesNumber(int function, int position) noexcept { return bindingOf(function).takesNumber(position); }
int minArguments(int function) noexcept { return bindingOf(function).minInputs(); }
int maxArguments(int function) noexcept { return bindingOf(function).maxInputs(); }

namespace {

// The argument a failed call blames: the one the module marked, else the
// first number that is missing (a missing start or count).
int blamedArgument(const Site& site, const RowArgument* arguments, int count) {
    for (int k = 1; k <= count; ++k) {
        if (site.frame.errorMarks(k) != 0) return k;
    }
    for (int k = 1; k <= count; ++k) {
        if (arguments[k - 1].isNull && !site.binding.takesText(k)) return k;
    }
    return 0;
}

void answerNumber(RowAnswer& answer, std::optional<double> number) {
    if (!number || contract::exponentAllOnes(*number)) {   // nothing stored, or the missing value
        answer.outcome = RowAnswer::Outcome::Null;
    } else {
        answer.outcome = RowAnswer::Outcome::Integer;
        answer.integer = static_cast<std::int64_t>(std::trunc(*number));
    }
}

// A site's first note is shown; the others would repeat it row after row.
void takeNote(void* site, const txhost::MessageEvent& event) {
    auto& s = *static_cast<Site*>(site);
    if (s.noteShown) return;
    s.noteShown = true;
    s.note = txhost::messageText(event);
}

}  // namespace

void callRow(Site& site, const RowArgument* arguments, int count, RowAnswer& answer) noexcept {
    const SqlFunction& f = kSqlFunctions[site.function];
    txhost::BoundFrame& frame = site.frame;
    try {
        // NULL where text may go is an absent argument (the function's
        // answer for one); where only a number goes it is the missing value.
        frame.start(count);
        for (int k = 1; k <= count; ++k) {
            const RowArgument& a = arguments[k - 1];
            if (a.isNull && site.binding.takesText(k)) {
                frame.absent(k);
            } else if (a.isNull) {
                frame.number(k, contract::missingValue());
            } else if (a.isText) {
                frame.text(k, a.data, a.length);
            } else {
                frame.number(k, a.number);
            }
        }
        if (site.binding.resultKind() == contract::kCharacterResult) {
            // A word is never longer than the text it comes from, so the
            // result is never cut (an absent text gives one blank).
            const std::int64_t needed = std::max<std::int64_t>(arguments[0].isNull ? 1 : arguments[0].length, 1);
            if (needed > site.resultCapacity) {
                site.resultCapacity = std::max(needed, 2 * site.resultCapacity);
                site.result.reset(new char[static_cast<std::size_t>(site.resultCapacity)]);
            }
            frame.useTextResult(site.result.get(), site.resultCapacity);
        }
        std::int32_t status = 0;
        {
            const txhost::MessageSink sink{&site, takeNote};
            txhost::TaskScope task(*gSession, &sink);
            status = frame.call();
        }
        if (!site.note.empty()) {
            copyText(answer.note, sizeof answer.note, site.note);
            site.note.clear();
        }
        answer.status = status;
        if (status != contract::kStatusOk) {
            answer.outcome = status == contract::kStatusNoMemory ? RowAnswer::Outcome::NoMemory
                                                                 : RowAnswer::Outcome::Refused;
            answer.blamedArgument = blamedArgument(site, arguments, count);
            copyText(answer.words, sizeof answer.words, txhost::statusText(status));
        } else if (f.output == SqlFunction::Output::Position) {
            answerNumber(answer, frame.number());
        } else if (f.output == SqlFunction::Output::Length) {
            answerNumber(answer, frame.length());
        } else if (site.binding.resultKind() == contract::kCharacterResult) {
            if (frame.textImpossible()) {
                answer.outcome = RowAnswer::Outcome::HostError;
                copyText(answer.words, sizeof answer.words, "the module stored an impossible result length");
            } else if (const contract::StringValue* word = frame.text()) {
                answer.outcome = RowAnswer::Outcome::Text;
                answer.text = word->data;
                answer.textLength = word->length;
            } else {
                answer.outcome = RowAnswer::Outcome::Null;
            }
        } else {
            answerNumber(answer, frame.number());
        }
    } catch (const std::bad_alloc&) {
        answer.outcome = RowAnswer::Outcome::NoMemory;
        copyText(answer.words, sizeof answer.words, "out of memory in the host");
    } catch (const std::exception& e) {
        answer.outcome = RowAnswer::Outcome::HostError;
        copyText(answer.words, sizeof answer.words, e.what());
    }
}

}  // namespace txpg
