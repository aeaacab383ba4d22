// Throughput of the search functions' byte paths, called through their entry
// routines on a frame that points at the inputs (no copies per call), beside
// the standard peers on the same inputs: memmem, string_view::find and
// strcasestr for substrings; strcspn, string_view::find_first_of and a plain
// 256-entry table loop for character sets. Inputs: 1 MiB and 64-byte pieces
// of realistic rows (names, street addresses, e-mail addresses, orders and
// free text, every letter in both cases, digits and punctuation), with every
// match of the case's needle or set taken out and one planted at the very
// end, so every search reads the whole input. The session is single-byte,
// so the adapters spend nothing on looking for multi-byte characters.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/module/direct_call.h"
#include "host/host.h"

namespace {

using namespace txscan::contract;

constexpr std::size_t kLarge = 1 << 20;
constexpr std::size_t kSmall = 64;

// Rows of 20 to 120 bytes, one a line, as a file of customer records holds them.
std::string realisticText(std::size_t size) {
    static const char* const kFirst[] = {"James", "Mary", "Zoe", "Xavier", "Quentin", "Kate", "Jorge", "Yvonne",
                                         "Olivia", "Liam", "Felix", "Maxine", "Hugo", "Ingrid", "Walter", "Victor",
                                         "Ursula", "Gabriel", "Dmitri", "Priya", "Kwame", "Wei", "Fatima", "Omar",
                                         "Quinn", "Roxanne", "Jasper", "Hazel", "Beatrix", "Nikolaj"};
    static const char* const kLast[] = {"Smith", "Johnson", "Quigley", "Kowalski", "Zimmerman", "Baxter", "Fox",
                                        "Jackson", "Okafor", "Nguyen", "Garcia", "Yamamoto", "van der Berg",
                                        "O'Connor", "McKenzie", "Lopez", "Hughes", "Xu", "Petrov", "Dubois",
                                        "Schwarz", "Walker", "Vasquez", "Patel", "Ivanova", "Fitzgerald"};
    static const char* const kStreets[] = {"Kensington Rd", "Oxford St", "Queen's Way", "Jasmine Ave", "Maple Dr",
                                           "Bixby Blvd", "Zephyr Ln", "King St W", "Quarry Hill Rd", "Juniper Ct",
                                           "Foxglove Way", "Wexford Pl", "Yukon Ave", "Elm St, Apt 4B"};
    static const char* const kCities[] = {"Zurich 8004", "Quebec City QC G1R 4P5", "Jakarta 10110",
                                          "Oklahoma City OK 73102", "Kyoto 604-8511", "Reykjavik 101",
                                          "Vancouver BC V6B 1A1", "Glasgow G2 1QX", "Auckland 1010",
                                          "New York NY 10001", "Houston TX 77002", "Mexico City 06600"};
    static const char* const kWords[] = {
        "the", "of", "and", "to", "in", "a", "is", "that", "for", "it", "was", "with", "be", "by", "on", "not",
        "this", "are", "or", "from", "at", "which", "but", "have", "an", "they", "you", "were", "their", "one",
        "quick", "brown", "fox", "jumps", "over", "lazy", "dog", "jazz", "quiz", "box", "fix", "next", "kept",
        "jury", "size", "zone", "quote", "extra", "taxi", "project", "object", "know", "key", "queue", "judge",
        "zero", "six", "wax", "exact", "jacket", "kitchen", "quality", "majority", "analyze", "delivery",
        "package", "customer", "request", "weekly", "invoice", "refund", "broken", "frozen", "window", "pickup",
        "address", "changed", "please", "call", "before", "noon", "thanks", "again", "urgent", "express"};
    std::mt19937 random(1234);
    auto any = [&](const auto& list) { return std::string(list[random() % std::size(list)]); };
    auto digits = [&](int n) {
        std::string out;
        for (int i = 0; i < n; ++i) out += static_cast<char>('0' + random() % 10);
        return out;
    };
    auto lower = [](std::string text) {
        for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return text;
    };
    auto upper = [](std::string text) {
        for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return text;
    };
    std::string text;
    while (text.size() < size) {
        std::string row;
        switch (random() % 4) {
            case 0:
                row = any(kFirst) + " " + any(kLast) + ", " + std::to_string(1 + random() % 2400) + " " +
                      any(kStreets) + ", " + any(kCities) + "; tel +" + digits(2) + "-" + digits(3) + "-" +
                      digits(4);
                break;
            case 1:
                row = lower(any(kFirst)) + "." + lower(any(kLast)) + "@example." + any(std::array{"org", "com", "net"}) +
                      " (id #" + digits(6) + ")";
                break;
            case 2:
                row = "ORDER " + digits(5) + "-" + any(std::array{"AX", "QZ", "JK", "BV"}) + ": " +
                      std::to_string(1 + random() % 12) + " x " + any(kWords) + " " + any(kWords) + " @ $" +
                      digits(2) + "." + digits(2) + (random() % 3 == 0 ? " [10% off]" : "");
                break;
            default: {
                const int words = 4 + static_cast<int>(random() % 14);
                for (int w = 0; w < words; ++w) {
                    std::string word = any(kWords);
                    if (w == 0) word[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(word[0])));
                    if (random() % 25 == 0) word = upper(word);
                    if (random() % 30 == 0) word = digits(1 + static_cast<int>(random() % 3));
                    row += (w == 0 ? "" : random() % 9 == 0 ? ", " : " ") + word;
                }
                row += any(std::array{".", "!", "?", "...", ";"});
            }
        }
        text += row.substr(0, 120);
        text += '\n';
    }
    text.resize(size);
    return text;
}

