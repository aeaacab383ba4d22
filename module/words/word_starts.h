// Counting the words of a byte string against a delimiter set or a single
// delimiter byte: the number of non-delimiter bytes that follow a delimiter
// or begin the string. Long strings are counted 32 bytes at a time; the
// answers are those of a byte-by-byte scan.
#pragma once

#include <cstdint>

namespace txscan {

std::int64_t countWordStarts(const std::uint8_t* data, std::int64_t length, const std::uint8_t set[256]);
std::int64_t countWordStartsSplitBy(const std::uint8_t* data, std::int64_t length, std::uint8_t delimiter);

// The byte-by-byte forms, also the oracle of the vector forms.
std::int64_t countWordStartsScalar(const std::uint8_t* data, std::int64_t length, const std::uint8_t set[256]);
std::int64_t countWordStartsSplitByScalar(const std::uint8_t* data, std::int64_t length, std::uint8_t delimiter);

}  // namespace txscan
