// Throughput of the word functions, called through their entry routines on
// frames that point at the inputs (no copies per call), beside plain C++
// peers on the same inputs:
// - KSCANX (always the character scanner) on rows of 8 to 12 words, ASCII
//   and UTF-8, word numbers 1, 5 and -1; peer: a 256-entry table split on
//   the 17 default delimiters that copies the n-th word;
// - KCOUNTW on 1 MiB and on 80-byte rows with the default delimiters, one
//   delimiter and a class set; peer: a scalar 256-entry table word count;
// - KFINDW for a word near the end of 1 MiB and of 80-byte rows; peer:
//   string_view::find followed by whole-word boundary checks;
// - KCOUNTW on 80-byte rows with O at a caching site against a call that
//   is handed the environment's prebuilt default table;
// - KCOUNTW and KFINDW on rows of 20 to 120 bytes of names, places and
//   free text with accented Latin and CJK (the UTF-8 paths), against the
//   same rows with every non-ASCII byte made an ASCII letter (the byte
//   paths) and against the word scanner on the mixed rows.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/module/direct_call.h"
#include "host/host.h"
#include "module/frame/exports.h"
#include "module/frame/workers.h"

namespace {

using namespace txscan::contract;

constexpr std::size_t kLarge = 1 << 20;
constexpr std::size_t kRow = 80;
constexpr char kDefaultDelimiters[] = " !$%&()*+,-./;<^|";

const char* const kWords[] = {"the", "of", "and", "to", "in", "a", "is", "that", "for", "it", "as", "was",
                              "with", "be", "by", "on", "not", "he", "this", "are", "or", "his", "from",
                              "at", "which", "but", "have", "an", "had", "they", "you", "were", "their",
                              "one", "all", "we", "can", "her", "has", "there", "been", "people", "time"};
const char* const kWideWords[] = {"\xC3\xA9t\xC3\xA9", "caf\xC3\xA9", "na\xC3\xAFve", "d\xC3\xA9j\xC3\xA0",
                                  "\xC3\xBC" "ber", "stra\xC3\x9F" "e", "the", "of", "and", "to"};

// Words separated by blanks and now and then a comma, `size` bytes, never
// ending inside a character.
std::string textOf(std::size_t size, bool wide, unsigned seed) {
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < size) {
        text += wide ? kWideWords[random() % std::size(kWideWords)] : kWords[random() % std::size(kWords)];
        text += random() % 7 == 0 ? ", " : " ";
    }
    while (text.size() > size) text.pop_back();
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0xC0) text.pop_back();
    return text;
}

// A row of `words` words.
std::string rowOf(int words, bool wide, unsigned seed) {
    std::mt19937 random(seed);
    std::string row;
    for (int i = 0; i < words; ++i) {
        if (i > 0) row += " ";
        row += wide ? kWideWords[random() % std::size(kWideWords)] : kWords[random() % std::size(kWords)];
    }
    return row;
}

using txbench::DirectCall;

// KSCANX runs in a UTF-8 session (it always scans characters); the byte
// paths are measured in a single-byte session, where the adapters spend
// nothing on looking for multi-byte characters, and in UTF-8 beside it.
std::shared_ptr<DirectCall> directCall(const char* function, bool callRoutine, std::uint8_t siteKind,
                                       std::vector<txhost::Argument> arguments, const char* encoding = "UTF-8",
                                       txhost::Module* inProcess = nullptr) {
    txhost::Module& module = inProcess != nullptr ? *inProcess : *txbench::harness(encoding).module;
    return std::make_shared<DirectCall>(module, function, callRoutine, siteKind, std::move(arguments));
}

void fail(const std::string& what) {
    std::fprintf(stderr, "benchmark input for %s is not as intended\n", what.c_str());
    std::exit(1);
}

struct DelimiterTable {
    std::uint8_t member[256] = {};
    explicit DelimiterTable(std::string_view delimiters) {
        for (char c : delimiters) member[static_cast<unsigned char>(c)] = 1;
    }
};

