// Memory pools: zero-filled flag words, reallocation, counts, alignment and
// fault injection.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "host/binder.h"
#include "host/host.h"

namespace {

using namespace txscan::contract;
using txhost::Session;

struct PoolCase { const char* name; MemoryPool* (*pool)(Session&); };

const PoolCase kPools[] = {
    {"host", [](Session& s) { return static_cast<MemoryPool*>(s.hostVector()->hostPool); }},
    {"module", [](Session& s) { return static_cast<MemoryPool*>(s.hostVector()->modulePool); }},
    {"context", [](Session& s) { return static_cast<CallContext*>(s.defaultCallContext())->pool; }},
    {"result", [](Session& s) { return s.resultPool(); }},
};

bool allZero(const void* p, std::size_t n) {
    const auto* b = static_cast<const unsigned char*>(p);
    return std::all_of(b, b + n, [](unsigned char x) { return x == 0; });
}

TEST(Pools, ZeroFilledCountedFlagWordsAndAlignment) {
    struct FillCase { std::int32_t flags; bool zero; };
    const FillCase fills[] = {{kPoolModuleZeroed, true}, {kPoolEnvironment, true}, {kPoolSiteCache, false},
                              {kPoolGrowResult, false}};
    for (const PoolCase& p : kPools) {
        Session session;
        MemoryPool* pool = p.pool(session);
        session.counters().allocationsByFlags.clear();
        for (const FillCase& f : fills) {
            SCOPED_TRACE(std::string(p.name) + " flags " + std::to_string(f.flags));
            for (std::int64_t size : {1, 7, 224, 4096}) {
                void* block = pool->allocate(pool, size, f.flags);
                ASSERT_NE(nullptr, block);
                EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(block) % 16);
                EXPECT_EQ(f.zero, allZero(block, static_cast<std::size_t>(size)));
            }
            EXPECT_EQ(4, session.counters().allocationsByFlags[f.flags]);   // counted by flag word
        }
        EXPECT_EQ(0, session.counters().reallocations);
        EXPECT_EQ(nullptr, pool->allocate(pool, -1, kPoolModuleZeroed));
    }
}

TEST(Pools, ReallocateKeepsContents) {
    struct GrowCase { std::int64_t from, to; std::int32_t flags; };
    const GrowCase cases[] = {
        {10, 1024, kPoolGrowResult}, {100, 10, kPoolGrowResult}, {10, 100, kPoolModuleZeroed},
    };
    for (const PoolCase& p : kPools) {
        Session session;
        MemoryPool* pool = p.pool(session);
        for (const GrowCase& c : cases) {
            SCOPED_TRACE(std::string(p.name) + " " + std::to_string(c.from) + " -> " + std::to_string(c.to));
            char* block = static_cast<char*>(pool->allocate(pool, c.from, kPoolSiteCache));
            ASSERT_NE(nullptr, block);
            for (std::int64_t i = 0; i < c.from; ++i) block[i] = static_cast<char>(i * 7);
            const std::int64_t before = session.counters().reallocations;
            char* grown = static_cast<char*>(pool->reallocate(pool, block, c.to, c.flags));
            ASSERT_NE(nullptr, grown);
            EXPECT_EQ(before + 1, session.counters().reallocations);
            const std::int64_t kept = std::min(c.from, c.to);
            for (std::int64_t i = 0; i < kept; ++i) ASSERT_EQ(static_cast<char>(i * 7), grown[i]) << i;
            if (c.flags == kPoolModuleZeroed) {
                EXPECT_TRUE(allZero(grown + kept, static_cast<std::size_t>(c.to - kept)));
            }
            std::memset(grown, 'x', static_cast<std::size_t>(c.to));   // the whole new size is usable
        }
        // A null address allocates.
        void* fresh = pool->reallocate(pool, nullptr, 64, kPoolGrowResult);
        EXPECT_NE(nullptr, fresh);
    }
}

