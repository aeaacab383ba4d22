// Generated calls for the differential tests: rows drawn from weighted
// alphabets, modifier texts, starts, search texts, lists and word numbers,
// and one loop that runs every call two ways and stops at the first call on
// which they disagree.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <random>
#include <string>
#include <vector>

#include "module/search/substring_scan.h"
#include "tests/support/module_calls.h"

namespace txtest {

using txscan::contract::EncodingHandle;
// A handle-walking path, the reference the faster paths are held to, and the
// modes of the paths that serve a search and a count alike.
using MultiBytePath = std::int32_t (*)(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);
inline constexpr auto kFirst = txscan::SearchMode::kFirst;
inline constexpr auto kCount = txscan::SearchMode::kCount;

using Chars = std::vector<std::string>;   // one element per character; repeats weigh

// Letters that wide characters fold onto (k, s, i), blanks weighed up,
// punctuation, a control character.
inline const Chars kAsciiChars = {"a", "b", "k", "K", "s", "S", "i", "I", "e", "E", " ", " ", " ", ",",
                                  ".", ";", "'", "\"", "1", "\t", "_", "$", "~", "-", "\x01"};
// Accented Latin with and without case, CJK, wide blanks (U+3000, U+00A0),
// characters that fold onto ASCII or Latin letters under the handle's case
// rules (Kelvin sign, Angstrom sign, long s) or nearly so (dotted capital I,
// dotless i), Cyrillic with case, a dash, a fullwidth comma, an emoji.
inline const Chars kWideChars = {"é", "É", "ß", "à", "Å", "東", "京", "\u3000", "\u00A0", "\u212A",
                                 "\u212B", "ſ", "İ", "ı", "Ж", "ж", "—", "，", "😀"};
inline const Chars kMalformedBytes = {"\xC3", "\xFF", "\x80", "\xE6\x9D", "\xED\xA0\x80"};
// Upper halves of the single-byte encodings: letters with case, sharp s,
// no-break space, signs, bytes some of them leave unassigned.
inline const Chars kHighBytes = {"\xE9", "\xC9", "\xDF", "\xA0", "\xB5", "\xD7", "\xFF", "\x80", "\xA4"};

// `base` with `extra` added `weight` times.
inline Chars weighted(Chars base, const Chars& extra, int weight = 1) {
    for (int i = 0; i < weight; ++i) base.insert(base.end(), extra.begin(), extra.end());
    return base;
}

struct Alphabets {
    const char* encoding;
    Chars source;   // rows
    Chars list;     // character and delimiter lists
    bool wellFormed = true;
    std::size_t longest = 16, longestList = 3;   // characters
};

// UTF-8 rows: ASCII-heavy, mixed, multi-byte-heavy, and with malformed
// sequences (which the UTF-8 paths may leave to the handle).
inline std::vector<Alphabets> utf8Alphabets() {
    return {{"UTF-8", kAsciiChars, {" ", ",", "a", "K", "'", "\u3000"}},
            {"UTF-8", weighted(kAsciiChars, kWideChars), weighted(kAsciiChars, kWideChars)},
            {"UTF-8", weighted(kAsciiChars, kWideChars, 4), {" ", "k", "\u00A0", "\u212A", "ж", "，"}},
            {"UTF-8", weighted(weighted(kAsciiChars, kWideChars), kMalformedBytes), {" ", ",", "\xC3"}, false}};
}

// The characters of a UTF-8 text (malformed bytes one by one).
inline Chars charactersOf(const std::string& text) {
    Chars out;
    for (unsigned char c : text) {
        if ((c & 0xC0) == 0x80 && !out.empty() && static_cast<unsigned char>(out.back()[0]) >= 0xC0) {
            out.back() += static_cast<char>(c);
        } else {
            out.emplace_back(1, static_cast<char>(c));
        }
    }
    return out;
}

struct Generator {
    std::mt19937 random;

    std::size_t below(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); }
    bool oneIn(std::size_t n) { return below(n) == 0; }

