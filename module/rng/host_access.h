// The random library's way to the host objects on the kernel object: the
// name-value store, the logger, the system query, the current task and the
// name transcoder. Every one is read afresh, as the host may replace them.
#pragma once

#include <cstdint>

#include "module/abi/rng_host.h"
#include "module/frame/module_state.h"

namespace txscan::rng {

inline void* kernelRoot() { return moduleState.encodingRoot; }

// Null when the host offers no logger: then nothing is logged or issued.
inline contract::Logger* hostLogger() { return static_cast<contract::Logger*>(kernelWord(contract::kKernelLogger)); }

inline contract::NameIsSetFn nameIsSetFn() {
    return reinterpret_cast<contract::NameIsSetFn>(kernelWord(contract::kKernelNameIsSet));
}
inline contract::NameValueGetFn nameValueGetFn() {
    return reinterpret_cast<contract::NameValueGetFn>(kernelWord(contract::kKernelNameValueGet));
}
inline contract::NameValueSetFn nameValueSetFn() {
    return reinterpret_cast<contract::NameValueSetFn>(kernelWord(contract::kKernelNameValueSet));
}
inline contract::SystemQueryFn systemQueryFn() {
    return reinterpret_cast<contract::SystemQueryFn>(kernelWord(contract::kKernelSystemQuery));
}
inline contract::CurrentTaskFn currentTaskFn() {
    return reinterpret_cast<contract::CurrentTaskFn>(kernelWord(contract::kKernelCurrentTask));
}
inline contract::NameTranscoder* nameTranscoder() {
    return static_cast<contract::NameTranscoder*>(kernelWord(contract::kKernelNameTranscoder));
}

}  // namespace txscan::rng