// The byte after b in its own kind (letters keep their case), so that a scrubbed
// match reads as a near miss.
char nextOfKind(char b) {
    if (b >= 'a' && b <= 'z') return b == 'z' ? 'a' : static_cast<char>(b + 1);
    if (b >= 'A' && b <= 'Z') return b == 'Z' ? 'A' : static_cast<char>(b + 1);
    return '_';
}

// The text with every occurrence of needle (in any case when caseless)
// turned into a near miss by changing its last byte.
std::string withoutNeedle(std::string text, const std::string& needle, bool caseless) {
    auto same = [caseless](char a, char b) {
        return caseless ? std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b))
                        : a == b;
    };
    for (std::size_t at = 0; at + needle.size() <= text.size();) {
        if (std::equal(needle.begin(), needle.end(), text.begin() + static_cast<std::ptrdiff_t>(at), same)) {
            char& last = text[at + needle.size() - 1];
            last = nextOfKind(last);
            at = at + 1 >= needle.size() ? at + 1 - needle.size() : 0;   // a change may complete an earlier one
        } else {
            ++at;
        }
    }
    return text;
}

// The text with every member byte of a set made a blank (or an x when the
// blank is a member).
std::string withoutMembers(std::string text, const std::vector<std::uint8_t>& member) {
    for (char& c : text) {
        if (member[static_cast<unsigned char>(c)]) c = member[' '] ? 'x' : ' ';
    }
    return text;
}

// One input with `needle` as its last bytes.
std::string withNeedleAtEnd(const std::string& base, std::size_t size, const std::string& needle) {
    std::string text = base.substr(0, size - needle.size());
    return text + needle;
}

using txbench::DirectCall;

txbench::Harness& harness() { return txbench::harness("ISO-8859-1"); }

std::shared_ptr<DirectCall> directCall(const char* function, std::uint8_t siteKind,
                                       std::vector<txhost::Argument> arguments) {
    return std::make_shared<DirectCall>(*harness().module, function, false, siteKind, std::move(arguments));
}

void reportBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void registerSubstring(const std::string& base, std::size_t size, const std::string& needle, bool caseless) {
    const std::string stored = caseless ? [&] {
        std::string mixed = needle;
        for (std::size_t i = 0; i < mixed.size(); i += 2) mixed[i] = static_cast<char>(std::toupper(mixed[i]));
        return mixed;
    }() : needle;
    const std::string text = withNeedleAtEnd(withoutNeedle(base.substr(0, size), needle, caseless), size, stored);
    const std::string label = (size == kLarge ? "1MiB/" : "64B/") + std::to_string(needle.size()) +
                              (caseless ? "/caseless" : "/exact");
    const std::string modifiers = caseless ? "i" : "";
    auto find = directCall("KFIND", 0, std::vector<txhost::Argument>{text, needle, modifiers});
    auto count = directCall("KCOUNTX", 0, std::vector<txhost::Argument>{text, needle, modifiers});
    if (find->number() != static_cast<double>(size - needle.size() + 1) || count->number() != 1.0) {
        std::fprintf(stderr, "benchmark input for %s is not as intended\n", label.c_str());
        std::exit(1);
    }
    benchmark::RegisterBenchmark(("KFIND/" + label).c_str(), [find, size](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(find->number());
        reportBytes(state, size);
    });
    benchmark::RegisterBenchmark(("KCOUNTX/" + label).c_str(), [count, size](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(count->number());
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
    const std::string label = std::string(size == kLarge ? "1MiB/" : "64B/") + set.name;
    // The peer's table holds what the module's set holds.
    auto table = std::make_shared<std::vector<std::uint8_t>>(256, 0);
    const std::uint8_t* classes = harness().session.hostVector()->classTable;
    for (unsigned char c : set.list) (*table)[c] = 1;
    if (set.modifiers.find('p') != std::string::npos) {
        for (int b = 0; b < 256; ++b) (*table)[b] |= (classes[b] & 0x10) != 0;
    }
    const std::string text = withNeedleAtEnd(withoutMembers(base.substr(0, size), *table), size, set.member);
    for (bool cached : {false, true}) {
        const std::string modifiers = set.modifiers + (cached ? "o" : "");
        const std::string suffix = cached ? "/O" : "";
        std::vector<txhost::Argument> arguments{text, set.list};
        if (!modifiers.empty()) arguments.emplace_back(modifiers);
        auto find = directCall("KFINDC", 0x48, arguments);
        auto count = directCall("KCOUNTC", 0x48, arguments);
        if (find->number() != static_cast<double>(size) || count->number() != static_cast<double>(tableCount(text, table->data()))) {
            std::fprintf(stderr, "benchmark input for %s is not as intended\n", label.c_str());
            std::exit(1);
        }
        benchmark::RegisterBenchmark(("KFINDC/" + label + suffix).c_str(), [find, size](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize(find->number());
            reportBytes(state, size);
        });
        benchmark::RegisterBenchmark(("KCOUNTC/" + label + suffix).c_str(), [count, size](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize(count->number());
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
    const std::string base = realisticText(kLarge);
    for (char c : std::string("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789")) {
        if (base.find(c) == std::string::npos) {
            std::fprintf(stderr, "the benchmark text lacks '%c'\n", c);
            return 1;
        }
    }
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
