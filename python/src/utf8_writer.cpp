// UTF-8 from code points. Runs of ASCII go 16 bytes at a time. Elsewhere
// four characters at once: each one's UTF-8 bytes are built in its own
// 32-bit lane, and one byte shuffle, chosen by the four widths, packs them
// together; mixed text changes widths too often for a per-character branch.
#include "python/src/utf8_writer.h"

#include <array>

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

// For four lanes whose widths less one are w0..w3 (index w0 | w1 << 2 |
// w2 << 4 | w3 << 6): the shuffle that packs each lane's first bytes
// together, and how many bytes that makes.
struct Packing {
    std::array<std::array<std::uint8_t, 16>, 256> shuffle{};
    std::array<std::uint8_t, 256> bytes{};
};

constexpr Packing makePacking() {
    Packing p;
    for (int index = 0; index < 256; ++index) {
        int at = 0;
        for (int lane = 0; lane < 4; ++lane) {
            const int width = ((index >> (2 * lane)) & 3) + 1;
            for (int k = 0; k < width; ++k) p.shuffle[index][at++] = static_cast<std::uint8_t>(4 * lane + k);
        }
        p.bytes[index] = static_cast<std::uint8_t>(at);
        for (int k = at; k < 16; ++k) p.shuffle[index][k] = 0x80;
    }
    return p;
}

constexpr Packing kPacking = makePacking();

// Bit k of a 4-bit lane mask moved to bit 2k.
constexpr std::array<std::uint8_t, 16> kSpread = {0x00, 0x01, 0x04, 0x05, 0x10, 0x11, 0x14, 0x15,
                                                  0x40, 0x41, 0x44, 0x45, 0x50, 0x51, 0x54, 0x55};

// The four code points in `c` (32-bit lanes) as packed UTF-8 at `out`
// (16 bytes stored); returns the bytes that count.
__attribute__((target("ssse3"))) inline std::int64_t putFour(__m128i c, unsigned char* out, __m128i& bad) {
    const __m128i low6 = _mm_set1_epi32(0x3F), cont = _mm_set1_epi32(0x80);
    const __m128i tail0 = _mm_or_si128(cont, _mm_and_si128(c, low6));
    const __m128i tail1 = _mm_or_si128(cont, _mm_and_si128(_mm_srli_epi32(c, 6), low6));
    const __m128i tail2 = _mm_or_si128(cont, _mm_and_si128(_mm_srli_epi32(c, 12), low6));
    const __m128i two = _mm_or_si128(_mm_or_si128(_mm_set1_epi32(0xC0), _mm_srli_epi32(c, 6)), _mm_slli_epi32(tail0, 8));
    const __m128i three = _mm_or_si128(_mm_or_si128(_mm_set1_epi32(0xE0), _mm_srli_epi32(c, 12)),
                                       _mm_or_si128(_mm_slli_epi32(tail1, 8), _mm_slli_epi32(tail0, 16)));
    const __m128i four = _mm_or_si128(_mm_or_si128(_mm_set1_epi32(0xF0), _mm_srli_epi32(c, 18)),
                                      _mm_or_si128(_mm_slli_epi32(tail2, 8),
                                                   _mm_or_si128(_mm_slli_epi32(tail1, 16), _mm_slli_epi32(tail0, 24))));
    // Code points are below 0x110000, so signed comparisons serve.
    const __m128i ge80 = _mm_cmpgt_epi32(c, _mm_set1_epi32(0x7F));
    const __m128i ge800 = _mm_cmpgt_epi32(c, _mm_set1_epi32(0x7FF));
    const __m128i ge10000 = _mm_cmpgt_epi32(c, _mm_set1_epi32(0xFFFF));
    __m128i word = _mm_andnot_si128(ge80, c);
    word = _mm_or_si128(word, _mm_and_si128(_mm_andnot_si128(ge800, ge80), two));
    word = _mm_or_si128(word, _mm_and_si128(_mm_andnot_si128(ge10000, ge800), three));
    word = _mm_or_si128(word, _mm_and_si128(ge10000, four));
    const __m128i surrogate = _mm_cmpeq_epi32(_mm_and_si128(c, _mm_set1_epi32(~0x7FF)), _mm_set1_epi32(0xD800));
    bad = _mm_or_si128(bad, surrogate);
    const int index = kSpread[static_cast<std::size_t>(_mm_movemask_ps(_mm_castsi128_ps(ge80)))] +
                      kSpread[static_cast<std::size_t>(_mm_movemask_ps(_mm_castsi128_ps(ge800)))] +
                      kSpread[static_cast<std::size_t>(_mm_movemask_ps(_mm_castsi128_ps(ge10000)))];
    const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kPacking.shuffle[static_cast<std::size_t>(index)].data()));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(word, shuffle));
    return kPacking.bytes[static_cast<std::size_t>(index)];
}

