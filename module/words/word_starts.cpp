// Word starts, scalar and vector. In a block of 32 bytes with delimiter
// mask d (bit i set when byte i is a delimiter), the word starts are
// ~d & (d << 1 | carry), where carry says whether the byte before the block
// was a delimiter (the string's start counts as one).
#include "module/words/word_starts.h"

#include "module/charset/byte_vectors.h"

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

// Starts within one block, given its delimiter mask; updates the carry.
inline std::int64_t startsOfBlock(std::uint32_t delimiters, std::uint32_t* carry) {
    const std::uint32_t previous = (delimiters << 1) | *carry;
    *carry = delimiters >> 31;
    return __builtin_popcount(~delimiters & previous);
}

__attribute__((target("avx2,popcnt"))) std::int64_t startsAvx2(const std::uint8_t* data, std::int64_t length,
                                                               const std::uint8_t* set) {
    const NibbleSet t = nibbleSetOf(set);
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
