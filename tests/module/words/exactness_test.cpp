// Word-function answers at the edges of the source: leftward starts beyond
// a trimmed end, starts that cut a word, and scans of a source that T leaves
// empty. Arguments lie flush against an unreadable page, so a read past one
// fails the test at once.
#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"

namespace {

using txhost::Argument;

std::string S(const char* text) { return text; }

std::string shown(std::optional<double> x) {
    std::ostringstream out;
    out << x.value_or(-1);
    return out.str();
}

struct EdgeCase {
    const char* function;   // "CALL KSCANX": the call routine
    std::vector<Argument> args;
    std::string answer;     // the number, the string, or position/length
};

TEST(WordEdges, AnswersStayInsideTheScannedSource) {
    const EdgeCase cases[] = {
        // T trims the source below a leftward start (also with B and a positive start)
        {"KFINDW", {S("a "), S("a"), S(","), S("t"), -2.0}, "1"}, {"KFINDW", {S("x "), S("x"), S("=x"), 2.0, S("bQ mT")}, "1"},
        {"KFINDW", {S("%%0a% "), S(""), S("."), -1e10, S("qsqqMTM")}, "0"},
        {"KFINDW", {S("ab  "), S("ab"), S(" "), S("T"), -4.0}, "1"},
        // a leftward start that cuts a word: without M past the whole run of delimiters
        {"KFINDW", {S("ab..cd"), S("ab."), S("."), -5.0}, "0"}, {"KFINDW", {S("ab..cd"), S("ab"), S("."), -5.0}, "1"},
        {"KFINDW", {S("ab..cd"), S("ab"), S("."), S("e"), -5.0}, "1"},
        {"KFINDW", {S("ab..cd..ef"), S("ab"), S("."), -8.0, S("em")}, "4"},
        {"KFINDW", {S("ab..cd..ef"), S("ab"), S("."), -8.0, S("e")}, "2"},
        // M and a source that T empties: the scan starts at index 0, and
        // the call routine agrees with the function
        {"KSCANX", {S(" "), -1.0, S(","), S("tm")}, " "}, {"KSCANX", {S("  "), -1.0, S(","), S("tm")}, " "},
        {"KSCANX", {S(" "), 1.0, S(","), S("tm")}, ""},   {"KSCANX", {S(" "), -1.0, S(","), S("t")}, " "},
        {"CALL KSCANX", {S(" "), -1.0, 0.0, 0.0, S(","), S("tm")}, "1/1"},
    };
    txhost::Session session;
    auto module = txhost::Module::load(session);
    for (const EdgeCase& c : cases) {
        const bool routine = std::string(c.function) == "CALL KSCANX";
        txhost::CallSite site(*module, module->functionIndex(routine ? "KSCANX" : c.function, routine));
        site.setGuardedArguments(true);
        const txhost::CallResult r = site.call(c.args);
        SCOPED_TRACE(std::string(c.function) + " row " + std::to_string(&c - cases));
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(routine ? shown(r.position) + "/" + shown(r.length) : r.text ? *r.text : shown(r.number), c.answer);
    }
}

}  // namespace
