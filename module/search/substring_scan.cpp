// Substring search by a vector filter on the pattern's first and last bytes:
// 32 alignments at a time, an alignment is a candidate only when its first
// and last text bytes can match, and each candidate is then compared in full.
// Caseless searches filter on every byte that upcaseMap folds onto the same
// byte as the pattern's end byte (its case images, found by one pass over the
// map), so the filter never drops an alignment that a plain scan would
// accept. Inputs too short for a vector block, ends with more than two case
// images, and processors without AVX2 take the plain scan.
#include "module/search/substring_scan.h"

#include <cstring>

#include "module/charset/byte_vectors.h"

#include "module/frame/module_state.h"

namespace txscan {

namespace {

// The bytes an end byte of the pattern can match in the text.
struct EndImages {
    std::uint8_t first[2];
    std::uint8_t last[2];
};

template <bool Caseless>
inline bool sameByte(std::uint8_t x, std::uint8_t y, const std::uint8_t* upper) {
    if constexpr (Caseless) {
        return upper[x] == upper[y];
    } else {
        (void)upper;
        return x == y;
    }
}

// Full comparison of one alignment.
template <bool Caseless>
inline bool matchesAt(const std::uint8_t* at, const std::uint8_t* p, std::int64_t m, const std::uint8_t* upper) {
    if constexpr (!Caseless) {
        return std::memcmp(at, p, static_cast<std::size_t>(m)) == 0;
    } else {
        for (std::int64_t j = 0; j < m; ++j) {
            if (upper[at[j]] != upper[p[j]]) return false;
        }
        return true;
    }
}

// The inner bytes of a candidate whose end bytes already passed the filter.
template <bool Caseless>
inline bool innerMatches(const std::uint8_t* at, const std::uint8_t* p, std::int64_t m, const std::uint8_t* upper) {
    return m <= 2 || matchesAt<Caseless>(at + 1, p + 1, m - 2, upper);
}

// One forward walk finds (stopping at the first match) and counts (going on
// past each match, as occurrences do not overlap).
template <SearchMode Mode, bool Caseless>
std::int64_t forwardPlain(const std::uint8_t* t, std::int64_t lastAlign, const std::uint8_t* p, std::int64_t m,
                          const std::uint8_t* upper) {
    std::int64_t n = 0;
    for (std::int64_t a = 0; a <= lastAlign;) {
        if (sameByte<Caseless>(t[a], p[0], upper) && matchesAt<Caseless>(t + a, p, m, upper)) {
            if constexpr (Mode == SearchMode::kFirst) return a;
            ++n;
            a += m;
        } else {
            ++a;
        }
    }
    return Mode == SearchMode::kFirst ? -1 : n;
}

template <bool Caseless>
std::int64_t backwardPlain(const std::uint8_t* t, std::int64_t lastAlign, const std::uint8_t* p, std::int64_t m,
                           const std::uint8_t* upper) {
    for (std::int64_t a = lastAlign; a >= 0; --a) {
        if (sameByte<Caseless>(t[a + m - 1], p[m - 1], upper) && matchesAt<Caseless>(t + a, p, m, upper)) return a;
    }
    return -1;
}

#if defined(__x86_64__)

constexpr std::int64_t kBlock = 32;

// The bytes that upcaseMap folds onto the same byte as the pattern's first
// and last bytes, found in one pass over the map: each end byte and its other
// case, or the byte twice. False when an end has more than two (the plain
// scan handles those).
__attribute__((target("avx2"))) bool caseImages(std::uint8_t firstByte, std::uint8_t lastByte,
                                                const std::uint8_t* upper, EndImages* images) {
    const __m256i firstTarget = _mm256_set1_epi8(static_cast<char>(upper[firstByte]));
    const __m256i lastTarget = _mm256_set1_epi8(static_cast<char>(upper[lastByte]));
    int firstFound = 0;
    int lastFound = 0;
    for (int row = 0; row < 256; row += 32) {
        const __m256i folded = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(upper + row));
        auto hits = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(folded, firstTarget)));
        for (; hits != 0; hits &= hits - 1) {
            if (firstFound == 2) return false;
            images->first[firstFound & 1] = static_cast<std::uint8_t>(row + __builtin_ctz(hits));
            ++firstFound;
        }
        hits = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(folded, lastTarget)));
        for (; hits != 0; hits &= hits - 1) {
            if (lastFound == 2) return false;
            images->last[lastFound & 1] = static_cast<std::uint8_t>(row + __builtin_ctz(hits));
            ++lastFound;
        }
    }
    if (firstFound == 1) images->first[1] = images->first[0];
    if (lastFound == 1) images->last[1] = images->last[0];
    return firstFound > 0 && lastFound > 0;
}

struct Avx2Filter {
    __m256i first0, first1, last0, last1;
};

template <bool Caseless>
__attribute__((target("avx2"))) inline std::uint32_t candidates(const std::uint8_t* at, std::int64_t m,
                                                                const Avx2Filter& f) {
    const __m256i head = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
    const __m256i tail = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at + m - 1));
    __m256i headHits = _mm256_cmpeq_epi8(head, f.first0);
    __m256i tailHits = _mm256_cmpeq_epi8(tail, f.last0);
    if constexpr (Caseless) {
        headHits = _mm256_or_si256(headHits, _mm256_cmpeq_epi8(head, f.first1));
        tailHits = _mm256_or_si256(tailHits, _mm256_cmpeq_epi8(tail, f.last1));
    }
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_and_si256(headHits, tailHits)));
}

