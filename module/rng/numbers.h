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

}  // namespace txscan::rng
