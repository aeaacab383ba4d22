// Scanning bytes against a 256-entry set: the first, the last and the number
// of member bytes. Long inputs are scanned 16 or 32 bytes at a time with a
// nibble-table form of the set; the answers are those of a byte-by-byte scan.
#pragma once

#include <cstdint>

namespace txscan {

// Index (from 0) of the first byte of data[0..length) whose entry in `set`
// is nonzero; -1 when there is none or length <= 0.
std::int32_t firstInSet(const std::uint8_t* data, std::int32_t length, const std::uint8_t set[256]);

// Index of the last such byte, or -1.
std::int32_t lastInSet(const std::uint8_t* data, std::int32_t length, const std::uint8_t set[256]);

// Number of such bytes (0 when length <= 0).
std::int64_t countInSet(const std::uint8_t* data, std::int64_t length, const std::uint8_t set[256]);

}  // namespace txscan