TEST(Pools, ReallocateRefusesAForeignBlock) {
    Session session;
    auto* host = static_cast<MemoryPool*>(session.hostVector()->hostPool);
    auto* module = static_cast<MemoryPool*>(session.hostVector()->modulePool);
    void* block = host->allocate(host, 16, kPoolSiteCache);
    session.takeMessages();
    EXPECT_EQ(nullptr, module->reallocate(module, block, 32, kPoolGrowResult));
    const auto messages = session.takeMessages();
    ASSERT_EQ(1u, messages.size());
    EXPECT_EQ(txhost::Message::Source::Error, messages[0].source);
}

// The n-th allocation from now fails once, on whichever pool it happens.
TEST(Pools, FailTheNthAllocation) {
    for (std::int64_t n = 1; n <= 4; ++n) {
        SCOPED_TRACE(n);
        Session session;
        session.counters().allocationsByFlags.clear();
        session.failAllocationAfter(n);
        std::vector<bool> got;
        for (int i = 0; i < 6; ++i) {
            MemoryPool* pool = kPools[i % 4].pool(session);
            got.push_back(pool->allocate(pool, 32, kPoolModuleZeroed) != nullptr);
        }
        for (std::int64_t i = 0; i < 6; ++i) EXPECT_EQ(i != n - 1, got[static_cast<std::size_t>(i)]) << i;
        EXPECT_EQ(5, session.counters().allocationsByFlags[kPoolModuleZeroed]);   // failures are not counted
    }
}

TEST(Pools, FailTheNthReallocation) {
    Session session;
    MemoryPool* pool = static_cast<MemoryPool*>(session.hostVector()->hostPool);
    char* block = static_cast<char*>(pool->allocate(pool, 8, kPoolSiteCache));
    std::memcpy(block, "abcdefgh", 8);
    session.failReallocationAfter(2);
    block = static_cast<char*>(pool->reallocate(pool, block, 16, kPoolGrowResult));
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(nullptr, pool->reallocate(pool, block, 32, kPoolGrowResult));
    EXPECT_EQ(0, std::memcmp(block, "abcdefgh", 8));   // a refused reallocation leaves the block alone
    EXPECT_NE(nullptr, pool->reallocate(pool, block, 32, kPoolGrowResult));
    EXPECT_NE(nullptr, pool->allocate(pool, 8, kPoolSiteCache));   // allocations were never affected
}

TEST(Pools, CallContextsHaveTheirOwnPoolAndSlots) {
    Session session;
    auto* first = session.defaultCallContext();
    auto* second = session.newCallContext();
    ASSERT_NE(first, second);
    EXPECT_NE(first->pool, second->pool);
    auto* task = static_cast<void**>(session.hostVector()->taskRecord);
    EXPECT_EQ(first, task[kTaskCallContextWord]);
}

// A set kept under modifier O goes back to its pool with its call site, so a
// program that makes sites all day (a statement prepared per query) stays
// flat; a site that has no context of its own keeps nothing to give back.
TEST(Pools, ACallSiteGivesItsKeptSetBack) {
    struct KeptCase { const char* function; std::vector<txhost::Argument> args; };
    const KeptCase cases[] = {
        {"KFINDC", {std::string("ab1"), std::string("1"), std::string("o")}},
        {"KCOUNTC", {std::string("ab1"), std::string("1"), std::string("o")}},
        {"KCOUNTW", {std::string("a;b"), std::string(";"), std::string("o")}},
        {"KFINDW", {std::string("a;b"), std::string("b"), std::string(";"), std::string("o")}},
    };
    Session session;
    auto module = txhost::Module::load(session);
    for (const KeptCase& c : cases) {
        SCOPED_TRACE(c.function);
        const int index = module->functionIndex(c.function);
        const std::size_t before = session.poolBlocks();
        for (int round = 0; round < 3; ++round) {
            txhost::CallSite site(*module, index, txhost::kCachingSiteKind);
            site.useFixedResult(8);
            ASSERT_EQ(kStatusOk, site.call(c.args).status);
            ASSERT_EQ(kStatusOk, site.call(c.args).status);
            EXPECT_EQ(before + 1, session.poolBlocks());   // one set, kept across the two calls
        }
        EXPECT_EQ(before, session.poolBlocks());
    }
}

}  // namespace
