// KSCANX through the loaded module: the function's string and the call
// routine's position and length for the same calls, word-number checks,
// cuts at the receiving length and result buffers.
#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/host.h"
#include "module/abi/argument_frame.h"
#include "tests/support/module_calls.h"

namespace {

using txhost::Absent;
using txhost::Argument;
using txscan::contract::kStatusInvalidArgument;
using txscan::contract::kStatusNoMemory;
using txscan::contract::kStatusOk;

constexpr double kNoValue = 0.5;   // an output the module must not leave alone

struct ScanCase {
    const char* source;   // null: absent
    double n;
    std::optional<std::string> delimiters, modifiers;
    const char* text;           // function result
    double position, length;    // call routine
};

// The function's arguments, or the call routine's with its two outputs
// after the word number; an absent delimiter list before modifiers is
// passed as a null value.
std::vector<Argument> scanArgs(const ScanCase& c, bool routine) {
    std::vector<Argument> args{c.source != nullptr ? Argument(std::string(c.source)) : Argument(Absent{}), c.n};
    if (routine) args.insert(args.end(), {kNoValue, kNoValue});
    if (c.delimiters || c.modifiers) args.push_back(c.delimiters ? Argument(*c.delimiters) : Argument(Absent{}));
    if (c.modifiers) args.push_back(*c.modifiers);
    return args;
}

const ScanCase kCases[] = {
    // default delimiters
    {"a b c", 2, {}, {}, "b", 3, 1}, {"a b c", -1, {}, {}, "c", 5, 1}, {"a b c", 4, {}, {}, " ", 0, 0},
    {"  a!!b(c)  ", 3, {}, {}, "c", 8, 1}, {"a_b#c", 1, {}, {}, "a_b#c", 1, 5},
    // explicit lists, including the empty one
    {"a,b c", 2, ",", {}, "b c", 3, 3}, {"abc", 1, "", {}, "abc", 1, 3}, {"abc", 2, "", {}, " ", 0, 0},
    // M: empty words at both edges, between delimiters, one past the last
    {"a b c", 4, " ", "M", "", 6, 0}, {"a,,b", 2, ",", "M", "", 3, 0}, {"a,,b", 3, ",", "M", "b", 4, 1},
    // B and negative counts count from the right
    {"a b c", 1, " ", "B", "c", 5, 1}, {"a b c", -2, {}, {}, "b", 3, 1}, {"a,b,", -1, ",", "MB", "", 5, 0},
    // I, K
    {"aXbxc", 2, "x", "I", "b", 3, 1}, {"aXbxc", 2, "x", {}, "c", 5, 1}, {"xaby zc", 1, "abc", "K", "ab", 2, 2},
    // every class letter
    {"12ab34", 2, "", "A", "34", 5, 2}, {"ab\x01" "cd", 2, "", "C", "cd", 4, 2}, {"ab12cd", 2, "", "D", "cd", 5, 2},
    {"a\tb", 2, "", "S", "b", 3, 1}, {"ab\tcd", 1, "", "W", "\t", 3, 1}, {"zz1fzz", 2, "", "X", "zz", 5, 2},
    {"abCdEf", 2, "", "U", "d", 4, 1}, {"ABcDE", 2, "", "L", "DE", 4, 2}, {"1_2", 2, "", "F", "2", 3, 1},
    {"ab cd", 1, "", "G", " ", 3, 1}, {"a\tb", 2, "", "H", "b", 3, 1}, {"ab c_d", 1, "", "N", " ", 3, 1},
    {"a~b", 2, "", "P", "b", 3, 1},
    // Q: balanced, unbalanced, nested kinds
    {"a 'b c' d", 2, " ", "Q", "'b c'", 3, 5}, {"a 'b c d", 2, " ", "Q", "'b c d", 3, 6},
    {"a \"b 'c\" d' e", 2, " ", "Q", "\"b 'c\"", 3, 6}, {"a \"b 'c\" d' e", 3, " ", "Q", "d' e", 10, 4},
    // R and Q trimming of the result (position and length unchanged)
    {"  x  ,y", 1, ",", "R", "x", 1, 5}, {"'x y' z", 1, " ", "RQ", "x y", 1, 5},
    // T (it trims the delimiter list too: " " becomes empty)
    {"a b  ", 3, " ,", "MT", "", 4, 0}, {"a b  ", 1, " ", "T", "a b", 1, 3}, {"   ", 1, " ,", "T", " ", 0, 0},
    // an empty or absent source: one blank, or nothing found, whatever the modifiers
    {"", 1, ",", "MR", " ", 0, 0}, {nullptr, 1, ",", "MR", " ", 0, 0}, {nullptr, 1, {}, {}, " ", 0, 0},
    // word numbers: huge, infinite; letters that do nothing here
    {"a b", -1e10, {}, {}, " ", 0, 0}, {"a b", 0x1p53, {}, {}, "a", 1, 1}, {"a b", 1.0 / 0.0, {}, {}, "a", 1, 1}, {"a b", 2.0, " ", "EOV:Z9", "b", 3, 1},
};

class ScanTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ScanTest, FunctionAndCallRoutineAgree) {
    txhost::Session session({.encoding = GetParam()});
    auto module = txhost::Module::load(session);
    for (const ScanCase& c : kCases) {
        SCOPED_TRACE(txtest::describe(scanArgs(c, false)));
        const txhost::CallResult f = module->call("KSCANX", scanArgs(c, false));
        EXPECT_EQ(f.status, kStatusOk);
        EXPECT_EQ(f.text.value_or("<not stored>"), c.text);
        EXPECT_TRUE(f.messages.empty());
        const txhost::CallResult r = module->call("KSCANX", scanArgs(c, true), true);
        EXPECT_EQ(r.status, kStatusOk);
        EXPECT_EQ(r.position.value_or(-1), c.position);
        EXPECT_EQ(r.length.value_or(-1), c.length);
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, ScanTest, ::testing::Values("UTF-8", "ISO-8859-1", "Shift_JIS"));

// Whole word numbers of every size pass, up to the infinities; zero,
// fractions (down to one just below 2^52, where doubles still hold halves),
// a subnormal and missing values are refused and nothing is stored.
TEST(ScanWordNumber, WholeAtEverySizeOthersRejectedWithNothingStored) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    const double inf = std::numeric_limits<double>::infinity();
    const std::pair<double, const char*> cases[] = {   // the word of "a b", or null: refused
        {2.0, "b"}, {-2.0, "a"}, {inf, "a"}, {-inf, " "}, {0x1p52, "a"}, {-0x1p53, " "}, {1e300, "a"}, {-1e300, " "},
        {2147483647.0, " "}, {-2147483648.0, " "}, {3e9, "a"}, {-3e9, " "}, {0x1p52 - 1, "a"},
        {0.0, nullptr}, {-0.0, nullptr}, {1.5, nullptr}, {-2.25, nullptr}, {0.75, nullptr}, {0x1p52 - 0.5, nullptr},
        {-(0x1p52 - 0.5), nullptr}, {5e-324, nullptr}, {std::numeric_limits<double>::quiet_NaN(), nullptr},
        {std::bit_cast<double>(0xFFFFD10000000000ull), nullptr},
    };
    for (const auto& [n, text] : cases) {
        SCOPED_TRACE(n);
        const txhost::CallResult f = module->call("KSCANX", {std::string("a b"), n});
        EXPECT_EQ(f.status, text != nullptr ? kStatusOk : kStatusInvalidArgument);
        EXPECT_EQ(f.text, text != nullptr ? std::optional<std::string>(text) : std::nullopt);
        if (text != nullptr) continue;
        const txhost::CallResult r = module->call("KSCANX", {std::string("a b"), n, 7.0, 8.0}, true);
        EXPECT_EQ(r.status, kStatusInvalidArgument);
        EXPECT_EQ(r.position.value_or(-1), 7.0);
        EXPECT_EQ(r.length.value_or(-1), 8.0);
        EXPECT_EQ(r.errorMarks, std::vector<std::uint8_t>(r.errorMarks.size(), 0));
    }
}

