// Scans for any of a few byte values, or for the ten digits: the short
// character lists and the lone class D that KFINDC and KCOUNTC are mostly
// given, where building a 256-entry set costs more than the scan of a row.
// The answers are those of a scan against the same set.
#pragma once

#include <cstdint>

namespace txscan {

inline constexpr int kFewBytesMaximum = 4;

// Bytes a vector window of the scans holds.
inline constexpr std::int64_t kFewBytesWindow = 16;

// Value k in bits 8k to 8k+7: the scans take them from one word, never from
// bytes stored one by one (a word load of those stalls until they are written).
// A count of 0 stands for the digits '0' to '9' instead (one range compare).
struct FewBytes {
    std::uint32_t values;
    int count;   // 1 to kFewBytesMaximum (repeats allowed), or 0: the digits

    static constexpr std::uint8_t kDigitSpan = 10;

    std::uint8_t value(int k) const { return static_cast<std::uint8_t>(values >> (8 * k)); }
    bool holds(std::uint8_t b) const {
        if (count == 0) return static_cast<std::uint8_t>(b - '0') < kDigitSpan;
        bool hit = false;
        for (int k = 0; k < count; ++k) hit |= b == value(k);
        return hit;
    }
};

inline constexpr FewBytes kDigitBytes{0, 0};

// The bytes of list[0..length), each as its upper and its lower form (both,
// as a caseless set holds them) when the maps are given. False when the list
// is empty or gives more than kFewBytesMaximum values. Repeated values cost
// a compare each and change no answer.
inline bool fewBytesOf(const char* list, std::int64_t length, const std::uint8_t* upper, const std::uint8_t* lower,
                       FewBytes* few) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(list);
    const bool caseless = upper != nullptr;
    if (length <= 0 || length > (caseless ? kFewBytesMaximum / 2 : kFewBytesMaximum)) return false;
    std::uint32_t values = 0;
    int count = 0;
    for (std::int64_t i = 0; i < length; ++i) {
        values |= std::uint32_t{caseless ? upper[bytes[i]] : bytes[i]} << (8 * count++);
        if (caseless) values |= std::uint32_t{lower[bytes[i]]} << (8 * count++);
    }
    few->values = values;
    few->count = count;
    return true;
}

// Index (from 0) of the first or last byte of data[0..length) equal to one
// of the values, -1 when there is none; and how many there are.
std::int64_t firstOfFew(const std::uint8_t* data, std::int64_t length, const FewBytes& few);
std::int64_t lastOfFew(const std::uint8_t* data, std::int64_t length, const FewBytes& few);
std::int64_t countOfFewLong(const std::uint8_t* data, std::int64_t length, const FewBytes& few);

// Inline below one vector window: the commonest counts are of short rows.
inline std::int64_t countOfFew(const std::uint8_t* data, std::int64_t length, const FewBytes& few) {
    if (length >= kFewBytesWindow) return countOfFewLong(data, length, few);
    std::int64_t n = 0;
    for (std::int64_t i = 0; i < length; ++i) n += few.holds(data[i]);
    return n;
}

}  // namespace txscan
