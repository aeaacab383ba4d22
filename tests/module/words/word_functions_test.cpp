// KCOUNTW and KFINDW through the loaded module (the byte path on
// single-byte text, the scanner on multi-byte text) and the scanner's count
// and find modes directly; notes, starts and argument errors, and the word
// functions at the edges of the source. Their sets kept at caching sites
// are tested with KFINDC's.
#include <gtest/gtest.h>

#include <bit>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/module_calls.h"

namespace {

using namespace txtest;
using txscan::contract::kStatusInvalidArgument;
using txscan::contract::kStatusMissingStart;
using txscan::contract::kStatusOk;

const double kMissing = std::bit_cast<double>(txscan::contract::kMissingValueBits);
constexpr const char* C = "KCOUNTW";
constexpr const char* F = "KFINDW";

struct WordCase {
    const char* function;
    std::vector<Argument> args;
    double answer;
    bool scannerAgrees;   // false where the paths are documented to differ; the scanner runs without a start
};

TEST(WordFunctions, ByteAndScannerPaths) {
    constexpr bool Y = true, N = false;
    const WordCase cases[] = {
        // KCOUNTW: default delimiters
        {C, {s("a b c")}, 3, Y}, {C, {s("  a  b  ")}, 2, Y}, {C, {s("   ")}, 0, Y}, {C, {s("a_b#c@d")}, 1, Y},
        {C, {s("a.b<c(d+e&f!g$h*i)j;k^l-m/n,o%p|q")}, 17, Y},
        // lists, M, I, T
        {C, {s("a,b;c"), s(",;")}, 3, Y}, {C, {s(",,a,,b,,"), s(","), s("M")}, 7, Y},
        {C, {s("aXbxc"), s("x"), s("I")}, 3, Y}, {C, {s("   "), s(" "), s("M")}, 4, Y},
        {C, {s("a b  "), s(" ,"), s("MT")}, 2, Y},
        {C, {s("   "), s(" ,"), s("MT")}, 1, N},   // nothing left under T: one empty word on the byte path
        // Q
        {C, {s("x 'it''s' y"), s(" "), s("Q")}, 3, Y}, {C, {s("a \"b 'c\" d' e"), s(" "), s("Q")}, 3, Y},
        {C, {s("a' b c"), s(" "), s("Q")}, 1, Y}, {C, {s("a' b c"), s(" "), s("QB")}, 3, Y},
        {C, {s("a 'b,c' d,e"), s(" ,"), s("QM")}, 4, Y},
        // some classes; the scanner's answer for each class letter is checked
        // through KSCANX, and the byte path's agreement with it by the
        // generated comparison; O has no effect on a count
        {C, {s("a\tb c"), s(""), s("S")}, 3, Y}, {C, {s("ab_1 cd2"), s(""), s("F")}, 2, Y},
        {C, {s("a,b.c"), s(""), s("P")}, 3, Y}, {C, {s("a b"), s(" "), s("O")}, 2, Y},
        // KFINDW: whole words only
        {F, {s("xab ab"), s("ab")}, 5, Y}, {F, {s("xab ab"), s("ab"), s(" "), s("E")}, 2, Y}, {F, {s("ab,abc"), s("ab")}, 1, Y},
        // start positions
        {F, {s("ab cab ab"), s("ab"), 2.0}, 8, N}, {F, {s("ab ab"), s("ab"), 3.7}, 4, N}, {F, {s("ab ab"), s("ab"), 5.0}, 0, N},
        {F, {s("ab cd ab"), s("ab"), s(" "), 4.0}, 7, N}, {F, {s("ab cd ab"), s("ab"), 4.0, s(" "), s("E")}, 2, N},
        // leftwards
        {F, {s("ab cd ab"), s("ab"), s(" "), s("B")}, 7, Y}, {F, {s("ab cd ab"), s("ab"), s(" "), -7.0}, 1, N},
        {F, {s("a b a"), s("a"), s(" "), s("BE")}, 1, Y}, {F, {s("ab cd ef"), s("ab"), s(" "), s("BE")}, 3, Y},
        {F, {s("ab cd ef"), s("ab"), s(" "), s("BE"), -5.0}, 2, N},
        // I, K and V, R, T, classes
        {F, {s("aXb"), s("b"), s("x"), s("I")}, 3, Y}, {F, {s("xaby zc"), s("ab"), s("abc"), s("K")}, 2, Y},
        {F, {s("xaby zc"), s("ab"), s("abc"), s("V")}, 2, N}, {F, {s("x,ab"), s(",ab,"), s(","), s("R")}, 3, Y},
        {F, {s("the THE"), s("The"), s(" "), s("I")}, 1, Y}, {F, {s("ab  "), s("ab  "), s(" ,"), s("T")}, 1, N},
        // M: empty words and empty search words
        {F, {s("a,,b"), s("b"), s(","), s("EM")}, 3, Y},
        {F, {s("a,,b"), s(""), s(",")}, 0, Y}, {F, {s("a,,b"), s(""), s(","), s("M")}, 3, N},
        // Q
        {F, {s("'a b' b"), s("b"), s(" "), s("Q")}, 7, Y}, {F, {s("'a b' b"), s("b'"), s(" "), s("Q")}, 0, Y},
        {F, {s("'a b' c"), s("c"), s(" "), s("QE")}, 2, N}, {F, {s("'a b' b"), s("b"), s(" "), s("QB")}, 7, Y},
    };
    txhost::Session session;
    auto module = txhost::Module::load(session);
    InProcess inProcess;
    for (const WordCase& c : cases) {
        SCOPED_TRACE(c.function + (" " + describe(c.args)));
        const txhost::CallResult r = module->call(c.function, c.args);
        EXPECT_EQ(r.status, kStatusOk);
        EXPECT_EQ(r.number.value_or(-1), c.answer);
        EXPECT_TRUE(r.messages.empty());
        if (!c.scannerAgrees) continue;
        const bool count = c.function == C;
        const auto scanned = inProcess.scan(c.args, count ? countRoles(c.args.size()) : findRoles(c.args.size()),
                                            count ? txscan::kCountWords : txscan::kFindWord);
        EXPECT_EQ(scanned.status, kStatusOk);
        EXPECT_EQ(scanned.number, c.answer) << "scanner";
    }
}

// Notes for unknown letters on the byte paths (E is one for KCOUNTW there;
// the multi-byte path takes it: with M no empty word after a trailing
// delimiter), a missing start, and positions in characters on multi-byte
// text. 0x837C is one Shift_JIS character whose second byte is the vertical bar.
TEST(WordFunctions, NotesMissingStartsAndMultiByteSources) {
    const std::string ete = "\xC3\xA9t\xC3\xA9 \xC3\xA0 la", jis = "\x83\x7C\x83\x41 \x82\xA0";
    runCases("UTF-8", {
        {C, {s("a,,b"), s(","), s("MzE")}, 3, "ZE"},   {C, {s("\xC3\xA9,,b,"), s(","), s("MzE")}, 3},
        {F, {s("a b"), s("b"), s(" "), s("Zq")}, 3, "Z"}, {F, {s("ab"), s("ab"), kMissing}, 0, "", kStatusMissingStart},
        {C, {ete + " plage"}, 4},                      {F, {ete, s("\xC3\xA0")}, 5},
        {F, {ete, s("la"), s(" "), s("E")}, 3},        {F, {s("\xC3\xA9 x \xC3\xA9"), s("\xC3\xA9"), 2.0}, 5},
        {F, {s("\xC3\xA9 x \xC3\xA9"), s("x"), s(" "), s("BE")}, 2},
    });
    runCases("Shift_JIS", {{C, {jis}, 2}, {F, {jis, s("\x82\xA0")}, 4}, {F, {jis, s("\x83\x41")}, 0}});
}

// The documented differences, through the scanner with a start role: a
// start of 0 finds nothing, under B the word must begin at or before the
// start, and a missing start is ignored.
TEST(FindWord, ScannerStartRules) {
    InProcess inProcess;
    const std::tuple<const char*, double, double> cases[] = {
        {"ab cd ab", 0.0, 0}, {"ab cd ab", -7.0, 7}, {"ab cd ab", -6.0, 1}, {"ab cd ab", 9.0, 0},
        {"ab cd ab", kMissing, 1}, {"ab cab ab", 2.0, 8},
    };
    for (const auto& [source, start, answer] : cases) {
        const auto scanned = inProcess.scan({s(source), s("ab"), s(" "), start}, {1, 2, 0, 0, 4, 0, 3}, txscan::kFindWord);
        EXPECT_EQ(scanned.number, answer) << source << " " << start;
    }
}

// On the multi-byte path the first call matches no signature: nothing marked.
TEST(FindWord, ArgumentErrorsMarkTheirArgument) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    const std::pair<std::vector<Argument>, std::vector<std::uint8_t>> refused[] = {
        {{s("a b"), s("b"), 1.0, s(" "), 2.0}, {0, 0, 0, 0, 1}},
        {{s("a b"), s("b"), s(" "), s("E"), s("x")}, {0, 0, 0, 0, 1}},
        {{s("\xC3\xA9 b"), s("b"), 1.0, s(" "), 2.0}, {0, 0, 0, 0, 0}},
    };
    for (const auto& [args, marks] : refused) {
        const txhost::CallResult r = module->call(F, args);
        EXPECT_EQ(r.status, kStatusInvalidArgument) << describe(args);
        EXPECT_FALSE(r.number.has_value()) << describe(args);
        EXPECT_EQ(r.errorMarks, marks) << describe(args);
    }
}

