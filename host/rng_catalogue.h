// The host's words for the random library's catalogued messages and for the
// store and transcoder statuses it may pass on. Each text is a format whose
// conversions read exactly the arguments the library passes with that code.
#pragma once

#include <cstdint>

namespace txhost {

// The format of message `code`, or null for a code the catalogue lacks.
const char16_t* rngCatalogueText(std::int32_t code);
// "NOTE: ", "WARNING: ", "ERROR: " or "INFO: " for a severity.
const char* rngSeverityPrefix(std::int32_t severity);

// Statuses of the host side of the library.
inline constexpr std::int32_t kStatusBadValueSize = static_cast<std::int32_t>(0x803FC00Au);
inline constexpr std::int32_t kStatusTranscodeFailed = static_cast<std::int32_t>(0x803FC0F1u);
inline constexpr std::int32_t kStatusUnknownQuery = static_cast<std::int32_t>(0x803FC0F2u);

}  // namespace txhost
