// Generated KCOUNTW and KFINDW calls on UTF-8 sources, through the entry
// routines (the UTF-8 paths) and through the word scanner alone: the same
// status and result on every call, with random modifiers, starts, words and
// delimiter lists, ASCII and wide. The UTF-8 paths must take every call on
// well-formed text, so the comparison never rests on the scanner alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <random>
#include <string>
#include <vector>

#include "module/frame/entries.h"
#include "module/frame/workers.h"
#include "tests/support/module_calls.h"

namespace {

using txhost::Absent;
using txhost::Argument;

// Accented Latin, CJK, wide blanks (U+3000, U+00A0), the Kelvin sign and
// the long s (which fold to ASCII letters), Cyrillic with case, a dash, a
// fullwidth comma and an emoji.
const std::vector<std::string> kWide = {"\xC3\xA9", "\xC3\x89", "\xC3\x9F", "\xC3\xA0", "\xE6\x9D\xB1",
                                        "\xE4\xBA\xAC", "\xE3\x80\x80", "\xC2\xA0", "\xE2\x84\xAA", "\xC5\xBF",
                                        "\xD0\x96", "\xD0\xB6", "\xE2\x80\x94", "\xEF\xBC\x8C",
                                        "\xF0\x9F\x98\x80"};
const std::vector<std::string> kAscii = {"a", "b", "k", "s", "A", "K", "S", " ", " ", " ", ",", ".", "'",
                                         "\"", "1", "\t", "_", "~", "-"};

struct TextSet {
    std::vector<std::string> source, list;
    bool wellFormed;
};

std::vector<std::string> mixed(int wideWeight, std::vector<std::string> extra = {}) {
    std::vector<std::string> out = kAscii;
    for (int i = 0; i < wideWeight; ++i) out.insert(out.end(), kWide.begin(), kWide.end());
    out.insert(out.end(), extra.begin(), extra.end());
    return out;
}

struct Generator {
    std::mt19937 random{20261207};
    std::size_t below(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); }
    std::string text(const std::vector<std::string>& alphabet, std::size_t maxChars) {
        std::string t;
        for (std::size_t n = below(maxChars + 1); n > 0; --n) t += alphabet[below(alphabet.size())];
        return t;
    }
    // Sources always hold a wide character (else the byte path answers),
    // and now and then end in blanks.
    std::string source(const TextSet& set) {
        std::string t = text(set.source, 16);
        const std::string& wide = kWide[below(kWide.size())];
        std::size_t at = below(t.size() + 1);
        while (at < t.size() && (static_cast<unsigned char>(t[at]) & 0xC0) == 0x80) ++at;
        t.insert(at, wide);
        if (below(4) == 0) t += below(2) ? "  " : " ";
        return t;
    }
    std::string modifiers() {
        static const std::string letters = "ABCDFGHIKLMNPQRSTUWXEOV:z ";
        std::string m;
        for (char c : letters) {
            if (below(7) == 0) m += below(3) == 0 ? static_cast<char>(std::tolower(c)) : c;
        }
        return m;
    }
    // Mostly a piece of the source, so whole and partial matches happen.
    std::string word(const TextSet& set, const std::string& source) {
        if (below(3) == 0) return text(set.source, 3);
        std::vector<std::size_t> starts;   // of the source's characters
        for (std::size_t i = 0; i < source.size(); ++i) {
            if ((static_cast<unsigned char>(source[i]) & 0xC0) != 0x80) starts.push_back(i);
        }
        starts.push_back(source.size());
        const std::size_t first = below(starts.size() - 1);
        const std::size_t last = std::min(starts.size() - 1, first + 1 + below(4));
        std::string w = source.substr(starts[first], starts[last] - starts[first]);
        return w;
    }
};

struct Answer {
    std::int32_t status;
    std::uint64_t bits;
    bool operator==(const Answer&) const = default;
};

using Entry = std::int32_t (*)(txscan::contract::ArgumentFrame*, void*);
using Reference = std::int32_t (*)(txscan::contract::ArgumentFrame*, double*, txscan::contract::EncodingHandle*,
                                   std::uint8_t, txscan::contract::PerCallRecord*);
using Utf8Path = bool (*)(txscan::contract::ArgumentFrame*, double*, txscan::contract::EncodingHandle*,
                          std::int32_t*);

struct Function {
    Entry entry;
    Reference reference;
    Utf8Path utf8;
};

