// UTF-8 read on its bytes, for the paths that walk UTF-8 session text
// themselves instead of through the EncodingHandle: the length of a
// well-formed sequence, whether a whole text is well formed, character
// counts as counts of lead bytes, and character positions turned into byte
// offsets. A malformed sequence is never given a meaning here; callers leave
// such text to the handle.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace txscan {

// Length of the well-formed UTF-8 sequence at p (at most n bytes), or 0.
inline int utf8Length(const std::uint8_t* p, std::int64_t n) {
    const std::uint8_t b = p[0];
    if (b < 0x80) return 1;
    int length = 0;
    std::uint8_t low = 0x80, high = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
        length = 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
        length = 3;
        if (b == 0xE0) low = 0xA0;
        if (b == 0xED) high = 0x9F;   // no surrogates
    } else if (b >= 0xF0 && b <= 0xF4) {
        length = 4;
        if (b == 0xF0) low = 0x90;
        if (b == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (n < length || p[1] < low || p[1] > high) return 0;
    for (int i = 2; i < length; ++i) {
        if (p[i] < 0x80 || p[i] > 0xBF) return 0;
    }
    return length;
}

// The number of characters of the text when it is well-formed UTF-8, else
// -1: the check and the count in one pass, a vector at a time where the
// processor allows (utf8_scan.cpp). kSse2 keeps to the baseline vectors
// whatever the processor has, so that both forms can be tested.
enum class Utf8Vectors { kBest, kSse2 };
std::int64_t utf8CharsIfWellFormed(const std::uint8_t* p, std::int64_t n, Utf8Vectors vectors = Utf8Vectors::kBest);
// The same for a text the caller has seen to hold a byte above 0x7F: its
// ASCII test is not made again.
std::int64_t utf8CharsIfWellFormedWide(const std::uint8_t* p, std::int64_t n);

// The check and count one sequence at a time; skipAscii(p, off, n) moves
// off past bytes below 0x80 as far as it cheaply can (a word or a vector
// at a time), and the loop takes the rest byte by byte.
template <typename SkipAscii>
inline std::int64_t utf8CharsSkipping(const std::uint8_t* p, std::int64_t n, SkipAscii skipAscii) {
    std::int64_t chars = n;
    for (std::int64_t off = 0; off < n;) {
        off = skipAscii(p, off, n);
        if (off >= n) break;
        if (p[off] < 0x80) {
            ++off;
            continue;
        }
        const int length = utf8Length(p + off, n - off);
        if (length == 0) return -1;
        off += length;
        chars -= length - 1;
    }
    return chars;
}

// The same jumping eight bytes at a time: for short texts, and the reference
// the vector forms are tested against.
inline std::int64_t utf8CharsOneByOne(const std::uint8_t* p, std::int64_t n) {
    return utf8CharsSkipping(p, n, [](const std::uint8_t* q, std::int64_t off, std::int64_t size) {
        if constexpr (std::endian::native == std::endian::little) {
            while (off + 8 <= size) {
                std::uint64_t eight = 0;
                std::memcpy(&eight, q + off, 8);
                const std::uint64_t high = eight & 0x8080808080808080ull;
                if (high != 0) return off + std::countr_zero(high) / 8;
                off += 8;
            }
        }
        return off;
    });
}

inline bool wellFormedUtf8(const std::uint8_t* p, std::int64_t n) { return utf8CharsIfWellFormed(p, n) >= 0; }

// Characters of well-formed UTF-8 text: one lead byte each.
std::int64_t leadBytes(const std::uint8_t* p, std::int64_t n);

inline bool utf8Lead(std::uint8_t b) { return (b & 0xC0) != 0x80; }

// Bytes of the well-formed sequence led by b, by its top four bits: a load
// where comparisons would branch.
inline int utf8SequenceBytes(std::uint8_t b) {
    static constexpr std::uint8_t kBytes[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 3, 4};
    return kBytes[b >> 4];
}

// In well-formed text: the byte offset of the character with 0-based index
// `index` (n when `index` is the character count, -1 when it is negative or
// beyond that), and the start of the character that ends at `end` (> 0).
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
inline std::int64_t utf8PreviousStart(const std::uint8_t* p, std::int64_t end) {
    std::int64_t off = end - 1;
    while (off > 0 && !utf8Lead(p[off])) --off;
    return off;
}

inline bool anyHighByte(const std::uint8_t* p, std::int64_t n) {
    for (std::int64_t i = 0; i < n; ++i) {
        if (p[i] >= 0x80) return true;
    }
    return false;
}

// Whether a list holds the character of `length` bytes at p, compared on
// the bytes (well-formed text has one spelling per character).
inline bool listHoldsChar(const std::uint8_t* list, std::int64_t listBytes, const std::uint8_t* p, int length) {
    for (std::int64_t i = 0; i + length <= listBytes; ++i) {
        if (list[i] == p[0] && std::memcmp(list + i, p, static_cast<std::size_t>(length)) == 0) return true;
    }
    return false;
}

}  // namespace txscan
