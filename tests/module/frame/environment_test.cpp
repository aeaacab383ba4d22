// The function environment of a call context: built once on first need,
// registered only when complete, with its delimiter table, seeded stream
// and host values; builds that fail, once or for good.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <string>
#include <vector>

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
    EXPECT_EQ(1950.0, std::bit_cast<double>(e->yearCutoff));

    std::string members;
    for (int b = 0; b < 256; ++b)
        if (e->defaultDelimiters[b]) members += static_cast<char>(b);
    EXPECT_EQ(" !$%&()*+,-./;<^|", members);

    ASSERT_NE(nullptr, e->randomStream);
    EXPECT_EQ(12345u, e->randomStream->lastSeed);
    EXPECT_EQ(0u, e->randomStream->stream);
}

// KCOUNTW with only the source needs the default delimiters.
const std::vector<txhost::Argument> kRow{std::string("a b")};

// A build that keeps failing costs no memory per row.
TEST(EnvironmentFailures, AFailureThatPersistsKeepsMemoryBounded) {
    txhost::Session session({.options = {{"YEARCUTOFF", ""}}});
    auto module = txhost::Module::load(session);
    txhost::CallSite site(*module, module->functionIndex("KCOUNTW"));
    const txhost::CallResult first = site.call(kRow);
    EXPECT_EQ(first.status, kStatusNoMemory);
    ASSERT_FALSE(first.messages.empty());
    EXPECT_EQ(first.messages.back().code, 1016);
    const auto allocations = session.counters().allocationsByFlags;
    for (int row = 0; row < 200; ++row) ASSERT_EQ(site.call(kRow).status, kStatusNoMemory);
    EXPECT_EQ(allocations, session.counters().allocationsByFlags);
}

// Every refused allocation of the build: the row stores nothing, no
// complete record is registered, and the next row finishes the record the
// refused one began rather than building another.
TEST(EnvironmentFailures, ARefusalThatPassesLetsTheNextRowSucceed) {
    for (int n = 1;; ++n) {
        txhost::Session session({.countOperations = true});   // allocations from the first row on
        auto module = txhost::Module::load(session);
        txhost::CallSite site(*module, module->functionIndex("KCOUNTW"));
        session.failAllocationAfter(n);
        const txhost::CallResult refused = site.call(kRow);
        session.failAllocationAfter(0);
        if (refused.status == kStatusOk) break;   // the build needs fewer than n allocations
        SCOPED_TRACE("refused allocation " + std::to_string(n));
        EXPECT_EQ(refused.status, kStatusNoMemory);
        EXPECT_FALSE(refused.numberStored());
        const auto* record = static_cast<FunctionEnvironment*>(session.defaultCallContext()->slots[kEnvironmentSlot]);
        EXPECT_TRUE(record == nullptr || !txscan::environmentComplete(record));
        const txhost::CallResult next = site.call(kRow);
        EXPECT_EQ(next.status, kStatusOk);
        EXPECT_EQ(next.number.value_or(-1), 2);
        EXPECT_EQ(session.counters().allocationsByFlags[kPoolEnvironment], 1);
        ASSERT_LT(n, 100);
    }
}

}  // namespace
