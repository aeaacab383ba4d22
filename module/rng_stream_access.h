// What the function environment needs of the random-number library: the
// reader of the seed option and the stream constructor.
#pragma once

#include <cstdint>

namespace txscan::rng {

struct RngStream;
std::int32_t readSeedOption(const char* name);
RngStream* createStream(std::uint64_t seed, std::uint64_t stream);

}  // namespace txscan::rng
