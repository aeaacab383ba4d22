// The function-table routine in both modes, its refusals and its out-of-memory answer.
#include <gtest/gtest.h>

#include <cstring>

#include "host/host.h"

namespace {

using namespace txscan::contract;

struct ExpectedDescriptor { const char* name; int min, max, resultKind, flag33; std::uint32_t argTypes; };
constexpr ExpectedDescriptor kDescriptors[] = {
    {"KCOUNTX", 2, 3, 0, 0, 0x92}, {"KCOUNTC", 2, 3, 0, 2, 0x92},  {"KCOUNTW", 1, 3, 0, 2, 0x92},
    {"KFIND", 2, 4, 0, 0, 0x6D2},  {"KFINDC", 1, 4, 0, 2, 0x6D2},  {"KFINDW", 2, 5, 0, 2, 0x36D2},
    {"KSCANX", 2, 4, 2, 2, 0x48A}, {"KSCANX", 4, 6, 1, 2, 0x1224A},
};

class FunctionTableRoutine : public ::testing::Test {
protected:
    txhost::Session session;
    std::unique_ptr<txhost::Module> module = txhost::Module::load(session);
};

TEST_F(FunctionTableRoutine, ModeOneDescribesTheEightFunctions) {
    auto* table = static_cast<FunctionTable*>(module->tableRoutine()(1));
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(8, table->count);
    EXPECT_EQ(0u, table->zero);
    for (int i = 0; i < 8; ++i) {
        const FunctionDescriptor& d = table->descriptors[i];
        const ExpectedDescriptor& e = kDescriptors[i];
        SCOPED_TRACE(i);
        char name[24] = {};
        std::memcpy(name, e.name, std::strlen(e.name));
        EXPECT_EQ(0, std::memcmp(name, d.name, 24));
        EXPECT_EQ((std::vector<std::uint32_t>{std::uint32_t(e.min), std::uint32_t(e.max), 0x42, std::uint32_t(e.resultKind),
                                              std::uint32_t(e.flag33), 0x20, 0x08, e.argTypes}),
                  (std::vector<std::uint32_t>{std::uint32_t(d.minArgs), std::uint32_t(d.maxArgs), d.constant42,
                                              std::uint32_t(d.resultKind), std::uint32_t(d.flag33),
                                              std::uint32_t(d.flag34), std::uint32_t(d.flag35), d.argTypes}));
    }
}

// Mode 2 builds a fresh table in module memory each time; the loader took
// its entries from the one it asked for (and calls through them everywhere).
TEST_F(FunctionTableRoutine, ModeTwoAllocatesOneTableOtherModesNothing) {
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

TEST_F(FunctionTableRoutine, RefusedMemoryRaisesError1016Once) {
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
