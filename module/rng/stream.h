// RngStream: one independent source of random numbers. A stream embeds its
// method record and generator state and remembers seed, stream number, key
// and the first failure of its last initialisation. Streams come from the
// host pool and are never freed by the library.
#pragma once

#include <cstdint>

#include "module/abi/rng_host.h"
#include "module/rng/method.h"

namespace txscan::rng {

inline constexpr std::uint64_t kHeadMark = 123456789;
inline constexpr std::uint64_t kTailMark = 987654321;
inline constexpr std::size_t kStateAreaBytes = 2512;   // the largest working state is MT64's 2504

enum StreamOptions : std::uint64_t {
    kRequestedNameWide = 1,   // requestedName is UTF-16
    kMethodNoted = 2,         // the method note has been issued for this naming
    kMethodNamed = 4,         // the method was chosen by an explicit name
};

struct RngStream {
    std::uint64_t headMark;
    TKChar methodName[16];          // the method's wideName, for messages
    std::uint64_t seed;
    std::uint64_t stream;
    std::uint64_t key;              // key, or the sub-stream packed with `stream`
    std::uint64_t options;          // StreamOptions
    std::int32_t status;            // first failure of the last initialisation
    std::uint8_t seeded;            // 1 once applySeed has run for the current method
    std::uint64_t stateSizeBytes;
    void* state;                    // first argument of every method operation
    double (*uniformFn)(void*);     // uniformPreferred if the method has one, else uniform
    RngMethod* method;
    contract::Logger* logger;
    // Reset by every applySeed, read by nothing here.
    double savedValueA;
    double savedValueB;
    std::uint32_t savedWord;
    std::uint8_t savedFlagA;
    double savedValueC;
    std::uint8_t savedFlagB;
    std::uint64_t lastSeed;
    std::uint32_t seedHash;
    std::uint64_t tailMark;
    const void* requestedName;      // null, a wanted name, or the embedded shortName once selected
    double requestedSeed;           // 0 or missing: none
    double requestedStream;         // validated only, never copied into `stream`
    RngMethod embedded;
    alignas(16) unsigned char stateArea[kStateAreaBytes];
};

// The integer of a "name=value" entry of the host's option text (1 for the
// name alone, 0 when absent).
std::int32_t readSeedOption(const char* name);
// A stream from the host pool, initialised once; null when the pool is exhausted.
RngStream* createStream(std::uint64_t seed, std::uint64_t stream);
std::int32_t initStream(RngStream* stream);
std::int32_t applySeed(RngStream* stream);

// Draws through the stream's method.
inline double streamUniform(RngStream* s) { return s->uniformFn(s->state); }
inline std::uint32_t streamNext32(RngStream* s) { return s->method->ops.next32(s->state); }
inline std::uint64_t streamNext64(RngStream* s) { return s->method->ops.next64(s->state); }

}  // namespace txscan::rng
