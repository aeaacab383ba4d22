// The SQL functions when memory runs out. The host's pools, SQLite's own
// allocator and the C++ heap each refuse their n-th allocation in turn while
// a table of statements runs: every statement gives its rows or stops with
// one clean "out of memory" error, keeps nothing, and once memory is back
// the same connection answers every statement as before.
//
// The door is linked into this program and registered on each connection
// through its entry point, so the test reaches the process's one host
// Session; a loaded library keeps it out of reach, which is as it should be
// (nothing a user can call refuses memory).
#include <gtest/gtest.h>
#include <malloc.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <numeric>
#include <string>
#include <vector>

#include "host/extension_host.h"

struct sqlite3_api_routines;
extern "C" int sqlite3_extension_init(sqlite3* db, char** errorMessage, const sqlite3_api_routines* api);

namespace {

// A heap that refuses the n-th allocation counted while active, and counts
// the bytes it holds.
struct Refuser {
    std::atomic<bool> active{false};
    std::atomic<std::int64_t> left{0};
    std::atomic<std::int64_t> live{0};
    bool refuses() { return active.load(std::memory_order_relaxed) && left.fetch_sub(1) == 1; }
};
Refuser gSqliteHeap, gCppHeap;

sqlite3_mem_methods gSystemHeap;
void* refusingMalloc(int size) {
    if (gSqliteHeap.refuses()) return nullptr;
    void* p = gSystemHeap.xMalloc(size);
    if (p != nullptr) gSqliteHeap.live += gSystemHeap.xSize(p);
    return p;
}
void refusingFree(void* p) {
    if (p != nullptr) gSqliteHeap.live -= gSystemHeap.xSize(p);
    gSystemHeap.xFree(p);
}
void* refusingRealloc(void* p, int size) {
    if (gSqliteHeap.refuses()) return nullptr;
    const int before = gSystemHeap.xSize(p);
    void* q = gSystemHeap.xRealloc(p, size);
    if (q != nullptr) gSqliteHeap.live += gSystemHeap.xSize(q) - before;
    return q;
}
// Before SQLite starts, as SQLite requires.
const bool gSqliteHeapInstalled = [] {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &gSystemHeap);
    sqlite3_mem_methods refusing = gSystemHeap;
    refusing.xMalloc = refusingMalloc;
    refusing.xFree = refusingFree;
    refusing.xRealloc = refusingRealloc;
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &refusing) == SQLITE_OK;
}();
// What SQLite and the door hold (not the host's pools: what the module
// takes from them stays by design, as long as the connection's context).
std::int64_t liveBytes() { return gSqliteHeap.live + gCppHeap.live; }

txhost::Session& hostSession() {
    std::string error;
    return *txhost::sharedHost(error)->session;
}
std::int64_t hostAllocations() {
    const auto& byFlags = hostSession().counters().allocationsByFlags;
    return std::accumulate(byFlags.begin(), byFlags.end(), std::int64_t{0},
                           [](std::int64_t sum, const auto& kv) { return sum + kv.second; });
}

// Whether the n-th host allocation since arming was refused: n - 1 served
// leaves it open only when the next one is refused.
bool hostRefusalReached(std::int64_t n, std::int64_t served) {
    if (served != n - 1) return served >= n;
    txscan::contract::MemoryPool* pool = hostSession().hostPool();
    return pool->allocate(pool, 1, txscan::contract::kPoolModuleZeroed) != nullptr;
}

// One allocator under test: arm(n) refuses its n-th allocation from now,
// pause(true) lets the test's own code allocate, disarm() says whether the
// n-th was reached.
struct Allocator {
    const char* name;
    void (*arm)(std::int64_t n);
    void (*pause)(bool paused);
    bool (*disarm)();
};
std::int64_t gArmedAt = 0, gHostBefore = 0;
void armHost(std::int64_t n) {
    gArmedAt = n;
    gHostBefore = hostAllocations();
    hostSession().failAllocationAfter(n);
}
bool disarmHost() {
    const bool reached = hostRefusalReached(gArmedAt, hostAllocations() - gHostBefore);
    hostSession().failAllocationAfter(0);
    return reached;
}
template <Refuser& heap>
void arm(std::int64_t n) {
    heap.left = n;
    heap.active = true;
}
template <Refuser& heap>
void pause(bool paused) {
    heap.active = !paused;
}
template <Refuser& heap>
bool disarm() {
    heap.active = false;
    return heap.left.load() <= 0;
}
const Allocator kAllocators[] = {
    {"host pools", armHost, [](bool) {}, disarmHost},
    {"SQLite's allocator", arm<gSqliteHeap>, pause<gSqliteHeap>, disarm<gSqliteHeap>},
    {"the C++ heap", arm<gCppHeap>, pause<gCppHeap>, disarm<gCppHeap>},
};

