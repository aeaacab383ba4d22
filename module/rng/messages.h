// Codes of the random library: the statuses a stream keeps (first failure of
// an initialisation wins) and the catalogued messages it issues. The words of
// every message live in the host's catalogue.
#pragma once

#include <cstdint>

namespace txscan::rng {

constexpr std::int32_t code(std::uint32_t bits) { return static_cast<std::int32_t>(bits); }

// Statuses.
inline constexpr std::int32_t kNullContext = code(0x803FC002);
inline constexpr std::int32_t kUnknownMethod = code(0x8C7FE80B);     // MTHYBRID used instead
inline constexpr std::int32_t kNoHardwareRandom = code(0x8C7FE80C);  // RDRAND asked for, MTHYBRID used
inline constexpr std::int32_t kSeedNotAccepted = code(0x8C7FE80D);
inline constexpr std::int32_t kStreamNotAccepted = code(0x8C7FE80F);
inline constexpr std::int32_t kStreamOutOfRange = code(0x8C7FE810);

// Messages.
inline constexpr std::int32_t kMsgSeedIgnored = code(0x8C7FE817);        // (seed f64, method name)
inline constexpr std::int32_t kMsgSeedConverted = code(0x8C7FE818);      // (requested f64, maxSeed, name, seed, seed)
inline constexpr std::int32_t kMsgSeedFolded = code(0x8C7FE819);         // (value f64, n f64, r f64)
inline constexpr std::int32_t kMsgStreamIgnored = code(0x8C7FE81A);      // (stream f64, method name)
inline constexpr std::int32_t kMsgRequestedStreamBad = code(0x8C7FE81B); // (requested f64, maxStream, name)
inline constexpr std::int32_t kMsgStreamTooLarge = code(0x8C7FE81C);     // (stream, limit, name)
inline constexpr std::int32_t kMsgMethod = code(0x8C7FE828);             // (label)
inline constexpr std::int32_t kMsgMethodSeed = code(0x8C7FE829);         // (label, seed, seed)
inline constexpr std::int32_t kMsgMethodSeedStream = code(0x8C7FE82A);   // (label, seed, seed, stream, stream)
inline constexpr std::int32_t kMsgMethodFilled = code(0x8C7FE851);       // (description)
inline constexpr std::int32_t kMsgStateSize = code(0x8C7FE852);          // (short name, bytes)
inline constexpr std::int32_t kMsgLimitNotInteger = code(0x8C7FE8C8);    // (n, text, n, name, low, high)
inline constexpr std::int32_t kMsgUnknownWord = code(0x8C7FE8C9);        // (n, text, n, name)
inline constexpr std::int32_t kMsgLimitReached = code(0x8C7FE8CA);       // (n, name)

}  // namespace txscan::rng
