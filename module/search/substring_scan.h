// The byte paths' substring search: one engine for the first and the last
// occurrence of a pattern in a byte range and for the count of its
// non-overlapping occurrences, exact or caseless (two bytes match under
// caseless when upcaseMap maps them to the same byte). Answers are those of a
// plain alignment-by-alignment scan; nothing is allocated and no shift table
// is built.
#pragma once

#include <cstdint>

namespace txscan {

struct Pattern {
    const std::uint8_t* data;
    std::int64_t length;   // at least 1
    bool caseless;
};

// What a search answers. kFirst: the lowest alignment a in [0, length - m]
// at which the pattern matches; kLast: the highest (the whole match lies
// inside the text); both -1 when there is none. kCount: the occurrences
// scanning left to right, the next candidate after a match at a being a + m.
enum class SearchMode : std::uint8_t { kFirst, kLast, kCount };

template <SearchMode Mode>
std::int64_t searchBytes(const std::uint8_t* text, std::int64_t length, const Pattern& pattern);

}  // namespace txscan
