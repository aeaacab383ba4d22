// KCOUNTW through the loaded module (byte path on single-byte text, the
// scanner on multi-byte text) and the scanner's count mode directly.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "host/host.h"
#include "tests/module/words/scanner_frame.h"

namespace {

using txhost::Absent;
using txhost::Argument;
using txscan::contract::kStatusNoMemory;
using txscan::contract::kStatusOk;

struct CountCase {
    const char* source;
    std::optional<std::string> delimiters;
    std::optional<std::string> modifiers;
    double words;
    bool scannerAgrees;   // false where the two paths are documented to differ
};

std::vector<Argument> countArgs(const CountCase& c) {
    std::vector<Argument> args{std::string(c.source)};
    if (c.delimiters || c.modifiers) args.push_back(c.delimiters ? Argument(*c.delimiters) : Argument(Absent{}));
    if (c.modifiers) args.push_back(*c.modifiers);
    return args;
}

const CountCase kCountCases[] = {
    // default delimiters
    {"a b c", {}, {}, 3, true},
    {"  a  b  ", {}, {}, 2, true},
    {"   ", {}, {}, 0, true},
    {"a.b<c(d+e&f!g$h*i)j;k^l-m/n,o%p|q", {}, {}, 17, true},
    {"a_b#c@d", {}, {}, 1, true},
    // lists, the single-delimiter shortcut, a null list
    {"a,b,,c", ",", {}, 3, true},
    {"a b", "", {}, 1, true},
    {"a,b;c", ",;", {}, 3, true},
    {"a b", {}, "", 1, true},
    // M
    {"a,,b", ",", "M", 3, true},
    {",a,", ",", "M", 3, true},
    {"abc", ",", "M", 1, true},
    {",,a,,b,,", ",", "M", 7, true},
    {"   ", " ", "M", 4, true},
    {"a b  ", " ,", "MT", 2, true},
    {"   ", " ,", "MT", 1, false},   // nothing left under T: one empty word on the byte path
    // Q
    {"a 'b c' d", " ", "Q", 3, true},
    {"a 'b c d", " ", "Q", 2, true},
    {"x 'it''s' y", " ", "Q", 3, true},
    {"a \"b 'c\" d' e", " ", "Q", 3, true},
    {"a' b c", " ", "Q", 1, true},
    {"a' b c", " ", "QB", 3, true},
    {"a 'b,c' d,e", " ,", "QM", 4, true},
    // K, I, U and some classes; the scanner's answer for each class letter
    // is checked through KSCANX, and the byte path's agreement with it by
    // the generated comparison
    {"xaby zc", "abc", "K", 2, true},
    {"aXbxc", "x", "I", 3, true},
    {"aXbxc", "x", {}, 2, true},
    {"abCdEf", "", "U", 3, true},
    {"a\tb c", "", "S", 3, true},
    {"ab_1 cd2", "", "F", 2, true},
    {"a,b.c", "", "P", 3, true},
    // letters without effect on the count
    {"a b", " ", "O", 2, true},
};

TEST(CountWords, ByteAndScannerPaths) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    wordtest::InProcess inProcess("UTF-8");
    for (const CountCase& c : kCountCases) {
        const std::vector<Argument> args = countArgs(c);
        SCOPED_TRACE(std::string("'") + c.source + "' d='" + c.delimiters.value_or("-") + "' m='" +
                     c.modifiers.value_or("-") + "'");
        const txhost::CallResult r = module->call("KCOUNTW", args);
        EXPECT_EQ(r.status, kStatusOk);
        EXPECT_EQ(r.number.value_or(-1), c.words);
        EXPECT_TRUE(r.messages.empty());
        if (c.scannerAgrees) {
            const auto scanned = inProcess.scan(args, wordtest::countRoles(args.size()), txscan::kCountWords);
            EXPECT_EQ(scanned.status, kStatusOk);
            EXPECT_EQ(scanned.number, c.words) << "scanner";
        }
    }
}

TEST(CountWords, UnknownLettersDrawNotesOnTheBytePath) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    const txhost::CallResult r = module->call("KCOUNTW", {std::string("a,,b"), std::string(","), std::string("MzE")});
    EXPECT_EQ(r.number.value_or(-1), 3.0);
    ASSERT_EQ(r.messages.size(), 2u);
    EXPECT_EQ(r.messages[0].code, 744);
    EXPECT_EQ(r.messages[0].kind, 6);
    EXPECT_EQ(r.messages[0].functionName, "SCAN");
    EXPECT_EQ(r.messages[0].character, 'Z');
    EXPECT_EQ(r.messages[1].character, 'E');
    // The multi-byte path accepts E (with M: no empty word after a trailing
    // delimiter) and draws no note.
    const txhost::CallResult wide =
        module->call("KCOUNTW", {std::string("\xC3\xA9,,b,"), std::string(","), std::string("MzE")});
    EXPECT_EQ(wide.number.value_or(-1), 3.0);
    EXPECT_TRUE(wide.messages.empty());
}

TEST(CountWords, CachedSetAtACachingSite) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    txhost::CallSite site(*module, module->functionIndex("KCOUNTW"), 0x48);
    const auto before = session.counters().allocationsByFlags[0x2004];
    EXPECT_EQ(site.call({std::string("a,b c"), std::string(","), std::string("O")}).number.value_or(-1), 2.0);
    EXPECT_EQ(session.counters().allocationsByFlags[0x2004], before + 1);
    // The site keeps the first call's set and flags: "," and no M.
    EXPECT_EQ(site.call({std::string("a,b c,,"), std::string(" "), std::string("M")}).number.value_or(-1), 2.0);
    EXPECT_EQ(session.counters().allocationsByFlags[0x2004], before + 1);
    // Two arguments never read the cache.
    EXPECT_EQ(site.call({std::string("a,b c"), std::string(" ")}).number.value_or(-1), 2.0);

    txhost::CallSite plain(*module, module->functionIndex("KCOUNTW"), 0x10);
    EXPECT_EQ(plain.call({std::string("a,b c"), std::string(","), std::string("O")}).number.value_or(-1), 2.0);
    EXPECT_EQ(plain.call({std::string("a,b c"), std::string(" "), std::string("O")}).number.value_or(-1), 2.0);
    EXPECT_EQ(plain.call({std::string("a,b c d"), std::string(" "), std::string("O")}).number.value_or(-1), 3.0);
    EXPECT_EQ(session.counters().allocationsByFlags[0x2004], before + 1);
}

}  // namespace

namespace {

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
        const txhost::CallResult count = module->call("KCOUNTW", {std::string("a b")});
        if (count.status != kStatusOk) {
            EXPECT_EQ(count.status, kStatusNoMemory);
            EXPECT_FALSE(count.number.has_value());
            ++failed;
        } else {
            EXPECT_EQ(count.number.value_or(-1), 2.0);
        }
        session.failAllocationAfter(0);
        EXPECT_EQ(module->call("KCOUNTW", {std::string("a b")}).number.value_or(-1), 2.0);
        EXPECT_EQ(module->call("KFINDW", {std::string("a b"), std::string("b")}).number.value_or(-1), 3.0);
    }
    EXPECT_GE(failed, 3);   // the record and both tables at least
}

TEST(WordsEnvironment, FrameWithoutContextTakesTheTasks) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    txhost::CallSite site(*module, module->functionIndex("KFINDW"));
    site.useNullCallContext(true);
    EXPECT_EQ(site.call({std::string("a b"), std::string("b")}).number.value_or(-1), 3.0);
    EXPECT_NE(site.frame().callContext, nullptr);
}

}  // namespace
