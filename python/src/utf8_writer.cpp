// UTF-8 from code points: a vector test for ASCII runs, then each character
// as one 4-byte store whose width is computed, not branched on.
#include "python/src/utf8_writer.h"

#if defined(__SSE2__)
#include <emmintrin.h>
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

// True when the block of 16 bytes at `text` is all ASCII; then its UTF-8
// form (8 or 16 bytes) is stored at `out` and `units` tells how many
// characters it was.
template <typename Char>
inline bool asciiBlock(const Char* text, unsigned char* out, std::int64_t& units) {
#if defined(__SSE2__)
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    if constexpr (sizeof(Char) == 1) {
        if (_mm_movemask_epi8(v) != 0) return false;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v);
    } else if constexpr (sizeof(Char) == 2) {
        const __m128i wide = _mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80)));
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(wide, _mm_setzero_si128())) != 0xFFFF) return false;
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(v, v));
    } else {
        const __m128i wide = _mm_and_si128(v, _mm_set1_epi32(static_cast<int>(0xFFFFFF80)));
        if (_mm_movemask_epi8(_mm_cmpeq_epi32(wide, _mm_setzero_si128())) != 0xFFFF) return false;
        const __m128i halves = _mm_packs_epi32(v, v);
        const __m128i bytes = _mm_packus_epi16(halves, halves);
        const int four = _mm_cvtsi128_si32(bytes);
        out[0] = static_cast<unsigned char>(four);
        out[1] = static_cast<unsigned char>(four >> 8);
        out[2] = static_cast<unsigned char>(four >> 16);
        out[3] = static_cast<unsigned char>(four >> 24);
    }
    units = 16 / sizeof(Char);
    return true;
#else
    std::uint32_t any = 0;
    for (std::size_t k = 0; k < 16 / sizeof(Char); ++k) any |= text[k];
    if (any >= 0x80) return false;
    for (std::size_t k = 0; k < 16 / sizeof(Char); ++k) out[k] = static_cast<unsigned char>(text[k]);
    units = 16 / sizeof(Char);
    return true;
#endif
}

template <typename Char>
std::int64_t write(const Char* text, std::int64_t length, unsigned char* out) {
    constexpr std::int64_t kBlock = 16 / sizeof(Char);
    std::int64_t n = 0, i = 0, units = 0;
    std::uint32_t bad = 0;
    while (i + kBlock <= length) {
        if (asciiBlock(text + i, out + n, units)) {
            n += units;
            i += units;
            continue;
        }
        for (const std::int64_t end = i + kBlock; i < end; ++i) n += put(text[i], out + n, bad);
    }
    for (; i < length; ++i) n += put(text[i], out + n, bad);
    return bad != 0 ? -1 : n;
}

}  // namespace

std::int64_t writeUtf8(const std::uint8_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }
std::int64_t writeUtf8(const std::uint16_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }
std::int64_t writeUtf8(const std::uint32_t* text, std::int64_t length, unsigned char* out) { return write(text, length, out); }

}  // namespace txpython
