// Checking and counting UTF-8 a vector at a time. With AVX2 a 32-byte block
// is checked whole: every error is a property of some byte and the one to
// three bytes before it, so three table lookups on the high and low nibbles
// of a byte and the high nibble of its successor flag the two-byte errors
// (too short, too long, overlong, surrogate, above U+10FFFF, stray
// continuation), and a shifted copy of the block tells where a third or
// fourth byte must follow a lead. The lookup technique is the one published
// by Keiser and Lemire ("Validating UTF-8 in less than one instruction per
// byte", 2021). Without AVX2, SSE2 skips ASCII 16 bytes at a time and checks
// the rest one sequence at a time. Characters are the bytes less the
// continuation bytes, which one signed compare picks out.
#include <algorithm>
#include <cstring>

#include "module/charset/byte_vectors.h"
#include "module/charset/utf8_text.h"

namespace txscan {

namespace {

#if defined(__x86_64__)

// Bits of the error classes in the lookup tables.
constexpr std::uint8_t kTooShort = 1 << 0;    // lead then no continuation
constexpr std::uint8_t kTooLong = 1 << 1;     // ASCII then continuation
constexpr std::uint8_t kOverlong3 = 1 << 2;   // E0 then 80..9F
constexpr std::uint8_t kTooLarge = 1 << 3;    // F4 then 90..BF, or F5..FF
constexpr std::uint8_t kSurrogate = 1 << 4;   // ED then A0..BF
constexpr std::uint8_t kOverlong2 = 1 << 5;   // C0 or C1 lead
constexpr std::uint8_t kTooLarge1000 = 1 << 6;   // F5..FF then 80..8F
constexpr std::uint8_t kOverlong4 = 1 << 6;   // F0 then 80..8F (same bit: the low nibble tells them apart)
constexpr std::uint8_t kTwoContinuations = 1 << 7;
constexpr std::uint8_t kCarry = kTooShort | kTooLong | kTwoContinuations;

#define TXSCAN_LANES16(...) _mm256_broadcastsi128_si256(_mm_setr_epi8(__VA_ARGS__))

__attribute__((target("avx2"))) inline __m256i highNibbles(__m256i v) {
    return _mm256_and_si256(_mm256_srli_epi16(v, 4), _mm256_set1_epi8(0x0F));
}

// The block shifted right by n bytes, the last n bytes of `before` in front.
template <int n>
__attribute__((target("avx2"))) inline __m256i shiftedIn(__m256i block, __m256i before) {
    return _mm256_alignr_epi8(block, _mm256_permute2x128_si256(before, block, 0x21), 16 - n);
}

struct Avx2Check {
    __m256i error;
    __m256i before;       // the previous block
    __m256i incomplete;   // where its last bytes open a sequence
    std::int64_t continuations;
};

// The errors of a block that is not all ASCII, each byte judged with the
// three before it (from `before` for the first three). Always inlined, as
// everything here, so that the state stays in registers: 64-bit Windows
// keeps its stack only 16-byte aligned.
__attribute__((target("avx2"), always_inline)) inline __m256i blockErrors(__m256i block, __m256i before) {
    const auto s = [](int v) { return static_cast<char>(v); };
    const __m256i prev1 = shiftedIn<1>(block, before);
    const __m256i byte1High = _mm256_shuffle_epi8(
        TXSCAN_LANES16(s(kTooLong), s(kTooLong), s(kTooLong), s(kTooLong), s(kTooLong), s(kTooLong), s(kTooLong),
                       s(kTooLong), s(kTwoContinuations), s(kTwoContinuations), s(kTwoContinuations),
                       s(kTwoContinuations), s(kTooShort | kOverlong2), s(kTooShort),
                       s(kTooShort | kOverlong3 | kSurrogate), s(kTooShort | kTooLarge | kTooLarge1000 | kOverlong4)),
        highNibbles(prev1));
    constexpr std::uint8_t kLarge = kCarry | kTooLarge | kTooLarge1000;
    const __m256i byte1Low = _mm256_shuffle_epi8(
        TXSCAN_LANES16(s(kCarry | kOverlong3 | kOverlong2 | kOverlong4), s(kCarry | kOverlong2), s(kCarry), s(kCarry),
                       s(kCarry | kTooLarge), s(kLarge), s(kLarge), s(kLarge), s(kLarge), s(kLarge), s(kLarge),
                       s(kLarge), s(kLarge), s(kLarge | kSurrogate), s(kLarge), s(kLarge)),
        _mm256_and_si256(prev1, _mm256_set1_epi8(0x0F)));
    constexpr std::uint8_t kCont = kTooLong | kOverlong2 | kTwoContinuations;
    const __m256i byte2High = _mm256_shuffle_epi8(
        TXSCAN_LANES16(s(kTooShort), s(kTooShort), s(kTooShort), s(kTooShort), s(kTooShort), s(kTooShort),
                       s(kTooShort), s(kTooShort), s(kCont | kOverlong3 | kTooLarge1000 | kOverlong4),
                       s(kCont | kOverlong3 | kTooLarge), s(kCont | kSurrogate | kTooLarge),
                       s(kCont | kSurrogate | kTooLarge), s(kTooShort), s(kTooShort), s(kTooShort), s(kTooShort)),
        highNibbles(block));
    const __m256i special = _mm256_and_si256(_mm256_and_si256(byte1High, byte1Low), byte2High);
    // A third byte follows a lead of E0 or more two places back, a fourth
    // one of F0 or more three places back; there the tables flag two
    // continuations, which is then no error.
    const __m256i third = _mm256_subs_epu8(shiftedIn<2>(block, before), _mm256_set1_epi8(s(0xE0 - 0x80)));
    const __m256i fourth = _mm256_subs_epu8(shiftedIn<3>(block, before), _mm256_set1_epi8(s(0xF0 - 0x80)));
    const __m256i must = _mm256_and_si256(_mm256_or_si256(third, fourth), _mm256_set1_epi8(s(0x80)));
    return _mm256_xor_si256(must, special);
}

// A lead in the last three bytes whose sequence runs past the block.
__attribute__((target("avx2"), always_inline)) inline __m256i incompleteAtEnd(__m256i block) {
    const auto s = [](int v) { return static_cast<char>(v); };
    return _mm256_subs_epu8(block, _mm256_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                                    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, s(0xF0 - 1),
                                                    s(0xE0 - 1), s(0xC0 - 1)));
}

__attribute__((target("avx2"), always_inline)) inline std::uint32_t continuationsOf(__m256i block) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(_mm256_set1_epi8(-64), block)));
}

