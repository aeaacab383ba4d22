// UTF-8 from code points, sixteen or thirty-two characters at once where
// AVX-512 is there (below), eight where only AVX2 is:
// each one's UTF-8 bytes are built in its own 32-bit lane, and a byte
// shuffle chosen by the widths packs them together, since mixed text
// changes widths too often for a per-character branch. Without AVX2, one
// character at a time, still without a branch on its width.
#include "python/src/utf8_writer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define TXPYTHON_VECTOR_UTF8 1
#endif

namespace txpython {

namespace {

// Stores the UTF-8 form of `c` at `out` (4 bytes written, whatever its
// width) and returns its width; flags a surrogate in `bad`.
inline std::int64_t put(std::uint32_t c, unsigned char* out, std::uint32_t& bad) {
    const std::uint32_t tail0 = 0x80 | (c & 0x3F);
    const std::uint32_t tail1 = 0x80 | ((c >> 6) & 0x3F);
    const std::uint32_t tail2 = 0x80 | ((c >> 12) & 0x3F);
    const std::uint32_t two = (0xC0 | (c >> 6)) | tail0 << 8;
    const std::uint32_t three = (0xE0 | (c >> 12)) | tail1 << 8 | tail0 << 16;
    const std::uint32_t four = (0xF0 | (c >> 18)) | tail2 << 8 | tail1 << 16 | tail0 << 24;
    const std::uint32_t word = c < 0x80 ? c : c < 0x800 ? two : c < 0x10000 ? three : four;
    out[0] = static_cast<unsigned char>(word);
    out[1] = static_cast<unsigned char>(word >> 8);
    out[2] = static_cast<unsigned char>(word >> 16);
    out[3] = static_cast<unsigned char>(word >> 24);
    bad |= static_cast<std::uint32_t>(c - 0xD800 < 0x800);
    return 1 + (c >= 0x80) + (c >= 0x800) + (c >= 0x10000);
}

template <typename Char>
std::int64_t writePlain(const Char* text, std::int64_t length, unsigned char* out) {
    std::int64_t n = 0;
    std::uint32_t bad = 0;
    for (std::int64_t i = 0; i < length; ++i) n += put(text[i], out + n, bad);
    return bad != 0 ? -1 : n;
}

#if TXPYTHON_VECTOR_UTF8

// A byte shuffle for each of 256 cases that packs the bytes each lane keeps
// (its first ones) together, and how many bytes that makes.
struct Packing {
    std::array<std::array<std::uint8_t, 16>, 256> shuffle{};
    std::array<std::uint8_t, 256> bytes{};
};

// Lanes of laneBytes bytes; kept(index, lane) is how many of a lane's bytes
// the case keeps.
template <int Lanes, typename Kept>
constexpr Packing makePacking(int laneBytes, Kept kept) {
    Packing p;
    for (int index = 0; index < 256; ++index) {
        int at = 0;
        for (int lane = 0; lane < Lanes; ++lane) {
            for (int k = 0; k < kept(index, lane); ++k) p.shuffle[index][at++] = static_cast<std::uint8_t>(laneBytes * lane + k);
        }
        p.bytes[index] = static_cast<std::uint8_t>(at);
        for (int k = at; k < 16; ++k) p.shuffle[index][k] = 0x80;
    }
    return p;
}

// Each 128-bit half of `word` packed by its case of `packing` (low, high) and
// the halves stored one after the other: 32 bytes stored; returns the bytes
// that count.
__attribute__((target("avx2"), always_inline)) inline std::int64_t storePackedHalves(__m256i word, const Packing& packing,
                                                                                     std::size_t low, std::size_t high,
                                                                                     unsigned char* out) {
    const __m256i shuffle = _mm256_setr_m128i(_mm_loadu_si128(reinterpret_cast<const __m128i*>(packing.shuffle[low].data())),
                                              _mm_loadu_si128(reinterpret_cast<const __m128i*>(packing.shuffle[high].data())));
    const __m256i packed = _mm256_shuffle_epi8(word, shuffle);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
    const std::int64_t first = packing.bytes[low];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + first), _mm256_extracti128_si256(packed, 1));
    return first + packing.bytes[high];
}

// Four 32-bit lanes whose widths less one are w0..w3 (index w0 | w1 << 2 |
// w2 << 4 | w3 << 6).
constexpr Packing kPacking = makePacking<4>(4, [](int index, int lane) { return ((index >> (2 * lane)) & 3) + 1; });

