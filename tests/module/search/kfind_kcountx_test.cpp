// KFIND and KCOUNTX through the host and the module's exports: start
// positions and directions, modifiers and their notes, the type check of
// arguments 3 and 4, non-overlapping counts, and the multi-byte paths with
// positions in characters.
#include <gtest/gtest.h>

#include <limits>

#include "tests/support/module_calls.h"

namespace {

using namespace txtest;
using txscan::contract::kStatusInvalidArgument;
using txscan::contract::kStatusMissingStart;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInfinity = std::numeric_limits<double>::infinity();
const char* const kAllEncodings[] = {"UTF-8", "ISO-8859-1", "windows-1252", "Shift_JIS"};
constexpr const char* F = "KFIND";
constexpr const char* X = "KCOUNTX";

TEST(KFind, StartPositionsDirectionsModifiersAndNotes) {
    const std::string t = "abcabc", u = "xABCabc";
    const std::vector<Case> cases = {
        {F, {t, s("bc"), 3.0}, 5},    {F, {t, s("bc"), -60.0}, 5},  {F, {t, s("bc"), 0.0}, 0},
        {F, {t, s("c"), 6.5}, 0},     {F, {t, s("c"), 6.0}, 6},     {F, {t, s("c"), -5.0}, 3},
        {F, {t, s("bc"), 2.9}, 2},    {F, {t, s("ab"), -2.5}, 1},   {F, {t, s("bc"), -2.5}, 0},
        {F, {s("abc"), s("")}, 0},    {F, {t, s("bc"), 9.0, s("xz")}, 0},
        {F, {t, s("bc"), -4.0}, 2},   // the match must end by position 4
        {F, {t, s("bc"), 0.5}, 0},    // below 1 searches nothing
        {F, {t, s("bc"), kNaN}, 0, "", kStatusMissingStart},
        {F, {t, s("bc"), kNaN, s("xz")}, 0, "", kStatusMissingStart},   // no notes before it
        {F, {t, s("bc"), kInfinity}, 0, "", kStatusMissingStart},
        // modifiers and their notes
        {F, {u, s("abc"), s(" I ")}, 2},        {F, {u, s("abc"), s("IO")}, 2, "O"},
        {F, {u, s("abc"), s("bakz")}, 5, "BAKZ"}, {F, {s("abc"), s("c  ")}, 0},
        {F, {s("abc"), s("c  "), s("t")}, 3},   {F, {s("abc"), s("   "), s("t")}, 0},
        {F, {s("ab  cd"), s("b "), -4.0, s("t")}, 2}, {F, {s("ab  cd  "), s("d"), 3.0, s("t")}, 6},
        {F, {u, s("abc"), s("i"), 3.0}, 5},     {F, {u, s("abc"), 3.0, 4.0}, 0, "", kStatusInvalidArgument},
        {F, {u, s("abc"), s("i"), s("t")}, 0, "", kStatusInvalidArgument},
        {X, {s("aaaa"), s("aa")}, 2},           {X, {s("aAa"), s("a"), s("i")}, 3},
        {X, {s("abab"), s("ab"), s("ob")}, 2, "B"}, {X, {s("a  a  "), s("a "), s("t")}, 2},
        {X, {s("a  a  "), s("  ")}, 2},
    };
    for (const char* encoding : kAllEncodings) runCases(encoding, cases);
    // 0xC9 and 0xE9 are the two cases of e-acute in both single-byte encodings.
    for (const char* encoding : {"ISO-8859-1", "windows-1252"}) {
        runCases(encoding, {{F, {s("x\xC9y"), s("\xE9"), s("i")}, 2}, {F, {s("x\xC9y"), s("\xE9")}, 0},
                            {X, {s("\xE9\xC9\xE9"), s("\xC9"), s("i")}, 3}});
    }
    txhost::Session session;
    const auto clash = txhost::Module::load(session)->call(F, {s("abc"), s("b"), 1.0, 2.0});
    EXPECT_EQ(std::vector<std::uint8_t>({0, 0, 0, 1}), clash.errorMarks);
}

TEST(KFind, MultiBytePathsCountCharacters) {
    // "ä" and "Ä" take two bytes each in UTF-8.
    const std::string t = "äbcäbc";
    runCases("UTF-8", {
        {F, {t, s("bc"), 3.0}, 5},     {F, {t, s("bc"), -4.0}, 2},        {F, {t, s("bc"), 0.0}, 0},
        {F, {s("ÄbcÄ"), s("ä"), s("i")}, 1}, {F, {s("äbc"), s("c  "), s("t")}, 3},
        {F, {t, s("bc"), s("b")}, 5},        // B turns this path leftwards, no note
        {F, {t, s("äb"), s("z")}, 1},        // no note on this path
        {F, {s("äbc"), s("b"), 1.0, 2.0}, 2},   // no clash: argument 4 is the start
        {X, {s("ääää"), s("ää")}, 2},  {X, {s("äÄä"), s("ä"), s("i")}, 3},
        // Only the source decides the path: an ASCII source takes the byte
        // path even with a multi-byte search text, which it never matches.
        {F, {s("abc"), s("ä")}, 0},    {X, {s("abc"), s("ä")}, 0},
    });
    // Shift_JIS: 0x93FA and 0x967B are two-byte characters; 0x7B alone is "{".
    const std::string jis = "\x93\xFA\x96\x7B";
    runCases("Shift_JIS", {
        {F, {jis + "abc", s("abc")}, 3},       {F, {jis + "{", s("{")}, 3},
        {F, {jis + "\x93\xFA", s("\x93\xFA"), -2.0}, 1}, {F, {s("\x93\xFA" "AbA"), s("a"), s("i")}, 2},
        {X, {jis + "\x93\xFA{", s("\x93\xFA")}, 2}, {X, {jis + "\x93\xFA{", s("{")}, 1},
    });
}

}  // namespace
