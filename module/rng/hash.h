// The hashes of the random library: the MurmurHash3 finalisers that spread
// seeds into state words, MurmurHash3 x86_32 for rehashing the 32-bit
// twisters, and hashWords64 (the x64_128 block step over 64-bit words,
// folded to 64 bits) for rehashing MT64.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace txscan::rng {

// The MurmurHash3 finaliser at the width of Word: xor-shift, multiply,
// xor-shift, multiply, xor-shift, with each width's published constants.
template <typename Word>
constexpr Word fmix(Word x) {
    constexpr bool wide = sizeof(Word) == 8;
    constexpr int shifts[3] = {wide ? 33 : 16, wide ? 33 : 13, wide ? 33 : 16};
    constexpr Word multipliers[2] = {wide ? Word(0xFF51AFD7ED558CCDull) : Word(0x85EBCA6Bu),
                                     wide ? Word(0xC4CEB9FE1A85EC53ull) : Word(0xC2B2AE35u)};
    for (int i = 0; i < 2; ++i) x = (x ^ (x >> shifts[i])) * multipliers[i];
    return x ^ (x >> shifts[2]);
}
constexpr std::uint64_t fmix64(std::uint64_t x) { return fmix(x); }
constexpr std::uint32_t fmix32(std::uint32_t h) { return fmix(h); }
static_assert(fmix64(1) == 0xB456BCFC34C2CB2Cull);   // MH3's first output from seed 1

// The published 32-bit MurmurHash3 of `length` bytes with `seed`.
inline std::uint32_t murmur3x86_32(const void* data, std::size_t length, std::uint32_t seed) {
    constexpr std::uint32_t c1 = 0xCC9E2D51u;
    constexpr std::uint32_t c2 = 0x1B873593u;
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::uint32_t h = seed;
    std::size_t blocks = length / 4;
    for (std::size_t i = 0; i < blocks; ++i) {
        std::uint32_t k = std::uint32_t{bytes[4 * i]} | std::uint32_t{bytes[4 * i + 1]} << 8 |
                          std::uint32_t{bytes[4 * i + 2]} << 16 | std::uint32_t{bytes[4 * i + 3]} << 24;
        k *= c1;
        k = std::rotl(k, 15);
        k *= c2;
        h ^= k;
        h = std::rotl(h, 13);
        h = h * 5 + 0xE6546B64u;
    }
    const unsigned char* tail = bytes + blocks * 4;
    std::uint32_t k = 0;
    switch (length & 3) {
    case 3: k ^= std::uint32_t{tail[2]} << 16; [[fallthrough]];
    case 2: k ^= std::uint32_t{tail[1]} << 8; [[fallthrough]];
    case 1:
        k ^= tail[0];
        k *= c1;
        k = std::rotl(k, 15);
        k *= c2;
        h ^= k;
    }
    h ^= static_cast<std::uint32_t>(length);
    return fmix32(h);
}

// hashWords64 of n words (n ≤ 3 in this library: index, tag, value).
inline std::uint64_t hashWords64(const std::uint64_t* words, int n, std::uint64_t seed) {
    constexpr std::uint64_t c1 = 0x87C37B91114253D5ull;
    constexpr std::uint64_t c2 = 0x4CF5AD432745937Full;
    std::uint64_t h1 = seed;
    std::uint64_t h2 = seed;
    // The two halves of the x64_128 block step differ only in their constants.
    const auto half = [](std::uint64_t& h, std::uint64_t other, std::uint64_t k, std::uint64_t ca, int rk,
                         std::uint64_t cb, int rh, std::uint64_t add) {
        k = std::rotl(k * ca, rk) * cb;
        h = (std::rotl(h ^ k, rh) + other) * 5 + add;
    };
    int m = (n + 1) & ~1;
    for (int i = 0; i < m; i += 2) {
        std::uint64_t k1 = words[i];
        std::uint64_t k2 = i + 1 < n ? words[i + 1] : fmix64(seed);
        half(h1, h2, k1, c1, 31, c2, 27, 0x52DCE729);
        half(h2, h1, k2, c2, 33, c1, 31, 0x38495AB5);
    }
    std::uint64_t len = 8 * static_cast<std::uint64_t>(m);
    h1 ^= len;
    h2 ^= len;
    h1 += h2;
    h2 += h1;
    h1 = fmix64(h1);
    h2 = fmix64(h2);
    h1 += h2;
    h2 += h1;
    return h1 ^ h2;
}

}  // namespace txscan::rng
