// Generated KFIND, KCOUNTX, KFINDC and KCOUNTC calls in a UTF-8 session, run
// through the entry routine (which offers them to the UTF-8 paths) and
// through the handle-walking paths alone: the same status and result on
// every call. On well-formed text the UTF-8 paths must answer themselves.
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
using txscan::contract::ArgumentFrame;
using txscan::contract::EncodingHandle;

using Entry = std::int32_t (*)(ArgumentFrame*, void*);
using Utf8Path = bool (*)(ArgumentFrame*, double*, EncodingHandle*, std::int32_t*);
using Reference = std::int32_t (*)(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);

struct Function {
    const char* name;
    Entry entry;
    Utf8Path utf8;
    Reference reference;
    bool isFind, isCharSet;
};

const Function kFunctions[] = {
    {"KFIND", txscan::kfindEntry, txscan::findUtf8, txscan::findMultiByte, true, false},
    {"KCOUNTX", txscan::kcountxEntry, txscan::countUtf8, txscan::countMultiByte, false, false},
    {"KFINDC", txscan::kfindcEntry, txscan::findCharUtf8, txscan::findCharMultiByte, true, true},
    {"KCOUNTC", txscan::kcountcEntry, txscan::countCharUtf8, txscan::countCharMultiByte, false, true},
};

// Accented Latin with and without case, CJK, a no-break space, characters
// that fold onto ASCII under the handle's case rules (Kelvin sign, long s)
// or nearly so (dotted capital I, dotless i), an emoji, Cyrillic.
const std::vector<std::string> kWide = {"é", "É", "ß", "東", "京", "\u00A0", "\u212A", "ſ", "İ",
                                        "ı", "😀", "Ж", "ж", "，", "Å", "\u212B"};
const std::vector<std::string> kAscii = {"a", "b", "k", "K", "s", "S", "i", "I", "e", "E", " ", " ", " ", ",",
                                         ".", "1", "\t", "_", "$", "~", "-", "'", "\x01"};
const std::vector<std::string> kMalformed = {"\xC3", "\xFF", "\x80", "\xE6\x9D", "\xED\xA0\x80"};

struct Generator {
    std::mt19937 random{20261207};
    std::size_t below(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); }

    std::string text(const std::vector<std::string>& alphabet, std::size_t maxChars) {
        std::string t;
        for (std::size_t n = below(maxChars + 1); n > 0; --n) t += alphabet[below(alphabet.size())];
        return t;
    }
    // A search text or list: often a piece of the source, so that finds succeed.
    std::string second(const std::vector<std::string>& alphabet, const std::string& source) {
        std::string t = text(alphabet, 3);
        if (below(2) == 0) {
            // Whole characters: cut where a character starts.
            const auto boundary = [&](std::size_t at) {
                while (at < source.size() && (static_cast<unsigned char>(source[at]) & 0xC0) == 0x80) ++at;
                return at;
            };
            const std::size_t from = boundary(below(source.size()));
            t = source.substr(from, boundary(std::min(source.size(), from + 1 + below(6))) - from);
        }
        if (below(3) == 0) {
            // The characters that fold onto ASCII, swapped for their ASCII forms and back.
            const std::pair<std::string, std::string> swaps[] = {
                {"k", "\u212A"}, {"s", "ſ"}, {"K", "k"}, {"ß", "ss"}};
            for (const auto& [from, to] : swaps) {
                for (std::size_t at = t.find(from); at != std::string::npos; at = t.find(from, at + to.size())) {
                    t.replace(at, from.size(), to);
                }
            }
        }
        if (below(6) == 0) t += "  ";
        return t;
    }
    std::string modifiers() {
        static const std::vector<std::string> letters = {"A", "B", "C", "D", "F", "G", "H", "I", "K", "L", "M",
                                                         "N", "O", "P", "Q", "S", "T", "U", "V", "W", "X", "E",
                                                         "R", ":", " ", "ı", "ſ", "z"};
        std::string m;
        for (const std::string& letter : letters) {
            if (below(7) != 0) continue;
            m += below(2) == 0 && letter[0] >= 'A' && letter[0] <= 'Z' ? std::string(1, letter[0] + 32) : letter;
        }
        return m;
    }
    Argument start() {
        static const double starts[] = {1, 2, 3, 0, -1, -2, -5, 5, 9, 40, 1e12, -1e12, 2.5, -2.5, 0.5, -0.5};
        if (below(12) == 0) return std::bit_cast<double>(txscan::contract::kMissingValueBits);
        return starts[below(std::size(starts))];
    }
};