// Multi-byte sessions: positions and lengths in characters, and cuts at the
// receiving length that never split a character.
struct WideCase {
    const char* encoding;
    std::string source;
    double n;
    std::int64_t receivingLength;
    std::string text;
    double position, length;
};

const WideCase kWideCases[] = {
    {"UTF-8", "\xC3\xA9t\xC3\xA9 \xC3\xA0 la plage", 3, 200, "la", 7, 2},
    {"UTF-8", "\xC3\xA9t\xC3\xA9 x", 1, 3, "\xC3\xA9t", 1, 3},     {"UTF-8", "\xC3\xA9t\xC3\xA9 x", 1, 5, "\xC3\xA9t\xC3\xA9", 1, 3},
    {"UTF-8", "\xE2\x82\xAC\xE2\x82\xAC", 1, 2, "", 1, 2},
    // 0x837C is one character whose second byte is the vertical bar.
    {"Shift_JIS", "\x83\x7C\x83\x41 \x82\xA0", 1, 200, "\x83\x7C\x83\x41", 1, 2},
    {"Shift_JIS", "\x83\x7C\x83\x41 \x82\xA0", 1, 3, "\x83\x7C", 1, 2}, {"Shift_JIS", "ab\x82\xA0", 1, 3, "ab", 1, 3},
};

