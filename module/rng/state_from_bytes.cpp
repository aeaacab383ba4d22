// seedFromBytes: a generator's seedable state loaded from a byte string,
// whole, repeated, partial, or completed by hashing the words given.
#include <cstring>

#include "module/rng/generator_kit.h"

namespace txscan::rng {

std::int32_t stateFromBytes(void* state, std::uint64_t n, const void* bytes, std::int32_t length, std::uint32_t mode) {
    if (length < 1) return 0;
    auto* target = static_cast<unsigned char*>(state);
    const std::uint64_t given = static_cast<std::uint64_t>(length);
    if (given >= n) {
        std::memcpy(target, bytes, n);
        return 2;
    }
    if ((mode & 2) != 0) {
        for (std::uint64_t done = 0; done < n; done += given)
            std::memcpy(target + done, bytes, given < n - done ? given : n - done);
        return 3;
    }
    std::memcpy(target, bytes, given);
    if ((mode & 1) != 0) return 1;
    if (n < 8) {
        // The 4-byte states: the rest is zeroed, there is no word to hash.
        std::memset(target + given, 0, n - given);
        return 4;
    }
    if (given < 8) std::memset(target + given, 0, 8 - given);
    const std::uint64_t words = n / 8;
    const std::uint64_t first = given / 8 < 1 ? 1 : given / 8;
    // In increasing j, so words hashed later may come from words written earlier.
    for (std::uint64_t j = 0; first + j < words; ++j) {
        std::uint64_t word;
        std::memcpy(&word, target + 8 * j, 8);
        word = fmix64(word);
        std::memcpy(target + 8 * (first + j), &word, 8);
    }
    return 4;
}

}  // namespace txscan::rng
