// Set scans. Below kVectorMinimum bytes a plain table lookup per byte is
// cheapest. Longer inputs use a two-table nibble form of the set: byte b is a
// member when bit (b >> 4) & 7 of table[b >> 7][b & 15] is set. The two
// tables are made from the 256 entries in a few vector steps, so a call pays
// for them only when it scans enough bytes to gain from it.
#include "module/charset/set_scan.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

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

// The nibble form of a set: low[lo] (bytes below 0x80) and high[lo] (from
// 0x80) hold, in bit k, the membership of byte value (k << 4) | lo.
struct NibbleTables {
    __m128i low;
    __m128i high;
};

NibbleTables nibbleTables(const std::uint8_t* set) {
    __m128i low = _mm_setzero_si128();
    __m128i high = _mm_setzero_si128();
    const __m128i zero = _mm_setzero_si128();
    for (int row = 0; row < 16; ++row) {
        const __m128i entries = _mm_loadu_si128(reinterpret_cast<const __m128i*>(set + 16 * row));
        const __m128i members = _mm_andnot_si128(_mm_cmpeq_epi8(entries, zero),
                                                 _mm_set1_epi8(static_cast<char>(1u << (row & 7))));
        if (row < 8) {
            low = _mm_or_si128(low, members);
        } else {
            high = _mm_or_si128(high, members);
        }
    }
    return {low, high};
}

// Bit (b >> 4) & 7 for each high nibble.
inline constexpr std::int8_t kNibbleBit[16] = {1, 2, 4, 8, 16, 32, 64, -128, 1, 2, 4, 8, 16, 32, 64, -128};

__attribute__((target("avx2"))) inline std::uint32_t membersAvx2(__m256i v, __m256i low, __m256i high,
                                                                 __m256i nibbleBit) {
    const __m256i flip = _mm256_set1_epi8(static_cast<char>(0x80));
    // pshufb gives 0 for an index with its top bit set, so each table only
    // answers for its own half of the byte values.
    const __m256i bits = _mm256_or_si256(_mm256_shuffle_epi8(low, v),
                                         _mm256_shuffle_epi8(high, _mm256_xor_si256(v, flip)));
    const __m256i hiNibble = _mm256_and_si256(_mm256_srli_epi16(v, 4), _mm256_set1_epi8(0x0F));
    const __m256i wanted = _mm256_shuffle_epi8(nibbleBit, hiNibble);
    const __m256i miss = _mm256_cmpeq_epi8(_mm256_and_si256(bits, wanted), _mm256_setzero_si256());
    return ~static_cast<std::uint32_t>(_mm256_movemask_epi8(miss));
}

struct Avx2Tables {
    __m256i low, high, nibbleBit;
};

__attribute__((target("avx2"))) inline Avx2Tables avx2Tables(const std::uint8_t* set) {
    const NibbleTables t = nibbleTables(set);
    const __m128i bit = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kNibbleBit));
    return {_mm256_broadcastsi128_si256(t.low), _mm256_broadcastsi128_si256(t.high),
            _mm256_broadcastsi128_si256(bit)};
}

__attribute__((target("avx2"))) std::int64_t firstAvx2(const std::uint8_t* data, std::int64_t length,
                                                       const std::uint8_t* set) {
    const Avx2Tables t = avx2Tables(set);
    std::int64_t i = 0;
    for (; i + 32 <= length; i += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        const std::uint32_t hits = membersAvx2(v, t.low, t.high, t.nibbleBit);
        if (hits != 0) return i + __builtin_ctz(hits);
    }
    return firstScalar(data, i, length, set);
}

__attribute__((target("avx2"))) std::int64_t lastAvx2(const std::uint8_t* data, std::int64_t length,
                                                      const std::uint8_t* set) {
    const Avx2Tables t = avx2Tables(set);
    std::int64_t end = length;
    for (; end >= 32; end -= 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + end - 32));
        const std::uint32_t hits = membersAvx2(v, t.low, t.high, t.nibbleBit);
        if (hits != 0) return end - 32 + (31 - __builtin_clz(hits));
    }
    return lastScalar(data, 0, end, set);
}

__attribute__((target("avx2,popcnt"))) std::int64_t countAvx2(const std::uint8_t* data, std::int64_t length,
                                                              const std::uint8_t* set) {
    const Avx2Tables t = avx2Tables(set);
    std::int64_t n = 0;
    std::int64_t i = 0;
    for (; i + 32 <= length; i += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        n += __builtin_popcount(membersAvx2(v, t.low, t.high, t.nibbleBit));
    }
    return n + countScalar(data, i, length, set);
}

bool haveAvx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt"); }

#else

bool haveAvx2() { return false; }
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
