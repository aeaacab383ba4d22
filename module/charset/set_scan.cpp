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

// A ByteSetTest's nibble form costs a few bytes' tests, and the scans need
// one whole block.
constexpr std::int64_t kTestVectorMinimum = 32;

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

// The nibble form of a ByteSetTest: the class mask a vector of classTable
// at a time, the few fixed and listed bytes one by one.
__attribute__((target("avx2"))) NibbleSet nibbleSetOf(const ByteSetTest& test) {
    alignas(16) std::uint8_t rows[2][16] = {};
    const auto add = [&rows](std::uint8_t b) { rows[b >> 7][b & 15] |= static_cast<std::uint8_t>(1u << ((b >> 4) & 7)); };
    if (test.digits) {
        for (std::uint8_t d = '0'; d <= '9'; ++d) add(d);
    }
    if (test.tab) add('\t');
    for (std::int64_t i = 0; i < test.listLength; ++i) {
        if (test.upper == nullptr) {
            add(test.list[i]);
        } else {
            add(test.upper[test.list[i]]);
            add(test.lower[test.list[i]]);
        }
    }
    __m128i half[2] = {_mm_load_si128(reinterpret_cast<const __m128i*>(rows[0])),
                       _mm_load_si128(reinterpret_cast<const __m128i*>(rows[1]))};
    if (test.mask != 0) {
        const __m128i mask = _mm_set1_epi8(static_cast<char>(test.mask));
        for (int row = 0; row < 16; ++row) {
            const __m128i classes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(test.classes + 16 * row));
            const __m128i none = _mm_cmpeq_epi8(_mm_and_si128(classes, mask), _mm_setzero_si128());
            half[row >> 3] =
                _mm_or_si128(half[row >> 3], _mm_andnot_si128(none, _mm_set1_epi8(static_cast<char>(1u << (row & 7)))));
        }
    }
    const __m128i bit = _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 1, 2, 4, 8, 16, 32, 64, -128);
    return {_mm256_broadcastsi128_si256(half[0]), _mm256_broadcastsi128_si256(half[1]),
            _mm256_broadcastsi128_si256(bit)};
}

// Scans of at least 32 bytes. The ragged end is one more block overlapping
// bytes already seen: a search has found nothing there, a count drops them.
__attribute__((target("avx2"))) std::uint32_t testHits(const std::uint8_t* p, const NibbleSet& t, std::uint32_t flip) {
    return membersOf(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)), t) ^ flip;
}

__attribute__((target("avx2"))) std::int64_t firstAvx2(const std::uint8_t* data, std::int64_t length,
                                                       const ByteSetTest& test) {
    const NibbleSet t = nibbleSetOf(test);
    const std::uint32_t flip = test.negated ? ~0u : 0u;
    for (std::int64_t i = 0; i + 32 <= length; i += 32) {
        if (const std::uint32_t hits = testHits(data + i, t, flip)) return i + __builtin_ctz(hits);
    }
    const std::uint32_t hits = testHits(data + length - 32, t, flip);
    return hits != 0 ? length - 32 + __builtin_ctz(hits) : -1;
}

__attribute__((target("avx2"))) std::int64_t lastAvx2(const std::uint8_t* data, std::int64_t length,
                                                      const ByteSetTest& test) {
    const NibbleSet t = nibbleSetOf(test);
    const std::uint32_t flip = test.negated ? ~0u : 0u;
    for (std::int64_t end = length; end >= 32; end -= 32) {
        if (const std::uint32_t hits = testHits(data + end - 32, t, flip)) return end - 32 + (31 - __builtin_clz(hits));
    }
    const std::uint32_t hits = testHits(data, t, flip);
    return hits != 0 ? 31 - __builtin_clz(hits) : -1;
}

__attribute__((target("avx2,popcnt"))) std::int64_t countAvx2(const std::uint8_t* data, std::int64_t length,
                                                              const ByteSetTest& test) {
    const NibbleSet t = nibbleSetOf(test);
    const std::uint32_t flip = test.negated ? ~0u : 0u;
    std::int64_t n = 0;
    std::int64_t i = 0;
    for (; i + 32 <= length; i += 32) n += __builtin_popcount(testHits(data + i, t, flip));
    if (i < length) n += __builtin_popcount(testHits(data + length - 32, t, flip) >> (32 - (length - i)));
    return n;
}

#else

std::int64_t firstAvx2(const std::uint8_t*, std::int64_t, const ByteSetTest&) { return -1; }
std::int64_t lastAvx2(const std::uint8_t*, std::int64_t, const ByteSetTest&) { return -1; }
std::int64_t countAvx2(const std::uint8_t*, std::int64_t, const ByteSetTest&) { return 0; }
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

std::int32_t firstInSet(const std::uint8_t* data, std::int32_t length, const ByteSetTest& test) {
    if (length >= kTestVectorMinimum && haveAvx2()) return static_cast<std::int32_t>(firstAvx2(data, length, test));
    for (std::int32_t i = 0; i < length; ++i) {
        if (test.holds(data[i])) return i;
    }
    return -1;
}

std::int32_t lastInSet(const std::uint8_t* data, std::int32_t length, const ByteSetTest& test) {
    if (length >= kTestVectorMinimum && haveAvx2()) return static_cast<std::int32_t>(lastAvx2(data, length, test));
    for (std::int32_t i = length - 1; i >= 0; --i) {
        if (test.holds(data[i])) return i;
    }
    return -1;
}

std::int64_t countInSet(const std::uint8_t* data, std::int64_t length, const ByteSetTest& test) {
    if (length >= kTestVectorMinimum && haveAvx2()) return countAvx2(data, length, test);
    std::int64_t n = 0;
    for (std::int64_t i = 0; i < length; ++i) n += test.holds(data[i]);
    return n;
}

}  // namespace txscan
