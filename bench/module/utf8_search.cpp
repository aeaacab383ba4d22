// KFIND, KCOUNTX, KFINDC and KCOUNTC in a UTF-8 session on realistic rows of
// 20 to 120 bytes (names, addresses, free text) that hold accented Latin or
// CJK characters, each called three ways on the same calls:
// - "mixed": the entry routine on the mixed rows (the UTF-8 paths);
// - "ascii": the entry routine on ASCII rows of the same byte lengths (each
//   wide character replaced by as many ASCII letters as it has bytes);
// - "handle": the handle-walking path alone on the mixed rows.
// Counters: ns per row; mixed_vs_ascii (target at most 3) and
// handle_vs_mixed (the speed-up over walking the handle) are printed at the
// end from the same run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "host/host.h"
#include "module/frame/entries.h"
#include "module/frame/exports.h"
#include "module/frame/workers.h"

namespace {

using txscan::contract::ArgumentFrame;
using txscan::contract::EncodingHandle;
constexpr auto kFirst = txscan::SearchMode::kFirst;
constexpr auto kCount = txscan::SearchMode::kCount;
using txscan::contract::StringValue;

const char* const kPieces[] = {
    "Jos\xC3\xA9 Garc\xC3\xAD" "a", "Fran\xC3\xA7ois M\xC3\xBCller", "Bj\xC3\xB6rk Gu\xC3\xB0mundsd\xC3\xB3ttir",
    "\xE5\xB1\xB1\xE7\x94\xB0\xE5\xA4\xAA\xE9\x83\x8E", "\xE6\x9D\xB1\xE4\xBA\xAC\xE9\x83\xBD\xE6\xB8\xAF\xE5\x8C\xBA",
    "Stra\xC3\x9F" "e 12", "Caf\xC3\xA9 de l'\xC3\x89t\xC3\xA9", "\xC5\x81\xC3\xB3" "d\xC5\xBA", "Rue de la Paix 5",
    "42 Main Street", "Apt 7B, Springfield", "John Smith", "the quick brown fox", "jumps over the lazy dog",
    "zip 90210", "Kowalski & Sons, Ltd.", "Oxford Road", "Quay Junction", "na\xC3\xAFve r\xC3\xA9sum\xC3\xA9",
    "\xE5\x8C\x97\xE4\xBA\xAC\xE5\xB8\x82", "S\xC3\xA3o Paulo", "Z\xC3\xBCrich HB"};

struct Rows {
    std::vector<std::string> mixed, ascii;
};

// Rows of 20 to 120 bytes, every one holding a character of more than one byte.
Rows makeRows() {
    std::mt19937 random(7);
    Rows rows;
    while (rows.mixed.size() < 2000) {
        const std::size_t target = 20 + random() % 101;
        std::string row;
        while (row.size() < target) {
            if (!row.empty()) row += random() % 4 == 0 ? ", " : " ";
            row += kPieces[random() % std::size(kPieces)];
        }
        if (row.size() > 120) continue;
        bool wide = false;
        std::string ascii = row;
        for (char& c : ascii) {
            if (static_cast<unsigned char>(c) >= 0x80) {
                c = static_cast<char>('a' + (static_cast<unsigned char>(c) % 26));
                wide = true;
            }
        }
        if (!wide) continue;
        rows.mixed.push_back(row);
        rows.ascii.push_back(ascii);
    }
    return rows;
}

struct Harness {
    txhost::Session session{txhost::SessionOptions{.encoding = "UTF-8"}};
    std::unique_ptr<txhost::Module> module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
    Rows rows = makeRows();
};
Harness& harness() {
    static Harness h;
    return h;
}

using Entry = std::int32_t (*)(ArgumentFrame*, void*);
using Reference = std::int32_t (*)(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);

struct Call {
    const char* name;
    Entry entry;
    Reference reference;
    std::vector<std::string> rest;   // arguments after the source
};

const Call kCalls[] = {
    {"KFIND_de", txscan::kfindEntry, txscan::substringMultiByte<kFirst>, {"de"}},
    {"KFIND_street_i", txscan::kfindEntry, txscan::substringMultiByte<kFirst>, {"street", "i"}},
    {"KCOUNTX_an", txscan::kcountxEntry, txscan::substringMultiByte<kCount>, {"an"}},
    {"KCOUNTX_o_i", txscan::kcountxEntry, txscan::substringMultiByte<kCount>, {"o", "i"}},
    {"KFINDC_digits", txscan::kfindcEntry, txscan::charSetMultiByte<kFirst>, {"0123456789"}},
    {"KFINDC_comma", txscan::kfindcEntry, txscan::charSetMultiByte<kFirst>, {","}},
    {"KCOUNTC_vowels", txscan::kcountcEntry, txscan::charSetMultiByte<kCount>, {"aeiou"}},
    {"KCOUNTC_upper", txscan::kcountcEntry, txscan::charSetMultiByte<kCount>, {"", "u"}},
};

enum Way { kMixed, kAscii, kHandle };
const char* const kWayNames[] = {"mixed", "ascii", "handle"};
std::map<std::string, double> nsPerRow;

void run(benchmark::State& state, const Call& call, Way way) {
    Harness& h = harness();
    const std::vector<std::string>& texts = way == kAscii ? h.rows.ascii : h.rows.mixed;
    std::vector<StringValue> sources;
    for (const std::string& t : texts) {
        const auto n = static_cast<std::int64_t>(t.size());
        sources.push_back({n, n, const_cast<char*>(t.data()), nullptr, 0});
    }
    std::vector<StringValue> rest;
    for (const std::string& t : call.rest) {
        const auto n = static_cast<std::int64_t>(t.size());
        rest.push_back({n, n, const_cast<char*>(t.data()), nullptr, 0});
    }
    ArgumentFrame frame{};
    frame.argCount = static_cast<std::int32_t>(1 + rest.size());
    for (int k = 0; k < frame.argCount; ++k) frame.args[k].typeFlags = txscan::contract::kTypeCharacter;
    for (std::size_t k = 0; k < rest.size(); ++k) frame.args[k + 1].value = &rest[k];
    EncodingHandle* handle = h.session.encodingHandle();
    double sum = 0;
    for (auto _ : state) {
        for (StringValue& source : sources) {
            frame.args[0].value = &source;
            double result = 0;
            if (way == kHandle) {
                call.reference(&frame, &result, handle, 0);
            } else {
                call.entry(&frame, &result);
            }
            sum += result;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(sources.size()));
    state.counters["ns_per_row"] =
        benchmark::Counter(static_cast<double>(state.iterations() * sources.size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Reads the per-row times back from the reporter to print the ratios.
struct RatioReporter : benchmark::ConsoleReporter {
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const auto found = run.counters.find("ns_per_row");
            if (found != run.counters.end()) nsPerRow[run.benchmark_name()] = found->second.value * 1e9;
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    for (const Call& call : kCalls) {
        for (Way way : {kMixed, kAscii, kHandle}) {
            benchmark::RegisterBenchmark((std::string(call.name) + "/" + kWayNames[way]).c_str(),
                                         [&call, way](benchmark::State& s) { run(s, call, way); });
        }
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n%-16s %10s %10s %10s %15s %16s\n", "call", "mixed ns", "ascii ns", "handle ns", "mixed_vs_ascii",
                "handle_vs_mixed");
    for (const Call& call : kCalls) {
        const std::string name = call.name;
        const double mixed = nsPerRow[name + "/mixed"], ascii = nsPerRow[name + "/ascii"],
                     handle = nsPerRow[name + "/handle"];
        if (mixed <= 0 || ascii <= 0) continue;
        std::printf("%-16s %10.1f %10.1f %10.1f %15.2f %16.1f\n", call.name, mixed, ascii, handle, mixed / ascii,
                    handle / mixed);
    }
    return 0;
}
