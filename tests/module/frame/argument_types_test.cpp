// Arguments of a type the descriptor does not allow, from a host that does
// not check them: the module never reads a number as a character value (the
// numbers lie flush against an unreadable page), and where a wrong type has
// a status the call gets it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/host.h"

namespace {

using txhost::Argument;
using txscan::contract::kStatusInvalidArgument;
using txscan::contract::kStatusOk;

std::string S(const char* text) { return text; }

// `number`: the answer of a numeric function with status 0.
struct TypeCase { const char* function; bool callRoutine; std::vector<Argument> args; std::int32_t status; double number; };

TEST(MistypedArguments, NeverReadAsTheOtherKind) {
    const TypeCase cases[] = {
        // a number where only a character value belongs reads as not given
        {"KFIND", false, {1.0, S("a")}, kStatusOk, 0},          {"KFIND", false, {S("abc"), 2.0}, kStatusOk, 0},
        {"KFINDC", false, {1.0, S("a")}, kStatusOk, 0},         {"KCOUNTW", false, {S("a b"), 2.0, 3.0}, kStatusOk, 1},
        {"KFINDW", false, {S("\xC3\xA9 b"), 2.0, S(" ")}, kStatusOk, 0}, {"KSCANX", false, {1.0, 1.0}, kStatusOk, 0},
        {"KSCANX", false, {S("a b"), 1.0, 2.0, 3.0}, kStatusOk, 0},
        // the types that decide roles give their status; a word number that is not numeric
        {"KFIND", false, {S("abc"), S("c"), 1.0, 2.0}, kStatusInvalidArgument, 0},
        {"KFINDW", false, {S("a b"), S("b"), 1.0, 2.0}, kStatusInvalidArgument, 0},
        {"KSCANX", true, {S("a b"), S("1"), 0.0, 0.0}, kStatusInvalidArgument, 0},
    };
    for (const char* encoding : {"UTF-8", "ISO-8859-1"}) {
        txhost::Session session({.encoding = encoding, .guardedArguments = true});
        auto module = txhost::Module::load(session);
        for (const TypeCase& c : cases) {
            SCOPED_TRACE(std::string(encoding) + " " + c.function + " row " + std::to_string(&c - cases));
            txhost::CallSite site(*module, module->functionIndex(c.function, c.callRoutine));
            site.setTypeChecking(false);
            const txhost::CallResult r = site.call(c.args);
            EXPECT_EQ(r.status, c.status);
            if (c.status == kStatusOk && r.number) {
                EXPECT_EQ(*r.number, c.number);
            }
        }
    }
}

}  // namespace
