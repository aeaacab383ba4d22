// The functions inside DuckDB when memory runs out: the host's pools and the
// C++ heap of the extension's calls each refuse their n-th allocation in
// turn while a table of statements runs. Every statement gives its rows or
// one clean "out of memory" error, and once memory is back the same
// connection answers every statement as before.
//
// The extension is the loaded file itself, reached as any program reaches
// a library: this program's own operator new serves it. The host's pools
// take their blocks with the aligned, non-throwing new, which neither
// DuckDB nor anything else in the process uses; of the plain new, only the
// allocations with the extension's code among their callers are refused,
// so DuckDB's own memory never runs out under it.
#include <dlfcn.h>
#include <duckdb.h>
#include <execinfo.h>
#include <gtest/gtest.h>
#include <link.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

// Refuses the n-th allocation counted while active.
struct Refuser {
    std::atomic<bool> active{false};
    std::atomic<std::int64_t> left{0};
    bool refuses() { return active.load(std::memory_order_relaxed) && left.fetch_sub(1) == 1; }
    void arm(std::int64_t n) {
        left = n;
        active = true;
    }
    bool disarm() {   // whether the n-th was reached
        active = false;
        return left.load() <= 0;
    }
};
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

using Rows = std::vector<std::string>;

struct Outcome {
    Rows rows;
    std::string error;   // empty when the statement ran
};

struct Database {
    duckdb_database db = nullptr;
    duckdb_connection con = nullptr;
    Database() {
        duckdb_config config = nullptr;
        duckdb_create_config(&config);
        duckdb_set_config(config, "allow_unsigned_extensions", "true");
        duckdb_set_config(config, "threads", "1");
        EXPECT_EQ(duckdb_open_ext(nullptr, &db, config, nullptr), DuckDBSuccess);
        duckdb_destroy_config(&config);
        duckdb_connect(db, &con);
    }
    ~Database() {
        duckdb_disconnect(&con);
        duckdb_close(&db);
    }
    // The rows a statement gave, read while `refusing` is off.
    Outcome run(const std::string& sql, Refuser* refusing = nullptr) {
        duckdb_result result;
        const bool ran = duckdb_query(con, sql.c_str(), &result) == DuckDBSuccess;
        if (refusing != nullptr) refusing->active = false;
        Outcome out;
        if (!ran) {
            out.error = duckdb_result_error(&result);
        } else {
            for (idx_t r = 0; r < duckdb_row_count(&result); ++r) {
                std::string& row = out.rows.emplace_back();
                for (idx_t c = 0; c < duckdb_column_count(&result); ++c) {
                    char* value = duckdb_value_varchar(&result, c, r);
                    row += (c > 0 ? "|" : "") + std::string(value != nullptr ? value : "NULL");
                    duckdb_free(value);
                }
            }
        }
        duckdb_destroy_result(&result);
        return out;
    }
};

const std::string kSetup[] = {
    "LOAD '" TXSCAN_DUCKDB_EXTENSION "'",
    "CREATE TABLE t AS SELECT * FROM (VALUES (1, 'banana an Ana', 'an'), (2, 'one, two three', ', '), (3, 'x', 'x'), "
    "(4, 'Grüße ünd an 12', 'ü'), (5, '東京 an 12 ü', 'ü '), (6, '', 'x'), (7, NULL, NULL), (8, 'b, c', 'b')) v(id, s, list)",
};
// Every function, sets kept under O from constant and column lists, the
// call routine's outputs, numbers, a note and an argument error; each
// statement's constants differ from the others', so each prepares its own
// programs.
const std::string kStatements[] = {
    "SELECT kfind(s, 'an', 'i'), kcountx(s, 'an'), kfindc(s, 'ßü'), kcountc(s, 'äöüa') FROM t ORDER BY id",
    "SELECT kcountw(s), kfindw(s, 'an'), kscanx(s, -1), kscanx_position(s, 2), kscanx_length(s, 2) FROM t ORDER BY id",
    "SELECT kfind(s, 'a', id), kcountw(s, ', ', 'o'), kscanx(s, id) FROM t ORDER BY id",
    "SELECT kfind(s, 'n', 'q') FROM t ORDER BY id",
    "SELECT kfind(s, 'b', 'i', 'x') FROM t ORDER BY id",
    "SELECT kfindc(s, list, 'O'), kcountc(s, 'ün', 'oi'), kfindw(s, 'two', ' ,', 'O') FROM t ORDER BY id",
};

