// The function environment of a call context: built once on first need,
// registered only when complete, with its delimiter table, seeded stream
// and host values.
#include <gtest/gtest.h>

#include <cstring>

#include "host/host.h"
#include "module/frame/exports.h"
#include "module/frame/function_environment.h"
#include "module/rng/stream.h"

namespace {

using namespace txscan::contract;
using txscan::FunctionEnvironment;

struct Environment : ::testing::Test {
    void start(txhost::SessionOptions options = {}) {
        options.countOperations = true;
        session = std::make_unique<txhost::Session>(options);
        module = txhost::Module::attach(*session, &mcn_main, &tkvercn1);
        std::memset(&frame, 0, sizeof frame);
    }
    void* taskContext() const {
        return static_cast<void* const*>(session->hostVector()->taskRecord)[kTaskCallContextWord];
    }
    void* slot37(void* context) const { return static_cast<CallContext*>(context)->slots[kEnvironmentSlot]; }

    std::unique_ptr<txhost::Session> session;
    std::unique_ptr<txhost::Module> module;
    ArgumentFrame frame{};
};

TEST_F(Environment, BuiltOnceForTheTaskContextOfAFrameWithoutOne) {
    start();
    FunctionEnvironment* first = txscan::functionEnvironmentFor(&frame);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(taskContext(), frame.callContext);
    EXPECT_EQ(first, slot37(frame.callContext));
    const auto allocations = session->counters().allocationsByFlags;
    EXPECT_EQ(1, allocations.at(kPoolEnvironment));

    ArgumentFrame other{};
    other.callContext = frame.callContext;
    EXPECT_EQ(first, txscan::functionEnvironmentFor(&other));
    EXPECT_EQ(allocations, session->counters().allocationsByFlags);
}

TEST_F(Environment, RecordContents) {
    start({.options = {{"YEARCUTOFF", "1950"}}, .optionText = "nodate RNGSEED=12345 other"});
    FunctionEnvironment* e = txscan::functionEnvironmentFor(&frame);
    ASSERT_NE(nullptr, e);
    double yearCutoff;
    std::memcpy(&yearCutoff, &e->yearCutoff, 8);
    EXPECT_EQ(1950.0, yearCutoff);

    std::string members;
    for (int b = 0; b < 256; ++b)
        if (e->defaultDelimiters[b]) members += static_cast<char>(b);
    EXPECT_EQ(" !$%&()*+,-./;<^|", members);

    ASSERT_NE(nullptr, e->randomStream);
    EXPECT_EQ(12345u, e->randomStream->lastSeed);
    EXPECT_EQ(0u, e->randomStream->stream);
}

TEST_F(Environment, EveryRefusedAllocationLeavesNoCompleteRecord) {
    start();
    void* context = taskContext();
    for (int n = 1; n <= 6; ++n) {
        session->failAllocationAfter(n);
        const std::int32_t status = txscan::buildFunctionEnvironment(context);
        session->failAllocationAfter(0);
        if (status == 0) break;  // the build needs fewer allocations than n
        EXPECT_EQ(txscan::kEnvironmentNoMemory, status) << n;
        const auto* record = static_cast<FunctionEnvironment*>(slot37(context));
        EXPECT_TRUE(record == nullptr || !txscan::environmentComplete(record)) << n;
    }
    EXPECT_NE(nullptr, txscan::functionEnvironmentFor(&frame));
}

}  // namespace
