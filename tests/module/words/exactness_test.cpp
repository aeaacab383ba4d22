// Word-function answers at the edges of the source: leftward starts beyond
// a trimmed end, starts that cut a word, and scans of a source that T leaves
// empty. Arguments lie flush against an unreadable page, so a read past one
// fails the test at once.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/host.h"

namespace {

using txhost::Argument;

std::string S(const char* text) { return text; }

struct EdgeCase {
    const char* function;
    std::vector<Argument> args;
    double number;       // numeric functions
    const char* text;    // KSCANX function
};

TEST(WordEdges, AnswersStayInsideTheScannedSource) {
    const EdgeCase cases[] = {
        // T trims the source below a leftward start (also with B and a positive start)
        {"KFINDW", {S("a "), S("a"), S(","), S("t"), -2.0}, 1, nullptr},
        {"KFINDW", {S("x "), S("x"), S("=x"), 2.0, S("bQ mT")}, 1, nullptr},
        {"KFINDW", {S("%%0a% "), S(""), S("."), -1e10, S("qsqqMTM")}, 0, nullptr},
        {"KFINDW", {S("ab  "), S("ab"), S(" "), S("T"), -4.0}, 1, nullptr},
        // a leftward start that cuts a word: without M past the whole run of delimiters
        {"KFINDW", {S("ab..cd"), S("ab."), S("."), -5.0}, 0, nullptr},
        {"KFINDW", {S("ab..cd"), S("ab"), S("."), -5.0}, 1, nullptr},
        {"KFINDW", {S("ab..cd"), S("ab"), S("."), S("e"), -5.0}, 1, nullptr},
        {"KFINDW", {S("ab..cd..ef"), S("ab"), S("."), -8.0, S("em")}, 4, nullptr},
        {"KFINDW", {S("ab..cd..ef"), S("ab"), S("."), -8.0, S("e")}, 2, nullptr},
        // M and a source that T empties: the scan starts at index 0
        {"KSCANX", {S(" "), -1.0, S(","), S("tm")}, 0, " "},
        {"KSCANX", {S("  "), -1.0, S(","), S("tm")}, 0, " "},
        {"KSCANX", {S(" "), 1.0, S(","), S("tm")}, 0, ""},
        {"KSCANX", {S(" "), -1.0, S(","), S("t")}, 0, " "},
    };
    txhost::Session session;
    auto module = txhost::Module::load(session);
    for (const EdgeCase& c : cases) {
        txhost::CallSite site(*module, module->functionIndex(c.function));
        site.setGuardedArguments(true);
        const txhost::CallResult r = site.call(c.args);
        SCOPED_TRACE(std::string(c.function) + " row " + std::to_string(&c - cases));
        EXPECT_EQ(r.status, 0);
        if (c.text != nullptr) {
            EXPECT_EQ(r.text.value_or("(none)"), c.text);
        } else {
            EXPECT_EQ(r.number.value_or(-1), c.number);
        }
    }
}

// The call routine agrees with the function on a source that T empties.
TEST(WordEdges, CallRoutineOnATrimmedAwaySource) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    txhost::CallSite site(*module, module->functionIndex("KSCANX", true));
    site.setGuardedArguments(true);
    const txhost::CallResult r = site.call({S(" "), -1.0, 0.0, 0.0, S(","), S("tm")});
    EXPECT_EQ(r.position.value_or(-1), 1);
    EXPECT_EQ(r.length.value_or(-1), 1);
}

}  // namespace