__attribute__((target("avx2"), always_inline)) inline void checkBlock(Avx2Check* c, __m256i block) {
    if (_mm256_movemask_epi8(block) == 0) {
        c->error = _mm256_or_si256(c->error, c->incomplete);
        c->incomplete = _mm256_setzero_si256();
    } else {
        c->error = _mm256_or_si256(c->error, blockErrors(block, c->before));
        c->incomplete = incompleteAtEnd(block);
        c->continuations += std::popcount(continuationsOf(block));
    }
    c->before = block;
}

#undef TXSCAN_LANES16

__attribute__((target("avx2,popcnt"))) std::int64_t charsIfWellFormedAvx2(const std::uint8_t* p, std::int64_t n) {
    Avx2Check c;
    c.error = c.before = c.incomplete = _mm256_setzero_si256();
    c.continuations = 0;
    std::int64_t i = 0;
    for (; i + 32 <= n; i += 32) checkBlock(&c, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i)));
    if (i < n && n >= 32 && n - i <= 29) {
        // The last 32 bytes, the first of them checked already. Each byte
        // left has the three before it in the same load, so its lanes alone
        // decide; the leads that ended the last block are judged there too.
        const int seen = static_cast<int>(32 - (n - i));
        const __m256i last = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + n - 32));
        if (static_cast<std::uint32_t>(_mm256_movemask_epi8(last)) >> seen == 0) {
            checkBlock(&c, _mm256_setzero_si256());   // ASCII: as a block of it
        } else {
            const __m256i lanes = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18,
                                                   19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
            const __m256i fresh = _mm256_cmpgt_epi8(lanes, _mm256_set1_epi8(static_cast<char>(seen - 1)));
            c.error = _mm256_or_si256(c.error, _mm256_and_si256(blockErrors(last, last), fresh));
            c.incomplete = incompleteAtEnd(last);
            c.continuations += std::popcount(continuationsOf(last) >> seen);
        }
    } else if (i < n) {
        // The tail in a block of zeros: a sequence cut short meets a zero.
        std::uint8_t tail[32] = {};
        std::memcpy(tail, p + i, static_cast<std::size_t>(n - i));
        checkBlock(&c, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(tail)));
    }
    const __m256i error = _mm256_or_si256(c.error, c.incomplete);
    return _mm256_testz_si256(error, error) ? n - c.continuations : -1;
}

