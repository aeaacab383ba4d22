// The static records and the two exports, read as a host reads them: in
// place, past the ImageInformation into the VersionRecord behind it (the
// loader checks the tag and magic of every module it binds); and the
// function-table routine in both modes, its refusals and its out-of-memory
// answer.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "host/host.h"

namespace {

using namespace txscan::contract;

class Records : public ::testing::Test {
protected:
    txhost::Session session;
    std::unique_ptr<txhost::Module> module = txhost::Module::load(session);
};

TEST_F(Records, ImageInformationPointsIntoItself) {
    const ImageInformation& info = module->image();
    EXPECT_EQ(&info.moduleHeader, info.headerField);
    EXPECT_EQ(0u, info.zero);
    EXPECT_GT(std::strlen(info.notice), 0u);
    EXPECT_EQ(nullptr, std::strchr(info.notice, '\n'));
    EXPECT_EQ(&info, module->mcnMain()(session.hostVector(), 7)) << "the same address again";
}

// A host that reads 336 bytes from the returned address finds the record
// tkvercn1 copies out, and tkvercn1 writes not a byte past its 208.
TEST_F(Records, Tkvercn1CopiesTheRecordBehindTheImageInformation) {
    unsigned char buffer[256];
    std::memset(buffer, 0xA5, sizeof buffer);
    module->tkvercn1()(buffer);
    for (std::size_t i = 208; i < sizeof buffer; ++i) ASSERT_EQ(0xA5, buffer[i]) << i;
    EXPECT_EQ(0, std::memcmp(reinterpret_cast<const unsigned char*>(&module->image()) + 128, buffer, 208));
}

TEST_F(Records, ModuleHeaderProcedures) {
    const ModuleHeader& h = *module->image().moduleHeader;
    EXPECT_STREQ("txscanmd", h.name);
    EXPECT_EQ(1, h.procedureA());
    EXPECT_EQ(1, h.procedureC());
    // B forwards to service (1, 2), which the reference host answers with the sum of its arguments.
    session.clearServiceUseFlags();
    EXPECT_EQ(10u, h.procedureB(1, 2, 3, 4));
    EXPECT_EQ(1, session.serviceUseFlag(1));
}

// The descriptors as the host reads them: name (padded with zeros), argument
// counts, the constant, result kind, flags and argument types.
TEST_F(Records, ModeOneDescribesTheEightFunctions) {
    const char* const expected[] = {
        "KCOUNTX 2-3 42 0 0 20 8 92",  "KCOUNTC 2-3 42 0 2 20 8 92", "KCOUNTW 1-3 42 0 2 20 8 92",
        "KFIND 2-4 42 0 0 20 8 6d2",   "KFINDC 1-4 42 0 2 20 8 6d2", "KFINDW 2-5 42 0 2 20 8 36d2",
        "KSCANX 2-4 42 2 2 20 8 48a",  "KSCANX 4-6 42 1 2 20 8 1224a",
    };
    auto* table = static_cast<FunctionTable*>(module->tableRoutine()(1));
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(8, table->count);
    EXPECT_EQ(0u, table->zero);
    for (int i = 0; i < 8; ++i) {
        const FunctionDescriptor& d = table->descriptors[i];
        const std::string name(d.name, sizeof d.name);
        char text[80];
        std::snprintf(text, sizeof text, "%s %d-%d %x %x %x %x %x %x", name.c_str(), d.minArgs, d.maxArgs, d.constant42,
                      d.resultKind, d.flag33, d.flag34, d.flag35, d.argTypes);
        EXPECT_EQ(expected[i], std::string(text));
        EXPECT_EQ(name.find_last_not_of('\0') + 1, std::strlen(name.c_str())) << "zeros after the name";
    }
}

// Mode 2 builds a fresh table in module memory each time; the loader took
// its entries from the one it asked for (and calls through them everywhere).
TEST_F(Records, ModeTwoAllocatesOneTableOtherModesNothing) {
    for (int mode : {2, 0, 3, -1, -2, 1000}) {
        session.counters().allocationsByFlags.clear();
        auto* words = static_cast<std::uint64_t*>(module->tableRoutine()(mode));
        EXPECT_EQ(mode == 2 ? 1u : 0u, session.counters().allocationsByFlags.size()) << mode;
        ASSERT_EQ(mode == 2, words != nullptr) << mode;
        if (mode != 2) continue;
        EXPECT_EQ(1, session.counters().allocationsByFlags[0x2006]);
        EXPECT_EQ(0u, words[0]);
        for (int i = 0; i < 8; ++i) EXPECT_EQ(reinterpret_cast<std::uint64_t>(module->functions()[i].entry), words[i + 1]);
    }
}

TEST_F(Records, RefusedMemoryRaisesError1016Once) {
    for (int mode : {1, 2}) {
        session.takeMessages();
        session.clearServiceUseFlags();
        session.failAllocationAfter(1);
        EXPECT_EQ(nullptr, module->tableRoutine()(mode)) << mode;
        const auto messages = session.takeMessages();
        ASSERT_EQ(1u, messages.size()) << mode;
        EXPECT_EQ(txhost::Message::Source::Error, messages[0].source);
        EXPECT_EQ(1016, messages[0].code);
        session.failAllocationAfter(0);
        EXPECT_NE(nullptr, module->tableRoutine()(mode));
    }
}

}  // namespace
