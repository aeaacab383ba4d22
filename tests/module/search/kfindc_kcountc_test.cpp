// KFINDC and KCOUNTC through the host and the module's exports: every
// modifier letter, negation, caseless lists, trimming, start positions and
// directions, the type check, the per-site cached sets and the short-list
// shortcuts; the multi-byte paths in UTF-8 and Shift_JIS.
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

TEST(KFindC, ListsStartsAndDirections) {
    const std::vector<Case> cases = {
        {F, {s("abc"), s("cb")}, 2},        {F, {s("abc")}, 0},                  {F, {s("abc"), s("a"), s("k")}, 2},
        {F, {s("abc"), s("a"), s("v")}, 2}, {F, {s("abca"), s("a"), s("b")}, 4}, {F, {s("abca"), s("a"), 2.0}, 4},
        {F, {s("abca"), s("a"), -3.0}, 1},  {F, {s("abca"), s("a"), 0.0}, 0},    {F, {s("abca"), s("bc"), -9.0}, 3},
        {F, {s("aB"), s("b"), s("i")}, 2},  {F, {s("a b"), s(" "), s("t")}, 0},   // T trims the list to nothing
        {F, {s("ab  "), s("ab"), s("vt")}, 0},   // the trimmed blanks are not searched
        {F, {s("abca"), s("a"), 3.0, s("b")}, 4},
        {F, {s("abca"), s("a"), 1.0, 2.0}, 0, "", kStatusInvalidArgument},
        {F, {s("abca"), s("a"), s("b"), s("i")}, 0, "", kStatusInvalidArgument},
    };
    for (const char* encoding : kSingleByteAndUtf8) runCases(encoding, cases);
}

