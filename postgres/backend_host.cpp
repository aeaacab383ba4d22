// One backend's host and its call sites (see backend_host.h).
#include "postgres/backend_host.h"

#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/host.h"
#include "module/abi/argument_frame.h"
#include "module/abi/function_table.h"

namespace txpg {

namespace contract = txscan::contract;

const SqlFunction kSqlFunctions[kSqlFunctionCount] = {
    {"kfind", "KFIND", false, SqlFunction::Output::Result},
    {"kcountx", "KCOUNTX", false, SqlFunction::Output::Result},
    {"kfindc", "KFINDC", false, SqlFunction::Output::Result},
    {"kcountc", "KCOUNTC", false, SqlFunction::Output::Result},
    {"kcountw", "KCOUNTW", false, SqlFunction::Output::Result},
    {"kfindw", "KFINDW", false, SqlFunction::Output::Result},
    {"kscanx", "KSCANX", false, SqlFunction::Output::Result},
    {"kscanx_position", "KSCANX", true, SqlFunction::Output::Position},
    {"kscanx_length", "KSCANX", true, SqlFunction::Output::Length},
};

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

// The module file sits beside the extension, in the build tree and in an
// installation alike; a program linking this file finds the build's.
std::string modulePath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&modulePath), &info) != 0 && info.dli_fname != nullptr) {
        const auto beside = std::filesystem::path(info.dli_fname).parent_path() / "txscanmd.so";
        std::error_code ignored;
        if (std::filesystem::exists(beside, ignored)) return beside.string();
    }
    return TXSCAN_MODULE_PATH;
}

const SqlFunction& sqlFunction(int function) { return kSqlFunctions[function]; }

const contract::FunctionDescriptor& descriptorOf(int function) {
    const SqlFunction& f = sqlFunction(function);
    const int index = gModule->functionIndex(f.moduleName, f.callRoutine);
    return *gModule->functions()[static_cast<std::size_t>(index)].descriptor;
}

// The module's position of SQL argument k: the call routine's two outputs
// sit at 3 and 4 and are no SQL arguments.
int modulePosition(int function, int sqlPosition) {
    return sqlFunction(function).callRoutine && sqlPosition >= 3 ? sqlPosition + 2 : sqlPosition;
}

std::uint32_t typeCode(int function, int sqlPosition) {
    return contract::argumentTypeAt(descriptorOf(function).argTypes, modulePosition(function, sqlPosition));
}

}  // namespace

struct Site {
    int function = 0;
    txhost::CallSite call;
    std::vector<txhost::Argument> arguments;   // reused row after row
    std::int64_t resultCapacity = 0;
    std::string word;                          // the KSCANX result of the last call
    bool noteShown = false;

    Site(int f, int index, std::uint8_t siteKind) : function(f), call(*gModule, index, siteKind) {}
};

namespace {

// Site kinds: one at which the module keeps a parsed set (modifier O), for a
// site whose lists and modifiers are the same on every row, and one at which
// it parses every call.
constexpr std::uint8_t kCachingSite = 0x48;
constexpr std::uint8_t kParsingSite = 0;

}  // namespace

bool startBackendHost(const char* encoding, char* error, std::size_t errorSize) noexcept {
    if (gModule != nullptr) return true;
    try {
        txhost::SessionOptions options;
        options.encoding = encoding;
        auto session = std::make_unique<txhost::Session>(options);
        auto module = txhost::Module::load(*session, modulePath());
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
        const SqlFunction& f = sqlFunction(function);
        // A set is made from the texts after the first.
        bool caching = true;
        for (int k = 2; k <= count; ++k) caching = caching && (stable[k - 1] || !takesText(function, k));
        return new Site(function, gModule->functionIndex(f.moduleName, f.callRoutine),
                        caching ? kCachingSite : kParsingSite);
    } catch (const std::exception& e) {
        copyText(error, errorSize, e.what());
    }
    return nullptr;
}

void deleteSite(Site* site) noexcept { delete site; }

bool takesText(int function, int position) noexcept { return (typeCode(function, position) & contract::kArgCharacter) != 0; }
bool takesNumber(int function, int position) noexcept { return (typeCode(function, position) & contract::kArgNumeric) != 0; }

