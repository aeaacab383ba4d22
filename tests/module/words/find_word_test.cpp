// KFINDW through the loaded module (byte path on single-byte text, the
// scanner's find mode on multi-byte text), and the find mode directly.
#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <vector>

#include "tests/support/module_calls.h"

namespace {

using namespace txtest;
using txscan::contract::kStatusInvalidArgument;
using txscan::contract::kStatusMissingStart;
using txscan::contract::kStatusOk;

const double kMissing = std::bit_cast<double>(txscan::contract::kMissingValueBits);

struct FindCase {
    std::vector<Argument> args;
    double answer;
    bool scannerAgrees;   // only calls without a start are run through the scanner as well
};

TEST(FindWord, ByteAndScannerPaths) {
    constexpr bool Y = true, N = false;
    const FindCase cases[] = {
        // whole words only
        {{s("xab ab"), s("ab")}, 5, Y}, {{s("xab ab"), s("ab"), s(" "), s("E")}, 2, Y}, {{s("ab,abc"), s("ab")}, 1, Y},
        // start positions
        {{s("ab cab ab"), s("ab"), 2.0}, 8, N}, {{s("ab ab"), s("ab"), 3.7}, 4, N}, {{s("ab ab"), s("ab"), 5.0}, 0, N},
        {{s("ab cd ab"), s("ab"), s(" "), 4.0}, 7, N}, {{s("ab cd ab"), s("ab"), 4.0, s(" "), s("E")}, 2, N},
        // leftwards
        {{s("ab cd ab"), s("ab"), s(" "), s("B")}, 7, Y}, {{s("ab cd ab"), s("ab"), s(" "), -7.0}, 1, N},
        {{s("a b a"), s("a"), s(" "), s("BE")}, 1, Y}, {{s("ab cd ef"), s("ab"), s(" "), s("BE")}, 3, Y},
        {{s("ab cd ef"), s("ab"), s(" "), s("BE"), -5.0}, 2, N},
        // I, K and V, R, T, classes
        {{s("aXb"), s("b"), s("x"), s("I")}, 3, Y}, {{s("xaby zc"), s("ab"), s("abc"), s("K")}, 2, Y},
        {{s("xaby zc"), s("ab"), s("abc"), s("V")}, 2, N}, {{s("x,ab"), s(",ab,"), s(","), s("R")}, 3, Y},
        {{s("the THE"), s("The"), s(" "), s("I")}, 1, Y}, {{s("ab  "), s("ab  "), s(" ,"), s("T")}, 1, N},
        // M: empty words and empty search words
        {{s("a,,b"), s("b"), s(","), s("EM")}, 3, Y},
        {{s("a,,b"), s(""), s(",")}, 0, Y}, {{s("a,,b"), s(""), s(","), s("M")}, 3, N},
        // Q
        {{s("'a b' b"), s("b"), s(" "), s("Q")}, 7, Y}, {{s("'a b' b"), s("b'"), s(" "), s("Q")}, 0, Y}, {{s("'a b' c"), s("c"), s(" "), s("QE")}, 2, N},
        {{s("'a b' b"), s("b"), s(" "), s("QB")}, 7, Y},
    };
    txhost::Session session;
    auto module = txhost::Module::load(session);
    InProcess inProcess;
    for (const FindCase& c : cases) {
        SCOPED_TRACE(describe(c.args));
        const txhost::CallResult r = module->call("KFINDW", c.args);
        EXPECT_EQ(r.status, kStatusOk);
        EXPECT_EQ(r.number.value_or(-1), c.answer);
        EXPECT_TRUE(r.messages.empty());
        if (c.scannerAgrees) {
            const auto scanned = inProcess.scan(c.args, findRoles(c.args.size()), txscan::kFindWord);
            EXPECT_EQ(scanned.status, kStatusOk);
            EXPECT_EQ(scanned.number, c.answer) << "scanner";
        }
    }
}

// The documented differences, through the scanner with a start role: a
// start of 0 finds nothing, under B the word must begin at or before the
// start, and a missing start is ignored.
TEST(FindWord, ScannerStartRules) {
    InProcess inProcess;
    const std::pair<double, double> cases[] = {{0.0, 0}, {-7.0, 7}, {-6.0, 1}, {9.0, 0}, {kMissing, 1}};
    for (const auto& [start, answer] : cases) {
        const auto scanned = inProcess.scan({s("ab cd ab"), s("ab"), s(" "), start}, {1, 2, 0, 0, 4, 0, 3},
                                            txscan::kFindWord);
        EXPECT_EQ(scanned.number, answer) << start;
    }
    EXPECT_EQ(inProcess.scan({s("ab cab ab"), s("ab"), s(" "), 2.0}, {1, 2, 0, 0, 4, 0, 3}, txscan::kFindWord).number,
              8);
}

TEST(FindWord, StartAndArgumentErrors) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    txhost::CallResult r = module->call("KFINDW", {s("ab"), s("ab"), kMissing});
    EXPECT_EQ(r.status, kStatusMissingStart);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(r.number.value_or(0)), txscan::contract::kMissingValueBits);
    // On the multi-byte path the first call matches no signature: nothing marked.
    const std::pair<std::vector<Argument>, std::vector<std::uint8_t>> refused[] = {
        {{s("a b"), s("b"), 1.0, s(" "), 2.0}, {0, 0, 0, 0, 1}},
        {{s("a b"), s("b"), s(" "), s("E"), s("x")}, {0, 0, 0, 0, 1}},
        {{s("\xC3\xA9 b"), s("b"), 1.0, s(" "), 2.0}, {0, 0, 0, 0, 0}},
    };
    for (const auto& [args, marks] : refused) {
        r = module->call("KFINDW", args);
        EXPECT_EQ(r.status, kStatusInvalidArgument) << describe(args);
        EXPECT_FALSE(r.number.has_value()) << describe(args);
        EXPECT_EQ(r.errorMarks, marks) << describe(args);
    }
    r = module->call("KFINDW", {s("a b"), s("b"), s(" "), s("Zq")});
    EXPECT_EQ(r.number.value_or(-1), 3.0);
    ASSERT_EQ(r.messages.size(), 1u);
    EXPECT_EQ(r.messages[0].code, 744);
    EXPECT_EQ(r.messages[0].functionName, "FINDC");
    EXPECT_EQ(r.messages[0].character, 'Z');
}

