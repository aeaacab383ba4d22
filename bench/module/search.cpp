// Throughput of the search functions' byte paths, called through their entry
// routines on a frame that points at the inputs (no copies per call), beside
// the standard peers on the same inputs: memmem, string_view::find and
// strcasestr for substrings; strcspn, string_view::find_first_of and a plain
// 256-entry table loop for character sets. Inputs: 1 MiB of English-like
// text and 64-byte strings, each holding its one match at the very end, so
// every search reads the whole input. The session is single-byte, so the
// adapters spend nothing on looking for multi-byte characters.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "host/host.h"

namespace {

using txscan::contract::ArgumentFrame;
using txscan::contract::EntryRoutine;
using txscan::contract::StringValue;

constexpr std::size_t kLarge = 1 << 20;
constexpr std::size_t kSmall = 64;

// Words without the letters of the searched strings' rare characters (x, q,
// j, k, z, digits, symbols), so that the searches find only the planted match.
std::string englishLikeText(std::size_t size) {
    static const char* const kWords[] = {
        "the", "of", "and", "to", "in", "a", "is", "that", "for", "it", "as", "was", "with", "be", "by", "on",
        "not", "he", "this", "are", "or", "his", "from", "at", "which", "but", "have", "an", "had", "they",
        "you", "were", "their", "one", "all", "we", "can", "her", "has", "there", "been", "if", "more", "when",
        "will", "would", "who", "so", "no", "people", "time", "first", "over", "through", "many", "before",
        "should", "general", "against", "nothing", "government", "however", "position", "children", "important",
        "relating", "station", "interest", "sometimes", "therefore", "different", "according", "particular"};
    std::mt19937 random(1234);
    std::string text;
    bool sentenceStart = true;
    while (text.size() < size) {
        std::string word = kWords[random() % std::size(kWords)];
        if (sentenceStart) word[0] = static_cast<char>(word[0] - 'a' + 'A');
        text += word;
        sentenceStart = random() % 12 == 0;
        text += sentenceStart ? "  " : " ";
    }
    text.resize(size);
    return text;
}

// One input with `needle` as its last bytes.
std::string withNeedleAtEnd(const std::string& base, std::size_t size, const std::string& needle) {
    std::string text = base.substr(0, size - needle.size());
    return text + needle;
}

struct Harness {
    txhost::Session session;
    std::unique_ptr<txhost::Module> module;
    explicit Harness(const char* encoding) : session(sessionOptions(encoding)) {
        module = txhost::Module::load(session);
    }
    static txhost::SessionOptions sessionOptions(const char* encoding) {
        txhost::SessionOptions options;
        options.encoding = encoding;
        return options;
    }
};

Harness& harness() {
    static Harness h("ISO-8859-1");
    return h;
}

// A call site whose frame points at caller-owned values; the first call goes
// through the host (so that a cached set is built with the host's pool).
struct DirectCall {
    std::unique_ptr<txhost::CallSite> site;
    EntryRoutine entry;
    std::vector<std::string> texts;
    StringValue strings[4]{};
    double numbers[4]{};

    DirectCall(const char* function, std::uint8_t siteKind, std::vector<txhost::Argument> arguments) {
        txhost::Module& module = *harness().module;
        const int index = module.functionIndex(function);
        site = std::make_unique<txhost::CallSite>(module, index, siteKind);
        entry = module.functions()[static_cast<std::size_t>(index)].entry;
        site->call(arguments);
        ArgumentFrame& frame = site->frame();
        texts.resize(arguments.size());
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            if (const auto* text = std::get_if<std::string>(&arguments[i])) {
                texts[i] = *text;
                const auto n = static_cast<std::int64_t>(texts[i].size());
                strings[i] = {n, n, texts[i].data(), nullptr, n};
                frame.args[i].value = &strings[i];
            } else if (const auto* number = std::get_if<double>(&arguments[i])) {
                numbers[i] = *number;
                frame.args[i].value = &numbers[i];
            }
        }
    }
    double operator()() {
        double result = 0;
        entry(&site->frame(), &result);
        return result;
    }
};

void reportBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void registerSubstring(const std::string& base, std::size_t size, const std::string& needle, bool caseless) {
    const std::string stored = caseless ? [&] {
        std::string mixed = needle;
        for (std::size_t i = 0; i < mixed.size(); i += 2) mixed[i] = static_cast<char>(std::toupper(mixed[i]));
        return mixed;
    }() : needle;
    const std::string text = withNeedleAtEnd(base, size, stored);
    const std::string label = (size == kLarge ? "1MiB/" : "64B/") + std::to_string(needle.size()) +
                              (caseless ? "/caseless" : "/exact");
    const std::string modifiers = caseless ? "i" : "";
    auto find = std::make_shared<DirectCall>("KFIND", 0, std::vector<txhost::Argument>{text, needle, modifiers});
    auto count = std::make_shared<DirectCall>("KCOUNTX", 0, std::vector<txhost::Argument>{text, needle, modifiers});
    if ((*find)() != static_cast<double>(size - needle.size() + 1) || (*count)() != 1.0) {
        std::fprintf(stderr, "benchmark input for %s is not as intended\n", label.c_str());
        std::exit(1);
    }
    benchmark::RegisterBenchmark(("KFIND/" + label).c_str(), [find, size](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize((*find)());
        reportBytes(state, size);
    });
    benchmark::RegisterBenchmark(("KCOUNTX/" + label).c_str(), [count, size](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize((*count)());
        reportBytes(state, size);
    });
    if (!caseless) {
        benchmark::RegisterBenchmark(("peer_memmem/" + label).c_str(), [text, needle, size](benchmark::State& state) {
            for (auto _ : state) {
                benchmark::DoNotOptimize(memmem(text.data(), text.size(), needle.data(), needle.size()));
            }
            reportBytes(state, size);
        });
        benchmark::RegisterBenchmark(("peer_string_view_find/" + label).c_str(),
                                     [text, needle, size](benchmark::State& state) {
                                         const std::string_view view(text);
                                         for (auto _ : state) benchmark::DoNotOptimize(view.find(needle));
                                         reportBytes(state, size);
                                     });
    } else {
        benchmark::RegisterBenchmark(("peer_strcasestr/" + label).c_str(), [text, needle, size](benchmark::State& state) {
            const std::string terminated = text;   // std::string keeps a terminator
            for (auto _ : state) benchmark::DoNotOptimize(strcasestr(terminated.c_str(), needle.c_str()));
            reportBytes(state, size);
        });
    }
}

// The scalar table loop the character-set functions are measured against.
std::int64_t tableFind(const std::string& text, const std::uint8_t* table) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (table[static_cast<std::uint8_t>(text[i])]) return static_cast<std::int64_t>(i);
    }
    return -1;
}
std::int64_t tableCount(const std::string& text, const std::uint8_t* table) {
    std::int64_t n = 0;
    for (unsigned char c : text) n += table[c];
    return n;
}

struct SetCase {
    const char* name;
    std::string list;
    std::string modifiers;
    std::string member;   // planted at the end
};

void registerCharSet(const std::string& base, std::size_t size, const SetCase& set) {
    const std::string text = withNeedleAtEnd(base, size, set.member);
    const std::string label = std::string(size == kLarge ? "1MiB/" : "64B/") + set.name;
    // The peer's table holds what the module's set holds.
    auto table = std::make_shared<std::vector<std::uint8_t>>(256, 0);
    const std::uint8_t* classes = harness().session.hostVector()->classTable;
    for (unsigned char c : set.list) (*table)[c] = 1;
    if (set.modifiers.find('p') != std::string::npos) {
        for (int b = 0; b < 256; ++b) (*table)[b] |= (classes[b] & 0x10) != 0;
    }
    for (bool cached : {false, true}) {
        const std::string modifiers = set.modifiers + (cached ? "o" : "");
        const std::string suffix = cached ? "/O" : "";
        std::vector<txhost::Argument> arguments{text, set.list};
        if (!modifiers.empty()) arguments.emplace_back(modifiers);
        auto find = std::make_shared<DirectCall>("KFINDC", 0x48, arguments);
        auto count = std::make_shared<DirectCall>("KCOUNTC", 0x48, arguments);
        if ((*find)() != static_cast<double>(size) || (*count)() != static_cast<double>(tableCount(text, table->data()))) {
            std::fprintf(stderr, "benchmark input for %s is not as intended\n", label.c_str());
            std::exit(1);
        }
        benchmark::RegisterBenchmark(("KFINDC/" + label + suffix).c_str(), [find, size](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize((*find)());
            reportBytes(state, size);
        });
        benchmark::RegisterBenchmark(("KCOUNTC/" + label + suffix).c_str(), [count, size](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize((*count)());
            reportBytes(state, size);
        });
    }
    benchmark::RegisterBenchmark(("peer_table_find/" + label).c_str(), [text, table, size](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(tableFind(text, table->data()));
        reportBytes(state, size);
    });
    benchmark::RegisterBenchmark(("peer_table_count/" + label).c_str(), [text, table, size](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(tableCount(text, table->data()));
        reportBytes(state, size);
    });
    if (set.modifiers.empty()) {
        benchmark::RegisterBenchmark(("peer_strcspn/" + label).c_str(), [text, set, size](benchmark::State& state) {
            const std::string terminated = text;
            for (auto _ : state) benchmark::DoNotOptimize(strcspn(terminated.c_str(), set.list.c_str()));
            reportBytes(state, size);
        });
        benchmark::RegisterBenchmark(("peer_find_first_of/" + label).c_str(),
                                     [text, set, size](benchmark::State& state) {
                                         const std::string_view view(text);
                                         for (auto _ : state) benchmark::DoNotOptimize(view.find_first_of(set.list));
                                         reportBytes(state, size);
                                     });
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string base = englishLikeText(kLarge);
    const char* const needles[] = {"ex", "taxis", "relaxing", "the extra taxing"};
    for (std::size_t size : {kLarge, kSmall}) {
        for (bool caseless : {false, true}) {
            for (const char* needle : needles) registerSubstring(base, size, needle, caseless);
        }
    }
    const SetCase sets[] = {
        {"list2", "#@", "", "@"},
        {"classP", "", "p", "!"},
        {"list20", "0123456789#$%&@[]{}~", "", "~"},
    };
    for (std::size_t size : {kLarge, kSmall}) {
        for (const SetCase& set : sets) registerCharSet(base, size, set);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