// Bit k of a 4-bit lane mask moved to bit 2k.
constexpr std::array<std::uint8_t, 16> kSpread = {0x00, 0x01, 0x04, 0x05, 0x10, 0x11, 0x14, 0x15,
                                                  0x40, 0x41, 0x44, 0x45, 0x50, 0x51, 0x54, 0x55};

// Eight code points in `c` (32-bit lanes) as packed UTF-8 at `out` (32
// bytes stored); returns the bytes that count. Each 128-bit half packs its
// four lanes with its own shuffle, and the halves are stored one after the
// other.
// `Four`: whether a code point may take four bytes (not from 16-bit text).
template <bool Four>
__attribute__((target("avx2"), always_inline)) inline std::int64_t putEight(__m256i c, unsigned char* out, __m256i& bad) {
    const __m256i low6 = _mm256_set1_epi32(0x3F), cont = _mm256_set1_epi32(0x80);
    const __m256i tail0 = _mm256_or_si256(cont, _mm256_and_si256(c, low6));
    const __m256i tail1 = _mm256_or_si256(cont, _mm256_and_si256(_mm256_srli_epi32(c, 6), low6));
    const __m256i two = _mm256_or_si256(_mm256_or_si256(_mm256_set1_epi32(0xC0), _mm256_srli_epi32(c, 6)),
                                        _mm256_slli_epi32(tail0, 8));
    const __m256i three = _mm256_or_si256(_mm256_or_si256(_mm256_set1_epi32(0xE0), _mm256_srli_epi32(c, 12)),
                                          _mm256_or_si256(_mm256_slli_epi32(tail1, 8), _mm256_slli_epi32(tail0, 16)));
    // Code points are below 0x110000, so signed comparisons serve.
    const __m256i ge80 = _mm256_cmpgt_epi32(c, _mm256_set1_epi32(0x7F));
    const __m256i ge800 = _mm256_cmpgt_epi32(c, _mm256_set1_epi32(0x7FF));
    __m256i word = _mm256_andnot_si256(ge80, c);
    word = _mm256_or_si256(word, _mm256_and_si256(_mm256_andnot_si256(ge800, ge80), two));
    __m256i ge10000 = _mm256_setzero_si256();
    if constexpr (Four) {
        const __m256i four = _mm256_or_si256(
            _mm256_or_si256(_mm256_set1_epi32(0xF0), _mm256_srli_epi32(c, 18)),
            _mm256_or_si256(_mm256_slli_epi32(_mm256_or_si256(cont, _mm256_and_si256(_mm256_srli_epi32(c, 12), low6)), 8), _mm256_or_si256(_mm256_slli_epi32(tail1, 16), _mm256_slli_epi32(tail0, 24))));
        ge10000 = _mm256_cmpgt_epi32(c, _mm256_set1_epi32(0xFFFF));
        word = _mm256_or_si256(word, _mm256_and_si256(ge10000, four));
    }
    word = _mm256_or_si256(word, _mm256_and_si256(_mm256_andnot_si256(ge10000, ge800), three));
    const __m256i surrogate = _mm256_cmpeq_epi32(_mm256_and_si256(c, _mm256_set1_epi32(~0x7FF)), _mm256_set1_epi32(0xD800));
    bad = _mm256_or_si256(bad, surrogate);
    const auto a = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(ge80)));
    const auto b = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(ge800)));
    const auto d = Four ? static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(ge10000))) : 0u;
    const std::size_t low = kSpread[a & 15] + kSpread[b & 15] + kSpread[d & 15];
    const std::size_t high = kSpread[a >> 4] + kSpread[b >> 4] + kSpread[d >> 4];
    return storePackedHalves(word, kPacking, low, high, out);
}

// Eight 16-bit lanes (bit k of the index set when lane k is ASCII): a
// lane's first byte, and its second unless it is ASCII.
constexpr Packing kNarrowPacking = makePacking<8>(2, [](int ascii, int lane) { return ((ascii >> lane) & 1) != 0 ? 1 : 2; });