// Both functions on multi-byte text, positions in characters. 0x837C is
// one Shift_JIS character whose second byte is the vertical bar.
TEST(WordFunctions, MultiByteSources) {
    struct WideCase { const char* encoding; const char* function; std::vector<Argument> args; double answer; };
    const std::string ete = "\xC3\xA9t\xC3\xA9 \xC3\xA0 la", jis = "\x83\x7C\x83\x41 \x82\xA0";
    const WideCase cases[] = {
        {"UTF-8", "KCOUNTW", {ete + " plage"}, 4},   {"Shift_JIS", "KCOUNTW", {jis}, 2},
        {"UTF-8", "KFINDW", {ete, s("\xC3\xA0")}, 5}, {"UTF-8", "KFINDW", {ete, s("la"), s(" "), s("E")}, 3},
        {"UTF-8", "KFINDW", {s("\xC3\xA9 x \xC3\xA9"), s("\xC3\xA9"), 2.0}, 5},
        {"UTF-8", "KFINDW", {s("\xC3\xA9 x \xC3\xA9"), s("x"), s(" "), s("BE")}, 2},
        {"Shift_JIS", "KFINDW", {jis, s("\x82\xA0")}, 4}, {"Shift_JIS", "KFINDW", {jis, s("\x83\x41")}, 0},
    };
    for (const WideCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " " + c.function + " " + describe(c.args));
        txhost::Session session({.encoding = c.encoding});
        const txhost::CallResult r = txhost::Module::load(session)->call(c.function, c.args);
        EXPECT_EQ(r.status, kStatusOk);
        EXPECT_EQ(r.number.value_or(-1), c.answer);
    }
}

TEST(FindWord, CachedSetAtACachingSite) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    txhost::CallSite site(*module, module->functionIndex("KFINDW"), 0x58);
    const auto before = session.counters().allocationsByFlags[0x2004];
    EXPECT_EQ(site.call({s("a,b"), s("b"), s(","), s("OE")}).number.value_or(-1), 2.0);
    // Later calls keep the first call's "," and E, whatever they pass.
    EXPECT_EQ(site.call({s("a,b c"), s("c"), s(" ")}).number.value_or(-1), 0.0);
    EXPECT_EQ(site.call({s("x,a,b"), s("b"), s(" "), s("B")}).number.value_or(-1), 3.0);
    EXPECT_EQ(session.counters().allocationsByFlags[0x2004], before + 1);
}

}  // namespace
