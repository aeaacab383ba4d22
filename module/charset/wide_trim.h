// Trailing-blank trimming of UTF-16 text, used by the random-number settings
// interface for the names and values it reads.
#pragma once

#include <cstdint>

namespace txscan {

// `units` less the number of trailing U+0020 units (0 for an all-blank text).
std::int64_t wideTrimmedLength(const char16_t* text, std::int64_t units);

}  // namespace txscan
