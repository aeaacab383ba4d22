// The module file the host loads (txscanmd.so, or txscanmd.dll beside the
// program on Windows) is a module of its own, not the copy linked into the
// test program: were it the program's own exports, every test "through the
// exports" would test the in-process copy instead. Both copies must answer
// alike.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/module_calls.h"
#include "module/frame/exports.h"

namespace {

using txhost::Argument;
using txhost::Module;
using txhost::Session;

TEST(ModuleFile, IsNotTheProgramsOwnModule) {
    Session session;
    auto loaded = Module::load(session);
    auto linked = Module::attach(session, &mcn_main, &tkvercn1);
    EXPECT_NE(reinterpret_cast<void*>(loaded->mcnMain()), reinterpret_cast<void*>(&mcn_main));
    EXPECT_NE(reinterpret_cast<void*>(loaded->tkvercn1()), reinterpret_cast<void*>(&tkvercn1));
    EXPECT_NE(&loaded->image(), &linked->image());
    EXPECT_NE(reinterpret_cast<void*>(loaded->tableRoutine()), reinterpret_cast<void*>(linked->tableRoutine()));
    EXPECT_STREQ(linked->version().releaseWithYear, loaded->version().releaseWithYear);
    ASSERT_EQ(linked->functions().size(), loaded->functions().size());
    for (std::size_t i = 0; i < loaded->functions().size(); ++i) {
        const auto& a = loaded->functions()[i];
        const auto& b = linked->functions()[i];
        SCOPED_TRACE(a.name);
        EXPECT_EQ(b.name, a.name);
        EXPECT_EQ(0, std::memcmp(a.descriptor, b.descriptor, sizeof *a.descriptor));
        EXPECT_NE(reinterpret_cast<void*>(a.entry), reinterpret_cast<void*>(b.entry));
    }
}

TEST(ModuleFile, AnswersAsTheLinkedModule) {
    struct CallCase { const char* encoding; const char* function; bool callRoutine; std::vector<Argument> arguments; };
    const CallCase cases[] = {
        {"UTF-8", "KFIND", false,
         {std::string("Gr\xC3\xBC\xC3\x9F" "e aus K\xC3\xB6ln"), std::string("K\xC3\x96LN"), std::string("i")}},
        {"ISO-8859-1", "KFINDC", false, {std::string("abc\xE9"), std::string("\xC9"), std::string("i")}},
        {"Shift_JIS", "KSCANX", false, {std::string("\x82\xA0 \x8A\xBF x"), 2.0}},
        {"windows-1252", "KSCANX", true, {std::string("one two"), 2.0, 0.0, 0.0}},
        {"UTF-8", "KFIND", false, {std::string("abc"), std::string("b"), std::string("z")}},   // note 744
    };
    for (const CallCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " " + c.function);
        Session session({.encoding = c.encoding});
        auto loaded = Module::load(session);
        const txhost::CallResult fromFile = loaded->call(c.function, c.arguments, c.callRoutine);
        auto linked = Module::attach(session, &mcn_main, &tkvercn1);
        const txhost::CallResult inProcess = linked->call(c.function, c.arguments, c.callRoutine);
        EXPECT_EQ(txtest::outcome(inProcess), txtest::outcome(fromFile));
        EXPECT_TRUE(fromFile.number.has_value() || fromFile.text.has_value() || fromFile.position.has_value());
    }
}

}  // namespace