using Rows = std::vector<std::string>;

// What a statement gave: its rows, then the error that stopped it (empty
// when none did).
struct Outcome {
    Rows rows;
    std::string error;
    int code = SQLITE_OK;
};

// A connection with the door registered by its entry point.
struct Connection {
    sqlite3* db = nullptr;
    bool opened = false;    // by SQLite
    int code = SQLITE_OK;   // of the registration
    std::string error;
    // Opens the connection (unless open) and registers the door; while
    // `refusing` is armed, only SQLite and the door allocate.
    void open(const Allocator* refusing = nullptr) {
        const auto paused = [refusing](bool on) {
            if (refusing != nullptr) refusing->pause(on);
        };
        if (!opened && !(opened = sqlite3_open(":memory:", &db) == SQLITE_OK)) return;
        char* message = nullptr;
        code = sqlite3_extension_init(db, &message, nullptr);
        paused(true);
        error = message != nullptr ? message : "";
        paused(false);
        sqlite3_free(message);
    }
    ~Connection() { sqlite3_close(db); }

    Outcome run(const std::string& sql, const Allocator* refusing = nullptr) {
        const auto paused = [refusing](bool on) {
            if (refusing != nullptr) refusing->pause(on);
        };
        Outcome out;
        sqlite3_stmt* statement = nullptr;
        out.code = sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
        while (out.code == SQLITE_OK || out.code == SQLITE_ROW) {
            out.code = sqlite3_step(statement);
            if (out.code != SQLITE_ROW) break;
            paused(true);   // reading the row is the program's part, not the door's
            std::string& row = out.rows.emplace_back();
            for (int k = 0; k < sqlite3_column_count(statement); ++k) {
                const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, k));
                row += (k > 0 ? "|" : "") + std::string(text != nullptr ? text : "NULL");
            }
            paused(false);
        }
        sqlite3_finalize(statement);
        paused(true);
        if (out.code != SQLITE_DONE) out.error = sqlite3_errmsg(db);
        paused(false);
        return out;
    }
};

// Statements over rows of ASCII and multi-byte text: every function, sets
// kept per call site (O) from constant and column lists, the call
// routine's outputs, numbers read as text, a note and an argument error.
const std::string kSetup[] = {
    "CREATE TABLE t(id INTEGER PRIMARY KEY, s, list)",
    "INSERT INTO t VALUES (1, 'banana an Ana', 'an'), (2, 'one, two three', ', '), (3, 'x', 'x'), "
    "(4, 'Grüße ünd an 12', 'ü'), (5, '東京 an 12 ü', 'ü '), (6, '', 'x'), (7, NULL, NULL), (8, 'b, c', 'b')"};
const std::string kStatements[] = {
    "SELECT kfind(s, 'an', 'i'), kcountx(s, 'an'), kfindc(s, 'ßü'), kcountc(s, 'äöüa') FROM t",
    "SELECT kcountw(s), kfindw(s, 'an'), kscanx(s, -1), kscanx_position(s, 2), kscanx_length(s, 2) FROM t",
    "SELECT kfind(id * 1.5, '5'), kcountw(id * 1000 + 0.25, '.'), kscanx(s, id) FROM t",
    "SELECT kfind(s, 'a', 'q') FROM t",
    "SELECT kfind(s, 'a', 'i', 'x') FROM t",
    // Last: its sites' parsed sets stay with the connection's context (the
    // module frees nothing), so it is the one statement that keeps memory.
    "SELECT kfindc(s, list, 'O'), kcountc(s, 'ün', 'oi'), kcountw(s, ', ', 'o'), kfindw(s, 'an', ' ', 'O') FROM t",
};
constexpr std::size_t kKeepsSets = std::size(kStatements) - 1;
const std::string kOnNewConnection = "SELECT kcountw('a b, c'), kfindw('a b c', 'c'), kscanx('a b', 2)";

bool cleanNoMemory(int code, const std::string& error) {
    return code == SQLITE_NOMEM && error.find("out of memory") != std::string::npos;
}

