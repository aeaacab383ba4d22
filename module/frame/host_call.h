// The one door to the host's numbered services: every call marks its service
// table in the host's use-flag array first, so no call site can forget it.
#pragma once

#include <atomic>
#include <cstdint>

#include "module/abi/services.h"
#include "module/frame/module_state.h"

namespace txscan {

template <typename R, typename... Params, typename... Args>
R callHost(contract::HostService<R(Params...)> service, Args... args) {
    const contract::HostVector& hv = host();
    // Many tasks of one session call at once: a relaxed store, no lock.
    std::atomic_ref<std::uint8_t>(hv.serviceUseFlags[service.table]).store(1, std::memory_order_relaxed);
    auto* function = reinterpret_cast<R (*)(Params...)>(hv.serviceDirectory[service.table][service.function]);
    return function(static_cast<Params>(args)...);
}

inline void noteUnknownModifier(const char* functionName, unsigned char letter) {
    callHost(contract::kHostNote, contract::kNoteUnknownModifier, contract::kNoteKindModifier, functionName,
             static_cast<std::int32_t>(letter));
}

// Memory from a host pool; the module never frees it.
inline void* poolAllocate(void* pool, std::int64_t size, std::int32_t flags) {
    auto* p = static_cast<contract::MemoryPool*>(pool);
    return p->allocate(pool, size, flags);
}

}  // namespace txscan
