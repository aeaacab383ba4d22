// How txscan eval reads the calls a person writes.
#include <gtest/gtest.h>

#include "cli/expression.h"

namespace {

using namespace txcli;

std::string describe(const Expression& e);

std::string describe(const Call& call) {
    std::string out = (call.callRoutine ? "CALL " : "") + call.function + "(";
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        if (i) out += ", ";
        out += describe(call.arguments[i]);
    }
    return out + ")";
}

std::string describe(const Expression& e) {
    if (std::holds_alternative<Missing>(e)) return ".";
    if (auto* n = std::get_if<double>(&e)) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", *n);
        return text;
    }
    if (auto* s = std::get_if<std::string>(&e)) return "[" + *s + "]";
    if (auto* n = std::get_if<Name>(&e)) return "name:" + n->text;
    return describe(*std::get<std::unique_ptr<Call>>(e));
}

TEST(Expression, ReadsWhatPeopleWrite) {
    const struct { const char* text; const char* reading; } cases[] = {
        {"KFIND(\"abcabc\", \"bc\", -4)", "KFIND([abcabc], [bc], -4)"},
        {"kfind('a''b', \"say \"\"hi\"\"\")", "KFIND([a'b], [say \"hi\"])"},
        {"KFIND('abc', 'b', .)", "KFIND([abc], [b], .)"},
        {"KFIND('abc','b',-.5)", "KFIND([abc], [b], -0.5)"},
        {"  KCOUNTW ( 'a b' )  ", "KCOUNTW([a b])"},
        {"KSCANX(KSCANX('a b,c', 2), 1)", "KSCANX(KSCANX([a b,c], 2), 1)"},
        {"CALL KSCANX('one two', 2, pos, len)", "CALL KSCANX([one two], 2, name:pos, name:len)"},
        {"KFOO()", "KFOO()"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.reading, describe(parseCall(c.text))) << c.text;
}

TEST(Expression, RefusesBadSyntax) {
    const char* bad[] = {
        "",  "KFIND",  "KFIND(", "KFIND('a'", "KFIND('a' 'b')", "KFIND('a',)", "KFIND('abc)",
        "KFIND(1-)", "KFIND('a') x", "(1)", "KFIND(#)", "KFIND(CALL KSCANX('a', 1, p, l))", "CALL ('a')",
    };
    for (const char* text : bad) EXPECT_THROW(parseCall(text), SyntaxError) << text;
}

}  // namespace