// Peer of KSCANX: the n-th word (from the right for negative n) by a table.
std::string_view nthWordPeer(std::string_view text, int n, const DelimiterTable& table, std::string* out) {
    const auto isDelimiter = [&](char c) { return table.member[static_cast<unsigned char>(c)] != 0; };
    std::size_t begin = 0;
    std::size_t end = 0;
    bool found = false;
    if (n > 0) {
        int seen = 0;
        for (std::size_t i = 0; i < text.size();) {
            while (i < text.size() && isDelimiter(text[i])) ++i;
            if (i == text.size()) break;
            const std::size_t start = i;
            while (i < text.size() && !isDelimiter(text[i])) ++i;
            if (++seen == n) {
                begin = start;
                end = i;
                found = true;
                break;
            }
        }
    } else {
        int seen = 0;
        for (std::size_t i = text.size(); i > 0;) {
            while (i > 0 && isDelimiter(text[i - 1])) --i;
            if (i == 0) break;
            const std::size_t stop = i;
            while (i > 0 && !isDelimiter(text[i - 1])) --i;
            if (++seen == -n) {
                begin = i;
                end = stop;
                found = true;
                break;
            }
        }
    }
    out->assign(found ? text.substr(begin, end - begin) : std::string_view(" "));
    return *out;
}

std::int64_t countWordsPeer(std::string_view text, const DelimiterTable& table) {
    std::int64_t words = 0;
    std::uint8_t previous = 1;
    for (char c : text) {
        const std::uint8_t delimiter = table.member[static_cast<unsigned char>(c)];
        words += previous & (delimiter ^ 1);
        previous = delimiter;
    }
    return words;
}

std::int64_t findWordPeer(std::string_view text, std::string_view word, const DelimiterTable& table) {
    for (std::size_t from = 0;;) {
        const std::size_t at = text.find(word, from);
        if (at == std::string_view::npos) return 0;
        const bool before = at == 0 || table.member[static_cast<unsigned char>(text[at - 1])] != 0;
        const std::size_t after = at + word.size();
        if (before && (after == text.size() || table.member[static_cast<unsigned char>(text[after])] != 0)) {
            return static_cast<std::int64_t>(at) + 1;
        }
        from = at + 1;
    }
}

void registerScan(bool wide, int n) {
    const std::string label = std::string(wide ? "UTF-8" : "ASCII") + "/n=" + std::to_string(n);
    // Rows of 8 to 12 words, cycled so that every call sees a different row.
    auto rows = std::make_shared<std::vector<std::shared_ptr<DirectCall>>>();
    auto routines = std::make_shared<std::vector<std::shared_ptr<DirectCall>>>();
    auto texts = std::make_shared<std::vector<std::string>>();
    for (unsigned i = 0; i < 16; ++i) {
        const std::string row = rowOf(8 + static_cast<int>(i % 5), wide, 100 + i);
        texts->push_back(row);
        rows->push_back(directCall("KSCANX", false, 0, std::vector<txhost::Argument>{row, double(n)}));
        routines->push_back(directCall("KSCANX", true, 0,
                                                         std::vector<txhost::Argument>{row, double(n), 0.0, 0.0}));
    }
    const DelimiterTable table(kDefaultDelimiters);
    std::string peerWord;
    for (std::size_t i = 0; i < rows->size(); ++i) {
        if ((*rows)[i]->text() != nthWordPeer((*texts)[i], n, table, &peerWord)) fail("KSCANX/" + label);
    }
    benchmark::RegisterBenchmark(("KSCANX/" + label).c_str(), [rows](benchmark::State& state) {
        std::size_t i = 0;
        for (auto _ : state) benchmark::DoNotOptimize((*rows)[i++ & 15]->text().size());
        state.SetItemsProcessed(state.iterations());
    });
    benchmark::RegisterBenchmark(("CALL_KSCANX/" + label).c_str(), [routines](benchmark::State& state) {
        std::size_t i = 0;
        for (auto _ : state) benchmark::DoNotOptimize((*routines)[i++ & 15]->position());
        state.SetItemsProcessed(state.iterations());
    });
    benchmark::RegisterBenchmark(("peer_nth_word/" + label).c_str(), [texts, n](benchmark::State& state) {
        const DelimiterTable t(kDefaultDelimiters);
        std::string word;
        std::size_t i = 0;
        for (auto _ : state) benchmark::DoNotOptimize(nthWordPeer((*texts)[i++ & 15], n, t, &word).size());
        state.SetItemsProcessed(state.iterations());
    });
}

