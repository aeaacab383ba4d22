// Word starts, scalar and vector. In a block of 32 bytes with delimiter
// mask d (bit i set when byte i is a delimiter), the word starts are
// ~d & (d << 1 | carry), where carry says whether the byte before the block
// was a delimiter (the string's start counts as one).
#include "module/words/word_starts.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace txscan {

namespace {

// Below this many bytes a set's vector tables cost more than they save; a
// single delimiter needs no tables, so one block is enough.
constexpr std::int64_t kVectorMinimum = 64;
constexpr std::int64_t kSplitByVectorMinimum = 32;

}  // namespace

std::int64_t countWordStartsScalar(const std::uint8_t* data, std::int64_t length, const std::uint8_t set[256]) {
    std::int64_t words = 0;
    std::uint8_t previousIsDelimiter = 1;
    for (std::int64_t i = 0; i < length; ++i) {
        const std::uint8_t isDelimiter = set[data[i]] != 0;
        words += previousIsDelimiter & (isDelimiter ^ 1);
        previousIsDelimiter = isDelimiter;
    }
    return words;
}

std::int64_t countWordStartsSplitByScalar(const std::uint8_t* data, std::int64_t length, std::uint8_t delimiter) {
    std::int64_t words = 0;
    std::uint8_t previousIsDelimiter = 1;
    for (std::int64_t i = 0; i < length; ++i) {
        const std::uint8_t isDelimiter = data[i] == delimiter;
        words += previousIsDelimiter & (isDelimiter ^ 1);
        previousIsDelimiter = isDelimiter;
    }
    return words;
}

#if defined(__x86_64__)

namespace {

bool haveAvx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt"); }

// Starts within one block, given its delimiter mask; updates the carry.
inline std::int64_t startsOfBlock(std::uint32_t delimiters, std::uint32_t* carry) {
    const std::uint32_t previous = (delimiters << 1) | *carry;
    *carry = delimiters >> 31;
    return __builtin_popcount(~delimiters & previous);
}

// The set in nibble form: bit (b >> 4) & 7 of table[b & 15] (low for bytes
// below 0x80, high for the rest) says whether byte b is a member.
struct NibbleSet {
    __m256i low, high, bitOfHighNibble;
};

// Sixteen loads of the 256 entries build both tables: row r of the set (byte
// values 16r to 16r + 15) contributes bit r & 7 to the table of its half.
__attribute__((target("avx2"))) void buildNibbleSet(const std::uint8_t* set, NibbleSet* out) {
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
    alignas(16) static constexpr std::uint8_t kBit[16] = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
    out->low = _mm256_broadcastsi128_si256(low);
    out->high = _mm256_broadcastsi128_si256(high);
    out->bitOfHighNibble = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(kBit)));
}

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

__attribute__((target("avx2,popcnt"))) std::int64_t startsAvx2(const std::uint8_t* data, std::int64_t length,
                                                               const std::uint8_t* set) {
    NibbleSet t;
    buildNibbleSet(set, &t);
    std::int64_t words = 0;
    std::uint32_t carry = 1;
    std::int64_t i = 0;
    for (; i + 32 <= length; i += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        words += startsOfBlock(membersOf(v, t), &carry);
    }
    // The tail continues from the last block's last byte.
    if (i < length && carry == 0 && set[data[i]] == 0) --words;
    return words + countWordStartsScalar(data + i, length - i, set);
}

__attribute__((target("avx2,popcnt"))) std::int64_t startsSplitByAvx2(const std::uint8_t* data,
                                                                      std::int64_t length, std::uint8_t delimiter) {
    const __m256i d = _mm256_set1_epi8(static_cast<char>(delimiter));
    std::int64_t words = 0;
    std::uint32_t carry = 1;
    std::int64_t i = 0;
    for (; i + 32 <= length; i += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        const auto mask = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, d)));
        words += startsOfBlock(mask, &carry);
    }
    if (i < length && carry == 0 && data[i] != delimiter) --words;
    return words + countWordStartsSplitByScalar(data + i, length - i, delimiter);
}

}  // namespace

std::int64_t countWordStarts(const std::uint8_t* data, std::int64_t length, const std::uint8_t set[256]) {
    if (length >= kVectorMinimum && haveAvx2()) return startsAvx2(data, length, set);
    return countWordStartsScalar(data, length, set);
}

std::int64_t countWordStartsSplitBy(const std::uint8_t* data, std::int64_t length, std::uint8_t delimiter) {
    if (length >= kSplitByVectorMinimum && haveAvx2()) return startsSplitByAvx2(data, length, delimiter);
    return countWordStartsSplitByScalar(data, length, delimiter);
}

#else

std::int64_t countWordStarts(const std::uint8_t* data, std::int64_t length, const std::uint8_t set[256]) {
    return countWordStartsScalar(data, length, set);
}

std::int64_t countWordStartsSplitBy(const std::uint8_t* data, std::int64_t length, std::uint8_t delimiter) {
    return countWordStartsSplitByScalar(data, length, delimiter);
}

#endif

}  // namespace txscan
