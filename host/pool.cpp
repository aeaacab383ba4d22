// Memory pools: every block is owned by its pool and freed with it (a call
// site's kept set with the site, by the host: the module never frees).
// Allocation counts and fault injection are the session's. A pool serves
// many tasks at once, so its block list is locked; the module allocates once
// per call context or call site, not per row.
#include <cstring>
#include <mutex>
#include <new>

#include "host/session_impl.h"

namespace txhost {

using namespace contract;

namespace {

inline constexpr std::align_val_t kBlockAlignment{16};
// Filler of blocks that the flag word does not ask to be zero-filled, so a
// reader that relies on zeros it was not promised sees garbage.
inline constexpr int kFillerByte = 0xA5;

bool zeroFilled(std::int32_t flags) { return flags == kPoolModuleZeroed || flags == kPoolEnvironment; }

void* poolAllocate(void* pool, std::int64_t size, std::int32_t flags) {
    return Pool::from(pool)->allocate(size, flags);
}

void* poolReallocate(void* pool, void* address, std::int64_t size, std::int32_t flags) {
    return Pool::from(pool)->reallocate(address, size, flags);
}

void* newBlock(std::size_t size) { return ::operator new(size, kBlockAlignment, std::nothrow); }
void freeBlock(void* block) { ::operator delete(block, kBlockAlignment); }

}  // namespace

Pool::Pool(Session::Impl& owner, std::string poolName) : session(&owner), name(std::move(poolName)) {
    table.allocate = &poolAllocate;
    table.reallocate = &poolReallocate;
}

Pool::~Pool() {
    for (auto& [block, size] : blocks) freeBlock(block);
}

// Null for a negative size or when fault injection says so. Counted by flag
// word when it succeeds.
void* Pool::allocate(std::int64_t size, std::int32_t flags) {
    if (size < 0 || session->allocationFails()) return nullptr;
    void* block = newBlock(static_cast<std::size_t>(size));
    if (block == nullptr) return nullptr;
    std::memset(block, zeroFilled(flags) ? 0 : kFillerByte, static_cast<std::size_t>(size));
    {
        std::lock_guard<std::mutex> lock(mutex);
        blocks.emplace(block, static_cast<std::size_t>(size));
    }
    session->count([flags](HostCounters& c) { ++c.allocationsByFlags[flags]; });
    return block;
}

// A null address allocates. The old contents are kept up to the smaller
// size; bytes beyond it are zero for the zero-filled flag words, else filler.
// An address this pool does not own is refused (null, reported as an error).
void* Pool::reallocate(void* address, std::int64_t size, std::int32_t flags) {
    if (address != nullptr && !owns(address)) {
        session->addMessage({Message::Source::Error, kUnexpectedServiceCode, 0, {}, 0, 0,
                             "reallocate of a block that pool '" + name + "' does not own"});
        return nullptr;
    }
    if (size < 0 || session->reallocationFails()) return nullptr;
    void* block = newBlock(static_cast<std::size_t>(size));
    if (block == nullptr) return nullptr;
    std::size_t kept = 0;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (address != nullptr) {
            const std::size_t oldSize = blocks[address];
            kept = oldSize < static_cast<std::size_t>(size) ? oldSize : static_cast<std::size_t>(size);
            std::memcpy(block, address, kept);
            blocks.erase(address);
            freeBlock(address);
        }
        blocks.emplace(block, static_cast<std::size_t>(size));
    }
    std::memset(static_cast<char*>(block) + kept, zeroFilled(flags) ? 0 : kFillerByte,
                static_cast<std::size_t>(size) - kept);
    session->count([](HostCounters& c) { ++c.reallocations; });
    return block;
}

bool Pool::release(void* address) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (blocks.erase(address) == 0) return false;
    }
    freeBlock(address);
    return true;
}

}  // namespace txhost