void registerCount(std::size_t size, const char* encoding) {
    const std::string text = textOf(size, false, 7);
    const std::string sizeLabel = std::string(encoding) + "/" + (size == kLarge ? "1MiB" : "80B");
    struct Variant {
        const char* name;
        std::vector<txhost::Argument> tail;
        const char* peerDelimiters;
    };
    // The class set of "sp" is white space and punctuation: blank and comma here.
    const Variant variants[] = {
        {"default", {}, kDefaultDelimiters},
        {"one_delimiter", {std::string(" ")}, " "},
        {"class_set", {std::string(""), std::string("SP")}, nullptr},
    };
    for (const Variant& v : variants) {
        std::vector<txhost::Argument> args{text};
        for (const auto& a : v.tail) args.push_back(a);
        auto call = directCall("KCOUNTW", false, 0, args, encoding);
        const double answer = call->number();
        if (v.peerDelimiters != nullptr && answer != double(countWordsPeer(text, DelimiterTable(v.peerDelimiters)))) {
            fail(std::string("KCOUNTW/") + v.name);
        }
        const std::string label = sizeLabel + "/" + v.name;
        benchmark::RegisterBenchmark(("KCOUNTW/" + label).c_str(), [call, size](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize(call->number());
            state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
        });
    }
    benchmark::RegisterBenchmark(("peer_table_count/" + sizeLabel).c_str(), [text, size](benchmark::State& state) {
        const DelimiterTable table(kDefaultDelimiters);
        for (auto _ : state) benchmark::DoNotOptimize(countWordsPeer(text, table));
        state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
    });
}

void registerFind(std::size_t size, const char* encoding) {
    const std::string word = "zebra";
    std::string text = textOf(size - word.size() - 1, false, 11) + " " + word;
    const std::string label = std::string(encoding) + "/" + (size == kLarge ? "1MiB" : "80B");
    auto call =
        directCall("KFINDW", false, 0, std::vector<txhost::Argument>{text, word}, encoding);
    const DelimiterTable table(kDefaultDelimiters);
    if (call->number() != double(findWordPeer(text, word, table)) || call->number() != double(size - word.size() + 1)) {
        fail("KFINDW/" + label);
    }
    benchmark::RegisterBenchmark(("KFINDW/" + label + "/near_end").c_str(), [call, size](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(call->number());
        state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
    });
    benchmark::RegisterBenchmark(("peer_find_word/" + label + "/near_end").c_str(),
                                 [text, word, size](benchmark::State& state) {
                                     const DelimiterTable t(kDefaultDelimiters);
                                     for (auto _ : state) benchmark::DoNotOptimize(findWordPeer(text, word, t));
                                     state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
                                 });
}

void registerCachedRows() {
    const std::string row = textOf(kRow, false, 23);
    auto cached = directCall(
        "KCOUNTW", false, 0x48,
        std::vector<txhost::Argument>{row, std::string(kDefaultDelimiters), std::string("O")}, "ISO-8859-1");
    auto prebuilt =
        directCall("KCOUNTW", false, 0x48, std::vector<txhost::Argument>{row}, "ISO-8859-1");
    if (cached->number() != prebuilt->number()) fail("KCOUNTW cached row");
    benchmark::RegisterBenchmark("KCOUNTW/80B/cached_site_O", [cached](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(cached->number());
        state.SetItemsProcessed(state.iterations());
    });
    benchmark::RegisterBenchmark("KCOUNTW/80B/prebuilt_table", [prebuilt](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(prebuilt->number());
        state.SetItemsProcessed(state.iterations());
    });
}

// Rows of names, places and free text: 3 to 14 pieces, 20 to 120 bytes,
// each holding at least one accented Latin or CJK word.
const char* const kRowWords[] = {"Jos\xC3\xA9", "M\xC3\xBCller", "Stra\xC3\x9F" "e", "Fran\xC3\xA7ois", "Z\xC3\xBCrich",
                                 "S\xC3\xA3o", "Paulo", "\xE6\x9D\xB1\xE4\xBA\xAC\xE9\x83\xBD",
                                 "\xE6\xB8\x8B\xE8\xB0\xB7\xE5\x8C\xBA", "caf\xC3\xA9", "r\xC3\xA9sum\xC3\xA9",
                                 "Dvo\xC5\x99\xC3\xA1k", "Smith", "John", "Main", "Street", "12", "Apt", "4B",
                                 "London", "the", "order", "shipped", "on", "Friday", "Anna", "Road", "new", "and",
                                 "Berlin", "Ave", "call", "back", "Maria", "Garc\xC3\xAD" "a", "\xE5\x8C\x97\xE4\xBA\xAC"};
