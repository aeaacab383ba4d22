// Few-byte scans: 16 bytes at a time with one equality compare per value
// (SSE2, always present on x86-64; forward scans and counts take 32 at a
// time where AVX2 is), the ragged end as one more window overlapping bytes
// already seen; byte by byte elsewhere and below 16 bytes. Each scan is
// compiled once per number of values, so a list of two bytes costs two
// compares a window. The digits take one subtraction and one unsigned
// compare a window.
#include "module/search/few_bytes.h"

#include "module/charset/byte_vectors.h"

namespace txscan {

namespace {

constexpr std::int64_t kWindow = kFewBytesWindow;

constexpr std::uint8_t kDigitSpan = FewBytes::kDigitSpan;

template <int K>
bool isOneOf(std::uint8_t b, const FewBytes& few) {
    if constexpr (K == 0) return static_cast<std::uint8_t>(b - '0') < kDigitSpan;
    bool hit = b == few.value(0);
    for (int k = 1; k < K; ++k) hit |= b == few.value(k);
    return hit;
}

#if defined(__x86_64__)

// K == 0: v[0] is '0' and v[1] the largest digit offset, 9.
template <int K>
struct Needles {
    __m128i v[K > 0 ? K : 2];
    explicit Needles(const FewBytes& few) {
        if constexpr (K == 0) v[0] = _mm_set1_epi8('0'), v[1] = _mm_set1_epi8(kDigitSpan - 1);
        for (int k = 0; k < K; ++k) v[k] = _mm_set1_epi8(static_cast<char>(few.value(k)));
    }
    // Bit j set when byte j of the window at p is one of the values.
    std::uint32_t hitsAt(const std::uint8_t* p) const {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        if constexpr (K == 0) {
            const __m128i offset = _mm_sub_epi8(bytes, v[0]);
            return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(offset, v[1]), offset)));
        }
        __m128i hits = _mm_cmpeq_epi8(bytes, v[0]);
        for (int k = 1; k < K; ++k) hits = _mm_or_si128(hits, _mm_cmpeq_epi8(bytes, v[k]));
        return static_cast<std::uint32_t>(_mm_movemask_epi8(hits));
    }
};

template <int K>
struct WideNeedles {
    __m256i v[K > 0 ? K : 2];
    __attribute__((target("avx2"))) explicit WideNeedles(const FewBytes& few) {
        if constexpr (K == 0) v[0] = _mm256_set1_epi8('0'), v[1] = _mm256_set1_epi8(kDigitSpan - 1);
        for (int k = 0; k < K; ++k) v[k] = _mm256_set1_epi8(static_cast<char>(few.value(k)));
    }
    __attribute__((target("avx2"))) std::uint32_t hitsAt(const std::uint8_t* p) const {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
        if constexpr (K == 0) {
            const __m256i offset = _mm256_sub_epi8(bytes, v[0]);
            return static_cast<std::uint32_t>(
                _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_min_epu8(offset, v[1]), offset)));
        }
        __m256i hits = _mm256_cmpeq_epi8(bytes, v[0]);
        for (int k = 1; k < K; ++k) hits = _mm256_or_si256(hits, _mm256_cmpeq_epi8(bytes, v[k]));
        return static_cast<std::uint32_t>(_mm256_movemask_epi8(hits));
    }
};

template <int K>
__attribute__((target("avx2"))) std::int64_t firstAvx2(const std::uint8_t* data, std::int64_t length,
                                                       const FewBytes& few) {
    const WideNeedles<K> n(few);
    std::int64_t i = 0;
    for (; i + 2 * kWindow <= length; i += 2 * kWindow) {
        if (const std::uint32_t hits = n.hitsAt(data + i)) return i + __builtin_ctz(hits);
    }
    if (i == length) return -1;
    const std::uint32_t hits = n.hitsAt(data + length - 2 * kWindow);
    return hits != 0 ? length - 2 * kWindow + __builtin_ctz(hits) : -1;
}

