// Placeholders of the character-set search workers (KFINDC, KCOUNTC) until
// they are built: every path answers "invalid argument" and stores nothing.
#include "module/workers.h"

namespace txscan {
using contract::kStatusInvalidArgument;

std::int32_t countCharBytes(ArgumentFrame*, double*) { return kStatusInvalidArgument; }
std::int32_t countCharMultiByte(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t) { return kStatusInvalidArgument; }
std::int32_t findCharBytes(ArgumentFrame*, double*) { return kStatusInvalidArgument; }
std::int32_t findCharMultiByte(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t) { return kStatusInvalidArgument; }
}  // namespace txscan