std::vector<std::string> mixedRows() {
    std::mt19937 random(31);
    std::vector<std::string> rows;
    while (rows.size() < 64) {
        std::string row;
        const std::size_t pieces = 3 + random() % 12;
        for (std::size_t i = 0; i < pieces; ++i) {
            if (i > 0) row += random() % 4 == 0 ? ", " : " ";
            row += kRowWords[random() % std::size(kRowWords)];
        }
        bool wide = false;
        for (char c : row) wide = wide || (static_cast<unsigned char>(c) & 0x80) != 0;
        if (wide && row.size() >= 20 && row.size() <= 120) rows.push_back(row);
    }
    return rows;
}

std::string asciiTwin(std::string text) {
    for (char& c : text) {
        if ((static_cast<unsigned char>(c) & 0x80) != 0) c = 'x';
    }
    return text;
}

// The module linked into this program, so that the word scanner can be
// called directly as the reference the UTF-8 paths replace.
txhost::Module& inProcessModule() {
    static txhost::Session session(txhost::SessionOptions{.encoding = "UTF-8"});
    static std::unique_ptr<txhost::Module> module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
    return *module;
}

void registerUtf8Rows() {
    struct Variant {
        const char* name;
        const char* function;
        bool word;                             // KFINDW: the row's last word
        std::vector<txhost::Argument> tail;    // after the row (and the word)
    };
    const Variant variants[] = {
        {"KCOUNTW/rows/default", "KCOUNTW", false, {}},
        {"KCOUNTW/rows/list", "KCOUNTW", false, {std::string(", ")}},
        {"KCOUNTW/rows/list_IT", "KCOUNTW", false, {std::string(", "), std::string("IT")}},
        {"KFINDW/rows/default", "KFINDW", true, {}},
        {"KFINDW/rows/list", "KFINDW", true, {std::string(", ")}},
        {"KFINDW/rows/list_I", "KFINDW", true, {std::string(", "), std::string("I")}},
    };
    const std::vector<std::string> rows = mixedRows();
    txhost::Module& module = inProcessModule();
    auto* handle = module.session().encodingHandle();
    for (const Variant& v : variants) {
        using Calls = std::vector<std::shared_ptr<DirectCall>>;
        auto mixed = std::make_shared<Calls>();
        auto ascii = std::make_shared<Calls>();
        for (const std::string& row : rows) {
            for (bool wide : {true, false}) {
                const std::string text = wide ? row : asciiTwin(row);
                std::vector<txhost::Argument> args{text};
                if (v.word) args.emplace_back(text.substr(text.rfind(' ') + 1));
                args.insert(args.end(), v.tail.begin(), v.tail.end());
                (wide ? mixed : ascii)->push_back(directCall(v.function, false, 0, args, "UTF-8", &module));
            }
        }
        const bool finding = v.word;
        const auto reference = [finding, handle](DirectCall& call) {
            double value = 0;
            if (finding) {
                txscan::findWordMultiByte(&call.site->frame(), &value, handle, 0);
            } else {
                txscan::countWordsMultiByte(&call.site->frame(), &value, handle, 0);
            }
            return value;
        };
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const double answer = (*mixed)[i]->number();
            // Positions are in characters, so only counts agree across the twins.
            const double twin = (*ascii)[i]->number();
            if (answer != reference(*(*mixed)[i]) || answer == 0 || twin == 0 || (!finding && twin != answer)) {
                fail(v.name);
            }
        }
        const auto run = [](std::shared_ptr<Calls> calls, auto call) {
            return [calls, call](benchmark::State& state) {
                std::size_t i = 0;
                for (auto _ : state) benchmark::DoNotOptimize(call(*(*calls)[i++ & 63]));
                state.SetItemsProcessed(state.iterations());
            };
        };
        const auto entry = [](DirectCall& call) { return call.number(); };
        benchmark::RegisterBenchmark((std::string(v.name) + "/ascii").c_str(), run(ascii, entry));
        benchmark::RegisterBenchmark((std::string(v.name) + "/mixed").c_str(), run(mixed, entry));
        benchmark::RegisterBenchmark((std::string(v.name) + "/mixed_scanner").c_str(), run(mixed, reference));
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (bool wide : {false, true}) {
        for (int n : {1, 5, -1}) registerScan(wide, n);
    }
    for (const char* encoding : {"ISO-8859-1", "UTF-8"}) {
        registerCount(kLarge, encoding);
        registerCount(kRow, encoding);
        registerFind(kLarge, encoding);
        registerFind(kRow, encoding);
    }
    registerCachedRows();
    registerUtf8Rows();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
