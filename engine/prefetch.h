// Asking for memory ahead of its use, in a form the compiler keeps.
#pragma once

#include <algorithm>
#include <cstdint>

namespace txengine {

// GCC takes a loop whose only effect is __builtin_prefetch for one without
// effects and drops it whole (-ffinite-loops, from -O2 on): the prefetch is
// issued through asm, which it keeps.
inline void prefetchLine(const void* address) {
#if defined(__x86_64__)
    asm volatile("prefetcht0 (%0)" : : "r"(address));
#else
    __builtin_prefetch(address);
    asm volatile("" : : "r"(address));
#endif
}

// Every cache line of [data, data + min(length, most)), and the first line
// even of an empty text. `data` may be null (nothing is read).
inline void prefetchLines(const char* data, std::int64_t length, std::int64_t most) {
    constexpr std::uintptr_t kLine = 64;
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t end = begin + static_cast<std::uintptr_t>(std::clamp<std::int64_t>(length, 1, most));
    for (std::uintptr_t line = begin & ~(kLine - 1); line < end; line += kLine) {
        prefetchLine(reinterpret_cast<const void*>(line));
    }
}

}  // namespace txengine
