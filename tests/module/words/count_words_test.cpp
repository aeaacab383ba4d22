// KCOUNTW through the loaded module (byte path on single-byte text, the
// scanner on multi-byte text) and the scanner's count mode directly.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/module_calls.h"

namespace {

using namespace txtest;
using txscan::contract::kStatusNoMemory;
using txscan::contract::kStatusOk;

struct CountCase {
    const char* source;
    std::optional<std::string> delimiters, modifiers;
    double words;
    bool scannerAgrees = true;   // false where the two paths are documented to differ
};

std::vector<Argument> countArgs(const CountCase& c) {
    std::vector<Argument> args{std::string(c.source)};
    if (c.delimiters || c.modifiers) args.push_back(c.delimiters ? Argument(*c.delimiters) : Argument(Absent{}));
    if (c.modifiers) args.push_back(*c.modifiers);
    return args;
}

TEST(CountWords, ByteAndScannerPaths) {
    const CountCase cases[] = {
        // default delimiters
        {"a b c", {}, {}, 3}, {"  a  b  ", {}, {}, 2}, {"   ", {}, {}, 0}, {"a_b#c@d", {}, {}, 1},
        {"a.b<c(d+e&f!g$h*i)j;k^l-m/n,o%p|q", {}, {}, 17},
        // lists, the single-delimiter shortcut, a null list
        {"a,b,,c", ",", {}, 3}, {"a b", "", {}, 1}, {"a,b;c", ",;", {}, 3}, {"a b", {}, "", 1},
        // M
        {"a,,b", ",", "M", 3}, {",a,", ",", "M", 3}, {"abc", ",", "M", 1}, {",,a,,b,,", ",", "M", 7},
        {"   ", " ", "M", 4}, {"a b  ", " ,", "MT", 2},
        {"   ", " ,", "MT", 1, false},   // nothing left under T: one empty word on the byte path
        // Q
        {"a 'b c' d", " ", "Q", 3}, {"a 'b c d", " ", "Q", 2}, {"x 'it''s' y", " ", "Q", 3},
        {"a \"b 'c\" d' e", " ", "Q", 3}, {"a' b c", " ", "Q", 1}, {"a' b c", " ", "QB", 3},
        {"a 'b,c' d,e", " ,", "QM", 4},
        // K, I, U and some classes; the scanner's answer for each class letter
        // is checked through KSCANX, and the byte path's agreement with it by
        // the generated comparison; O has no effect on a count
        {"xaby zc", "abc", "K", 2}, {"aXbxc", "x", "I", 3}, {"aXbxc", "x", {}, 2}, {"abCdEf", "", "U", 3},
        {"a\tb c", "", "S", 3}, {"ab_1 cd2", "", "F", 2}, {"a,b.c", "", "P", 3}, {"a b", " ", "O", 2},
    };
    txhost::Session session;
    auto module = txhost::Module::load(session);
    InProcess inProcess;
    for (const CountCase& c : cases) {
        const std::vector<Argument> args = countArgs(c);
        SCOPED_TRACE(describe(args));
        const txhost::CallResult r = module->call("KCOUNTW", args);
        EXPECT_EQ(r.status, kStatusOk);
        EXPECT_EQ(r.number.value_or(-1), c.words);
        EXPECT_TRUE(r.messages.empty());
        if (c.scannerAgrees) {
            const auto scanned = inProcess.scan(args, countRoles(args.size()), txscan::kCountWords);
            EXPECT_EQ(scanned.status, kStatusOk);
            EXPECT_EQ(scanned.number, c.words) << "scanner";
        }
    }
}

TEST(CountWords, UnknownLettersDrawNotesOnTheBytePath) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    const txhost::CallResult r = module->call("KCOUNTW", {s("a,,b"), s(","), s("MzE")});
    EXPECT_EQ(r.number.value_or(-1), 3.0);
    ASSERT_EQ(r.messages.size(), 2u);
    EXPECT_EQ(r.messages[0].code, 744);
    EXPECT_EQ(r.messages[0].kind, 6);
    EXPECT_EQ(r.messages[0].functionName, "SCAN");
    EXPECT_EQ(r.messages[0].character, 'Z');
    EXPECT_EQ(r.messages[1].character, 'E');
    // The multi-byte path accepts E (with M: no empty word after a trailing
    // delimiter) and draws no note.
    const txhost::CallResult wide = module->call("KCOUNTW", {s("\xC3\xA9,,b,"), s(","), s("MzE")});
    EXPECT_EQ(wide.number.value_or(-1), 3.0);
    EXPECT_TRUE(wide.messages.empty());
}

TEST(CountWords, CachedSetAtACachingSite) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    const auto before = session.counters().allocationsByFlags[0x2004];
    txhost::CallSite site(*module, module->functionIndex("KCOUNTW"), 0x48);
    txhost::CallSite plain(*module, module->functionIndex("KCOUNTW"), 0x10);
    // The caching site keeps the first call's set and flags ("," and no M),
    // but calls of two arguments never read it; the other site keeps nothing.
    const struct { txhost::CallSite* site; std::vector<Argument> args; double words; } calls[] = {
        {&site, {s("a,b c"), s(","), s("O")}, 2},   {&site, {s("a,b c,,"), s(" "), s("M")}, 2},
        {&site, {s("a,b c"), s(" ")}, 2},           {&plain, {s("a,b c"), s(","), s("O")}, 2},
        {&plain, {s("a,b c"), s(" "), s("O")}, 2},  {&plain, {s("a,b c d"), s(" "), s("O")}, 3},
    };
    for (const auto& c : calls) EXPECT_EQ(c.site->call(c.args).number.value_or(-1), c.words) << describe(c.args);
    EXPECT_EQ(session.counters().allocationsByFlags[0x2004], before + 1);
}

// The default delimiters come from the call context's environment: every
// allocation of its build refused in turn fails the call cleanly, and the
// next call builds it.
TEST(WordsEnvironment, RefusedAllocationsFailCleanly) {
    int failed = 0;
    for (std::int64_t refused = 1; refused <= 12; ++refused) {
        SCOPED_TRACE(refused);
        txhost::Session session;
        auto module = txhost::Module::load(session);
        session.failAllocationAfter(refused);
        const txhost::CallResult count = module->call("KCOUNTW", {s("a b")});
        if (count.status != kStatusOk) {
            EXPECT_EQ(count.status, kStatusNoMemory);
            EXPECT_FALSE(count.number.has_value());
            ++failed;
        } else {
            EXPECT_EQ(count.number.value_or(-1), 2.0);
        }
        session.failAllocationAfter(0);
        EXPECT_EQ(module->call("KCOUNTW", {s("a b")}).number.value_or(-1), 2.0);
        EXPECT_EQ(module->call("KFINDW", {s("a b"), s("b")}).number.value_or(-1), 3.0);
    }
    EXPECT_GE(failed, 3);   // the record and both tables at least
}

TEST(WordsEnvironment, FrameWithoutContextTakesTheTasks) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    txhost::CallSite site(*module, module->functionIndex("KFINDW"));
    site.useNullCallContext(true);
    EXPECT_EQ(site.call({s("a b"), s("b")}).number.value_or(-1), 3.0);
    EXPECT_NE(site.frame().callContext, nullptr);
}

}  // namespace
