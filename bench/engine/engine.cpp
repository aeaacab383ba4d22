// Per-row cost of the row engine on 1 and 2 workers against the entry
// routine called directly on a prepared frame and against CallSite::call,
// on a million generated rows of 20 to 120 bytes (names, addresses, free
// text), ASCII and mixed with accented Latin and CJK. Prints one line per
// function, set and way of calling: "RESULT set function mode ns_per_row".
// With --write-rows DIR it also writes each set's rows, one per line, to
// DIR/SET.txt for the peers (compare.py runs them on the same rows).
//
// A second table sets the direct call against a plain string_view loop
// written here for each of its calls ("RESULT set label loop ns_per_row"),
// the practical limit of the machine: the loop's answers are checked equal
// to the module's on every row before either is timed, and both are timed
// as CPU time of this thread, median of five rounds. Its rows also run on a
// set of one-character rows ("one"), where the call's fixed cost shows.
#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <string_view>

#include <sys/resource.h>
#include <time.h>

#include "engine/engine.h"
#include "host/host.h"

namespace {

using namespace txscan::contract;
using txhost::Argument;

struct Rows {
    std::vector<std::int64_t> offsets{0};
    std::string bytes;
    std::size_t count() const { return offsets.size() - 1; }
};

const char* const kGiven[] = {"Anna", "James", "Maria", "Robert", "Linda", "Ahmed", "Chen", "Olga", "Pedro", "Sara"};
const char* const kFamily[] = {"Smith", "Johnson", "Garcia", "Miller", "Davis", "Anderson", "Taylor", "Moore", "Lee"};
const char* const kStreets[] = {"Main Street", "Oak Avenue", "Park Road", "High Street", "Cedar Lane", "Elm Drive"};
const char* const kCities[] = {"Springfield", "Riverside", "Madison", "Georgetown", "Salem", "Fairview", "Dayton"};
const char* const kWords[] = {"the", "order", "was", "delivered", "late", "and", "customer", "asked", "for", "a",
                              "refund", "de", "la", "package", "arrived", "damaged", "please", "call", "back", "today"};
// The same kinds of rows with accented Latin and CJK.
const char* const kGivenMixed[] = {"Ren\xC3\xA9\x65", "J\xC3\xBCrgen", "Mar\xC3\xAD\x61", "Fran\xC3\xA7ois",
                                   "\xE7\x8E\x8B\xE5\xB0\x8F\xE6\x98\x8E", "\xE5\xB1\xB1\xE7\x94\xB0", "Chlo\xC3\xA9"};
const char* const kWordsMixed[] = {"Stra\xC3\x9F\x65", "caf\xC3\xA9", "\xE6\x9D\xB1\xE4\xBA\xAC", "na\xC3\xAFve",
                                   "\xE5\x87\xBA\xE8\xB2\xA8", "order", "de", "la", "late", "r\xC3\xA9sum\xC3\xA9"};

template <std::size_t N>
const char* pick(std::mt19937& random, const char* const (&list)[N]) {
    return list[random() % N];
}

// The row sets: plain ASCII; "mixed", where 30% of the rows hold accented
// Latin or CJK (the rest ASCII); "wide", where every row may draw from the
// accented and CJK names and words (about 83% of the rows hold some).
// "one": rows of one ASCII letter or digit, for the fixed cost of a call.
enum class RowSet { Ascii, Mixed, Wide, One };
constexpr RowSet kRowSets[] = {RowSet::Ascii, RowSet::Mixed, RowSet::Wide, RowSet::One};
const char* nameOf(RowSet set) {
    return set == RowSet::Ascii ? "ascii" : set == RowSet::Mixed ? "mixed" : set == RowSet::Wide ? "wide" : "one";
}

bool holdsWide(const std::string& row) {
    return std::any_of(row.begin(), row.end(), [](char c) { return (static_cast<unsigned char>(c) & 0x80) != 0; });
}

Rows oneCharacterRows(std::size_t count) {
    const char* const characters[] = {"a", "7", "S", "e", "0", "t", "h", "d", "x", "3"};
    std::mt19937 random(99);
    Rows rows;
    for (std::size_t i = 0; i < count; ++i) {
        rows.bytes += pick(random, characters);
        rows.offsets.push_back(static_cast<std::int64_t>(rows.bytes.size()));
    }
    return rows;
}

Rows generate(RowSet set, std::size_t count) {
    if (set == RowSet::One) return oneCharacterRows(count);
    std::mt19937 random(static_cast<unsigned>(set) + 1);
    Rows rows;
    rows.bytes.reserve(count * 70);
    std::string row;
    for (std::size_t i = 0; i < count; ++i) {
        // A row of the mixed set is wide with probability 0.3, and then is
        // drawn again until it holds a multi-byte character.
        const bool mixed = set == RowSet::Wide || (set == RowSet::Mixed && random() % 10 < 3);
        do {
            row.clear();
            const unsigned kind = random() % 3;
            auto given = [&] { return mixed && random() % 2 ? pick(random, kGivenMixed) : pick(random, kGiven); };
            auto word = [&] { return mixed && random() % 3 == 0 ? pick(random, kWordsMixed) : pick(random, kWords); };
            if (kind == 0) {
                row = std::string(given()) + " " + pick(random, kFamily) + ", " + given() + " " + pick(random, kFamily);
            } else if (kind == 1) {
                row = std::to_string(1 + random() % 9999) + " " + pick(random, kStreets) + ", " + pick(random, kCities) +
                      " " + std::to_string(10000 + random() % 89999);
            }
            const std::size_t target = 20 + random() % 101;
            while (row.size() < target) row += (row.empty() ? "" : random() % 6 == 0 ? ", " : " ") + std::string(word());
            while (row.size() > 120) row.pop_back();
            // A cut may leave part of a character: drop it.
            while (!row.empty() && (static_cast<unsigned char>(row.back()) & 0xC0) == 0xC0) row.pop_back();
            while (!row.empty() && (static_cast<unsigned char>(row.back()) & 0x80) != 0) {
                std::size_t start = row.size() - 1;
                while (start > 0 && (static_cast<unsigned char>(row[start]) & 0xC0) == 0x80) --start;
                const auto lead = static_cast<unsigned char>(row[start]);
                const std::size_t need = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
                if (row.size() - start == need) break;
                row.resize(start);
            }
        } while (set == RowSet::Mixed && mixed && !holdsWide(row));
        rows.bytes += row;
        rows.offsets.push_back(static_cast<std::int64_t>(rows.bytes.size()));
    }
    return rows;
}

struct Function {
    const char* label;
    const char* name;
    std::vector<Argument> constants;   // the arguments after the text
};

const Function kFunctions[] = {
    {"KFIND", "KFIND", {std::string("an")}},
    {"KCOUNTX", "KCOUNTX", {std::string("an")}},
    {"KFINDC", "KFINDC", {std::string("xyz.,")}},
    {"KCOUNTC", "KCOUNTC", {std::string("aeiou")}},
    {"KCOUNTW", "KCOUNTW", {std::string(" ,")}},
    {"KFINDW", "KFINDW", {std::string("de"), std::string(" ")}},
    {"KSCANX", "KSCANX", {2.0, std::string(" ,")}},
    {"KSCANX_LAST", "KSCANX", {-1.0, std::string(" ,")}},
};

double secondsOf(const std::function<void()>& pass, int repeats) {
    double best = 1e30;
    for (int r = 0; r < repeats; ++r) {
        const auto start = std::chrono::steady_clock::now();
        pass();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

volatile double gSink = 0;

// The plain loops. A row is UTF-8 (ASCII included); a byte position becomes
// a character position by counting the lead bytes before it, which is what a
// hand-written loop over UTF-8 text has to do.
struct Answer {
    double number = 0;
    std::string_view text;
    bool operator==(const Answer&) const = default;
};

double characterPosition(std::string_view row, std::size_t at) {
    std::size_t characters = 0;
    for (std::size_t i = 0; i < at; ++i) characters += (static_cast<unsigned char>(row[i]) & 0xC0) != 0x80;
    return static_cast<double>(characters + 1);
}

struct ByteTable {
    bool member[256] = {};
    explicit ByteTable(std::string_view bytes) {
        for (const char c : bytes) member[static_cast<unsigned char>(c)] = true;
    }
    bool operator()(char c) const { return member[static_cast<unsigned char>(c)]; }
};

const ByteTable kDigits("0123456789");
const ByteTable kDelimiters(" !$%&()*+,-./;<^|");

Answer loopFind(std::string_view row) {
    const std::size_t at = row.find("Street");
    return {at == std::string_view::npos ? 0 : characterPosition(row, at), {}};
}

Answer loopCount(std::string_view row) {
    double count = 0;
    for (std::size_t at = row.find("the"); at != std::string_view::npos; at = row.find("the", at + 3)) ++count;
    return {count, {}};
}

Answer loopFindDigit(std::string_view row) {
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (kDigits(row[i])) return {characterPosition(row, i), {}};
    }
    return {};
}

Answer loopCountDigits(std::string_view row) {
    double count = 0;
    for (const char c : row) count += kDigits(c);
    return {count, {}};
}

Answer loopCountWords(std::string_view row) {
    double words = 0;
    bool inWord = false;
    for (const char c : row) {
        const bool delimiter = kDelimiters(c);
        words += !delimiter && !inWord;
        inWord = !delimiter;
    }
    return {words, {}};
}

Answer loopLastWord(std::string_view row) {
    std::size_t end = row.size();
    while (end > 0 && kDelimiters(row[end - 1])) --end;
    std::size_t start = end;
    while (start > 0 && !kDelimiters(row[start - 1])) --start;
    return {0, row.substr(start, end - start)};
}

Answer loopFindWord(std::string_view row) {
    for (std::size_t at = row.find("the"); at != std::string_view::npos; at = row.find("the", at + 1)) {
        const bool before = at == 0 || kDelimiters(row[at - 1]);
        const bool after = at + 3 == row.size() || kDelimiters(row[at + 3]);
        if (before && after) return {characterPosition(row, at), {}};
    }
    return {};
}

struct LoopCall {
    const char* label;
    Function call;
    Answer (*loop)(std::string_view);
};

const LoopCall kLoopCalls[] = {
    {"KFIND_Street", {"", "KFIND", {std::string("Street")}}, loopFind},
    {"KCOUNTX_the", {"", "KCOUNTX", {std::string("the")}}, loopCount},
    {"KFINDC_d", {"", "KFINDC", {std::string(), std::string("d")}}, loopFindDigit},
    {"KCOUNTC_d", {"", "KCOUNTC", {std::string(), std::string("d")}}, loopCountDigits},
    {"KCOUNTW_default", {"", "KCOUNTW", {}}, loopCountWords},
    {"KSCANX_-1", {"", "KSCANX", {-1.0}}, loopLastWord},
    {"KFINDW_the", {"", "KFINDW", {std::string("the")}}, loopFindWord},
};

double threadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double medianCpuSeconds(const std::function<void()>& pass) {
    std::vector<double> rounds;
    for (int r = 0; r < 5; ++r) {
        const double start = threadSeconds();
        pass();
        rounds.push_back(threadSeconds() - start);
    }
    std::sort(rounds.begin(), rounds.end());
    return rounds[rounds.size() / 2];
}

std::string_view rowOf(const Rows& rows, std::size_t r) {
    return {rows.bytes.data() + rows.offsets[r], static_cast<std::size_t>(rows.offsets[r + 1] - rows.offsets[r])};
}

// The entry routine on a frame prepared once, as in direct(); `each` sees
// every row's answer.
template <typename Each>
void callEachRow(txhost::Session& session, const txhost::FunctionInfo& f, const Function& call, const Rows& rows,
                 Each each) {
    ArgumentFrame frame{};
    frame.callContext = session.defaultCallContext();
    frame.siteKind = 0x48;
    frame.argCount = static_cast<std::int32_t>(1 + call.constants.size());
    StringValue strings[kMaxArguments]{};
    double numbers[kMaxArguments]{};
    for (std::size_t i = 0; i < call.constants.size(); ++i) {
        ArgumentSlot& slot = frame.args[i + 1];
        if (const auto* text = std::get_if<std::string>(&call.constants[i])) {
            const auto n = static_cast<std::int64_t>(text->size());
            strings[i + 1] = StringValue{n, n, const_cast<char*>(text->data()), nullptr, n};
            slot.typeFlags = kTypeCharacter;
            slot.value = &strings[i + 1];
        } else {
            numbers[i + 1] = std::get<double>(call.constants[i]);
            slot.typeFlags = kTypeNumeric;
            slot.value = &numbers[i + 1];
        }
    }
    frame.args[0].typeFlags = kTypeCharacter | kTypeRecheck;
    frame.args[0].value = &strings[0];
    char buffer[200];
    txhost::TaskScope task(session);
    const bool text = f.descriptor->resultKind == kCharacterResult;
    for (std::size_t r = 0; r < rows.count(); ++r) {
        const std::int64_t n = rows.offsets[r + 1] - rows.offsets[r];
        strings[0] = StringValue{n, n, const_cast<char*>(rows.bytes.data()) + rows.offsets[r], nullptr, n};
        StringValue result{200, 0, buffer, nullptr, 200};
        double number = 0;
        f.entry(&frame, text ? static_cast<void*>(&result) : &number);
        each(r, text ? Answer{0, {buffer, static_cast<std::size_t>(result.length)}} : Answer{number, {}});
    }
}

// False, naming the first row at fault, when the loop and the module differ.
bool loopAgrees(txhost::Session& session, const txhost::FunctionInfo& f, const LoopCall& c, const Rows& rows,
                const char* set) {
    bool same = true;
    callEachRow(session, f, c.call, rows, [&](std::size_t r, const Answer& module) {
        const Answer loop = c.loop(rowOf(rows, r));
        if (same && !(loop == module)) {
            std::fprintf(stderr, "%s %s row %zu \"%.*s\": module %g \"%.*s\", loop %g \"%.*s\"\n", set, c.label, r,
                         static_cast<int>(rowOf(rows, r).size()), rowOf(rows, r).data(), module.number,
                         static_cast<int>(module.text.size()), module.text.data(), loop.number,
                         static_cast<int>(loop.text.size()), loop.text.data());
            same = false;
        }
    });
    return same;
}

// Direct calls and the loop, each the median CPU time of five passes.
bool directAgainstLoop(txhost::Session& session, txhost::Module& module, const Rows& rows, const char* set,
                       const std::string& only) {
    bool same = true;
    const double perRow = 1e9 / static_cast<double>(rows.count());
    for (const LoopCall& c : kLoopCalls) {
        if (!only.empty() && only != c.label) continue;
        const txhost::FunctionInfo& f = module.functions()[static_cast<std::size_t>(module.functionIndex(c.call.name))];
        if (!loopAgrees(session, f, c, rows, set)) {
            same = false;
            continue;
        }
        double sum = 0;
        const double direct = medianCpuSeconds([&] {
            callEachRow(session, f, c.call, rows, [&](std::size_t, const Answer& a) {
                sum += a.number + static_cast<double>(a.text.size());
            });
        });
        const double loop = medianCpuSeconds([&] {
            for (std::size_t r = 0; r < rows.count(); ++r) {
                const Answer a = c.loop(rowOf(rows, r));
                sum += a.number + static_cast<double>(a.text.size());
            }
        });
        gSink = sum;
        std::printf("RESULT %s %s direct %.2f\nRESULT %s %s loop %.2f\n", set, c.label, direct * perRow, set, c.label,
                    loop * perRow);
        std::fflush(stdout);
    }
    return same;
}

// The entry routine on a frame prepared once; only argument 1 changes per row.
double direct(txhost::Session& session, const txhost::FunctionInfo& f, const Function& call, const Rows& rows) {
    std::vector<double> out(rows.count());
    return secondsOf([&] {
        callEachRow(session, f, call, rows, [&](std::size_t r, const Answer& a) {
            out[r] = a.number + static_cast<double>(a.text.size());
        });
        gSink = out[rows.count() / 2];
    }, 3);
}

double callSite(txhost::Module& module, const txhost::FunctionInfo& f, const Function& call, const Rows& rows) {
    txhost::CallSite site(module, f.index, 0x48);
    std::vector<Argument> args{std::string()};
    args.insert(args.end(), call.constants.begin(), call.constants.end());
    std::vector<double> out(rows.count());
    return secondsOf([&] {
        for (std::size_t r = 0; r < rows.count(); ++r) {
            std::get<std::string>(args[0]).assign(rows.bytes.data() + rows.offsets[r],
                                                  static_cast<std::size_t>(rows.offsets[r + 1] - rows.offsets[r]));
            const txhost::CallResult result = site.call(args);
            out[r] = result.number.value_or(result.text ? static_cast<double>(result.text->size()) : 0);
        }
        gSink = out[rows.count() / 2];
    }, 2);
}

double engineRun(txhost::Session& session, txhost::Module& module, const Function& call, const Rows& rows, int threads) {
    txengine::Engine engine(session, module, {threads, 16384});
    txengine::Program program = engine.prepare({call.name});
    std::vector<txengine::Input> inputs{
        txengine::Input::column(txengine::TextColumn{rows.offsets.data(), rows.bytes.data(), nullptr})};
    for (const Argument& a : call.constants) {
        if (const auto* text = std::get_if<std::string>(&a)) {
            inputs.push_back(txengine::Input::constant(*text));
        } else {
            inputs.push_back(txengine::Input::constant(std::get<double>(a)));
        }
    }
    const auto n = static_cast<std::int64_t>(rows.count());
    return secondsOf([&] {
        const txengine::Result r = program.run(inputs, n);
        gSink = r.numbers.empty() ? static_cast<double>(r.text.bytes.size()) : r.numbers[static_cast<std::size_t>(n / 2)];
    }, 3);
}


}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 1'000'000;
    std::string writeRows;
    bool withCallSite = true;
    bool loopOnly = false;
    std::string onlyCall, onlySet;   // --call LABEL, --set NAME: one of them alone, for a profile
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--write-rows" && i + 1 < argc) writeRows = argv[++i];
        if (arg == "--rows" && i + 1 < argc) count = std::stoul(argv[++i]);
        if (arg == "--no-callsite") withCallSite = false;
        if (arg == "--loop-only") loopOnly = true;
        if (arg == "--call" && i + 1 < argc) onlyCall = argv[++i];
        if (arg == "--set" && i + 1 < argc) onlySet = argv[++i];
    }
    txhost::Session session;
    auto module = txhost::Module::load(session);
    bool loopsAgree = true;
    for (const RowSet rowSet : kRowSets) {
        const char* set = nameOf(rowSet);
        if (!onlySet.empty() && onlySet != set) continue;
        const Rows rows = generate(rowSet, count);
        if (!writeRows.empty()) {
            std::ofstream out(writeRows + "/" + set + ".txt", std::ios::binary);
            for (std::size_t r = 0; r < rows.count(); ++r) {
                out.write(rows.bytes.data() + rows.offsets[r], rows.offsets[r + 1] - rows.offsets[r]);
                out.put('\n');
            }
        }
        std::size_t multiByteRows = 0;
        for (std::size_t r = 0; r < rows.count(); ++r) {
            multiByteRows += holdsWide(rows.bytes.substr(static_cast<std::size_t>(rows.offsets[r]),
                                                         static_cast<std::size_t>(rows.offsets[r + 1] - rows.offsets[r])));
        }
        std::printf("# %s: %zu rows, %.1f bytes per row, %.0f%% of them holding a multi-byte character\n", set,
                    rows.count(), static_cast<double>(rows.bytes.size()) / static_cast<double>(rows.count()),
                    100.0 * static_cast<double>(multiByteRows) / static_cast<double>(rows.count()));
        loopsAgree = directAgainstLoop(session, *module, rows, set, onlyCall) && loopsAgree;
        if (loopOnly || rowSet == RowSet::One) continue;
        for (const Function& call : kFunctions) {
            const txhost::FunctionInfo& f = module->functions()[static_cast<std::size_t>(module->functionIndex(call.name))];
            const double perRow = 1e9 / static_cast<double>(rows.count());
            std::printf("RESULT %s %s direct %.2f\n", set, call.label, direct(session, f, call, rows) * perRow);
            if (withCallSite) std::printf("RESULT %s %s callsite %.2f\n", set, call.label, callSite(*module, f, call, rows) * perRow);
            std::printf("RESULT %s %s engine1 %.2f\n", set, call.label, engineRun(session, *module, call, rows, 1) * perRow);
            std::printf("RESULT %s %s engine2 %.2f\n", set, call.label, engineRun(session, *module, call, rows, 2) * perRow);
            std::fflush(stdout);
        }
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("# peak resident set %ld MiB\n", usage.ru_maxrss / 1024);
    return loopsAgree ? 0 : 1;
}
