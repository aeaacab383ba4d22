// Trimming a byte string at both ends by a 256-entry set: KFINDW's R.
#pragma once

#include <cstdint>

namespace txscan {

// Moves *data past every leading byte whose entry in `set` is nonzero and
// shortens *length past every such trailing byte. With `quotes`, the
// entries of the double quote and the apostrophe are cleared first (and
// stay cleared), so quotes are never trimmed away.
void trimSetBytes(const std::uint8_t** data, std::int32_t* length, std::uint8_t set[256], bool quotes);

}  // namespace txscan
