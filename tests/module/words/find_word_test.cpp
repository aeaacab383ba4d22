// KFINDW through the loaded module (byte path on single-byte text, the
// scanner's find mode on multi-byte text), and the find mode directly.
#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <vector>

#include "host/host.h"
#include "tests/module/words/scanner_frame.h"

namespace {

using txhost::Argument;
using txscan::contract::kStatusInvalidArgument;
using txscan::contract::kStatusMissingStart;
using txscan::contract::kStatusNoMemory;
using txscan::contract::kStatusOk;

const double kMissing = std::bit_cast<double>(0xFFFFD10000000000ull);

enum class Scanner { Agrees, Differs };

struct FindCase {
    std::vector<Argument> args;
    double answer;
    // Only calls without a start are run through the scanner as well.
    Scanner scanner;
};

std::string describe(const std::vector<Argument>& args) {
    std::string text;
    for (const Argument& a : args) {
        if (const auto* s = std::get_if<std::string>(&a)) text += "'" + *s + "' ";
        if (const auto* d = std::get_if<double>(&a)) text += std::to_string(*d) + " ";
    }
    return text;
}

std::string S(const char* text) { return text; }

const std::vector<FindCase>& findCases() {
    static const std::vector<FindCase> cases = {
        // whole words only
        {{S("xab ab"), S("ab")}, 5, Scanner::Agrees},
        {{S("xab ab"), S("ab"), S(" "), S("E")}, 2, Scanner::Agrees},
        {{S("ab,abc"), S("ab")}, 1, Scanner::Agrees},
        {{S("abc ab"), S("ab"), S(" ")}, 5, Scanner::Agrees},
        {{S("abc"), S("ab")}, 0, Scanner::Agrees},
        {{S("a b"), S("a b"), S(" ")}, 1, Scanner::Agrees},
        // start positions
        {{S("ab cab ab"), S("ab"), 2.0}, 8, Scanner::Differs},
        {{S("ab ab"), S("ab"), 3.7}, 4, Scanner::Differs},
        {{S("ab ab"), S("ab"), 5.0}, 0, Scanner::Differs},
        {{S("ab"), S("ab"), 0.0}, 1, Scanner::Differs},
        {{S("ab ab"), S("ab"), 0.5}, 1, Scanner::Differs},
        {{S("ab cd ab"), S("ab"), S(" "), 4.0}, 7, Scanner::Differs},
        {{S("ab cd ab"), S("ab"), 4.0, S(" "), S("E")}, 2, Scanner::Differs},
        // leftwards
        {{S("ab cd ab"), S("ab"), S(" "), S("B")}, 7, Scanner::Agrees},
        {{S("ab cd ab"), S("ab"), S(" "), -7.0}, 1, Scanner::Differs},
        {{S("ab cd ab"), S("ab"), S(" "), -8.0}, 7, Scanner::Differs},
        {{S("ab cd ab"), S("ab"), S(" "), -30.0}, 7, Scanner::Differs},
        {{S("a b a"), S("a"), S(" "), S("BE")}, 1, Scanner::Agrees},
        {{S("ab cd ef"), S("ab"), S(" "), S("BE")}, 3, Scanner::Agrees},
        {{S("ab cd ef"), S("ab"), S(" "), S("BE"), -5.0}, 2, Scanner::Differs},
        // I, K and V, R, T, classes
        {{S("the THE"), S("The"), S(" "), S("I")}, 1, Scanner::Agrees},
        {{S("the THE"), S("The"), S(" ")}, 0, Scanner::Agrees},
        {{S("aXb"), S("b"), S("x"), S("I")}, 3, Scanner::Agrees},
        {{S("xaby zc"), S("ab"), S("abc"), S("K")}, 2, Scanner::Agrees},
        {{S("xaby zc"), S("ab"), S("abc"), S("V")}, 2, Scanner::Differs},
        {{S("x,ab"), S(",ab,"), S(","), S("R")}, 3, Scanner::Agrees},
        {{S("x,ab"), S(",ab,"), S(",")}, 0, Scanner::Agrees},
        {{S("ab  "), S("ab  "), S(" ,"), S("T")}, 1, Scanner::Differs},
        {{S("12ab34ab"), S("ab"), S(""), S("D")}, 3, Scanner::Agrees},
        {{S("aBc"), S("c"), S(""), S("U")}, 3, Scanner::Agrees},
        // M: empty words and empty search words
        {{S("a,,b"), S(""), S(",")}, 0, Scanner::Agrees},
        {{S("a,,b"), S(""), S(","), S("M")}, 3, Scanner::Differs},
        {{S("a,,b"), S("b"), S(","), S("E")}, 2, Scanner::Agrees},
        {{S("a,,b"), S("b"), S(","), S("EM")}, 3, Scanner::Agrees},
        // Q
        {{S("'a b' b"), S("b"), S(" "), S("Q")}, 7, Scanner::Agrees},
        {{S("'a b' b"), S("b'"), S(" ")}, 4, Scanner::Agrees},
        {{S("'a b' b"), S("b'"), S(" "), S("Q")}, 0, Scanner::Agrees},
        {{S("'a b' c"), S("c"), S(" "), S("QE")}, 2, Scanner::Differs},
        {{S("'a b' c"), S("'a b'"), S(" "), S("Q")}, 1, Scanner::Agrees},
        {{S("x 'it''s' y"), S("y"), S(" "), S("QE")}, 3, Scanner::Agrees},
        {{S("'a b' b"), S("b"), S(" "), S("QB")}, 7, Scanner::Agrees},
    };
    return cases;
}

TEST(FindWord, ByteAndScannerPaths) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    wordtest::InProcess inProcess("UTF-8");
    for (const FindCase& c : findCases()) {
        SCOPED_TRACE(describe(c.args));
        const txhost::CallResult r = module->call("KFINDW", c.args);
        EXPECT_EQ(r.status, kStatusOk);
        EXPECT_EQ(r.number.value_or(-1), c.answer);
        EXPECT_TRUE(r.messages.empty());
        if (c.scanner == Scanner::Agrees) {
            const auto scanned = inProcess.scan(c.args, wordtest::findRoles(c.args.size()), txscan::kFindWord);
            EXPECT_EQ(scanned.status, kStatusOk);
            EXPECT_EQ(scanned.number, c.answer) << "scanner";
        }
    }
}