    std::string text(const Chars& alphabet, std::size_t maxChars) {
        std::string t;
        for (std::size_t n = below(maxChars + 1); n > 0; --n) t += alphabet[below(alphabet.size())];
        return t;
    }
    // A row, now and then ending in blanks; `wide` puts a wide character
    // somewhere in it, so that it cannot take a byte path.
    std::string row(const Alphabets& a, bool wide) {
        Chars chars = charactersOf(text(a.source, a.longest));
        if (wide) chars.insert(chars.begin() + static_cast<long>(below(chars.size() + 1)), kWideChars[below(kWideChars.size())]);
        std::string t;
        for (const std::string& c : chars) t += c;
        return oneIn(4) ? t + std::string(1 + below(2), ' ') : t;
    }
    // Each of `letters` at most once, in order, some in lower case.
    std::string modifiers(const char* letters) {
        const Chars all = charactersOf(letters);
        std::string m;
        for (const std::string& c : all) {
            if (!oneIn(std::max<std::size_t>(4, all.size() / 4))) continue;
            m += c[0] >= 'A' && c[0] <= 'Z' && oneIn(3) ? std::string(1, static_cast<char>(c[0] + 32)) : c;
        }
        return m;
    }
    // A search text or word: mostly whole characters of the source, so that
    // matches happen, sometimes in the other case, with letters swapped for
    // those that fold onto them, or with trailing blanks.
    std::string piece(const std::string& source, const Chars& alphabet) {
        const Chars chars = charactersOf(source);
        std::string t;
        if (chars.empty() || oneIn(3)) {
            t = text(alphabet, 3);
        } else {
            const std::size_t from = below(chars.size());
            for (std::size_t i = from; i < chars.size() && i <= from + below(4); ++i) t += chars[i];
        }
        if (oneIn(4)) {
            for (char& c : t) c = static_cast<char>(std::isalpha(static_cast<unsigned char>(c)) ? c ^ 0x20 : c);
        }
        if (oneIn(4)) {
            const std::pair<std::string, std::string> swaps[] = {{"k", "\u212A"}, {"s", "ſ"}, {"ß", "ss"}};
            for (const auto& [from, to] : swaps) {
                for (std::size_t at = t.find(from); at != std::string::npos; at = t.find(from, at + to.size())) {
                    t.replace(at, from.size(), to);
                }
            }
        }
        return oneIn(6) ? t + "  " : t;
    }
    // Fixed corners (fractional, far out, infinite, missing) or a whole or
    // fractional start on either side of the source's trimmed length.
    double start(const std::string& source) {
        static const double corners[] = {1,    2,     3,     0,     -1,    -2,  -5,  5,     9,     40,
                                         1e12, -1e12, 2.5,   -2.5,  0.5,   -0.5, 2.7, -3.5,  100,   -100,
                                         -INFINITY, std::bit_cast<double>(0xFFFFD10000000000ull),
                                         std::bit_cast<double>(txscan::contract::kMissingValueBits)};
        if (oneIn(3)) return corners[below(std::size(corners))];
        std::string trimmed = source;
        trimmed.erase(trimmed.find_last_not_of(' ') + 1);
        const auto span = static_cast<long>(charactersOf(trimmed).size()) + 3;
        const double s = static_cast<double>(static_cast<long>(below(static_cast<std::size_t>(2 * span + 1))) - span);
        return oneIn(4) ? s + (s < 0 ? -0.5 : 0.5) : s;
    }

    // A call of the given shape, one letter per argument: s a row, S a row
    // with a wide character, p a piece of the first argument, l a list, m
    // modifiers over `letters`, 1 a start, n a word number, o an output slot;
    // P and L are sometimes absent.
    std::vector<Argument> call(const char* shape, const Alphabets& a, const char* letters) {
        static const double wordNumbers[] = {1, 2, 3, -1, -2, 4, -4, 7, 1e12, -1e12};
        std::vector<Argument> args;
        for (const char* k = shape; *k != '\0'; ++k) {
            const std::string* first = args.empty() ? nullptr : std::get_if<std::string>(&args[0]);
            const std::string source = first != nullptr ? *first : std::string();
            switch (*k) {
                case 's': case 'S': args.emplace_back(row(a, *k == 'S')); break;
                case 'P': if (oneIn(12)) { args.emplace_back(Absent{}); break; } [[fallthrough]];
                case 'p': args.emplace_back(piece(source, a.source)); break;
                case 'L': if (oneIn(10)) { args.emplace_back(Absent{}); break; } [[fallthrough]];
                case 'l': args.emplace_back(text(a.list, a.longestList)); break;
                case 'm': args.emplace_back(modifiers(letters)); break;
                case '1': args.emplace_back(start(source)); break;
                case 'n': args.emplace_back(wordNumbers[below(std::size(wordNumbers))]); break;
                case 'o': args.emplace_back(-7.0); break;
                default: ADD_FAILURE() << "shape letter " << *k;
            }
        }
        return args;
    }
};

// What one way of running a call answered.
struct Outcome {
    std::int32_t status = 0;
    std::string result;
    bool operator==(const Outcome&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const Outcome& o) {
    return out << "status " << o.status << ", " << o.result;
}

// A number exactly, missing values by their bits.
inline std::string shown(double x) {
    if (std::isnan(x)) return "nan " + std::to_string(std::bit_cast<std::uint64_t>(x));
    std::ostringstream out;
    out << std::setprecision(17) << x;
    return out.str();
}

// Runs a worker of the frame and a result on a fresh frame of `args`.
template <typename Worker>
Outcome onFrame(const std::vector<Argument>& args, Worker worker) {
    FrameBuilder frame(args);
    double result = -12345.0;
    const std::int32_t status = worker(&frame.frame, &result);
    return {status, shown(result)};
}

// Runs `count` calls drawn by `draw` both ways and stops at the first
// disagreement; an empty call is not one to compare.
template <typename Draw, typename Fast, typename Reference>
void expectAgree(const std::string& what, int count, Draw draw, Fast fast, Reference reference) {
    int compared = 0;
    for (int i = 0; i < count; ++i) {
        const std::vector<Argument> args = draw();
        if (args.empty()) continue;
        ASSERT_EQ(fast(args), reference(args)) << what << "(" << describe(args) << ")";
        ++compared;
    }
    EXPECT_GT(compared, count / 2) << what << ": too few calls compared";
}

}  // namespace txtest