// Eight characters from `text` as two registers of four 32-bit lanes;
// true when all eight are ASCII (then their bytes are stored at `out`).
template <typename Char>
__attribute__((target("ssse3"))) inline bool loadEight(const Char* text, __m128i& lo, __m128i& hi, unsigned char* out) {
    const __m128i zero = _mm_setzero_si128();
    if constexpr (sizeof(Char) == 1) {
        const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(text));
        if ((_mm_movemask_epi8(bytes) & 0xFF) == 0) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), bytes);
            return true;
        }
        const __m128i units = _mm_unpacklo_epi8(bytes, zero);
        lo = _mm_unpacklo_epi16(units, zero);
        hi = _mm_unpackhi_epi16(units, zero);
    } else if constexpr (sizeof(Char) == 2) {
        const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        const __m128i wide = _mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xFF80)));
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(wide, zero)) == 0xFFFF) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(units, units));
            return true;
        }
        lo = _mm_unpacklo_epi16(units, zero);
        hi = _mm_unpackhi_epi16(units, zero);
    } else {
        lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + 4));
        const __m128i wide = _mm_and_si128(_mm_or_si128(lo, hi), _mm_set1_epi32(static_cast<int>(0xFFFFFF80)));
        if (_mm_movemask_epi8(_mm_cmpeq_epi32(wide, zero)) == 0xFFFF) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(_mm_packs_epi32(lo, hi), zero));
            return true;
        }
    }
    return false;
}

template <typename Char>
__attribute__((target("ssse3"))) std::int64_t writeVector(const Char* text, std::int64_t length, unsigned char* out) {
    std::int64_t n = 0, i = 0;
    __m128i bad = _mm_setzero_si128();
    __m128i lo = bad, hi = bad;
    for (; i + 8 <= length; i += 8) {
        if (loadEight(text + i, lo, hi, out + n)) {
            n += 8;
            continue;
        }
        n += putFour(lo, out + n, bad);
        n += putFour(hi, out + n, bad);
    }
    std::uint32_t badTail = 0;
    for (; i < length; ++i) n += put(text[i], out + n, badTail);
    return badTail != 0 || _mm_movemask_epi8(bad) != 0 ? -1 : n;
}

const bool kHaveSsse3 = (__builtin_cpu_init(), __builtin_cpu_supports("ssse3"));

template <typename Char>
std::int64_t write(const Char* text, std::int64_t length, unsigned char* out) {
    return kHaveSsse3 ? writeVector(text, length, out) : writePlain(text, length, out);
}

#else

template <typename Char>
std::int64_t write(const Char* text, std::int64_t length, unsigned char* out) {
    return writePlain(text, length, out);
}

#endif

}  // namespace

std::int64_t writeUtf8(const std::uint8_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }
std::int64_t writeUtf8(const std::uint16_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }
std::int64_t writeUtf8(const std::uint32_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }

}  // namespace txpython