struct Outcome {
    std::int32_t status;
    double result;
    bool operator==(const Outcome&) const = default;
};

std::vector<Argument> callOf(Generator& g, const Function& f, const std::vector<std::string>& alphabet) {
    // Argument 1 holds a wide character, or the entry takes the byte path.
    std::string source = g.text(alphabet, 15) + kWide[g.below(kWide.size())] + g.text(alphabet, 15);
    if (g.below(5) == 0) source += "   ";
    std::vector<Argument> args{source};
    if (f.isCharSet && f.isFind && g.below(12) == 0) return args;
    args.emplace_back(g.below(15) == 0 ? Argument(Absent{}) : Argument(g.second(alphabet, source)));
    const std::size_t shape = g.below(f.isFind ? 5 : 2);
    if (shape == 1) args.emplace_back(g.modifiers());
    if (shape == 2) args.push_back(g.start());
    if (shape == 3 || shape == 4) {
        Argument first = g.start(), second = Argument(g.modifiers());
        if (shape == 4) std::swap(first, second);
        if (g.below(20) == 0) second = g.start();   // the roles clash
        args.push_back(first);
        args.push_back(second);
    }
    return args;
}

TEST(Utf8Paths, AgreeWithTheHandlePathsOnGeneratedCalls) {
    struct Set {
        std::vector<std::string> alphabet;
        bool wellFormed;
    };
    // ASCII-heavy, multi-byte-heavy, and with malformed sequences (which the
    // UTF-8 paths may leave to the handle).
    std::vector<Set> sets = {{kAscii, true}, {kAscii, true}, {kAscii, false}};
    const int wideCopies[] = {1, 4, 1};
    for (std::size_t k = 0; k < sets.size(); ++k) {
        for (int i = 0; i < wideCopies[k]; ++i) {
            sets[k].alphabet.insert(sets[k].alphabet.end(), kWide.begin(), kWide.end());
        }
    }
    sets[2].alphabet.insert(sets[2].alphabet.end(), kMalformed.begin(), kMalformed.end());

    txtest::InProcess p("UTF-8");
    EncodingHandle* h = p.session.encodingHandle();
    Generator g;
    for (const Set& set : sets) {
        for (const Function& f : kFunctions) {
            for (int i = 0; i < 2000; ++i) {
                const std::vector<Argument> args = callOf(g, f, set.alphabet);
                Outcome viaEntry{0, -7}, reference{0, -7}, direct{0, -7};
                {
                    txtest::FrameBuilder frame(args);
                    viaEntry.status = f.entry(&frame.frame, &viaEntry.result);
                }
                {
                    txtest::FrameBuilder frame(args);
                    reference.status = f.reference(&frame.frame, &reference.result, h, 0);
                }
                txtest::FrameBuilder frame(args);
                const bool answered = f.utf8(&frame.frame, &direct.result, h, &direct.status);
                ASSERT_EQ(viaEntry, reference) << f.name << "(" << txtest::describe(args) << ") got "
                                               << viaEntry.result << " want " << reference.result;
                ASSERT_TRUE(answered || !set.wellFormed) << f.name << "(" << txtest::describe(args) << ")";
            }
        }
    }
}

}  // namespace