// The documented differences, through the scanner with a start role.
TEST(FindWord, ScannerStartRules) {
    wordtest::InProcess inProcess("UTF-8");
    struct StartCase {
        const char* source;
        double start;
        double answer;
    };
    const StartCase cases[] = {
        {"ab cd ab", 0.0, 0},    // a start of 0 finds nothing
        {"ab cd ab", -7.0, 7},   // under B the word must begin at or before the start
        {"ab cd ab", -6.0, 1},
        {"ab cab ab", 2.0, 8},
        {"ab cd ab", 9.0, 0},
        {"ab cd ab", kMissing, 1},   // a missing start is ignored
    };
    for (const StartCase& c : cases) {
        SCOPED_TRACE(std::to_string(c.start));
        txscan::ArgumentRoles roles{};
        roles.source = 1;
        roles.second = 2;
        roles.delimiters = 3;
        roles.start = 4;
        const auto scanned = inProcess.scan({S(c.source), S("ab"), S(" "), c.start}, roles, txscan::kFindWord);
        EXPECT_EQ(scanned.number, c.answer);
    }
}

TEST(FindWord, StartAndArgumentErrors) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    txhost::CallResult r = module->call("KFINDW", {S("ab"), S("ab"), kMissing});
    EXPECT_EQ(r.status, kStatusMissingStart);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(r.number.value_or(0)), 0xFFFFD10000000000ull);

    r = module->call("KFINDW", {S("a b"), S("b"), 1.0, S(" "), 2.0});
    EXPECT_EQ(r.status, kStatusInvalidArgument);
    EXPECT_FALSE(r.number.has_value());
    EXPECT_EQ(r.errorMarks, (std::vector<std::uint8_t>{0, 0, 0, 0, 1}));

    r = module->call("KFINDW", {S("a b"), S("b"), S(" "), S("E"), S("x")});
    EXPECT_EQ(r.status, kStatusInvalidArgument);
    EXPECT_EQ(r.errorMarks, (std::vector<std::uint8_t>{0, 0, 0, 0, 1}));

    // On the multi-byte path the same call matches no signature: nothing marked.
    r = module->call("KFINDW", {S("\xC3\xA9 b"), S("b"), 1.0, S(" "), 2.0});
    EXPECT_EQ(r.status, kStatusInvalidArgument);
    EXPECT_FALSE(r.number.has_value());
    EXPECT_EQ(r.errorMarks, (std::vector<std::uint8_t>{0, 0, 0, 0, 0}));

    r = module->call("KFINDW", {S("a b"), S("b"), S(" "), S("Zq")});
    EXPECT_EQ(r.number.value_or(-1), 3.0);
    ASSERT_EQ(r.messages.size(), 1u);
    EXPECT_EQ(r.messages[0].code, 744);
    EXPECT_EQ(r.messages[0].functionName, "FINDC");
    EXPECT_EQ(r.messages[0].character, 'Z');
}

