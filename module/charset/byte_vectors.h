// What the vector scans of bytes share: the one probe of the processor's
// features, the nibble form of a 256-entry byte set that tells 32 bytes at a
// time which are members, and the masked test of a short text's high bits.
#pragma once

#include <cstdint>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace txscan {

#if defined(__x86_64__)

// Every AVX2 routine of the module may count its hits with popcnt, so the
// one answer covers both.
inline bool haveAvx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt"); }
// Byte-wide masked loads (AVX-512BW) and bzhi (BMI2) for their masks.
inline bool haveAvx512Bytes() { return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("bmi2"); }

// Whether one of n bytes (0 to 128) has its top bit set, by two masked
// 64-byte loads, which read no byte past the n. Only where haveAvx512Bytes().
__attribute__((target("avx512bw,bmi2"))) inline bool highBitUpTo128(const char* p, std::int64_t n) {
    const auto low = static_cast<unsigned>(n < 64 ? n : 64);
    const auto high = static_cast<unsigned>(n > 64 ? n - 64 : 0);
    const __m512i first = _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, low), p);
    const __m512i second = _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, high), p + 64);
    return _mm512_movepi8_mask(_mm512_or_si512(first, second)) != 0;
}

// The set in nibble form: bit (b >> 4) & 7 of low[b & 15] (bytes below 0x80)
// or high[b & 15] (the rest) says whether byte b is a member.
struct NibbleSet {
    __m256i low, high, bitOfHighNibble;
};

// Sixteen loads of the 256 entries build both tables: row r of the set (byte
// values 16r to 16r + 15) contributes bit r & 7 to the table of its half.
// It costs about as much as scanning 48 bytes one by one.
__attribute__((target("avx2"))) inline NibbleSet nibbleSetOf(const std::uint8_t* set) {
    __m128i low = _mm_setzero_si128();
    __m128i high = _mm_setzero_si128();
    for (int row = 0; row < 16; ++row) {
        const __m128i entries = _mm_loadu_si128(reinterpret_cast<const __m128i*>(set + 16 * row));
        const __m128i members = _mm_andnot_si128(_mm_cmpeq_epi8(entries, _mm_setzero_si128()),
                                                 _mm_set1_epi8(static_cast<char>(1u << (row & 7))));
        if (row < 8) {
            low = _mm_or_si128(low, members);
        } else {
            high = _mm_or_si128(high, members);
        }
    }
    const __m128i bit = _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 1, 2, 4, 8, 16, 32, 64, -128);
    return {_mm256_broadcastsi128_si256(low), _mm256_broadcastsi128_si256(high), _mm256_broadcastsi128_si256(bit)};
}

// Bit i set when byte i of v is a member.
__attribute__((target("avx2"))) inline std::uint32_t membersOf(__m256i v, const NibbleSet& t) {
    // pshufb answers 0 for an index whose top bit is set, so each table
    // answers only for its own half of the byte values.
    const __m256i bits = _mm256_or_si256(_mm256_shuffle_epi8(t.low, v),
                                         _mm256_shuffle_epi8(t.high, _mm256_xor_si256(v, _mm256_set1_epi8(-128))));
    const __m256i highNibble = _mm256_and_si256(_mm256_srli_epi16(v, 4), _mm256_set1_epi8(0x0F));
    const __m256i wanted = _mm256_shuffle_epi8(t.bitOfHighNibble, highNibble);
    const __m256i miss = _mm256_cmpeq_epi8(_mm256_and_si256(bits, wanted), _mm256_setzero_si256());
    return ~static_cast<std::uint32_t>(_mm256_movemask_epi8(miss));
}

#else

inline bool haveAvx2() { return false; }
inline bool haveAvx512Bytes() { return false; }

#endif

}  // namespace txscan