TEST(ScanMultiByte, CharactersAndWholeCharacterCuts) {
    for (const WideCase& c : kWideCases) {
        SCOPED_TRACE(std::string(c.encoding) + " n=" + std::to_string(c.n) + " length " +
                     std::to_string(c.receivingLength));
        txhost::Session session({.encoding = c.encoding});
        auto module = txhost::Module::load(session);
        txhost::CallSite site(*module, module->functionIndex("KSCANX"));
        site.useFixedResult(c.receivingLength);
        const txhost::CallResult f = site.call({c.source, c.n});
        EXPECT_EQ(f.status, kStatusOk);
        EXPECT_EQ(f.text.value_or("<not stored>"), c.text);
        const txhost::CallResult r = module->call("KSCANX", {c.source, c.n, 0.0, 0.0}, true);
        EXPECT_EQ(r.position.value_or(-1), c.position);
        EXPECT_EQ(r.length.value_or(-1), c.length);
    }
}

// A growable buffer grows once for a long word and is capped at its limit;
// a refused reallocation stores nothing and a fresh site works again.
TEST(ScanResultBuffer, GrowsInStepsAndRefusalStoresNothing) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    const std::string word(3000, 'w');
    const std::string source = "a " + word + " b";
    auto site = [&](std::int64_t limit) {
        auto s = std::make_unique<txhost::CallSite>(*module, module->functionIndex("KSCANX"));
        s->useGrowableResult(limit, 0);
        return s;
    };
    auto growing = site(5000);
    const std::int64_t before = session.counters().reallocations;
    EXPECT_EQ(growing->call({source, 2.0}).text.value_or(""), word);
    EXPECT_EQ(growing->call({source, 3.0}).text.value_or(""), "b");
    EXPECT_EQ(session.counters().reallocations, before + 1);
    EXPECT_EQ(site(1500)->call({source, 2.0}).text.value_or(""), std::string(1500, 'w'));

    auto refused = site(5000);
    session.failReallocationAfter(1);
    const txhost::CallResult f = refused->call({source, 2.0});
    session.failReallocationAfter(0);
    EXPECT_EQ(f.status, kStatusNoMemory);
    EXPECT_FALSE(f.text.has_value());
    EXPECT_EQ(site(5000)->call({std::string("a b"), 2.0}).text.value_or(""), "b");
}

}  // namespace
