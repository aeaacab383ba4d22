// The uniform conversions of slots 21 to 36: one raw output (or two, for the
// dense form) turned into a double. Each is a template over the method's raw
// generator so that every method gets its own direct, inlinable copy.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace txscan::rng {

using Next32 = std::uint32_t (*)(void*);
using Next64 = std::uint64_t (*)(void*);

inline constexpr double kTwoToMinus32 = 0x1p-32;
inline constexpr double kTwoToMinus53 = 0x1p-53;
inline constexpr double kTwoToMinus64 = 0x1p-64;

// Draws in all that the open conversions of slots 21 and 26 make before they
// give up on zero outputs.
inline constexpr int kOpenDraws = 99;

// A generator whose state is all zero (loaded through seedFromBytes) or a
// hardware method without its instruction returns 0 for ever. Loops that
// the formulas leave unbounded give up after this many draws in all and
// answer 0: a working 64-bit generator repeats a rejected output that often
// with probability below 2^-2000, so ordinary results are untouched.
inline constexpr int kDeadGeneratorDraws = 32;

// Values at or above this round to 2^64 when converted to double.
inline constexpr std::uint64_t kTopOf64 = 0xFFFFFFFFFFFFFC00ull;   // 2^64 - 1024

// u rounded to the nearest double, without the branch the compiler puts
// into an unsigned conversion: both halves convert exactly, and their sum
// is rounded once. Random outputs would mispredict that branch half the time.
inline double toDouble(std::uint64_t u) {
    return static_cast<double>(static_cast<std::int64_t>(u >> 32)) * 0x1p32 +
           static_cast<double>(static_cast<std::int64_t>(u & 0xFFFFFFFF));
}
// The 53-bit values convert exactly through the signed conversion.
inline double smallToDouble(std::uint64_t r) { return static_cast<double>(static_cast<std::int64_t>(r)); }

template <Next32 Next>
double uniform32Open(void* state) {
    std::uint32_t u = Next(state);
    for (int draws = 1; u == 0 && draws < kOpenDraws; ++draws) u = Next(state);
    return u * kTwoToMinus32;
}
template <Next32 Next>
double uniform32Centred(void* state) {
    return (Next(state) + 0.5) * kTwoToMinus32;
}
template <Next32 Next>
double uniform32OpenClosed(void* state) {
    return (Next(state) + 1.0) * kTwoToMinus32;
}
template <Next32 Next>
double uniform32ClosedOpen(void* state) {
    return Next(state) * kTwoToMinus32;
}
// Bit 0 decides between the even value below and the one above, so both
// ends 0 and 1 can be reached.
template <Next32 Next>
double uniform32Closed(void* state) {
    std::uint32_t u = Next(state);
    return (static_cast<double>(u & ~1u) + 2.0 * (u & 1u)) * kTwoToMinus32;
}

template <Next64 Next>
double uniform53Open(void* state) {
    std::uint64_t r = Next(state) >> 11;
    for (int draws = 1; r == 0 && draws < kOpenDraws; ++draws) r = Next(state) >> 11;
    return smallToDouble(r) * kTwoToMinus53;
}
template <Next64 Next>
double uniform53Odd(void* state) {
    return smallToDouble((Next(state) >> 11) | 1) * kTwoToMinus53;
}
template <Next64 Next>
double uniform53OpenClosed(void* state) {
    return (smallToDouble(Next(state) >> 11) + 1.0) * kTwoToMinus53;
}
template <Next64 Next>
double uniform53ClosedOpen(void* state) {
    return smallToDouble(Next(state) >> 11) * kTwoToMinus53;
}
template <Next64 Next>
double uniform53Closed(void* state) {
    std::uint64_t r = Next(state) >> 11;
    return (smallToDouble(r & ~std::uint64_t{1}) + 2.0 * smallToDouble(r & 1)) * kTwoToMinus53;
}

template <Next64 Next>
double uniform64Open(void* state) {
    for (int draws = 0; draws < kDeadGeneratorDraws; ++draws) {
        std::uint64_t u = Next(state);
        double result = toDouble(u) * kTwoToMinus64;
        if (u != 0 && result != 1.0) return result;
    }
    return 0.0;
}
// Values that would round to 1.0 are moved low by the 54-bit shift.
template <Next64 Next>
double uniform64Odd(void* state) {
    std::uint64_t v = Next(state) | 1;
    if (v >= kTopOf64) v <<= 54;
    return toDouble(v) * kTwoToMinus64;
}
// (u + 1) is formed exactly before the one rounding to double, as an
// extended-precision sum would: converting u first and then adding 1.0
// would round twice.
template <Next64 Next>
double uniform64OpenClosed(void* state) {
    std::uint64_t u = Next(state);
    if (u == std::numeric_limits<std::uint64_t>::max()) return 1.0;
    return toDouble(u + 1) * kTwoToMinus64;
}
template <Next64 Next>
double uniform64ClosedOpen(void* state) {
    std::uint64_t v = Next(state);
    if (v >= kTopOf64) v <<= 54;
    return toDouble(v) * kTwoToMinus64;
}
template <Next64 Next>
double uniform64Closed(void* state) {
    return toDouble(Next(state)) * kTwoToMinus64;
}
// Every double of (0,1) down to 2^-1074 is reachable: leading zero words
// lower the exponent, and leading zero bits are refilled from a second draw.
template <Next64 Next>
double uniformDense(void* state) {
    int exponent = -64;
    std::uint64_t u = Next(state);
    while (u == 0) {
        exponent -= 64;
        if (exponent < -1074) return 0.0;
        u = Next(state);
    }
    int zeros = std::countl_zero(u);
    if (zeros > 0) {
        std::uint64_t w = Next(state);
        u = (u << zeros) | (w >> (64 - zeros));
        exponent -= zeros;
    }
    return std::ldexp(toDouble(u | 1), exponent);
}

}  // namespace txscan::rng
