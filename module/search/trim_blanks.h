// Dropping trailing blanks (the byte 0x20 only) from a byte string; shared by
// every byte path that honours modifier T.
#pragma once

#include <cstdint>

namespace txscan {

// `length` less the number of trailing 0x20 bytes of data[0..length).
std::int64_t trimTrailingBlanks(const char* data, std::int64_t length);

}  // namespace txscan
