// The loader's failures, the module file it loads, and the call API's
// refusals, which happen before the module is called.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "host/host.h"
#include "module/frame/exports.h"

namespace {

using txhost::Absent;
using txhost::Argument;
using txhost::Module;
using txhost::Session;

std::string loadError(Session& session, const std::string& path) {
    try {
        Module::load(session, path);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

void* notAnImage(void*, std::uint64_t) {
    static char junk[128] = "not an image";
    return junk;
}
void* noImage(void*, std::uint64_t) { return nullptr; }

TEST(Loader, RefusesWhatIsNoModule) {
    // A library that surely exists and exports neither entry point.
#if defined(_WIN32)
    const char* const kSystemLibrary = "kernel32.dll";
#else
    const char* const kSystemLibrary = "libm.so.6";
#endif
    Session session;
    EXPECT_NE(std::string::npos, loadError(session, "/nonexistent/txscanmd.so")
                                     .find("cannot load module '/nonexistent/txscanmd.so'"));
    EXPECT_NE(std::string::npos, loadError(session, kSystemLibrary).find("does not export 'mcn_main'"));
    EXPECT_THROW(Module::attach(session, nullptr, &tkvercn1), std::runtime_error);
    EXPECT_THROW(Module::attach(session, &mcn_main, nullptr), std::runtime_error);
    EXPECT_THROW(Module::attach(session, &notAnImage, &tkvercn1), std::runtime_error);
    EXPECT_THROW(Module::attach(session, &noImage, &tkvercn1), std::runtime_error);
}

TEST(Loader, AttachedModuleListsItsFunctions) {
    Session session;
    auto module = Module::attach(session, &mcn_main, &tkvercn1);
    ASSERT_EQ(8u, module->functions().size());
    EXPECT_EQ(6, module->functionIndex("KSCANX"));
    EXPECT_EQ(7, module->functionIndex("kscanx", true));
    EXPECT_EQ(0, module->functionIndex("KCOUNTX"));
    EXPECT_THROW(module->functionIndex("KFIND", true), std::invalid_argument);
    EXPECT_THROW(module->functionIndex("NOSUCH"), std::invalid_argument);
    // The init record's value and the host word reached the module's binding.
    EXPECT_EQ(std::string("5.12.03R2C03112014"), module->version().releaseWithYear);
}

TEST(CallSites, RefuseArgumentCountsAndTypesBeforeCalling) {
    Session session;
    auto module = Module::attach(session, &mcn_main, &tkvercn1);
    session.counters().handleOperations.clear();
    struct RefusedCase { const char* name; bool callRoutine; std::vector<Argument> arguments; };
    const RefusedCase cases[] = {
        {"KFIND", false, {std::string("a")}},
        {"KCOUNTW", false, {}},
        {"KSCANX", false, {std::string("a"), std::string("b")}},    // the count must be numeric
        {"KCOUNTC", false, {1.0, std::string("a")}},                // the source must be character
        {"KSCANX", true, {std::string("a b"), 1.0, Absent{}, 0.0}}, // outputs must be variables
        {"KSCANX", true, {std::string("a b"), 1.0, 0.0}},
    };
    for (const RefusedCase& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_THROW(module->call(c.name, c.arguments, c.callRoutine), std::invalid_argument);
    }
    EXPECT_TRUE(session.counters().handleOperations.empty());
}

TEST(CallSites, FrameLayoutOfACall) {
    Session session;
    auto module = Module::attach(session, &mcn_main, &tkvercn1);
    txhost::CallSite site(*module, module->functionIndex("KFIND"), 0x48);
    EXPECT_EQ(session.defaultCallContext(), site.frame().callContext);
    EXPECT_EQ(0x48, site.frame().siteKind);
    site.call({std::string("abc"), std::string("b"), 1.0, std::string("i")});
    const auto& frame = site.frame();
    EXPECT_EQ(4, frame.argCount);
    EXPECT_EQ(0x02 | 0x08, frame.arg(1).typeFlags);
    EXPECT_EQ(0x01, frame.arg(3).typeFlags);
    EXPECT_EQ(1.0, *frame.number(3));
    EXPECT_EQ(3, frame.string(1)->length);
    EXPECT_EQ(0, std::memcmp("abc", frame.string(1)->data, 3));
    site.setRecheckFlag(false);
    site.useNullCallContext(true);
    EXPECT_EQ(nullptr, site.frame().callContext);
    site.call({std::string("abc"), std::string("b")});
    EXPECT_EQ(0x02, site.frame().arg(1).typeFlags);
    EXPECT_EQ(nullptr, site.frame().arg(3).value);
}

// Both modules below are the one in-process module: its stored HostVector
// follows the session of each call.
// Each live Session answers in its own encoding: the module file's second
// Session gets a copy of its own; the program's own module, attached to a
// second Session, leaves the first one's Module refusing calls.
TEST(CallSites, TwoLiveSessionsGetAModuleEachOrARefusal) {
    Session utf8Session;
    Session latin1Session({.encoding = "ISO-8859-1"});
    auto utf8Module = Module::load(utf8Session);
    auto latin1Module = Module::load(latin1Session);
    const std::vector<Argument> call{std::string("\xC3\xA9 b"), 2.0, 0.0, 0.0};
    EXPECT_EQ(std::optional<double>(3.0), utf8Module->call("KSCANX", call, true).position);
    EXPECT_EQ(std::optional<double>(4.0), latin1Module->call("KSCANX", call, true).position);
    auto utf8Attached = Module::attach(utf8Session, &mcn_main, &tkvercn1);
    auto latin1Attached = Module::attach(latin1Session, &mcn_main, &tkvercn1);
    EXPECT_FALSE(utf8Attached->servesItsSession());
    EXPECT_THROW(utf8Attached->call("KFIND", {std::string("ab"), std::string("b")}), std::runtime_error);
    EXPECT_EQ(std::optional<double>(4.0), latin1Attached->call("KSCANX", call, true).position);
}

// The module file the host loads (txscanmd.so, or txscanmd.dll beside the
// program on Windows) is a module of its own, not the copy linked into the
// test program: were it the program's own exports, every test "through the
// exports" would test the in-process copy instead. Both copies are linked
// from one object library, so they hold the same code.
TEST(ModuleFile, IsNotTheProgramsOwnModule) {
    Session session;
    auto loaded = Module::load(session);
    auto linked = Module::attach(session, &mcn_main, &tkvercn1);
    EXPECT_NE(reinterpret_cast<void*>(loaded->mcnMain()), reinterpret_cast<void*>(&mcn_main));
    EXPECT_NE(reinterpret_cast<void*>(loaded->tkvercn1()), reinterpret_cast<void*>(&tkvercn1));
    EXPECT_NE(&loaded->image(), &linked->image());
    EXPECT_NE(reinterpret_cast<void*>(loaded->tableRoutine()), reinterpret_cast<void*>(linked->tableRoutine()));
    ASSERT_EQ(linked->functions().size(), loaded->functions().size());
    for (std::size_t i = 0; i < loaded->functions().size(); ++i) {
        EXPECT_NE(reinterpret_cast<void*>(loaded->functions()[i].entry), reinterpret_cast<void*>(linked->functions()[i].entry));
    }
}

}  // namespace
