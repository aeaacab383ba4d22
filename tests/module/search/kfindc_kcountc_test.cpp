// KFINDC and KCOUNTC through the host and the module's exports: every
// modifier letter, negation, caseless lists, trimming, start positions and
// directions, the type check, the per-site cached sets (KCOUNTW's and
// KFINDW's too); the multi-byte paths in UTF-8 and Shift_JIS.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/module_calls.h"

namespace {

using namespace txtest;
using txscan::contract::kStatusInvalidArgument;
using txscan::contract::kStatusNoMemory;

const char* const kSingleByteAndUtf8[] = {"UTF-8", "ISO-8859-1", "Shift_JIS"};
constexpr const char* F = "KFINDC";
constexpr const char* C = "KCOUNTC";

TEST(KFindCAndKCountC, ListsStartsDirectionsAndModifiers) {
    const std::vector<Case> cases = {
        {F, {s("abc"), s("cb")}, 2},        {F, {s("abc")}, 0},                  {F, {s("abc"), s("a"), s("k")}, 2},
        {F, {s("abc"), s("a"), s("v")}, 2}, {F, {s("abca"), s("a"), s("b")}, 4}, {F, {s("abca"), s("a"), 2.0}, 4},
        {F, {s("abca"), s("a"), -3.0}, 1},  {F, {s("abca"), s("a"), 0.0}, 0},    {F, {s("abca"), s("bc"), -9.0}, 3},
        {F, {s("aB"), s("b"), s("i")}, 2},  {F, {s("a b"), s(" "), s("t")}, 0},   // T trims the list to nothing
        {F, {s("ab  "), s("ab"), s("vt")}, 0},   // the trimmed blanks are not searched
        {F, {s("abca"), s("a"), 3.0, s("b")}, 4},
        {F, {s("abca"), s("a"), 1.0, 2.0}, 0, "", kStatusInvalidArgument},
        {F, {s("abca"), s("a"), s("b"), s("i")}, 0, "", kStatusInvalidArgument},
        {C, {s("abcab"), s("ab"), s("v")}, 1}, {C, {s("abcab"), s("ab"), s("k")}, 4, "K"},
        {C, {s("abc  "), s("x"), s("vt")}, 3}, {C, {s("abc"), Absent{}}, 0},
        {C, {s("aAbB"), s("ab"), s("i")}, 4},  {C, {s("aAbB"), s("a"), s("iv")}, 2},
    };
    for (const char* encoding : kSingleByteAndUtf8) runCases(encoding, cases);
}

TEST(KFindC, UnknownLettersDrawOneNoteEach) {
    runCases("ISO-8859-1", {
        {F, {s("abc"), s("c"), s("ejmqr9")}, 3, "EJMQR9"}, {F, {s("abc"), s("c"), s(" b o t v k i ")}, 2},
        {C, {s("abc"), s("c"), s("bkz")}, 1, "BKZ"},       {C, {s("abc"), s("c"), s(" o t v i ")}, 2},
        {F, {s("abca"), s("a"), 9.0, s("z")}, 0},   // the start ends the call before the notes
    });
}

// Every class letter over all 256 byte values, against the session's tables;
// F and N take the letters of both cases, the digits and the underscore.
TEST(KCountC, ClassLettersFollowTheHostTables) {
    txhost::Session session({.encoding = "ISO-8859-1"});
    auto module = txhost::Module::load(session);
    const std::uint8_t* classes = session.hostVector()->classTable;
    std::string everyByte;
    for (int b = 0; b < 256; ++b) everyByte += static_cast<char>(b);
    auto withBits = [&](std::uint8_t mask) {
        int n = 0;
        for (int b = 0; b < 256; ++b) n += (classes[b] & mask) != 0;
        return n;
    };
    const struct { const char* letter; int count, first; } cases[] = {   // first: position of the first member
        {"a", withBits(0x03), 1 + 'A'}, {"c", withBits(0x40), 1},        {"d", 10, 1 + '0'},
        {"f", 53, 1 + 'A'},             {"g", withBits(0x17), 1 + '!'},  {"h", 1, 1 + '\t'},
        {"l", withBits(0x02), 1 + 'a'}, {"n", 63, 1 + '0'},              {"p", withBits(0x10), 1 + '!'},
        {"s", withBits(0x08), 1 + '\t'}, {"u", withBits(0x01), 1 + 'A'}, {"w", withBits(0x37), 1 + ' '},
        {"x", withBits(0x80), 1 + '0'}, {"av", 256 - withBits(0x03), 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.letter);
        const auto count = module->call(C, {everyByte, s(""), s(c.letter)});
        EXPECT_EQ(c.count, count.number.value_or(-1));
        EXPECT_TRUE(count.messages.empty());
        EXPECT_EQ(c.first, module->call(F, {everyByte, s(""), s(c.letter)}).number.value_or(-1));
    }
}

// A site whose kind allows caching keeps the set of its first call under O,
// with its direction (B), trim flag (T) and negation (V, applied before
// caching); later calls there use it and ignore their own list and
// modifiers, while a negative start still narrows the region. Without O,
// or at a site that may not cache, nothing is kept.
TEST(CachedSets, BuiltUnderOAndReusedAtTheSite) {
    struct Sequence {
        const char* function;
        std::uint8_t siteKind;
        bool kept;
        std::vector<std::pair<std::vector<Argument>, double>> calls;   // arguments, answer
    };
    const Sequence sequences[] = {
        {F, 0x48, true, {{{s("xaxa"), s("a"), s("o")}, 2}, {{s("xyay"), s("x"), s("z")}, 3}}},
        {C, 0x48, true, {{{s("xaxa"), s("a"), s("o")}, 2}, {{s("xyay  "), s("xy")}, 1}}},
        {F, 0x88, true, {{{s("xaxa"), s("a"), s("o")}, 2}, {{s("xyay"), s("x"), s("z")}, 3}}},
        {C, 0x88, true, {{{s("xaxa"), s("a"), s("o")}, 2}, {{s("xyay  "), s("xy")}, 1}}},
        {F, 0x48, true, {{{s("abca"), s("a"), s("ob")}, 4}, {{s("abca"), s("b"), 1.0, s("")}, 4}}},
        {F, 0x48, true, {{{s("abca"), s("a"), s("o")}, 1}, {{s("abca"), s("a"), -4.0}, 1}, {{s("bbca"), s("a"), -3.0}, 0}}},
        {C, 0x48, true, {{{s("ab  "), s("a"), s("otv")}, 1}, {{s("bb  "), s("b")}, 2}}},
        {F, 0x48, true, {{{s("ab  "), s("a"), s("otv")}, 2}, {{s("aa  "), s("b")}, 0}}},
        {"KFINDW", 0x58, true, {{{s("a,b"), s("b"), s(","), s("OE")}, 2}, {{s("a,b c"), s("c"), s(" ")}, 0},
                                {{s("x,a,b"), s("b"), s(" "), s("B")}, 3}}},
        {F, 0x00, false, {{{s("xaxa"), s("a"), s("o")}, 2}, {{s("xyay"), s("x"), s("z")}, 1}}},
        {C, 0x00, false, {{{s("xaxa"), s("a"), s("o")}, 2}, {{s("xyay  "), s("xy")}, 3}}},
        {F, 0x49, false, {{{s("xaxa"), s("a"), s("o")}, 2}, {{s("xyay"), s("x"), s("z")}, 1}}},
        {C, 0x49, false, {{{s("xaxa"), s("a"), s("o")}, 2}, {{s("xyay  "), s("xy")}, 3}}},
        {F, 0x48, false, {{{s("abc"), s("a"), s("i")}, 1}}},
    };
    txhost::Session session({.encoding = "ISO-8859-1"});
    auto module = txhost::Module::load(session);
    for (const Sequence& q : sequences) {
        SCOPED_TRACE(std::string(q.function) + " site " + std::to_string(q.siteKind) + " " + describe(q.calls[0].first));
        txhost::CallSite site(*module, module->functionIndex(q.function), q.siteKind);
        const auto before = session.counters().allocationsByFlags[0x2004];
        for (const auto& [args, answer] : q.calls) EXPECT_EQ(answer, site.call(args).number.value_or(-1));
        EXPECT_EQ(q.kept ? 1 : 0, session.counters().allocationsByFlags[0x2004] - before);
        EXPECT_EQ(q.kept, site.frame().setCache != nullptr);
    }
}

// A refused cache allocation stores nothing, and the next call builds it;
// KCOUNTW and KFINDW keep their sets the same way.
TEST(CachedSets, RefusedAllocationStoresNothing) {
    txhost::Session session({.encoding = "ISO-8859-1"});
    auto module = txhost::Module::load(session);
    const Case cases[] = {
        {F, {s("abc"), s("b"), s("o")}, 2}, {C, {s("abc"), s("b"), s("o")}, 1},
        {"KCOUNTW", {s("a,b"), s(","), s("O")}, 2}, {"KFINDW", {s("a,b"), s("b"), s(","), s("O")}, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.function);
        const std::uint8_t siteKind = std::string(c.function) == "KFINDW" ? 0x68 : 0x88;
        txhost::CallSite site(*module, module->functionIndex(c.function), siteKind);
        session.failAllocationAfter(1);
        const auto refused = site.call(c.arguments);
        session.failAllocationAfter(0);
        EXPECT_EQ(kStatusNoMemory, refused.status);
        EXPECT_FALSE(refused.numberStored());
        EXPECT_EQ(nullptr, site.frame().setCache);
        EXPECT_EQ(c.expected, site.call(c.arguments).number.value_or(-1));
        EXPECT_NE(nullptr, site.frame().setCache);
    }
}

TEST(KFindC, MultiBytePaths) {
    runCases("UTF-8", {
        {F, {s("éabc"), s("cb")}, 3},         {F, {s("xÉ"), s("é"), s("i")}, 2},   {F, {s("éabé"), s("é"), 2.0}, 4},
        {F, {s("éabé"), s("é"), -3.0}, 1},    {F, {s("éabé"), s("é"), s("b")}, 4}, {F, {s("éabé"), s("é"), 0.0}, 0},
        {F, {s("1éa"), s(""), s("a")}, 2},    {F, {s("éa  "), s("a "), s("vt")}, 1},
        {F, {s("éab"), s("é"), s("k")}, 2},      // K acts as V here
        {F, {s("éab"), s("é"), s("zk")}, 2},     // no notes on this path
        {F, {s("éa~"), s(""), s("p")}, 3},       // P takes the extra symbols
        {F, {s("éabé"), s("é"), 1.0, 2.0}, 0, "", kStatusInvalidArgument},
        // D alone: ASCII digits and the wide digits the handle knows, on
        // rows shorter and longer than a vector, the ragged end included.
        {F, {s("éa٣1"), s(""), s("d")}, 3},   {F, {s("é1٣"), s(""), s("D")}, 2},  {F, {s("éab"), s(""), s("dd")}, 0},
        {F, {s("ééééééééé٣é1"), s(""), s("d")}, 10},   {F, {s("éééééééééééé1é"), s(""), s("d")}, 13},
        {F, {s("éééééééééééééé"), s(""), s("d")}, 0},  {F, {s("aéééééééééééé٣"), s(""), s("d")}, 14},
        {C, {s("éÉe"), s("é"), s("i")}, 2},   {C, {s("éab"), s("é"), s("v")}, 2},  {C, {s("é a\tb"), s(""), s("s")}, 2},
        {C, {s("ÉéA"), s(""), s("u")}, 2},    {C, {s("é1a"), s(""), s("dn")}, 2},  {C, {s("éx  "), s(""), s("vt")}, 2},
        {C, {s("éab"), s("é"), s("k")}, 1},      // K does nothing on this path
        {C, {s("é`+$=|<>^~"), s(""), s("p")}, 9},
    });
    // Shift_JIS: 0x93FA and 0x967B are two-byte characters.
    const std::string jis = "\x93\xFA\x96\x7B";
    runCases("Shift_JIS", {
        {F, {jis + "a", s("\x96\x7B")}, 2}, {F, {jis + "a", s("{")}, 0}, {F, {jis + "A", s("a"), s("i")}, 3},
        {C, {jis + "\x93\xFA", s("\x93\xFA"), s("v")}, 1}, {C, {s("\x93\xFA" "a1 "), s(""), s("d")}, 1},
    });
}

}  // namespace