template <int K>
__attribute__((target("avx2,popcnt"))) std::int64_t countAvx2(const std::uint8_t* data, std::int64_t length,
                                                              const FewBytes& few) {
    const WideNeedles<K> n(few);
    std::int64_t count = 0;
    std::int64_t i = 0;
    for (; i + 2 * kWindow <= length; i += 2 * kWindow) count += __builtin_popcount(n.hitsAt(data + i));
    if (i == length) return count;
    const std::int64_t seen = i - (length - 2 * kWindow);
    return count + __builtin_popcount(n.hitsAt(data + length - 2 * kWindow) >> seen);
}

#endif

template <int K>
std::int64_t first(const std::uint8_t* data, std::int64_t length, const FewBytes& few) {
    std::int64_t i = 0;
#if defined(__x86_64__)
    if (length >= 2 * kWindow && haveAvx2()) return firstAvx2<K>(data, length, few);
    if (length >= kWindow) {
        const Needles<K> n(few);
        for (; i + kWindow <= length; i += kWindow) {
            if (const std::uint32_t hits = n.hitsAt(data + i)) return i + __builtin_ctz(hits);
        }
        if (i == length) return -1;
        // The bytes of the last window before i hold none of the values.
        const std::uint32_t hits = n.hitsAt(data + length - kWindow);
        return hits != 0 ? length - kWindow + __builtin_ctz(hits) : -1;
    }
#endif
    for (; i < length; ++i) {
        if (isOneOf<K>(data[i], few)) return i;
    }
    return -1;
}

template <int K>
std::int64_t last(const std::uint8_t* data, std::int64_t length, const FewBytes& few) {
    std::int64_t end = length;
#if defined(__x86_64__)
    if (length >= kWindow) {
        const Needles<K> n(few);
        for (; end >= kWindow; end -= kWindow) {
            if (const std::uint32_t hits = n.hitsAt(data + end - kWindow)) return end - kWindow + 31 - __builtin_clz(hits);
        }
        if (end == 0) return -1;
        // The bytes of the first window from end on hold none of the values.
        const std::uint32_t hits = n.hitsAt(data);
        return hits != 0 ? 31 - __builtin_clz(hits) : -1;
    }
#endif
    while (end-- > 0) {
        if (isOneOf<K>(data[end], few)) return end;
    }
    return -1;
}

template <int K>
std::int64_t count(const std::uint8_t* data, std::int64_t length, const FewBytes& few) {
    std::int64_t n = 0;
    std::int64_t i = 0;
#if defined(__x86_64__)
    if (length >= 2 * kWindow && haveAvx2()) return countAvx2<K>(data, length, few);
    if (length >= kWindow) {
        const Needles<K> needles(few);
        for (; i + kWindow <= length; i += kWindow) n += __builtin_popcount(needles.hitsAt(data + i));
        if (i == length) return n;
        const std::int64_t seen = i - (length - kWindow);
        return n + __builtin_popcount(needles.hitsAt(data + length - kWindow) >> seen);
    }
#endif
    for (; i < length; ++i) n += isOneOf<K>(data[i], few);
    return n;
}

using Scan = std::int64_t (*)(const std::uint8_t*, std::int64_t, const FewBytes&);

// The scan compiled for few.count values (0: the digits).
template <Scan Digits, Scan One, Scan Two, Scan Three, Scan Four>
std::int64_t byCount(const std::uint8_t* data, std::int64_t length, const FewBytes& few) {
    switch (few.count) {
        case 0: return Digits(data, length, few);
        case 1: return One(data, length, few);
        case 2: return Two(data, length, few);
        case 3: return Three(data, length, few);
        default: return Four(data, length, few);
    }
}

}  // namespace

std::int64_t firstOfFew(const std::uint8_t* data, std::int64_t length, const FewBytes& few) {
    return byCount<first<0>, first<1>, first<2>, first<3>, first<4>>(data, length, few);
}

std::int64_t lastOfFew(const std::uint8_t* data, std::int64_t length, const FewBytes& few) {
    return byCount<last<0>, last<1>, last<2>, last<3>, last<4>>(data, length, few);
}

std::int64_t countOfFewLong(const std::uint8_t* data, std::int64_t length, const FewBytes& few) {
    return byCount<count<0>, count<1>, count<2>, count<3>, count<4>>(data, length, few);
}

}  // namespace txscan
