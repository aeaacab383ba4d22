// interpretArguments, called in-process: the default-delimiter rule of each
// call kind, the count and start rules, trimming under T, and the cases
// where the modifier text is not read at all. (What each modifier letter
// does on the paths that interpret their arguments is in the functions'
// own tables: KSCANX's for every letter in upper case, KFINDC's and KFIND's
// multi-byte rows in lower case.)
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "module/frame/encoding_ops.h"
#include "tests/support/module_calls.h"

namespace {

using namespace txscan;
using txhost::Absent;
using txhost::Argument;
using txtest::FrameBuilder;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Interpreted { ParsedArguments parsed; ModifierSet modifiers; };

class Interpreter : public ::testing::TestWithParam<const char*> {
protected:
    txtest::InProcess inProcess{GetParam()};
    txhost::Session& session = inProcess.session;

    Interpreted run(const std::vector<Argument>& arguments, const ArgumentRoles& roles, CallKind kind) {
        FrameBuilder builder(arguments);
        Interpreted out;
        std::memset(&out.modifiers, 0xAB, sizeof out.modifiers);   // must be cleared by the call
        interpretArguments(&builder.frame, session.encodingHandle(), roles, &out.parsed, &out.modifiers, 0, kind);
        return out;
    }
    Interpreted modifiersOnly(const std::string& text) {
        return run({std::string("x"), text}, ArgumentRoles{1, 0, 0, 2, 0, 0, 0}, kCallCounting);
    }
};

TEST_P(Interpreter, DefaultDelimitersByCallKind) {
    struct Case { CallKind kind; int argCount; bool delimiterRole, expected; };
    const Case cases[] = {
        {kCallFinding, 2, false, true},        {kCallFinding, 3, false, true},
        {kCallFinding, 3, true, false},        {kCallFinding, 4, false, false},
        {kCallScanFunction, 2, true, false},   {kCallScanRoutine, 4, false, true},
        {kCallScanRoutine, 5, false, false},   {kCallScanRoutine, 4, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "kind " << c.kind << " args " << c.argCount << " role "
                                          << c.delimiterRole);
        // A delimiter role naming an absent argument still counts as a role.
        std::vector<Argument> args(static_cast<std::size_t>(c.argCount), Argument{Absent{}});
        args[0] = std::string("a b");
        ArgumentRoles roles{1, 0, 0, 0, 0, 0, 0};
        if (c.delimiterRole) roles.delimiters = static_cast<std::uint32_t>(c.argCount);
        EXPECT_EQ(c.expected, run(args, roles, c.kind).modifiers.has(kModDefaultDelimiters));
    }
    // A given delimiter list never asks for the default ones.
    const Interpreted given = run({std::string("a"), std::string(",")}, ArgumentRoles{1, 0, 0, 0, 0, 0, 2},
                                  kCallFinding);
    EXPECT_FALSE(given.modifiers.has(kModDefaultDelimiters));
    EXPECT_EQ(1, given.parsed.delimitersSet);
}

TEST_P(Interpreter, CountAndStartRules) {
    struct Case {
        std::string source;
        Argument count;     // Absent: not given, so 1
        Argument start;     // Absent: not given, so the default
        std::string modifiers;
        std::int64_t expectedCount, expectedStart;
        bool expectedB;
    };
    const std::string ten = "abcdefghij";
    const Case cases[] = {
        {ten, -2.0, Absent{}, "", 2, 10, true},      {ten, 0.0, Absent{}, "", 0, 1, false},
        {ten, kNaN, Absent{}, "", 1, 1, false},      {ten, Absent{}, -3.0, "", 1, 3, true},
        {ten, Absent{}, -30.0, "", 1, 10, true},     {ten, Absent{}, kNaN, "b", 1, 10, true},
        {"", Absent{}, Absent{}, "b", 1, 1, true},   {ten, Absent{}, -std::numeric_limits<double>::infinity(), "", 1, 10, true},
        {"ab  ", Absent{}, -9.0, "t", 1, 2, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.source + " / " + c.modifiers);
        const Interpreted r = run({c.source, c.count, c.start, c.modifiers},
                                  ArgumentRoles{1, 0, 0, 4, 3, 2, 0}, kCallScanFunction);
        EXPECT_EQ(c.expectedCount, r.parsed.count);
        EXPECT_EQ(c.expectedStart, r.parsed.start);
        EXPECT_EQ(c.expectedB, r.modifiers.has(kModB));
    }
}

// Under T the source, the second string and the list lose their trailing
// blanks; the source cursor keeps the whole text.
TEST_P(Interpreter, TrimmingUnderT) {
    for (const char* modifiers : {"", "t"}) {
        const Interpreted r = run({std::string("abc  "), std::string("de "), std::string("xy  "), std::string(modifiers)},
                                  ArgumentRoles{1, 2, 3, 4, 0, 0, 0}, kCallFinding);
        const ParsedArguments& p = r.parsed;
        const std::vector<std::int64_t> expected = *modifiers != 0 ? std::vector<std::int64_t>{3, 2, 2, 5, 1, 1}
                                                                   : std::vector<std::int64_t>{5, 3, 4, 5, 1, 1};
        EXPECT_EQ(expected, (std::vector<std::int64_t>{p.sourceChars, p.secondChars, p.list.length, p.source.length,
                                                       p.sourceSet, p.listSet}))
            << modifiers;
    }
}

// A session encoding that cannot read the modifier text leaves the call as if
// it had none: when the handle says to skip it, or has no transcoder.
std::int32_t alwaysSkip(contract::EncodingHandle*, const char*, std::int64_t, std::int32_t) { return 1; }

TEST_P(Interpreter, UnreadableModifierTextSetsNothing) {
    contract::EncodingHandle* h = session.encodingHandle();
    void*& skip = h->word[contract::kOpSkipModifierText - 6];
    void*& transcoder = h->word[contract::kHandleTranscoderWord - 6];
    struct Change { void** word; void* value; };
    for (const Change change : {Change{&skip, reinterpret_cast<void*>(&alwaysSkip)}, Change{&transcoder, nullptr}}) {
        void* saved = *change.word;
        *change.word = change.value;
        const Interpreted r = modifiersOnly("bit");
        *change.word = saved;
        ModifierSet none{};
        EXPECT_EQ(0, std::memcmp(&none, &r.modifiers, sizeof none));
        EXPECT_EQ(1, r.parsed.start);
    }
    EXPECT_TRUE(modifiersOnly("bit").modifiers.has(kModT));
}

INSTANTIATE_TEST_SUITE_P(Encodings, Interpreter, ::testing::Values("UTF-8", "ISO-8859-1", "Shift_JIS"));

}  // namespace