// The rows of a refused statement: those before its error, and the error.
void expectRowsOrCleanError(const Outcome& o, const Outcome& expected, bool refused) {
    if (!refused || o.error == expected.error) {
        EXPECT_EQ(o.rows, expected.rows);
        EXPECT_EQ(o.error, expected.error);
        return;
    }
    EXPECT_TRUE(cleanNoMemory(o.code, o.error)) << o.code << ": " << o.error;
    ASSERT_LE(o.rows.size(), expected.rows.size());
    EXPECT_EQ(o.rows, Rows(expected.rows.begin(), expected.rows.begin() + static_cast<std::ptrdiff_t>(o.rows.size())));
}

TEST(RefusedMemory, EveryStatementGivesItsRowsOrOneCleanErrorAndThenItsRows) {
    ASSERT_TRUE(gSqliteHeapInstalled);
    for (const Allocator& allocator : kAllocators) {
        SCOPED_TRACE(allocator.name);
        Connection c;
        c.open();
        for (const std::string& sql : kSetup) ASSERT_EQ(c.run(sql).error, "");
        std::vector<Outcome> expected;
        for (const std::string& sql : kStatements) expected.push_back(c.run(sql));
        const Outcome onNew = c.run(kOnNewConnection);
        // Connections opened under refusal stay open, so that each later one
        // takes a new call context and builds its function environment.
        std::vector<std::unique_ptr<Connection>> held;
        std::int64_t reached = 0, kept = 0;   // bytes the statements kept, refused or not
        for (std::int64_t n = 1; n <= 10000 && reached == n - 1; ++n) {
            for (std::size_t i = 0; i < std::size(kStatements); ++i) {
                SCOPED_TRACE(kStatements[i] + ", allocation " + std::to_string(n));
                const std::int64_t before = liveBytes();
                {
                    allocator.arm(n);
                    const Outcome o = c.run(kStatements[i], &allocator);
                    if (allocator.disarm()) reached = n;
                    expectRowsOrCleanError(o, expected[i], reached == n);
                    const Outcome again = c.run(kStatements[i]);
                    EXPECT_EQ(again.rows, expected[i].rows);
                    EXPECT_EQ(again.error, expected[i].error);
                }
                if (i != kKeepsSets) kept += liveBytes() - before;
            }
            SCOPED_TRACE(std::string("a new connection, allocation ") + std::to_string(n));
            Connection& d = *held.emplace_back(std::make_unique<Connection>());
            allocator.arm(n);
            d.open(&allocator);
            bool refused = allocator.disarm();
            if (!d.opened) {
                reached = n;   // SQLite's own refusal
                continue;
            }
            if (d.code != SQLITE_OK) {
                EXPECT_TRUE(refused);
                EXPECT_TRUE(cleanNoMemory(d.code, d.error)) << d.code << ": " << d.error;
                d.open();   // registering again once memory is back
                ASSERT_EQ(d.code, SQLITE_OK) << d.error;
            }
            allocator.arm(n);
            const Outcome o = d.run(kOnNewConnection, &allocator);
            refused = allocator.disarm() || refused;
            if (refused) reached = n;
            expectRowsOrCleanError(o, onNew, refused);
            EXPECT_EQ(d.run(kOnNewConnection).rows, onNew.rows);
        }
        EXPECT_GT(reached, 0);
        // Once, a function's calls that stop after a row start sharing one
        // spare site (about 750 bytes); a site or text kept per refused
        // statement would pass this after a few of the hundreds of runs.
        EXPECT_LT(kept, 2048);
        std::printf("%s: %lld allocation points reached\n", allocator.name, static_cast<long long>(reached));
    }
}

}  // namespace

// The C++ heap, refusable like the others.
void* operator new(std::size_t size) {
    if (gCppHeap.refuses()) throw std::bad_alloc();
    void* p = std::malloc(size != 0 ? size : 1);
    if (p == nullptr) throw std::bad_alloc();
    gCppHeap.live += static_cast<std::int64_t>(malloc_usable_size(p));
    return p;
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return ::operator new(size, tag); }
// Out of line, so that the compiler does not pair a new it sees with free.
[[gnu::noinline]] void operator delete(void* p) noexcept {
    gCppHeap.live -= static_cast<std::int64_t>(malloc_usable_size(p));
    std::free(p);
}
void operator delete[](void* p) noexcept { ::operator delete(p); }
void operator delete(void* p, std::size_t) noexcept { ::operator delete(p); }
void operator delete[](void* p, std::size_t) noexcept { ::operator delete(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { ::operator delete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { ::operator delete(p); }
