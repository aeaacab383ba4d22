// The module's only mutable state: what mcn_main stores when the host binds
// the module. Everything else the module keeps is constant.
#pragma once

#include <cstdint>

#include "module/abi/host_vector.h"

namespace txscan {

struct ModuleState {
    const contract::HostVector* hostVector;
    std::uint64_t hostWord;      // stored, never interpreted
    std::uint32_t hostValue;     // copied from the host at bind time, never read again
    void* encodingRoot;          // HostVector word 82, the kernel object
};

// Written only by mcn_main.
extern ModuleState moduleState;

inline const contract::HostVector& host() { return *moduleState.hostVector; }

inline void* kernelWord(int word) {
    return static_cast<void* const*>(moduleState.encodingRoot)[word];
}

}  // namespace txscan
