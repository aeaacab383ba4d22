// KFIND and KCOUNTX through the host and the module's exports: start
// positions and directions, modifiers and their notes, the type check of
// arguments 3 and 4, non-overlapping counts, and the multi-byte paths with
// positions in characters.
#include <gtest/gtest.h>

#include <limits>

#include "host/host.h"
#include "tests/module/search/case_runner.h"

namespace {

using txtest::Case;
using txtest::kInvalid;
using txtest::kMissingStart;
using txtest::runCases;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

std::string s(const char* text) { return text; }

const char* const kAllEncodings[] = {"UTF-8", "ISO-8859-1", "windows-1252", "Shift_JIS"};

TEST(KFind, StartPositionsAndDirections) {
    const std::vector<Case> cases = {
        {"KFIND", {s("abcabc"), s("bc")}, 2},
        {"KFIND", {s("abcabc"), s("bc"), 3.0}, 5},
        {"KFIND", {s("abcabc"), s("bc"), -4.0}, 2},   // the match must end by position 4
        {"KFIND", {s("abcabc"), s("bc"), -6.0}, 5},
        {"KFIND", {s("abcabc"), s("bc"), -60.0}, 5},
        {"KFIND", {s("abcabc"), s("bc"), 0.0}, 0},
        {"KFIND", {s("abcabc"), s("bc"), 0.5}, 0},     // below 1 searches nothing
        {"KFIND", {s("abcabc"), s("bc"), 7.0}, 0},
        {"KFIND", {s("abcabc"), s("c"), 6.0}, 6},
        {"KFIND", {s("abcabc"), s("c"), -5.0}, 3},
        {"KFIND", {s("abcabc"), s("bc"), 2.9}, 2},
        {"KFIND", {s("abcabc"), s("ab"), -2.5}, 1},
        {"KFIND", {s("abcabc"), s("bc"), -2.5}, 0},
        {"KFIND", {s("abcabc"), s("abcabcx")}, 0},
        {"KFIND", {s(""), s("a")}, 0},
        {"KFIND", {s("abc"), s("")}, 0},
        {"KFIND", {s("abcabc"), s("bc"), kNaN}, 0, "", kMissingStart},
        {"KFIND", {s("abcabc"), s("bc"), kNaN, s("xz")}, 0, "", kMissingStart},   // no notes before it
        {"KFIND", {s("abcabc"), s("bc"), 9.0, s("xz")}, 0},
        {"KFIND", {s("abcabc"), s("bc"), std::numeric_limits<double>::infinity()}, 0, "", kMissingStart},
    };
    for (const char* encoding : kAllEncodings) runCases(encoding, cases);
}

TEST(KFind, ModifiersAndNotes) {
    const std::vector<Case> cases = {
        {"KFIND", {s("xABCabc"), s("abc"), s("i")}, 2},
        {"KFIND", {s("xABCabc"), s("abc"), s(" I ")}, 2},
        {"KFIND", {s("xABCabc"), s("abc"), s("IO")}, 2, "O"},
        {"KFIND", {s("xABCabc"), s("abc"), s("x")}, 5, "X"},
        {"KFIND", {s("xABCabc"), s("abc"), s("bakz")}, 5, "BAKZ"},
        {"KFIND", {s("abc  "), s("c  ")}, 3},
        {"KFIND", {s("abc"), s("c  ")}, 0},
        {"KFIND", {s("abc"), s("c  "), s("t")}, 3},
        {"KFIND", {s("abc"), s("   "), s("t")}, 0},
        {"KFIND", {s("ab  cd"), s("b "), -4.0, s("t")}, 2},
        {"KFIND", {s("ab  cd  "), s("d"), 3.0, s("t")}, 6},
        {"KFIND", {s("xABCabc"), s("abc"), s("i"), 3.0}, 5},
        {"KFIND", {s("xABCabc"), s("abc"), 3.0, s("i")}, 5},
        {"KFIND", {s("xABCabc"), s("abc"), 3.0, 4.0}, 0, "", kInvalid},
        {"KFIND", {s("xABCabc"), s("abc"), s("i"), s("t")}, 0, "", kInvalid},
    };
    for (const char* encoding : kAllEncodings) runCases(encoding, cases);
}

TEST(KFind, TypeClashMarksArgumentFour) {
    txhost::Session session(txtest::sessionOptions("UTF-8"));
    const auto r = txhost::Module::load(session)->call("KFIND", {s("abc"), s("b"), 1.0, 2.0});
    EXPECT_EQ(std::vector<std::uint8_t>({0, 0, 0, 1}), r.errorMarks);
}

TEST(KCountX, CountsWithoutOverlap) {
    const std::vector<Case> cases = {
        {"KCOUNTX", {s("aaaa"), s("aa")}, 2},
        {"KCOUNTX", {s("aaa"), s("aa")}, 1},
        {"KCOUNTX", {s("aAa"), s("a"), s("i")}, 3},
        {"KCOUNTX", {s("aAa"), s("a")}, 2},
        {"KCOUNTX", {s("abc"), s("")}, 0},
        {"KCOUNTX", {s(""), s("a")}, 0},
        {"KCOUNTX", {s("abab"), s("ab"), s("o")}, 2},
        {"KCOUNTX", {s("abab"), s("ab"), s("ob")}, 2, "B"},
        {"KCOUNTX", {s("a  a  "), s("a "), s("t")}, 2},
        {"KCOUNTX", {s("a  a  "), s("  "), s("t")}, 0},
        {"KCOUNTX", {s("a  a  "), s("  ")}, 2},
        {"KCOUNTX", {s("AbAbab"), s("AB"), s("i")}, 3},
    };
    for (const char* encoding : kAllEncodings) runCases(encoding, cases);
}

TEST(KFind, CaselessHighBytesInSingleByteSessions) {
    // 0xC9 and 0xE9 are the two cases of e-acute in both encodings.
    const std::vector<Case> cases = {
        {"KFIND", {s("x\xC9y"), s("\xE9"), s("i")}, 2},
        {"KFIND", {s("x\xC9y"), s("\xE9")}, 0},
        {"KCOUNTX", {s("\xE9\xC9\xE9"), s("\xC9"), s("i")}, 3},
    };
    runCases("ISO-8859-1", cases);
    runCases("windows-1252", cases);
}

TEST(KFind, MultiBytePathsCountCharacters) {
    // "ä" and "Ä" take two bytes each in UTF-8.
    const std::vector<Case> utf8 = {
        {"KFIND", {s("äbcäbc"), s("bc")}, 2},
        {"KFIND", {s("äbcäbc"), s("bc"), 3.0}, 5},
        {"KFIND", {s("äbcäbc"), s("bc"), -4.0}, 2},
        {"KFIND", {s("äbcäbc"), s("bc"), 0.0}, 0},
        {"KFIND", {s("äbcäbc"), s("bc"), 7.0}, 0},
        {"KFIND", {s("äbcäbc"), s("bc"), s("b")}, 5},        // B turns this path leftwards, no note
        {"KFIND", {s("äbcäbc"), s("äb"), s("z")}, 1},        // no note on this path
        {"KFIND", {s("ÄbcÄ"), s("ä"), s("i")}, 1},
        {"KFIND", {s("ÄbcÄ"), s("ä")}, 0},
        {"KFIND", {s("äbc  "), s("c  ")}, 3},
        {"KFIND", {s("äbc"), s("c  "), s("t")}, 3},
        {"KFIND", {s("äbc"), s("   "), s("t")}, 0},
        {"KFIND", {s("äbc"), s("b"), 1.0, 2.0}, 2},          // no clash: argument 4 is the start
        {"KCOUNTX", {s("ääää"), s("ää")}, 2},
        {"KCOUNTX", {s("äää"), s("ää")}, 1},
        {"KCOUNTX", {s("äÄä"), s("ä"), s("i")}, 3},
        {"KCOUNTX", {s("ääää"), s("ää"), s("b")}, 2},
        {"KCOUNTX", {s("äbc"), s("")}, 0},
        // Only the source decides the path: an ASCII source takes the byte
        // path even with a multi-byte search text, which it never matches.
        {"KFIND", {s("abc"), s("ä")}, 0},
        {"KCOUNTX", {s("abc"), s("ä")}, 0},
    };
    runCases("UTF-8", utf8);
    // Shift_JIS: 0x93FA and 0x967B are two-byte characters; 0x7B alone is "{".
    const std::vector<Case> sjis = {
        {"KFIND", {s("\x93\xFA\x96\x7B" "abc"), s("abc")}, 3},
        {"KFIND", {s("\x93\xFA\x96\x7B{"), s("{")}, 3},
        {"KFIND", {s("\x93\xFA\x96\x7B\x93\xFA"), s("\x93\xFA"), -2.0}, 1},
        {"KFIND", {s("\x93\xFA" "AbA"), s("a"), s("i")}, 2},
        {"KCOUNTX", {s("\x93\xFA\x96\x7B\x93\xFA{"), s("\x93\xFA")}, 2},
        {"KCOUNTX", {s("\x93\xFA\x96\x7B\x93\xFA{"), s("{")}, 1},
    };
    runCases("Shift_JIS", sjis);
}

}  // namespace
