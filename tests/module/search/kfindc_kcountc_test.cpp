// KFINDC and KCOUNTC through the host and the module's exports: every
// modifier letter, negation, caseless lists, trimming, start positions and
// directions, the type check, the per-site cached sets and the short-list
// shortcuts; the multi-byte paths in UTF-8 and Shift_JIS.
#include <gtest/gtest.h>

#include <string>

#include "host/host.h"
#include "tests/module/search/case_runner.h"

namespace {

using txhost::Absent;
using txhost::Argument;
using txtest::Case;
using txtest::kInvalid;
using txtest::runCases;

constexpr std::int32_t kNoMemory = static_cast<std::int32_t>(0x8001D811u);

std::string s(const char* text) { return text; }

const char* const kSingleByteAndUtf8[] = {"UTF-8", "ISO-8859-1", "Shift_JIS"};

TEST(KFindC, ListsStartsAndDirections) {
    const std::vector<Case> cases = {
        {"KFINDC", {s("abc"), s("cb")}, 2},
        {"KFINDC", {s("abc"), s("x")}, 0},
        {"KFINDC", {s("abc"), s("")}, 0},
        {"KFINDC", {s("abc")}, 0},
        {"KFINDC", {s(""), s("a")}, 0},
        {"KFINDC", {s("abc"), s("a"), s("k")}, 2},
        {"KFINDC", {s("abc"), s("a"), s("v")}, 2},
        {"KFINDC", {s("abc"), s(""), s("v")}, 1},
        {"KFINDC", {s("abc"), s("c"), s("b")}, 3},
        {"KFINDC", {s("abca"), s("a"), s("b")}, 4},
        {"KFINDC", {s("abca"), s("a"), 2.0}, 4},
        {"KFINDC", {s("abca"), s("a"), -3.0}, 1},
        {"KFINDC", {s("abca"), s("a"), 0.0}, 0},
        {"KFINDC", {s("abca"), s("a"), 5.0}, 0},
        {"KFINDC", {s("abca"), s("bc"), -9.0}, 3},
        {"KFINDC", {s("ab1"), s(""), s("d")}, 3},
        {"KFINDC", {s("aB"), s("b"), s("i")}, 2},
        {"KFINDC", {s("aB"), s("b")}, 0},
        {"KFINDC", {s("a b"), s(" "), s("t")}, 0},      // T trims the list to nothing
        {"KFINDC", {s("ab  "), s("b "), s("vt")}, 1},
        {"KFINDC", {s("ab  "), s("ab"), s("vt")}, 0},   // the trimmed blanks are not searched
        {"KFINDC", {s("abca"), s("a"), s("b"), 3.0}, 4},
        {"KFINDC", {s("abca"), s("a"), 3.0, s("b")}, 4},
        {"KFINDC", {s("abca"), s("a"), 1.0, 2.0}, 0, "", kInvalid},
        {"KFINDC", {s("abca"), s("a"), s("b"), s("i")}, 0, "", kInvalid},
    };
    for (const char* encoding : kSingleByteAndUtf8) runCases(encoding, cases);
}

TEST(KCountC, ListsAndModifiers) {
    const std::vector<Case> cases = {
        {"KCOUNTC", {s("abcab"), s("ab")}, 4},
        {"KCOUNTC", {s("abcab"), s("ab"), s("v")}, 1},
        {"KCOUNTC", {s("abcab"), s("ab"), s("k")}, 4, "K"},
        {"KCOUNTC", {s("abcab"), s("ab"), s("b")}, 4, "B"},
        {"KCOUNTC", {s("abc  "), s("x"), s("vt")}, 3},
        {"KCOUNTC", {s("abc  "), s("x"), s("v")}, 5},
        {"KCOUNTC", {s("ABC"), s(""), s("u")}, 3},
        {"KCOUNTC", {s("abc"), s(""), s("v")}, 3},
        {"KCOUNTC", {s("abc"), s("")}, 0},
        {"KCOUNTC", {s("abc"), Absent{}}, 0},
        {"KCOUNTC", {s("aAbB"), s("a"), s("i")}, 2},
        {"KCOUNTC", {s("aAbB"), s("ab"), s("i")}, 4},
        {"KCOUNTC", {s("aAbB"), s("a"), s("iv")}, 2},
        {"KCOUNTC", {s("a1 b2"), s("a"), s("d")}, 3},
    };
    for (const char* encoding : kSingleByteAndUtf8) runCases(encoding, cases);
}

TEST(KFindC, UnknownLettersDrawOneNoteEach) {
    const std::vector<Case> cases = {
        {"KFINDC", {s("abc"), s("c"), s("ejmqr")}, 3, "EJMQR"},
        {"KFINDC", {s("abc"), s("c"), s("z9.")}, 3, "Z9."},
        {"KFINDC", {s("abc"), s("c"), s(" b o t v k i ")}, 2},
        {"KCOUNTC", {s("abc"), s("c"), s("ejmqr")}, 1, "EJMQR"},
        {"KCOUNTC", {s("abc"), s("c"), s("bkz")}, 1, "BKZ"},
        {"KCOUNTC", {s("abc"), s("c"), s(" o t v i ")}, 2},
        {"KFINDC", {s("abca"), s("a"), 9.0, s("z")}, 0},   // the start ends the call before the notes
    };
    runCases("ISO-8859-1", cases);
}

// Every class letter over all 256 byte values, against the session's tables;
// F and N take the letters of both cases, the digits and the underscore.
TEST(KCountC, ClassLettersFollowTheHostTables) {
    txhost::Session session(txtest::sessionOptions("ISO-8859-1"));
    auto module = txhost::Module::load(session);
    const std::uint8_t* classes = session.hostVector()->classTable;
    std::string everyByte;
    for (int b = 0; b < 256; ++b) everyByte += static_cast<char>(b);
    auto withBits = [&](std::uint8_t mask) {
        int n = 0;
        for (int b = 0; b < 256; ++b) n += (classes[b] & mask) != 0;
        return n;
    };
    const struct {
        const char* letter;
        int count;
        int first;   // position of the first member
    } cases[] = {
        {"a", withBits(0x03), 1 + 'A'}, {"c", withBits(0x40), 1},        {"d", 10, 1 + '0'},
        {"f", 53, 1 + 'A'},             {"g", withBits(0x17), 1 + '!'},  {"h", 1, 1 + '\t'},
        {"l", withBits(0x02), 1 + 'a'}, {"n", 63, 1 + '0'},              {"p", withBits(0x10), 1 + '!'},
        {"s", withBits(0x08), 1 + '\t'}, {"u", withBits(0x01), 1 + 'A'}, {"w", withBits(0x37), 1 + ' '},
        {"x", withBits(0x80), 1 + '0'}, {"du", withBits(0x01) + 10, 1 + '0'}, {"av", 256 - withBits(0x03), 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.letter);
        const auto count = module->call("KCOUNTC", {everyByte, s(""), s(c.letter)});
        EXPECT_EQ(c.count, count.number.value_or(-1));
        EXPECT_TRUE(count.messages.empty());
        EXPECT_EQ(c.first, module->call("KFINDC", {everyByte, s(""), s(c.letter)}).number.value_or(-1));
    }
}

// The table-free shortcuts for lists of at most one byte give the table's answers.
TEST(KCountC, ShortcutsAgreeAcrossTheLengthThreshold) {
    txhost::Session session(txtest::sessionOptions("ISO-8859-1"));
    auto module = txhost::Module::load(session);
    for (int length : {99, 100}) {
        std::string source;
        for (int i = 0; i < length; ++i) source += "aAb "[i % 4];
        SCOPED_TRACE(length);
        const int a = (length + 3) / 4;
        const int upperA = (length + 2) / 4;
        EXPECT_EQ(a, *module->call("KCOUNTC", {source, s("a")}).number);
        EXPECT_EQ(a + upperA, *module->call("KCOUNTC", {source, s("a"), s("i")}).number);
        EXPECT_EQ(length - a, *module->call("KCOUNTC", {source, s("a"), s("v")}).number);
        EXPECT_EQ(length - a - upperA, *module->call("KCOUNTC", {source, s("A"), s("vi")}).number);
        EXPECT_EQ(length, *module->call("KCOUNTC", {source, s(""), s("v")}).number);
        EXPECT_EQ(0, *module->call("KCOUNTC", {source, s("")}).number);
        EXPECT_EQ(3, *module->call("KFINDC", {source, s("b")}).number);
        EXPECT_EQ(0, *module->call("KFINDC", {source, s("")}).number);
        EXPECT_EQ(0, *module->call("KFINDC", {source, s("z")}).number);
    }
}

// A site whose kind allows caching keeps the set of its first call under O;
// later calls there use it and ignore their own list and modifiers.
TEST(CachedSets, BuiltUnderOAndReusedAtTheSite) {
    txhost::Session session(txtest::sessionOptions("ISO-8859-1"));
    auto module = txhost::Module::load(session);
    const int findc = module->functionIndex("KFINDC");
    const int countc = module->functionIndex("KCOUNTC");
    auto cacheAllocations = [&] { return session.counters().allocationsByFlags[0x2004]; };

    struct SiteCase {
        std::uint8_t siteKind;
        bool cached;
    };
    for (const SiteCase site : {SiteCase{0x48, true}, SiteCase{0x58, true}, SiteCase{0x68, true},
                                SiteCase{0x88, true}, SiteCase{0x00, false}, SiteCase{0x49, false}}) {
        SCOPED_TRACE(static_cast<int>(site.siteKind));
        txhost::CallSite find(*module, findc, site.siteKind);
        txhost::CallSite count(*module, countc, site.siteKind);
        const auto before = cacheAllocations();
        EXPECT_EQ(2, *find.call({s("xaxa"), s("a"), s("o")}).number);
        EXPECT_EQ(2, *count.call({s("xaxa"), s("a"), s("o")}).number);
        EXPECT_EQ(site.cached ? 2 : 0, cacheAllocations() - before);
        EXPECT_EQ(site.cached, find.frame().setCache != nullptr);
        EXPECT_EQ(site.cached, count.frame().setCache != nullptr);
        // Another list: a cached site still answers with the set of "a".
        EXPECT_EQ(site.cached ? 3 : 1, *find.call({s("xyay"), s("x"), s("z")}).number);
        EXPECT_EQ(site.cached ? 1 : 3, *count.call({s("xyay  "), s("xy")}).number);
        EXPECT_EQ(site.cached ? 2 : 0, cacheAllocations() - before);
    }
    // Without O nothing is kept, whatever the site.
    txhost::CallSite plain(*module, findc, 0x48);
    plain.call({s("abc"), s("a"), s("i")});
    EXPECT_EQ(nullptr, plain.frame().setCache);
}

TEST(CachedSets, KeepDirectionAndTrimFlag) {
    txhost::Session session(txtest::sessionOptions("ISO-8859-1"));
    auto module = txhost::Module::load(session);
    const int findc = module->functionIndex("KFINDC");
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
    txhost::CallSite trimmed(*module, module->functionIndex("KCOUNTC"), 0x48);
    EXPECT_EQ(1, *trimmed.call({s("ab  "), s("a"), s("otv")}).number);
    EXPECT_EQ(2, *trimmed.call({s("bb  "), s("b")}).number);
}

TEST(CachedSets, RefusedAllocationStoresNothing) {
    txhost::Session session(txtest::sessionOptions("ISO-8859-1"));
    auto module = txhost::Module::load(session);
    for (const char* function : {"KFINDC", "KCOUNTC"}) {
        SCOPED_TRACE(function);
        txhost::CallSite site(*module, module->functionIndex(function), 0x48);
        session.failAllocationAfter(1);
        const auto refused = site.call({s("abc"), s("b"), s("o")});
        session.failAllocationAfter(0);
        EXPECT_EQ(kNoMemory, refused.status);
        EXPECT_FALSE(refused.numberStored());
        EXPECT_EQ(nullptr, site.frame().setCache);
        const auto next = site.call({s("abc"), s("b"), s("o")});
        EXPECT_EQ(0, next.status);
        EXPECT_NE(nullptr, site.frame().setCache);
    }
}

TEST(KFindC, MultiBytePaths) {
    const std::vector<Case> utf8 = {
        {"KFINDC", {s("abcé"), s("é")}, 4},
        {"KFINDC", {s("éabc"), s("cb")}, 3},
        {"KFINDC", {s("xÉ"), s("é"), s("i")}, 2},
        {"KFINDC", {s("xÉ"), s("é")}, 0},
        {"KFINDC", {s("éab"), s("é"), s("k")}, 2},        // K acts as V here
        {"KFINDC", {s("éab"), s("é"), s("zk")}, 2},       // no notes on this path
        {"KFINDC", {s("éabé"), s("é"), 2.0}, 4},
        {"KFINDC", {s("éabé"), s("é"), -3.0}, 1},
        {"KFINDC", {s("éabé"), s("é"), s("b")}, 4},
        {"KFINDC", {s("éabé"), s("é"), 0.0}, 0},
        {"KFINDC", {s("éabé"), s("é"), 1.0, 2.0}, 0, "", kInvalid},
        {"KFINDC", {s("éa~"), s(""), s("p")}, 3},          // P takes the extra symbols
        {"KFINDC", {s("éa b"), s(""), s("s")}, 3},
        {"KFINDC", {s("1éa"), s(""), s("a")}, 2},
        {"KFINDC", {s("aÉ"), s(""), s("u")}, 2},
        {"KFINDC", {s("éa  "), s("a "), s("vt")}, 1},
        {"KCOUNTC", {s("éaé"), s("é")}, 2},
        {"KCOUNTC", {s("éÉe"), s("é"), s("i")}, 2},
        {"KCOUNTC", {s("éab"), s("é"), s("k")}, 1},        // K does nothing on this path
        {"KCOUNTC", {s("éab"), s("é"), s("v")}, 2},
        {"KCOUNTC", {s("é`+$=|<>^~"), s(""), s("p")}, 9},
        {"KCOUNTC", {s("é a\tb"), s(""), s("s")}, 2},
        {"KCOUNTC", {s("éab1"), s(""), s("a")}, 3},
        {"KCOUNTC", {s("ÉéA"), s(""), s("u")}, 2},
        {"KCOUNTC", {s("ÉéA"), s(""), s("l")}, 1},
        {"KCOUNTC", {s("é1a"), s(""), s("dn")}, 2},
        {"KCOUNTC", {s("éx  "), s(""), s("vt")}, 2},
    };
    runCases("UTF-8", utf8);
    // Shift_JIS: 0x93FA and 0x967B are two-byte characters.
    const std::vector<Case> sjis = {
        {"KFINDC", {s("\x93\xFA\x96\x7B" "a"), s("a")}, 3},
        {"KFINDC", {s("\x93\xFA\x96\x7B" "a"), s("\x96\x7B")}, 2},
        {"KFINDC", {s("\x93\xFA\x96\x7B" "a"), s("{")}, 0},
        {"KFINDC", {s("\x93\xFA\x96\x7B" "A"), s("a"), s("i")}, 3},
        {"KCOUNTC", {s("\x93\xFA\x96\x7B\x93\xFA"), s("\x93\xFA")}, 2},
        {"KCOUNTC", {s("\x93\xFA\x96\x7B\x93\xFA"), s("\x93\xFA"), s("v")}, 1},
        {"KCOUNTC", {s("\x93\xFA" "a1 "), s(""), s("d")}, 1},
    };
    runCases("Shift_JIS", sjis);
}

}  // namespace