// Both functions on multi-byte text, positions in characters. 0x837C is
// one Shift_JIS character whose second byte is the vertical bar.
TEST(WordFunctions, MultiByteSources) {
    struct WideCase {
        const char* encoding;
        const char* function;
        std::vector<Argument> args;
        double answer;
    };
    const WideCase cases[] = {
        {"UTF-8", "KCOUNTW", {S("\xC3\xA9t\xC3\xA9 \xC3\xA0 la plage")}, 4},
        {"UTF-8", "KCOUNTW", {S("\xC3\xA9,\xC3\xA9,,x"), S(",")}, 3},
        {"UTF-8", "KCOUNTW", {S("a\xC3\xA9" "b\xC3\xA9" "c"), S("\xC3\xA9")}, 3},
        {"Shift_JIS", "KCOUNTW", {S("\x83\x7C\x83\x41 \x82\xA0")}, 2},
        {"Shift_JIS", "KCOUNTW", {S("\x82\xA0,\x82\xA2"), S(",")}, 2},
        {"UTF-8", "KFINDW", {S("\xC3\xA9t\xC3\xA9 \xC3\xA0 la"), S("\xC3\xA0")}, 5},
        {"UTF-8", "KFINDW", {S("\xC3\xA9t\xC3\xA9 \xC3\xA0 la"), S("la"), S(" "), S("E")}, 3},
        {"UTF-8", "KFINDW", {S("\xC3\xA9t\xC3\xA9 \xC3\xA0 la"), S("\xC3\x89T\xC3\x89"), S(" "), S("I")}, 1},
        {"UTF-8", "KFINDW", {S("\xC3\xA9 x \xC3\xA9"), S("\xC3\xA9"), 2.0}, 5},
        {"UTF-8", "KFINDW", {S("\xC3\xA9 x \xC3\xA9"), S("x"), S(" "), S("BE")}, 2},
        {"UTF-8", "KFINDW", {S("\xC3\xA9 x \xC3\xA9"), S("x"), 3.0, S(" ")}, 3},
        {"Shift_JIS", "KFINDW", {S("\x83\x7C\x83\x41 \x82\xA0"), S("\x82\xA0")}, 4},
        {"Shift_JIS", "KFINDW", {S("\x83\x7C\x83\x41 \x82\xA0"), S("\x83\x41")}, 0},
    };
    for (const WideCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " " + c.function + " " + describe(c.args));
        txhost::Session session(txtest::sessionOptions(c.encoding));
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
    EXPECT_EQ(site.call({S("a,b"), S("b"), S(","), S("OE")}).number.value_or(-1), 2.0);
    EXPECT_EQ(session.counters().allocationsByFlags[0x2004], before + 1);
    // Later calls keep the first call's "," and E, whatever they pass.
    EXPECT_EQ(site.call({S("a,b c"), S("c"), S(" ")}).number.value_or(-1), 0.0);
    EXPECT_EQ(site.call({S("x,a,b"), S("b"), S(" "), S("B")}).number.value_or(-1), 3.0);
    EXPECT_EQ(session.counters().allocationsByFlags[0x2004], before + 1);
}

// A refused cache allocation stores nothing, and the next call builds it.
TEST(WordFunctions, RefusedCacheStoresNothing) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    const struct {
        const char* function;
        std::uint8_t siteKind;
        std::vector<Argument> args;
        double answer;
    } cases[] = {
        {"KCOUNTW", 0x88, {S("a,b"), S(","), S("O")}, 2},
        {"KFINDW", 0x68, {S("a,b"), S("b"), S(","), S("O")}, 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        txhost::CallSite site(*module, module->functionIndex(c.function), c.siteKind);
        session.failAllocationAfter(1);
        const txhost::CallResult r = site.call(c.args);
        session.failAllocationAfter(0);
        EXPECT_EQ(r.status, kStatusNoMemory);
        EXPECT_FALSE(r.number.has_value());
        EXPECT_EQ(site.call(c.args).number.value_or(-1), c.answer);
    }
}

}  // namespace
