// The byte paths' substring search: first or last occurrence and the count of
// non-overlapping occurrences of a pattern in a byte range, exact or caseless
// (two bytes match under caseless when upcaseMap maps them to the same byte).
// Answers are those of a plain alignment-by-alignment scan; nothing is
// allocated and no shift table is built.
#pragma once

#include <cstdint>

namespace txscan {

struct Pattern {
    const std::uint8_t* data;
    std::int64_t length;   // at least 1
    bool caseless;
};

// Lowest alignment a in [0, length - m] at which the pattern matches, or -1.
std::int64_t findFirstOccurrence(const std::uint8_t* text, std::int64_t length, const Pattern& pattern);

// Highest such alignment, or -1: the whole match lies inside text[0..length).
std::int64_t findLastOccurrence(const std::uint8_t* text, std::int64_t length, const Pattern& pattern);

// Occurrences scanning left to right, the next candidate after a match at a
// being a + m.
std::int64_t countOccurrences(const std::uint8_t* text, std::int64_t length, const Pattern& pattern);

}  // namespace txscan
