// The module file the host loads (txscanmd.so, or txscanmd.dll beside the
// program on Windows) is a module of its own, not the copy linked into the
// test program: were it the program's own exports, every test "through the
// exports" would test the in-process copy instead. Both copies are linked
// from one object library, so they hold the same code.
#include <gtest/gtest.h>

#include "host/host.h"
#include "module/frame/exports.h"

namespace {

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
    ASSERT_EQ(linked->functions().size(), loaded->functions().size());
    for (std::size_t i = 0; i < loaded->functions().size(); ++i) {
        EXPECT_NE(reinterpret_cast<void*>(loaded->functions()[i].entry), reinterpret_cast<void*>(linked->functions()[i].entry));
    }
}

}  // namespace