__attribute__((target("avx2"))) inline Avx2Filter makeFilter(const EndImages& e) {
    return {_mm256_set1_epi8(static_cast<char>(e.first[0])), _mm256_set1_epi8(static_cast<char>(e.first[1])),
            _mm256_set1_epi8(static_cast<char>(e.last[0])), _mm256_set1_epi8(static_cast<char>(e.last[1]))};
}

// Alignments 0..lastAlign (lastAlign >= kBlock - 1); every load stays inside
// t[0..lastAlign + m). The alignments left after the whole blocks are
// examined by one more block ending at lastAlign, with the bits of the
// alignments already seen cleared, instead of one by one. When counting,
// candidates below `next` lie inside the previous match and are dropped.
template <SearchMode Mode, bool Caseless>
__attribute__((target("avx2,popcnt"))) std::int64_t forwardAvx2(const std::uint8_t* t, std::int64_t lastAlign,
                                                                const std::uint8_t* p, std::int64_t m,
                                                                const EndImages& images, const std::uint8_t* upper) {
    const Avx2Filter f = makeFilter(images);
    std::int64_t n = 0;
    std::int64_t next = 0;
    for (std::int64_t a = 0; a <= lastAlign; a += kBlock) {
        const std::int64_t block = a + kBlock - 1 <= lastAlign ? a : lastAlign - (kBlock - 1);
        const std::int64_t firstWanted = next > a ? next : a;
        if (firstWanted - block >= kBlock) continue;
        std::uint32_t hits = candidates<Caseless>(t + block, m, f) & (~0u << (firstWanted - block));
        if (Mode == SearchMode::kCount && m == 1) {
            // Every candidate of a one-byte pattern is a match, and none overlap.
            n += __builtin_popcount(hits);
            continue;
        }
        while (hits != 0) {
            const std::int64_t at = block + __builtin_ctz(hits);
            if (!innerMatches<Caseless>(t + at, p, m, upper)) {
                hits &= hits - 1;
                continue;
            }
            if constexpr (Mode == SearchMode::kFirst) return at;
            ++n;
            next = at + m;
            if (next - block >= kBlock) break;
            hits &= ~0u << (next - block);
        }
    }
    return Mode == SearchMode::kFirst ? -1 : n;
}

template <bool Caseless>
__attribute__((target("avx2"))) std::int64_t backwardAvx2(const std::uint8_t* t, std::int64_t lastAlign,
                                                          const std::uint8_t* p, std::int64_t m,
                                                          const EndImages& images, const std::uint8_t* upper) {
    const Avx2Filter f = makeFilter(images);
    // `top` is the highest alignment not yet examined.
    for (std::int64_t top = lastAlign; top >= 0; top -= kBlock) {
        std::uint32_t hits;
        std::int64_t block = top - (kBlock - 1);
        if (block >= 0) {
            hits = candidates<Caseless>(t + block, m, f);
        } else {
            block = 0;
            hits = candidates<Caseless>(t, m, f) & ((2u << top) - 1);
        }
        for (; hits != 0; hits &= ~(1u << (31 - __builtin_clz(hits)))) {
            const std::int64_t at = block + (31 - __builtin_clz(hits));
            if (innerMatches<Caseless>(t + at, p, m, upper)) return at;
        }
    }
    return -1;
}

// Whether the vector filter applies to this search, and its images if so.
template <bool Caseless>
bool vectorImages(std::int64_t lastAlign, const std::uint8_t* p, std::int64_t m, const std::uint8_t* upper,
                  EndImages* images) {
    if (lastAlign < kBlock - 1 || !haveAvx2()) return false;
    if constexpr (Caseless) return caseImages(p[0], p[m - 1], upper, images);
    *images = {{p[0], p[0]}, {p[m - 1], p[m - 1]}};
    return true;
}

#endif

template <SearchMode Mode, bool Caseless>
std::int64_t walk(const std::uint8_t* t, std::int64_t lastAlign, const std::uint8_t* p, std::int64_t m,
                  const std::uint8_t* upper) {
#if defined(__x86_64__)
    EndImages images;
    if (vectorImages<Caseless>(lastAlign, p, m, upper, &images)) {
        if constexpr (Mode == SearchMode::kLast) return backwardAvx2<Caseless>(t, lastAlign, p, m, images, upper);
        return forwardAvx2<Mode, Caseless>(t, lastAlign, p, m, images, upper);
    }
#endif
    if constexpr (Mode == SearchMode::kLast) return backwardPlain<Caseless>(t, lastAlign, p, m, upper);
    return forwardPlain<Mode, Caseless>(t, lastAlign, p, m, upper);
}

}  // namespace

template <SearchMode Mode>
std::int64_t searchBytes(const std::uint8_t* text, std::int64_t length, const Pattern& pattern) {
    const std::int64_t m = pattern.length;
    const std::int64_t lastAlign = length - m;
    if (m < 1 || lastAlign < 0) return Mode == SearchMode::kCount ? 0 : -1;
    if (Mode == SearchMode::kFirst && m == 1 && !pattern.caseless) {
        const void* at = std::memchr(text, pattern.data[0], static_cast<std::size_t>(length));
        return at == nullptr ? -1 : static_cast<const std::uint8_t*>(at) - text;
    }
    const std::uint8_t* upper = host().upcaseMap;
    return pattern.caseless ? walk<Mode, true>(text, lastAlign, pattern.data, m, upper)
                            : walk<Mode, false>(text, lastAlign, pattern.data, m, upper);
}

template std::int64_t searchBytes<SearchMode::kFirst>(const std::uint8_t*, std::int64_t, const Pattern&);
template std::int64_t searchBytes<SearchMode::kLast>(const std::uint8_t*, std::int64_t, const Pattern&);
template std::int64_t searchBytes<SearchMode::kCount>(const std::uint8_t*, std::int64_t, const Pattern&);

}  // namespace txscan