TEST(KCountC, ListsAndModifiers) {
    const std::vector<Case> cases = {
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

// The table-free shortcuts for lists of at most one byte give the table's answers.
TEST(KCountC, ShortcutsAgreeAcrossTheLengthThreshold) {
    for (int length : {99, 100}) {
        std::string source;
        for (int i = 0; i < length; ++i) source += "aAb "[i % 4];
        const double a = (length + 3) / 4, upperA = (length + 2) / 4;
        runCases("ISO-8859-1", {
            {C, {source, s("a"), s("i")}, a + upperA},     {C, {source, s("A"), s("vi")}, length - a - upperA},
            {C, {source, s(""), s("v")}, double(length)},  {F, {source, s("b")}, 3},
        });
    }
}

// A site whose kind allows caching keeps the set of its first call under O;
// later calls there use it and ignore their own list and modifiers.
TEST(CachedSets, BuiltUnderOAndReusedAtTheSite) {
    txhost::Session session({.encoding = "ISO-8859-1"});
    auto module = txhost::Module::load(session);
    auto cacheAllocations = [&] { return session.counters().allocationsByFlags[0x2004]; };
    for (const auto& [siteKind, cached] :
         {std::pair<std::uint8_t, bool>{0x48, true}, {0x88, true}, {0x00, false}, {0x49, false}}) {
        SCOPED_TRACE(static_cast<int>(siteKind));
        txhost::CallSite find(*module, module->functionIndex(F), siteKind);
        txhost::CallSite count(*module, module->functionIndex(C), siteKind);
        const auto before = cacheAllocations();
        EXPECT_EQ(2, *find.call({s("xaxa"), s("a"), s("o")}).number);
        EXPECT_EQ(2, *count.call({s("xaxa"), s("a"), s("o")}).number);
        EXPECT_EQ(cached ? 2 : 0, cacheAllocations() - before);
        EXPECT_EQ(cached, find.frame().setCache != nullptr);
        EXPECT_EQ(cached, count.frame().setCache != nullptr);
        // Another list: a cached site still answers with the set of "a".
        EXPECT_EQ(cached ? 3 : 1, *find.call({s("xyay"), s("x"), s("z")}).number);
        EXPECT_EQ(cached ? 1 : 3, *count.call({s("xyay  "), s("xy")}).number);
        EXPECT_EQ(cached ? 2 : 0, cacheAllocations() - before);
    }
    // Without O nothing is kept, whatever the site.
    txhost::CallSite plain(*module, module->functionIndex(F), 0x48);
    plain.call({s("abc"), s("a"), s("i")});
    EXPECT_EQ(nullptr, plain.frame().setCache);
}

TEST(CachedSets, KeepDirectionAndTrimFlag) {
    txhost::Session session({.encoding = "ISO-8859-1"});
    auto module = txhost::Module::load(session);
    const int findc = module->functionIndex(F);
    // Built leftwards (by B): reused leftwards, even with a positive start.
    txhost::CallSite left(*module, findc, 0x48);
    EXPECT_EQ(4, *left.call({s("abca"), s("a"), s("ob")}).number);
    EXPECT_EQ(4, *left.call({s("abca"), s("b"), 1.0, s("")}).number);
    // Built rightwards: a negative start narrows the region, still rightwards.
    txhost::CallSite right(*module, findc, 0x48);
    EXPECT_EQ(1, *right.call({s("abca"), s("a"), s("o")}).number);
    EXPECT_EQ(1, *right.call({s("abca"), s("a"), -4.0}).number);
    EXPECT_EQ(0, *right.call({s("bbca"), s("a"), -3.0}).number);
    // The trim flag travels with the set; V was applied before caching.
    txhost::CallSite trimmed(*module, module->functionIndex(C), 0x48);
    EXPECT_EQ(1, *trimmed.call({s("ab  "), s("a"), s("otv")}).number);
    EXPECT_EQ(2, *trimmed.call({s("bb  "), s("b")}).number);
    txhost::CallSite trimmedFind(*module, findc, 0x48);
    EXPECT_EQ(2, *trimmedFind.call({s("ab  "), s("a"), s("otv")}).number);
    EXPECT_EQ(0, *trimmedFind.call({s("aa  "), s("b")}).number);
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

// UTF-8 rows long enough to be walked 32 bytes at a time: members on either
// side of a block's edge, a wide character across it, texts whose blocks
// stop often (wide text, a negated set, caseless lists), and both directions.
TEST(KFindC, LongUtf8RowsAcrossBlockEdges) {
    const auto a = [](int n) { return std::string(static_cast<std::size_t>(n), 'a'); };
    std::string mixed;
    for (int i = 0; i < 20; ++i) mixed += "ü1";
    std::string wide;
    for (int i = 0; i < 40; ++i) wide += "ж";
    runCases("UTF-8", {
        {F, {a(31) + "é" + a(40) + "7", s(""), s("d")}, 73}, {C, {a(31) + "é" + a(40) + "7", s(""), s("d")}, 1},
        {F, {a(63) + "é" + a(5) + "7", s(""), s("d")}, 70},   // the walk goes on after the last block mid-character
        {F, {a(31) + "7" + a(40), s(""), s("d")}, 32},       {F, {a(32) + "7" + a(40), s(""), s("d")}, 33},
        {F, {a(30) + "日" + a(40) + "日", s("日")}, 31},     {C, {a(30) + "日" + a(40) + "日", s("日")}, 2},
        {F, {mixed, s(""), s("d")}, 2},                      {F, {mixed, s(""), 10.0, s("d")}, 10},
        {C, {mixed, s(""), s("d")}, 20},                     {C, {mixed, s(""), s("vd")}, 20},
        {F, {a(70) + "b", s("a"), s("v")}, 71},              {F, {a(70) + "B", s("b"), s("i")}, 71},
        {F, {wide + "7" + a(40), s(""), s("d")}, 41},        {C, {wide + "7" + a(40), s(""), s("d")}, 1},
        {F, {"7" + a(70) + "é", s(""), s("bd")}, 1},         {F, {a(40) + "é7" + a(40), s(""), -45.0, s("d")}, 42},
    });
}

}  // namespace
