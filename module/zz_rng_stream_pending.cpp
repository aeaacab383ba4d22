// TEMPORARY until the random library's streams land (rng/): weak stand-ins
// that the library's own definitions replace at link time. Remove then.
#include "host/host_vector.h"
#include "host_call.h"
#include "rng_stream_access.h"

namespace txscan::rng {

__attribute__((weak)) std::int32_t readSeedOption(const char*) { return 0; }
__attribute__((weak)) RngStream* createStream(std::uint64_t, std::uint64_t) {
    return static_cast<RngStream*>(poolAllocate(host().hostPool, 64, contract::kPoolModuleZeroed));
}

}  // namespace txscan::rng
