// Set scans. Below kVectorMinimum bytes a plain table lookup per byte is
// cheapest. Longer inputs use a two-table nibble form of the set: byte b is a
// member when bit (b >> 4) & 7 of table[b >> 7][b & 15] is set. The two
// tables are made from the 256 entries in a few vector steps, so a call pays
// for them only when it scans enough bytes to gain from it.
#include "module/charset/set_scan.h"

#include "module/charset/byte_vectors.h"

namespace txscan {

namespace {

// Fewer bytes than this are looked up one by one; the nibble tables cost
// about as much as scanning this many bytes.
constexpr std::int64_t kVectorMinimum = 48;

std::int64_t firstScalar(const std::uint8_t* data, std::int64_t from, std::int64_t to, const std::uint8_t* set) {
    for (std::int64_t i = from; i < to; ++i) {
        if (set[data[i]]) return i;
    }
    return -1;
}

std::int64_t lastScalar(const std::uint8_t* data, std::int64_t from, std::int64_t to, const std::uint8_t* set) {
    for (std::int64_t i = to; i-- > from;) {
        if (set[data[i]]) return i;
    }
    return -1;
}

std::int64_t countScalar(const std::uint8_t* data, std::int64_t from, std::int64_t to, const std::uint8_t* set) {
    std::int64_t n = 0;
    for (std::int64_t i = from; i < to; ++i) n += set[data[i]] != 0;
    return n;
}

#if defined(__x86_64__)

__attribute__((target("avx2"))) std::int64_t firstAvx2(const std::uint8_t* data, std::int64_t length,
                                                       const std::uint8_t* set) {
    const NibbleSet t = nibbleSetOf(set);
    std::int64_t i = 0;
    for (; i + 32 <= length; i += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        const std::uint32_t hits = membersOf(v, t);
        if (hits != 0) return i + __builtin_ctz(hits);
    }
    return firstScalar(data, i, length, set);
}

__attribute__((target("avx2"))) std::int64_t lastAvx2(const std::uint8_t* data, std::int64_t length,
                                                      const std::uint8_t* set) {
    const NibbleSet t = nibbleSetOf(set);
    std::int64_t end = length;
    for (; end >= 32; end -= 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + end - 32));
        const std::uint32_t hits = membersOf(v, t);
        if (hits != 0) return end - 32 + (31 - __builtin_clz(hits));
    }
    return lastScalar(data, 0, end, set);
}

__attribute__((target("avx2,popcnt"))) std::int64_t countAvx2(const std::uint8_t* data, std::int64_t length,
                                                              const std::uint8_t* set) {
    const NibbleSet t = nibbleSetOf(set);
    std::int64_t n = 0;
    std::int64_t i = 0;
    for (; i + 32 <= length; i += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        n += __builtin_popcount(membersOf(v, t));
    }
    return n + countScalar(data, i, length, set);
}

#else

std::int64_t firstAvx2(const std::uint8_t*, std::int64_t, const std::uint8_t*) { return -1; }
std::int64_t lastAvx2(const std::uint8_t*, std::int64_t, const std::uint8_t*) { return -1; }
std::int64_t countAvx2(const std::uint8_t*, std::int64_t, const std::uint8_t*) { return 0; }

#endif

}  // namespace

std::int32_t firstInSet(const std::uint8_t* data, std::int32_t length, const std::uint8_t set[256]) {
    if (length <= 0) return -1;
    if (length >= kVectorMinimum && haveAvx2()) return static_cast<std::int32_t>(firstAvx2(data, length, set));
    return static_cast<std::int32_t>(firstScalar(data, 0, length, set));
}

std::int32_t lastInSet(const std::uint8_t* data, std::int32_t length, const std::uint8_t set[256]) {
    if (length <= 0) return -1;
    if (length >= kVectorMinimum && haveAvx2()) return static_cast<std::int32_t>(lastAvx2(data, length, set));
    return static_cast<std::int32_t>(lastScalar(data, 0, length, set));
}

std::int64_t countInSet(const std::uint8_t* data, std::int64_t length, const std::uint8_t set[256]) {
    if (length <= 0) return 0;
    if (length >= kVectorMinimum && haveAvx2()) return countAvx2(data, length, set);
    return countScalar(data, 0, length, set);
}

}  // namespace txscan
