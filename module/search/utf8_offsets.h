// Character positions of well-formed UTF-8 text turned into byte offsets and
// back, for the UTF-8 search paths that find on the bytes and answer in
// characters. Every function but the first assumes well-formed text.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "module/charset/utf8_text.h"

namespace txscan {

inline bool utf8Lead(std::uint8_t b) { return (b & 0xC0) != 0x80; }

// Byte offset of the character with 0-based index `index`; n when `index` is
// the character count, -1 when it is negative or beyond that.
inline std::int64_t utf8OffsetOf(const std::uint8_t* p, std::int64_t n, std::int64_t index) {
    if (index < 0) return -1;
    std::int64_t seen = 0;
    for (std::int64_t off = 0; off < n; ++off) {
        if (!utf8Lead(p[off])) continue;
        if (seen == index) return off;
        ++seen;
    }
    return seen == index ? n : -1;
}

// Start of the character that ends at byte offset `end` (> 0).
inline std::int64_t utf8PreviousStart(const std::uint8_t* p, std::int64_t end) {
    std::int64_t off = end - 1;
    while (off > 0 && !utf8Lead(p[off])) --off;
    return off;
}

// Bytes of the well-formed sequence led by b, by its top four bits: a load
// where comparisons would branch.
inline int utf8SequenceBytes(std::uint8_t b) {
    static constexpr std::uint8_t kBytes[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 3, 4};
    return kBytes[b >> 4];
}

}  // namespace txscan