// SSE2: ASCII sixteen bytes at a time, the rest one sequence at a time.
std::int64_t charsIfWellFormedSse2(const std::uint8_t* p, std::int64_t n) {
    return utf8CharsSkipping(p, n, [](const std::uint8_t* q, std::int64_t off, std::int64_t size) {
        while (off + 16 <= size) {
            const int high = _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(q + off)));
            if (high != 0) return off + std::countr_zero(static_cast<unsigned>(high));
            off += 16;
        }
        return off;
    });
}

// Whether none of n >= 16 bytes has its top bit set: sixteen at a time, the
// last sixteen overlapping, so that an ASCII row, the common one, is told
// with no tail to copy.
bool asciiOnly(const std::uint8_t* p, std::int64_t n) {
    __m128i any = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + n - 16));
    for (std::int64_t i = 0; i + 16 < n; i += 16) {
        any = _mm_or_si128(any, _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)));
    }
    return _mm_movemask_epi8(any) == 0;
}

#endif

// Below this many bytes the vector set-up costs more than it saves.
constexpr std::int64_t kVectorMinimum = 16;

}  // namespace

std::int64_t utf8CharsIfWellFormed(const std::uint8_t* p, std::int64_t n, Utf8Vectors vectors) {
#if defined(__x86_64__)
    if (n < kVectorMinimum) return utf8CharsOneByOne(p, n);
    if (asciiOnly(p, n)) return n;
    if (vectors == Utf8Vectors::kBest && haveAvx2()) return charsIfWellFormedAvx2(p, n);
    return charsIfWellFormedSse2(p, n);
#else
    (void)vectors;
    return utf8CharsOneByOne(p, n);
#endif
}

std::int64_t utf8CharsIfWellFormedWide(const std::uint8_t* p, std::int64_t n) {
#if defined(__x86_64__)
    if (n >= kVectorMinimum && haveAvx2()) return charsIfWellFormedAvx2(p, n);
#endif
    return utf8CharsIfWellFormed(p, n);
}

std::int64_t leadBytes(const std::uint8_t* p, std::int64_t n) {
    std::int64_t count = 0;
    std::int64_t i = 0;
#if defined(__x86_64__)
    // Lead bytes and ASCII are the bytes above -65 taken as signed. Each
    // compare gives -1 per such byte, gathered per lane (255 blocks at most,
    // so no lane wraps) and then summed by psadbw: SSE2 alone, no popcnt.
    while (i + 16 <= n) {
        __m128i lanes = _mm_setzero_si128();
        const std::int64_t blocks = std::min<std::int64_t>((n - i) / 16, 255);
        for (std::int64_t b = 0; b < blocks; ++b, i += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
            lanes = _mm_sub_epi8(lanes, _mm_cmpgt_epi8(v, _mm_set1_epi8(-65)));
        }
        const __m128i sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
        count += _mm_cvtsi128_si64(sums) + _mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums));
    }
#endif
    for (; i < n; ++i) count += (p[i] & 0xC0) != 0x80;
    return count;
}

}  // namespace txscan
