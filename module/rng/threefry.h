// The Threefry-20 block functions of the FRY methods: out = threefry(ctr, key).
#pragma once

#include <cstdint>

namespace txscan::rng {

void threefryBlock2x64(const std::uint64_t ctr[2], const std::uint64_t key[2], std::uint64_t out[2]);
void threefryBlock2x32(const std::uint32_t ctr[2], const std::uint32_t key[2], std::uint32_t out[2]);
void threefryBlock4x64(const std::uint64_t ctr[4], const std::uint64_t key[4], std::uint64_t out[4]);

}  // namespace txscan::rng
