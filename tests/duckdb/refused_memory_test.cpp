// The functions inside DuckDB when memory runs out: the host's pools and the
// C++ heap of the extension's calls each refuse their n-th allocation in
// turn while a table of statements runs. Every statement gives its rows or
// one clean "out of memory" error, and once memory is back the same
// connection answers every statement as before.
//
// The extension is the loaded file itself, reached as any program reaches
// a library: this program's own operator new serves it, and its aligned,
// non-throwing new the host's pools. Of the plain new, only the
// allocations with the extension's code among their callers are refused,
// so DuckDB's own memory never runs out under it.
#include <execinfo.h>
#include <link.h>

#include <cstdio>
#include <cstring>
#include <thread>

#include "tests/duckdb/database.h"
#include "tests/support/refused_memory.h"

namespace {

using namespace txtest;

Refuser gPools, gExtensionHeap;

// Where the loaded extension's code lies.
std::atomic<std::uintptr_t> gCodeStart{0}, gCodeEnd{0};
void findExtensionCode() {
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void*) {
            if (info->dlpi_name == nullptr || std::strstr(info->dlpi_name, "txscan.duckdb_extension") == nullptr) return 0;
            for (int k = 0; k < info->dlpi_phnum; ++k) {
                const ElfW(Phdr)& segment = info->dlpi_phdr[k];
                if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
                gCodeStart = info->dlpi_addr + segment.p_vaddr;
                gCodeEnd = info->dlpi_addr + segment.p_vaddr + segment.p_memsz;
            }
            return 1;
        },
        nullptr);
}

thread_local bool tInBacktrace = false;
// Whether the extension's code is among the allocation's nearest callers.
bool forTheExtension() {
    if (tInBacktrace) return false;
    tInBacktrace = true;
    void* frames[10];
    const int n = backtrace(frames, 10);
    tInBacktrace = false;
    for (int k = 1; k < n; ++k) {
        const auto at = reinterpret_cast<std::uintptr_t>(frames[k]);
        if (at >= gCodeStart && at < gCodeEnd) return true;
    }
    return false;
}

// What a statement gave: its rows, or its error.
Outcome run(Database& d, const std::string& sql) {
    Outcome out;
    out.rows = d.rows(sql);
    if (out.rows.size() == 1 && out.rows[0].rfind("error: ", 0) == 0) out.error = out.rows[0].substr(7), out.rows.clear();
    return out;
}

TEST(DuckDbRefusedMemory, EveryStatementGivesItsRowsOrOneCleanErrorAndThenItsRows) {
    for (Refuser* heap : {&gPools, &gExtensionHeap}) {
        const char* name = heap == &gPools ? "host pools" : "the extension's C++ heap";
        SCOPED_TRACE(name);
        Database d("1");
        ASSERT_EQ(run(d, "CREATE TABLE t AS SELECT * FROM (VALUES " + kSweepRows + ") v(id, s, list)").error, "");
        findExtensionCode();
        ASSERT_NE(gCodeStart.load(), 0u);
        std::vector<Outcome> expected;
        for (const std::string& sql : kSweepStatements) expected.push_back(run(d, sql));
        std::int64_t reached = 0;
        for (std::int64_t n = 1; n <= 10000 && reached == n - 1; ++n) {
            for (std::size_t i = 0; i < kSweepStatements.size(); ++i) {
                SCOPED_TRACE(kSweepStatements[i] + ", allocation " + std::to_string(n));
                // On a thread of its own, which DuckDB runs the statement
                // on (one thread), so that the extension starts afresh there
                // and every allocation of a first call is reached; then
                // again on that thread, whose programs the refusal met.
                Outcome o, again;
                bool refused = false;
                std::thread([&] {
                    heap->arm(n);
                    o = run(d, kSweepStatements[i]);
                    refused = heap->disarm();
                    again = run(d, kSweepStatements[i]);
                }).join();
                if (refused) reached = n;
                expectRowsOrCleanError(o, expected[i], refused);
                EXPECT_TRUE(o.error == expected[i].error || o.rows.empty());   // a query fails whole
                EXPECT_EQ(again.rows, expected[i].rows);
                EXPECT_EQ(again.error, expected[i].error);
            }
        }
        EXPECT_GT(reached, 0);
        std::printf("%s: %lld allocation points reached\n", name, static_cast<long long>(reached));
    }
}

}  // namespace

bool refuseNew() {
    return gExtensionHeap.active.load(std::memory_order_relaxed) && forTheExtension() && gExtensionHeap.refuses();
}

bool refusePools() { return gPools.refuses(); }
