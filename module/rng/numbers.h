// Conversions of the host's floating values to the library's integers: the
// missing-value test and reductions that never leave the integer range.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace txscan::rng {

// The host's missing value (and any infinity or NaN): the exponent bits all ones.
inline bool isMissing(double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return (bits & 0x7FF0000000000000ull) == 0x7FF0000000000000ull;
}

// value reduced modulo 2^bits of Word and truncated; negative values wrap as
// unsigned integers do, and NaN or infinities give 0.
template <typename Word>
Word reduceToWord(double value) {
    if (isMissing(value)) return 0;
    constexpr double modulus = sizeof(Word) == 8 ? 0x1p64 : 0x1p32;
    double t = std::trunc(std::fmod(value, modulus));
    if (t >= 0) return static_cast<Word>(t);
    return static_cast<Word>(Word{0} - static_cast<Word>(-t));
}

// value is a whole number in 0 .. limit. Compared as integers: a limit near
// 2^64 (or 2^63) has no double of its own, and the double it rounds to lies
// above it.
inline bool wholeNumberWithin(double value, std::uint64_t limit) {
    if (!(value >= 0) || value >= 0x1p64 || value != std::floor(value)) return false;
    return static_cast<std::uint64_t>(value) <= limit;
}

}  // namespace txscan::rng