int minArguments(int function) noexcept {
    return descriptorOf(function).minArgs - (sqlFunction(function).callRoutine ? 2 : 0);
}
int maxArguments(int function) noexcept {
    return descriptorOf(function).maxArgs - (sqlFunction(function).callRoutine ? 2 : 0);
}

namespace {

// NULL where text may go is an absent argument (the function's answer for
// one); where only a number goes it is the missing value.
void setArgument(txhost::Argument& place, const RowArgument& a, std::uint32_t code) {
    if (a.isNull && (code & contract::kArgCharacter) != 0) {
        place = txhost::Absent{};
    } else if (a.isNull) {
        place = contract::missingValue();
    } else if (a.isText) {
        if (auto* text = std::get_if<std::string>(&place)) {
            text->assign(a.data, static_cast<std::size_t>(a.length));   // keeps the capacity of earlier rows
        } else {
            place = std::string(a.data, static_cast<std::size_t>(a.length));
        }
    } else {
        place = a.number;
    }
}

// The argument a failed call blames: the one the module marked, else the
// first number that is missing (a missing start or count).
int blamedArgument(const Site& site, const txhost::CallResult& r, const RowArgument* arguments, int count) {
    for (int k = 1; k <= count; ++k) {
        const auto i = static_cast<std::size_t>(modulePosition(site.function, k) - 1);
        if (i < r.errorMarks.size() && r.errorMarks[i] != 0) return k;
    }
    for (int k = 1; k <= count; ++k) {
        if (arguments[k - 1].isNull && typeCode(site.function, k) == contract::kArgNumeric) return k;
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

}  // namespace

void callRow(Site& site, const RowArgument* arguments, int count, RowAnswer& answer) noexcept {
    const SqlFunction& f = sqlFunction(site.function);
    try {
        const int moduleCount = count + (f.callRoutine ? 2 : 0);
        site.arguments.resize(static_cast<std::size_t>(moduleCount));
        for (int k = 1; k <= count; ++k) {
            const int position = modulePosition(site.function, k);
            setArgument(site.arguments[static_cast<std::size_t>(position - 1)], arguments[k - 1],
                        typeCode(site.function, k));
        }
        if (f.callRoutine) site.arguments[2] = site.arguments[3] = 0.0;
        if (descriptorOf(site.function).resultKind == contract::kCharacterResult) {
            // A word is never longer than the text it comes from, so the
            // result is never cut (an absent text gives one blank).
            const std::int64_t needed = std::max<std::int64_t>(arguments[0].isNull ? 1 : arguments[0].length, 1);
            if (needed > site.resultCapacity) {
                site.resultCapacity = std::max(needed, 2 * site.resultCapacity);
                site.call.useFixedResult(site.resultCapacity);
            }
        }
        txhost::CallResult r = site.call.call(site.arguments);
        if (!r.messages.empty()) {
            // The session keeps a record of every message too; a backend
            // runs for days, so it is emptied here.
            gSession->takeMessages();
            if (!site.noteShown) {
                site.noteShown = true;
                copyText(answer.note, sizeof answer.note, r.messages.front().text);
            }
        }
        answer.status = r.status;
        if (r.status != contract::kStatusOk) {
            answer.outcome = r.status == contract::kStatusNoMemory ? RowAnswer::Outcome::NoMemory
                                                                   : RowAnswer::Outcome::Refused;
            answer.blamedArgument = blamedArgument(site, r, arguments, count);
            copyText(answer.words, sizeof answer.words, txhost::statusName(r.status));
        } else if (f.output == SqlFunction::Output::Position) {
            answerNumber(answer, r.position);
        } else if (f.output == SqlFunction::Output::Length) {
            answerNumber(answer, r.length);
        } else if (r.text) {
            site.word = std::move(*r.text);
            answer.outcome = RowAnswer::Outcome::Text;
            answer.text = site.word.data();
            answer.textLength = static_cast<std::int64_t>(site.word.size());
        } else {
            answerNumber(answer, r.number);
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
