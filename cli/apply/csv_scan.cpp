// SSE2 is the x86-64 baseline, so no dispatch is needed; other processors
// take the plain loop, which gives the same masks.
#include "cli/apply/csv_scan.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace txcli {

namespace {

bool structural(const CsvBytes& bytes, char c) {
    return c == bytes.separator || c == bytes.quote || c == '\n' || c == '\r' ||
           (bytes.escape >= 0 && c == static_cast<char>(bytes.escape));
}

#if defined(__SSE2__)
// One 16-byte slice: bit i set where slice[i] is structural.
inline std::uint32_t sliceMask(const char* slice, __m128i separator, __m128i quote, __m128i escape, bool hasEscape) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(slice));
    __m128i hit = _mm_or_si128(_mm_cmpeq_epi8(v, separator), _mm_cmpeq_epi8(v, quote));
    hit = _mm_or_si128(hit, _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\n')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\r'))));
    if (hasEscape) hit = _mm_or_si128(hit, _mm_cmpeq_epi8(v, escape));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(hit));
}
#endif

}  // namespace

std::uint64_t CsvScan::maskOf(const char* block) const {
    const std::ptrdiff_t available = end_ - block;
    if (available < 64) {
        // The last block of the range: bytes past it are neither read nor found.
        std::uint64_t mask = 0;
        for (std::ptrdiff_t i = 0; i < available; ++i) {
            if (structural(bytes_, block[i])) mask |= std::uint64_t{1} << i;
        }
        return mask;
    }
#if defined(__SSE2__)
    const __m128i separator = _mm_set1_epi8(bytes_.separator);
    const __m128i quote = _mm_set1_epi8(bytes_.quote);
    const __m128i escape = _mm_set1_epi8(static_cast<char>(bytes_.escape));
    const bool hasEscape = bytes_.escape >= 0;
    std::uint64_t mask = 0;
    for (int i = 0; i < 4; ++i) {
        mask |= std::uint64_t{sliceMask(block + 16 * i, separator, quote, escape, hasEscape)} << (16 * i);
    }
    return mask;
#else
    std::uint64_t mask = 0;
    for (int i = 0; i < 64; ++i) {
        if (structural(bytes_, block[i])) mask |= std::uint64_t{1} << i;
    }
    return mask;
#endif
}

bool CsvScan::anyIn(const char* begin, const char* end) const {
#if defined(__SSE2__)
    const __m128i separator = _mm_set1_epi8(bytes_.separator);
    const __m128i quote = _mm_set1_epi8(bytes_.quote);
    const __m128i escape = _mm_set1_epi8(static_cast<char>(bytes_.escape));
    const bool hasEscape = bytes_.escape >= 0;
    for (; end - begin >= 16; begin += 16) {
        if (sliceMask(begin, separator, quote, escape, hasEscape) != 0) return true;
    }
#endif
    for (; begin < end; ++begin) {
        if (structural(bytes_, *begin)) return true;
    }
    return false;
}

}  // namespace txcli
