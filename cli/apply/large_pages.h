// An allocator for the few large buffers a run of `txscan apply` keeps (the
// read buffers, the batches' columns, the output text): each block of 2 MiB
// or more is mapped on its own, aligned, and offered to the kernel for
// 2 MiB pages, and elements are left unset until written. A run touches
// these buffers' memory for the first time once, and on 4 kB pages that
// first touch (a page fault each) cost more than parsing the same bytes.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

namespace txcli {

inline constexpr std::size_t kLargePage = std::size_t{2} << 20;

template <class T>
struct LargePageAllocator {
    using value_type = T;

    LargePageAllocator() = default;
    template <class U>
    LargePageAllocator(const LargePageAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        const std::size_t bytes = n * sizeof(T);
        if (bytes < kLargePage) return static_cast<T*>(::operator new(bytes));
        // Mapped with a page's worth of slack, then trimmed to an aligned run.
        const std::size_t rounded = (bytes + kLargePage - 1) & ~(kLargePage - 1);
        void* mapped = mmap(nullptr, rounded + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED) throw std::bad_alloc();
        const auto start = reinterpret_cast<std::uintptr_t>(mapped);
        const std::uintptr_t aligned = (start + kLargePage - 1) & ~std::uintptr_t{kLargePage - 1};
        if (aligned > start) munmap(mapped, aligned - start);
        const std::size_t after = start + rounded + kLargePage - (aligned + rounded);
        if (after > 0) munmap(reinterpret_cast<void*>(aligned + rounded), after);
        madvise(reinterpret_cast<void*>(aligned), rounded, MADV_HUGEPAGE);   // a hint: 4 kB pages do as well
        return reinterpret_cast<T*>(aligned);
    }
    void deallocate(T* p, std::size_t n) noexcept {
        const std::size_t bytes = n * sizeof(T);
        if (bytes < kLargePage) {
            ::operator delete(p);
            return;
        }
        munmap(p, (bytes + kLargePage - 1) & ~(kLargePage - 1));
    }
    // resize() leaves new elements unset: every one is written before it is read.
    template <class U>
    void construct(U* p) noexcept {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args>
    void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }

    template <class U>
    bool operator==(const LargePageAllocator<U>&) const noexcept { return true; }
};

template <class T>
using LargeVector = std::vector<T, LargePageAllocator<T>>;

}  // namespace txcli
