// A function environment whose build keeps failing costs no memory per row,
// and one refused allocation does not stop a later row from finishing it.
#include <gtest/gtest.h>

#include <string>

#include "host/host.h"
#include "module/abi/host_vector.h"

namespace {

using txscan::contract::kStatusNoMemory;
using txscan::contract::kStatusOk;

// KCOUNTW with only the source needs the default delimiters.
const std::vector<txhost::Argument> kRow{std::string("a b")};

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
        const txhost::CallResult next = site.call(kRow);
        EXPECT_EQ(next.status, kStatusOk);
        EXPECT_EQ(next.number.value_or(-1), 2);
        // The record the refused row began is finished, not built again.
        EXPECT_EQ(session.counters().allocationsByFlags[txscan::contract::kPoolEnvironment], 1);
        ASSERT_LT(n, 100);
    }
}

}  // namespace