// Sixteen characters below U+0800 in 16-bit lanes (Latin-1 and the other
// alphabets mixed text mostly holds), one or two bytes each, built in 16-bit
// lanes, a third of putEight's work: each 128-bit half packed by its own
// shuffle and the halves stored one after the other. Stores 32 bytes;
// returns the bytes that count.
__attribute__((target("avx2"), always_inline)) inline std::int64_t putSixteenNarrow(__m256i c, unsigned char* out) {
    const __m256i ascii = _mm256_cmpgt_epi16(_mm256_set1_epi16(0x80), c);
    const __m256i lead = _mm256_or_si256(_mm256_srli_epi16(c, 6), _mm256_set1_epi16(0xC0));
    const __m256i tail = _mm256_slli_epi16(_mm256_or_si256(_mm256_and_si256(c, _mm256_set1_epi16(0x3F)), _mm256_set1_epi16(0x80)), 8);
    const __m256i word = _mm256_blendv_epi8(_mm256_or_si256(lead, tail), c, ascii);
    const auto mask = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_packs_epi16(ascii, ascii)));
    const std::size_t low = mask & 0xFF, high = (mask >> 16) & 0xFF;
    return storePackedHalves(word, kNarrowPacking, low, high, out);
}

// One vector of source as UTF-8 at `out`; returns the bytes written, a
// zero character counting one. ASCII runs, the bulk of most mixed text, are
// narrowed and stored whole, with no shuffle; a vector holding any wider
// character goes through putEight.
template <typename Char>
__attribute__((target("avx2"), always_inline)) inline std::int64_t putVector(__m256i v, unsigned char* out, __m256i& bad) {
    std::int64_t n = 0;
    if constexpr (sizeof(Char) == 1) {
        // One-byte text mixes ASCII and accented letters too closely for a
        // branch on either to be foreseen: every vector takes the same way.
        n = putSixteenNarrow(_mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)), out);
        n += putSixteenNarrow(_mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)), out + n);
    } else if constexpr (sizeof(Char) == 2) {
        // Sixteen-bit text is mostly one alphabet a row, but rows of
        // different ones follow each other at random: every vector takes
        // the same way rather than a branch on its widths.
        n = putEight<false>(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(v)), out, bad);
        n += putEight<false>(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(v, 1)), out + n, bad);
    } else {
        if (_mm256_testz_si256(v, _mm256_set1_epi32(~0x7F))) {
            const __m256i words = _mm256_packus_epi32(v, v);   // lanes 0-3 and 4-7 in each half
            const __m128i bytes = _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
            // bytes: 0-3, 0-3, 4-7, 4-7
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi32(bytes, _mm_srli_si128(bytes, 8)));
            return 8;
        }
        n = putEight<true>(v, out, bad);
    }
    return n;
}

// The first `rest` characters at `text` (fewer than a vector's worth) in a
// vector with zeros after them, reading none of the bytes past them: whole
// 32-bit lanes come through a masked load, which reads nothing of the lanes
// it leaves out, and the characters of a last partial lane one by one.
// Built in registers, since a vector reloaded from smaller stores waits for
// them to leave the store buffer, and rows are short enough for that to
// cost as much as the whole vectors.
template <typename Char>
__attribute__((target("avx2"), always_inline)) inline __m256i loadPart(const Char* text, std::int64_t rest) {
    constexpr std::int64_t kPerLane = 4 / sizeof(Char);
    const auto lanes = static_cast<int>(rest / kPerLane);
    const __m256i index = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    __m256i v = _mm256_maskload_epi32(reinterpret_cast<const int*>(text), _mm256_cmpgt_epi32(_mm256_set1_epi32(lanes), index));
    if constexpr (kPerLane > 1) {
        if (const std::int64_t extra = rest - lanes * kPerLane; extra > 0) {
            const Char* p = text + lanes * kPerLane;
            std::uint32_t last = p[0];
            if constexpr (kPerLane == 4) {
                if (extra > 1) last |= static_cast<std::uint32_t>(p[1]) << 8;
                if (extra > 2) last |= static_cast<std::uint32_t>(p[2]) << 16;
            }
            v = _mm256_blendv_epi8(v, _mm256_set1_epi32(static_cast<int>(last)),
                                   _mm256_cmpeq_epi32(index, _mm256_set1_epi32(lanes)));
        }
    }
    return v;
}

