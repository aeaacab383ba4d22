// Placeholders of the search workers until they are built: every path
// answers "invalid argument" and stores nothing.
#include "module/workers.h"

namespace txscan {
using contract::kStatusInvalidArgument;

std::int32_t countBytes(ArgumentFrame*, double*) { return kStatusInvalidArgument; }
std::int32_t countMultiByte(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t) { return kStatusInvalidArgument; }
std::int32_t findBytes(ArgumentFrame*, double*) { return kStatusInvalidArgument; }
std::int32_t findMultiByte(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t) { return kStatusInvalidArgument; }
std::int32_t countCharBytes(ArgumentFrame*, double*) { return kStatusInvalidArgument; }
std::int32_t countCharMultiByte(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t) { return kStatusInvalidArgument; }
std::int32_t findCharBytes(ArgumentFrame*, double*) { return kStatusInvalidArgument; }
std::int32_t findCharMultiByte(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t) { return kStatusInvalidArgument; }
}  // namespace txscan
