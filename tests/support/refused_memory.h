// What the SQL doors' refused-memory sweeps share: a counter that refuses
// the n-th allocation while armed, the rows and the statements they run,
// what a refused statement may give, and this program's own operator new,
// which asks refuseNew() first and counts the bytes it holds. The host's
// pools take their blocks with the aligned, non-throwing new, which nothing
// else in these programs uses: it asks refusePools(). Include it in one file
// of a program only: it defines the program's operator new.
#pragma once

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

namespace txtest {

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

inline std::atomic<std::int64_t> gNewLive{0};   // bytes operator new holds

// Rows of ASCII and multi-byte text, empty and NULL, with a list column.
inline const std::string kSweepRows =
    "(1, 'banana an Ana', 'an'), (2, 'one, two three', ', '), (3, 'x', 'x'), (4, 'Grüße ünd an 12', 'ü'), "
    "(5, '東京 an 12 ü', 'ü '), (6, '', 'x'), (7, NULL, NULL), (8, 'b, c', 'b')";

// Every function, the call routine's outputs, numbers read as text, a note,
// an argument error, and last the sets kept per call site under O (from
// constant and column lists), which stay with the connection's context.
inline const std::vector<std::string> kSweepStatements = {
    "SELECT kfind(s, 'an', 'i'), kcountx(s, 'an'), kfindc(s, 'ßü'), kcountc(s, 'äöüa') FROM t ORDER BY id",
    "SELECT kcountw(s), kfindw(s, 'an'), kscanx(s, -1), kscanx_position(s, 2), kscanx_length(s, 2) FROM t ORDER BY id",
    "SELECT kfind(s, 'a', id), kscanx(s, id) FROM t ORDER BY id",
    "SELECT kfind(s, 'a', 'q') FROM t ORDER BY id",
    "SELECT kfind(s, 'a', 'i', 'x') FROM t ORDER BY id",
    "SELECT kfindc(s, list, 'O'), kcountc(s, 'ün', 'oi'), kcountw(s, ', ', 'o'), kfindw(s, 'an', ' ', 'O') FROM t "
    "ORDER BY id",
};

using Rows = std::vector<std::string>;
struct Outcome {
    Rows rows;
    std::string error;   // empty when the statement ran to its end
    int code = 0;        // the door's own result code
};

// Unrefused, a statement gives what it gave before; refused, the rows
// before its error and one clean "out of memory".
inline void expectRowsOrCleanError(const Outcome& o, const Outcome& expected, bool refused) {
    if (!refused || o.error == expected.error) {
        EXPECT_EQ(o.rows, expected.rows);
        EXPECT_EQ(o.error, expected.error);
        return;
    }
    EXPECT_NE(o.error.find("out of memory"), std::string::npos) << o.error;
    ASSERT_LE(o.rows.size(), expected.rows.size());
    EXPECT_EQ(o.rows, Rows(expected.rows.begin(), expected.rows.begin() + static_cast<std::ptrdiff_t>(o.rows.size())));
}

}  // namespace txtest

// Defined by the program: whether this allocation of operator new, or of
// the host's pools, is refused.
bool refuseNew();
bool refusePools();

// Out of line as operator delete is, so that the compiler pairs neither
// with malloc and free.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (refuseNew()) throw std::bad_alloc();
    void* p = std::malloc(size != 0 ? size : 1);
    if (p == nullptr) throw std::bad_alloc();
    txtest::gNewLive += static_cast<std::int64_t>(malloc_usable_size(p));
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
[[gnu::noinline]] void operator delete(void* p) noexcept {
    txtest::gNewLive -= static_cast<std::int64_t>(malloc_usable_size(p));
    std::free(p);
}
void operator delete[](void* p) noexcept { ::operator delete(p); }
void operator delete(void* p, std::size_t) noexcept { ::operator delete(p); }
void operator delete[](void* p, std::size_t) noexcept { ::operator delete(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { ::operator delete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { ::operator delete(p); }
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    if (refusePools()) return nullptr;
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