// Rows are short (most under 64 characters), so the last part vector
// matters as much as the whole ones: it is loaded with zeros after the
// text (loadPart), each zero comes out as one byte after the real ones and
// is taken back off the count.
template <typename Char>
__attribute__((target("avx2"))) std::int64_t writeAvx2(const Char* text, std::int64_t length, unsigned char* out) {
    std::int64_t n = 0, i = 0;
    __m256i bad = _mm256_setzero_si256();
    constexpr std::int64_t kPerVector = 32 / sizeof(Char);
    for (; i + kPerVector <= length; i += kPerVector) {
        n += putVector<Char>(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + i)), out + n, bad);
    }
    if (const std::int64_t rest = length - i; rest > 0) {
        n += putVector<Char>(loadPart(text + i, rest), out + n, bad) - (kPerVector - rest);
    }
    return !_mm256_testz_si256(bad, bad) ? -1 : n;
}

// Sixteen or thirty-two characters a step where AVX-512's byte compress is
// there (VBMI2): each character's UTF-8 bytes are built in its own lane, and
// one compress by the mask of the bytes that count packs them, with no table
// and no branch on the widths. A row's last part is one more step whose load
// and byte mask leave out the lanes past its end, so nothing past the text
// is read and no padding is taken back off the count.
#define TXPYTHON_AVX512 "avx2,bmi,bmi2,popcnt,avx512f,avx512bw,avx512vl,avx512vbmi2"
#if defined(__GNUC__) && !defined(__clang__)
// GCC 12's own AVX-512 intrinsics start their results from a register they
// leave unset on purpose, which its warning then takes for a fault.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

// The bytes of `word` whose byte of `keep` has its top bit set, stored
// packed at `out` (64 bytes stored); returns how many count.
__attribute__((target(TXPYTHON_AVX512), always_inline)) inline std::int64_t storeKept(__m512i word, __m512i keep,
                                                                                   unsigned char* out) {
    const __mmask64 kept = _mm512_movepi8_mask(keep);
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(kept, word));
    return static_cast<std::int64_t>(_mm_popcnt_u64(kept));
}

// Thirty-two one-byte characters, those `present` marks, in 16-bit lanes:
// a lane's first byte, and its second unless it is ASCII.
__attribute__((target(TXPYTHON_AVX512), always_inline)) inline std::int64_t putLatin1(__m256i bytes, __mmask32 present,
                                                                                    unsigned char* out) {
    const __m512i c = _mm512_cvtepu8_epi16(bytes);
    const __mmask32 wide = _mm512_cmpge_epu16_mask(c, _mm512_set1_epi16(0x80));
    const __m512i lead = _mm512_or_si512(_mm512_srli_epi16(c, 6), _mm512_set1_epi16(0xC0));
    const __m512i tail = _mm512_slli_epi16(_mm512_or_si512(_mm512_and_si512(c, _mm512_set1_epi16(0x3F)), _mm512_set1_epi16(0x80)), 8);
    const __m512i word = _mm512_mask_mov_epi16(c, wide, _mm512_or_si512(lead, tail));
    const __m512i keep = _mm512_mask_mov_epi16(_mm512_maskz_mov_epi16(present, _mm512_set1_epi16(0xFF)), wide, _mm512_set1_epi16(-1));
    return storeKept(word, keep, out);
}

