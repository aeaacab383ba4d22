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
        // M
        {"a,b;c", ",;", {}, 3}, {",,a,,b,,", ",", "M", 7}, {"x 'it''s' y", " ", "Q", 3}, {"aXbxc", "x", "I", 3},
        {"   ", " ", "M", 4}, {"a b  ", " ,", "MT", 2},
        {"   ", " ,", "MT", 1, false},   // nothing left under T: one empty word on the byte path
        // Q
        {"a \"b 'c\" d' e", " ", "Q", 3}, {"a' b c", " ", "Q", 1}, {"a' b c", " ", "QB", 3},
        {"a 'b,c' d,e", " ,", "QM", 4},
        // K, I, U and some classes; the scanner's answer for each class letter
        // is checked through KSCANX, and the byte path's agreement with it by
        // the generated comparison; O has no effect on a count
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

}  // namespace
