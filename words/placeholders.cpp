// Placeholders of the word functions until they are built: every path
// answers "invalid argument" and stores nothing.
#include "module/workers.h"

namespace txscan {
using contract::kStatusInvalidArgument;

std::int32_t countWordsBytes(ArgumentFrame*, double*) { return kStatusInvalidArgument; }
std::int32_t countWordsMultiByte(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t, PerCallRecord*) {
    return kStatusInvalidArgument;
}
std::int32_t findWordBytes(ArgumentFrame*, double*) { return kStatusInvalidArgument; }
std::int32_t findWordMultiByte(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t, PerCallRecord*) {
    return kStatusInvalidArgument;
}
std::int32_t scanCommon(ArgumentFrame*, StringValue*, EncodingHandle*, std::uint8_t, PerCallRecord*) {
    return kStatusInvalidArgument;
}
}  // namespace txscan
