// Guarded buffers on POSIX (mmap, mprotect) and Windows (VirtualAlloc,
// VirtualProtect).
#include "host/guarded_memory.h"

#include <cstring>
#include <stdexcept>
#include <string>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace txhost {

namespace {

std::size_t pageSize() {
#if defined(_WIN32)
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
#else
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
#endif
}

// A mapping of `usable` readable bytes followed by one page that is not.
char* mapGuarded(std::size_t usable, std::size_t mapped) {
#if defined(_WIN32)
    auto* base = static_cast<char*>(VirtualAlloc(nullptr, mapped, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    if (base == nullptr) throw std::runtime_error("guarded argument: VirtualAlloc refused the mapping");
    DWORD previous = 0;
    if (!VirtualProtect(base + usable, mapped - usable, PAGE_NOACCESS, &previous)) {
        VirtualFree(base, 0, MEM_RELEASE);
        throw std::runtime_error("guarded argument: VirtualProtect refused the guard page");
    }
    return base;
#else
    void* mapping = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) throw std::runtime_error("guarded argument: mmap refused the mapping");
    auto* base = static_cast<char*>(mapping);
    if (mprotect(base + usable, mapped - usable, PROT_NONE) != 0) {
        munmap(mapping, mapped);
        throw std::runtime_error("guarded argument: mprotect refused the guard page");
    }
    return base;
#endif
}

void unmap(char* base, std::size_t mapped) {
#if defined(_WIN32)
    (void)mapped;
    VirtualFree(base, 0, MEM_RELEASE);
#else
    munmap(base, mapped);
#endif
}

}  // namespace

GuardedBuffer::~GuardedBuffer() { release(); }

void GuardedBuffer::release() {
    if (base_ != nullptr) unmap(base_, mapped_);
    base_ = nullptr;
    usable_ = mapped_ = 0;
}

void* GuardedBuffer::place(const void* bytes, std::size_t size) {
    if (base_ == nullptr || size > usable_) {
        release();
        const std::size_t page = pageSize();
        const std::size_t usable = (size + page - 1) / page * page;
        // A zero-byte placement still gets a readable page before the guard,
        // so a buffer that later grows keeps its layout rule.
        const std::size_t readable = usable == 0 ? page : usable;
        base_ = mapGuarded(readable, readable + page);
        usable_ = readable;
        mapped_ = readable + page;
    }
    char* at = base_ + usable_ - size;
    if (size > 0) std::memcpy(at, bytes, size);
    return at;
}

}  // namespace txhost