// Sixteen code points in 32-bit lanes, those `present` marks (the others
// zero), up to three bytes each, or four when `Four`; flags surrogates in `bad`.
template <bool Four>
__attribute__((target(TXPYTHON_AVX512), always_inline)) inline std::int64_t putSixteenWide(__m512i c, __mmask16 present,
                                                                                         unsigned char* out, __mmask16& bad) {
    const __m512i low6 = _mm512_set1_epi32(0x3F), cont = _mm512_set1_epi32(0x80);
    const __m512i tail0 = _mm512_or_si512(cont, _mm512_and_si512(c, low6));
    const __m512i tail1 = _mm512_or_si512(cont, _mm512_and_si512(_mm512_srli_epi32(c, 6), low6));
    const __m512i two = _mm512_or_si512(_mm512_or_si512(_mm512_set1_epi32(0xC0), _mm512_srli_epi32(c, 6)),
                                        _mm512_slli_epi32(tail0, 8));
    const __m512i three = _mm512_or_si512(_mm512_or_si512(_mm512_set1_epi32(0xE0), _mm512_srli_epi32(c, 12)),
                                          _mm512_or_si512(_mm512_slli_epi32(tail1, 8), _mm512_slli_epi32(tail0, 16)));
    const __mmask16 ge80 = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x80));
    const __mmask16 ge800 = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x800));
    __m512i word = _mm512_mask_mov_epi32(_mm512_mask_mov_epi32(c, ge80, two), ge800, three);
    __m512i keep = _mm512_maskz_mov_epi32(present, _mm512_set1_epi32(0xFF));
    keep = _mm512_mask_mov_epi32(_mm512_mask_mov_epi32(keep, ge80, _mm512_set1_epi32(0xFFFF)), ge800, _mm512_set1_epi32(0xFFFFFF));
    if constexpr (Four) {
        const __m512i tail2 = _mm512_or_si512(cont, _mm512_and_si512(_mm512_srli_epi32(c, 12), low6));
        const __m512i four = _mm512_or_si512(
            _mm512_or_si512(_mm512_set1_epi32(0xF0), _mm512_srli_epi32(c, 18)),
            _mm512_or_si512(_mm512_slli_epi32(tail2, 8), _mm512_or_si512(_mm512_slli_epi32(tail1, 16), _mm512_slli_epi32(tail0, 24))));
        const __mmask16 ge10000 = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x10000));
        word = _mm512_mask_mov_epi32(word, ge10000, four);
        keep = _mm512_mask_mov_epi32(keep, ge10000, _mm512_set1_epi32(-1));
    }
    bad = static_cast<__mmask16>(bad | _mm512_cmpeq_epi32_mask(_mm512_and_si512(c, _mm512_set1_epi32(~0x7FF)),
                                                                 _mm512_set1_epi32(0xD800)));
    return storeKept(word, keep, out);
}

template <typename Char>
__attribute__((target(TXPYTHON_AVX512))) std::int64_t writeAvx512(const Char* text, std::int64_t length, unsigned char* out) {
    std::int64_t n = 0;
    __mmask16 bad = 0;
    constexpr std::int64_t kPerStep = sizeof(Char) == 1 ? 32 : 16;
    for (std::int64_t i = 0; i < length; i += kPerStep) {
        // Every lane on a whole step; the characters left on the last.
        const auto present = static_cast<std::uint32_t>(_bzhi_u32(~0u, static_cast<unsigned>(std::min(length - i, kPerStep))));
        if constexpr (sizeof(Char) == 1) {
            n += putLatin1(_mm256_maskz_loadu_epi8(present, text + i), present, out + n);
        } else if constexpr (sizeof(Char) == 2) {
            const __m512i c = _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(static_cast<__mmask16>(present), text + i));
            n += putSixteenWide<false>(c, static_cast<__mmask16>(present), out + n, bad);
        } else {
            const __m512i c = _mm512_maskz_loadu_epi32(static_cast<__mmask16>(present), text + i);
            n += putSixteenWide<true>(c, static_cast<__mmask16>(present), out + n, bad);
        }
    }
    return bad != 0 ? -1 : n;
}

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

// The writers the CPU has; the best of them runs unless setUtf8Writer chose another.
const int kBestWriter = (__builtin_cpu_init(), __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("avx512bw") &&
                         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt"))
                            ? kUtf8Avx512
                        : __builtin_cpu_supports("avx2") ? kUtf8Avx2
                                                         : kUtf8Plain;
std::atomic<int> gWriter{kBestWriter};

template <typename Char>
std::int64_t write(const Char* text, std::int64_t length, unsigned char* out) {
    switch (gWriter.load(std::memory_order_relaxed)) {
    case kUtf8Avx512: return writeAvx512(text, length, out);
    case kUtf8Avx2: return writeAvx2(text, length, out);
    default: return writePlain(text, length, out);
    }
}

#else

const int kBestWriter = kUtf8Plain;

template <typename Char>
std::int64_t write(const Char* text, std::int64_t length, unsigned char* out) {
    return writePlain(text, length, out);
}

#endif

}  // namespace

int setUtf8Writer(int writer) {
#if TXPYTHON_VECTOR_UTF8
    return gWriter.exchange(std::clamp(writer, static_cast<int>(kUtf8Plain), kBestWriter));
#else
    static_cast<void>(writer);
    return kUtf8Plain;
#endif
}

int bestUtf8Writer() { return kBestWriter; }

std::int64_t writeUtf8(const std::uint8_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }
std::int64_t writeUtf8(const std::uint16_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }
std::int64_t writeUtf8(const std::uint32_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }

}  // namespace txpython
