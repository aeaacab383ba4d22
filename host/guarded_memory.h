// Memory whose end touches an unreadable page: bytes placed flush against
// that end make any read past them fault at once, which a heap allocation
// with slack (or a sanitizer that sees only whole objects) lets pass. The
// reference host copies call arguments here in guarded mode.
#pragma once

#include <cstddef>

namespace txhost {

class GuardedBuffer {
public:
    GuardedBuffer() = default;
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    // Copies `size` bytes so that the last one lies just before the guard
    // page and returns where the first one went (for size 0, the guard page
    // itself). The mapping grows when needed and is reused otherwise; the
    // previous placement is invalid afterwards. Throws std::runtime_error
    // when the system refuses the mapping or the protection.
    void* place(const void* bytes, std::size_t size);

private:
    void release();

    char* base_ = nullptr;        // start of the mapping
    std::size_t usable_ = 0;      // readable bytes before the guard page
    std::size_t mapped_ = 0;      // usable_ plus the guard page
};

}  // namespace txhost