TEST(WordsUtf8, AgreesWithTheScannerOnGeneratedCalls) {
    const std::vector<TextSet> sets = {
        {mixed(0), {" ", ",", "a", "K", "'", "\xE3\x80\x80"}, true},
        {mixed(1), mixed(1), true},
        {mixed(4), {" ", "k", "\xC2\xA0", "\xE2\x84\xAA", "\xD0\xB6", "\xEF\xBC\x8C"}, true},
        {mixed(1, {"\xC3", "\xFF", "\x80", "\xE6\x9D"}), {" ", ",", "\xC3"}, false},
    };
    // Starts: fractional, negative, beyond any text, missing and infinite.
    const double starts[] = {0,     1,     2,     3,    5,   -1,       -2,      -6,
                             2.7,   -3.5,  100,   -100, 1e12, -1e12,   std::bit_cast<double>(0xFFFFD10000000000ull),
                             -1.0 / 0.0};
    // KFINDW's argument types after the word: the accepted signatures and
    // two that are not.
    const char* const signatures[] = {"", "2", "22", "221", "21", "212", "1", "12", "122", "11", "2222"};
    const Function count{txscan::kcountwEntry, txscan::countWordsMultiByte, txscan::countWordsUtf8};
    const Function find{txscan::kfindwEntry, txscan::findWordMultiByte, txscan::findWordUtf8};

    txtest::InProcess p("UTF-8");
    txscan::contract::EncodingHandle* h = p.session.encodingHandle();
    Generator g;
    // The entry against the scanner; on well-formed text with an accepted
    // signature the UTF-8 path must take the call itself.
    const auto check = [&](bool finding, const std::vector<Argument>& args, bool mustTake) {
        const Function& f = finding ? find : count;
        const auto run = [&](auto call) {
            txtest::FrameBuilder frame(args);
            double result = -12345.0;
            const std::int32_t status = call(&frame.frame, &result);
            return Answer{status, std::bit_cast<std::uint64_t>(result)};
        };
        const Answer fast = run([&](auto* frame, double* r) { return f.entry(frame, r); });
        const Answer reference = run([&](auto* frame, double* r) { return f.reference(frame, r, h, 0, nullptr); });
        ASSERT_EQ(fast, reference) << (finding ? "KFINDW(" : "KCOUNTW(") << txtest::describe(args) << ") got "
                                   << std::bit_cast<double>(fast.bits) << " want "
                                   << std::bit_cast<double>(reference.bits);
        if (mustTake) {
            std::int32_t status = 0;
            const bool taken =
                run([&](auto* frame, double* r) { return f.utf8(frame, r, h, &status) ? 0 : 1; }).status == 0;
            ASSERT_TRUE(taken) << "declined: " << txtest::describe(args);
        }
    };
    // Corners the generator seldom reaches: a backward search that starts on
    // the first trimmed blank or beyond it, characters that fold to ASCII
    // letters, wide blanks as white space.
    const std::vector<std::pair<bool, std::vector<Argument>>> corners = {
        {true, {"ab \xC3\xA9 c  ", "ab", " ,", "TB", 7.0}},
        {true, {"ab \xC3\xA9 c  ", "ab", " ,", "TB", 8.0}},
        {true, {"ab \xC3\xA9 c  ", "c", " ,", "TB", 6.0}},
        {true, {"x \xE2\x84\xAA y", "k", " ", "I"}},
        {true, {"x \xC5\xBF", "S", " ", "I"}},
        {false, {"a\xE2\x84\xAA" "b \xC3\xA9", "k", "I"}},
        {false, {"a\xE3\x80\x80" "b\xC2\xA0" "c", "", "S"}},
    };
    for (const auto& [finding, args] : corners) check(finding, args, true);

    for (const TextSet& set : sets) {
        for (int i = 0; i < 4000; ++i) {
            const bool finding = g.below(2) == 0;
            std::vector<Argument> args;
            args.emplace_back(g.source(set));
            bool valid = true;
            if (finding) {
                args.emplace_back(g.below(12) == 0 ? Argument{Absent{}} : Argument{g.word(set, std::get<std::string>(args[0]))});
                const char* signature = signatures[g.below(std::size(signatures))];
                valid = std::string(signature).size() <= 3 && std::string(signature) != "11";
                bool listGiven = false;
                for (const char* t = signature; *t != '\0'; ++t) {
                    if (*t == '1') {
                        // Now and then a start about the end of the text without its trailing blanks.
                        std::string trimmed = std::get<std::string>(args[0]);
                        trimmed.erase(trimmed.find_last_not_of(' ') + 1);
                        double chars = 0;
                        for (char c : trimmed) chars += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
                        args.emplace_back(g.below(4) == 0 ? chars + static_cast<double>(g.below(3))
                                                          : starts[g.below(std::size(starts))]);
                    } else {
                        args.emplace_back(listGiven ? g.modifiers() : g.text(set.list, 3));
                        listGiven = true;
                    }
                }
            } else {
                const std::size_t extra = g.below(3);
                if (extra >= 1) args.emplace_back(g.below(10) == 0 ? Argument{Absent{}} : Argument{g.text(set.list, 3)});
                if (extra >= 2) args.emplace_back(g.modifiers());
            }
            // Under T a wide character before the trailing blanks is the
            // host's to trim or keep, so the scanner may take that call.
            bool trims = false, wideBeforeBlanks = false;
            for (std::size_t k = 0; k < args.size(); ++k) {
                const auto* text = std::get_if<std::string>(&args[k]);
                if (text == nullptr) continue;
                trims = trims || text->find_first_of("Tt") != std::string::npos;
                const std::size_t last = text->find_last_not_of(' ');
                wideBeforeBlanks = wideBeforeBlanks || (k < 2 && last != std::string::npos &&
                                                        (static_cast<unsigned char>((*text)[last]) & 0x80) != 0);
            }
            check(finding, args, set.wellFormed && valid && !(trims && wideBeforeBlanks));
        }
    }
}

}  // namespace
