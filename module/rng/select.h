// Method selection: a name (8-bit or UTF-16), the configured name or nothing
// turned into a filled method record, with MTHYBRID as default and fallback.
#pragma once

#include <cstdint>

#include "module/rng/method.h"

namespace txscan::rng {

inline constexpr std::uint64_t kNameIsWide = 1;   // options bit 0

// A negative length: the name runs to its terminator. Returns 0,
// kUnknownMethod or kNoHardwareRandom; the record is always left filled.
std::int32_t selectMethod(const void* name, std::int32_t length, RngMethod* record, std::uint64_t options);

}  // namespace txscan::rng