bool cleanNoMemory(const std::string& error) { return error.find("out of memory") != std::string::npos; }

TEST(DuckDbRefusedMemory, EveryStatementGivesItsRowsOrOneCleanErrorAndThenItsRows) {
    const struct {
        const char* name;
        Refuser& heap;
    } allocators[] = {{"host pools", gPools}, {"the extension's C++ heap", gExtensionHeap}};
    for (const auto& allocator : allocators) {
        SCOPED_TRACE(allocator.name);
        Database d;
        for (const std::string& sql : kSetup) ASSERT_EQ(d.run(sql).error, "");
        findExtensionCode();
        ASSERT_NE(gCodeStart.load(), 0u);
        std::vector<Outcome> expected;
        for (const std::string& sql : kStatements) expected.push_back(d.run(sql));
        std::int64_t reached = 0;
        for (std::int64_t n = 1; n <= 10000 && reached == n - 1; ++n) {
            for (std::size_t i = 0; i < std::size(kStatements); ++i) {
                SCOPED_TRACE(kStatements[i] + ", allocation " + std::to_string(n));
                // On a thread of its own, which DuckDB runs the statement
                // on (one thread), so that the extension starts afresh there
                // and every allocation of a first call is reached; then
                // again on that thread, whose programs the refusal met.
                Outcome o, again;
                bool refused = false;
                std::thread([&] {
                    allocator.heap.arm(n);
                    o = d.run(kStatements[i], &allocator.heap);
                    refused = allocator.heap.disarm();
                    again = d.run(kStatements[i]);
                }).join();
                if (refused) reached = n;
                if (!refused || o.error == expected[i].error) {
                    EXPECT_EQ(o.rows, expected[i].rows);
                    EXPECT_EQ(o.error, expected[i].error);
                } else {
                    EXPECT_TRUE(cleanNoMemory(o.error)) << o.error;
                    EXPECT_EQ(o.rows, Rows{});
                }
                EXPECT_EQ(again.rows, expected[i].rows);
                EXPECT_EQ(again.error, expected[i].error);
            }
        }
        EXPECT_GT(reached, 0);
        std::printf("%s: %lld allocation points reached\n", allocator.name, static_cast<long long>(reached));
    }
}

}  // namespace

// The process's heap, as this program serves it to every library.
void* operator new(std::size_t size) {
    if (gExtensionHeap.active.load(std::memory_order_relaxed) && forTheExtension() && gExtensionHeap.refuses()) {
        throw std::bad_alloc();
    }
    if (void* p = std::malloc(size != 0 ? size : 1)) return p;
    throw std::bad_alloc();
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
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { ::operator delete(p); }
void operator delete(void* p, std::size_t) noexcept { ::operator delete(p); }
void operator delete[](void* p, std::size_t) noexcept { ::operator delete(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { ::operator delete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { ::operator delete(p); }

void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    if (gPools.refuses()) return nullptr;
    const auto a = static_cast<std::size_t>(alignment);
    return std::aligned_alloc(a, (size + a - 1) / a * a + (size == 0 ? a : 0));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto a = static_cast<std::size_t>(alignment);
    if (void* p = std::aligned_alloc(a, (size + a - 1) / a * a + (size == 0 ? a : 0))) return p;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t alignment) noexcept { ::operator delete(p, alignment); }
void operator delete(void* p, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    ::operator delete(p, alignment);
}