// Word-function answers at the edges of the source: leftward starts beyond
// a trimmed end, starts that cut a word, and scans of a source that T leaves
// empty. Arguments lie flush against an unreadable page, so a read past one
// fails the test at once.
std::string shown(std::optional<double> x) {
    std::ostringstream out;
    out << x.value_or(-1);
    return out.str();
}

struct EdgeCase {
    const char* function;   // "CALL KSCANX": the call routine
    std::vector<Argument> args;
    std::string answer;     // the number, the string, or position/length
};

TEST(WordEdges, AnswersStayInsideTheScannedSource) {
    const EdgeCase cases[] = {
        // T trims the source below a leftward start (also with B and a positive start)
        {"KFINDW", {s("a "), s("a"), s(","), s("t"), -2.0}, "1"}, {"KFINDW", {s("x "), s("x"), s("=x"), 2.0, s("bQ mT")}, "1"},
        {"KFINDW", {s("%%0a% "), s(""), s("."), -1e10, s("qsqqMTM")}, "0"},
        {"KFINDW", {s("ab  "), s("ab"), s(" "), s("T"), -4.0}, "1"},
        // a leftward start that cuts a word: without M past the whole run of delimiters
        {"KFINDW", {s("ab..cd"), s("ab."), s("."), -5.0}, "0"}, {"KFINDW", {s("ab..cd"), s("ab"), s("."), -5.0}, "1"},
        {"KFINDW", {s("ab..cd"), s("ab"), s("."), s("e"), -5.0}, "1"},
        {"KFINDW", {s("ab..cd..ef"), s("ab"), s("."), -8.0, s("em")}, "4"},
        {"KFINDW", {s("ab..cd..ef"), s("ab"), s("."), -8.0, s("e")}, "2"},
        // M and a source that T empties: the scan starts at index 0, and
        // the call routine agrees with the function
        {"KSCANX", {s(" "), -1.0, s(","), s("tm")}, " "}, {"KSCANX", {s("  "), -1.0, s(","), s("tm")}, " "},
        {"KSCANX", {s(" "), 1.0, s(","), s("tm")}, ""},   {"KSCANX", {s(" "), -1.0, s(","), s("t")}, " "},
        {"CALL KSCANX", {s(" "), -1.0, 0.0, 0.0, s(","), s("tm")}, "1/1"},
    };
    txhost::Session session;
    auto module = txhost::Module::load(session);
    for (const EdgeCase& c : cases) {
        const bool routine = std::string(c.function) == "CALL KSCANX";
        txhost::CallSite site(*module, module->functionIndex(routine ? "KSCANX" : c.function, routine));
        site.setGuardedArguments(true);
        const txhost::CallResult r = site.call(c.args);
        SCOPED_TRACE(std::string(c.function) + " row " + std::to_string(&c - cases));
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(routine ? shown(r.position) + "/" + shown(r.length) : r.text ? *r.text : shown(r.number), c.answer);
    }
}

}  // namespace
