// RngMethod: one generator method behind a uniform record of names, sizes,
// capability bits, limits and 36 operation slots. A stream embeds one record
// and reaches its generator only through the slots; a fill routine writes the
// whole record for one method.
#pragma once

#include <cstdint>

#include "module/abi/rng_host.h"

namespace txscan::rng {

using contract::TKChar;

enum RngFlags : std::uint32_t {
    RNG_NOTE_BY_DESCRIPTION = 0x0001,   // the method note names the description, not the short name
    RNG_DETERMINISTIC = 0x0002,
    RNG_STATE_FROM_BYTES = 0x0004,
    RNG_SEED32 = 0x0008,
    RNG_SEED64 = 0x0010,
    RNG_STREAM32 = 0x0020,
    RNG_STREAM64 = 0x0040,
    RNG_KEY32 = 0x0080,
    RNG_KEY64 = 0x0100,
    RNG_POSITION32 = 0x0200,
    RNG_POSITION64 = 0x0400,
    RNG_OUTPUT32 = 0x0800,
    RNG_OUTPUT64 = 0x1000,
    RNG_MARK_2000 = 0x2000,
};
// Capabilities are tested as pairs; outputBits then picks the operation.
inline constexpr std::uint32_t kSeedCapability = RNG_SEED32 | RNG_SEED64;
inline constexpr std::uint32_t kStreamCapability = RNG_STREAM32 | RNG_STREAM64;
inline constexpr std::uint32_t kKeyCapability = RNG_KEY32 | RNG_KEY64;

// The operation slots, in record order (slot numbers in the comments).
struct RngOperations {
    std::uint64_t (*stateSize)();                                                     // 1
    void (*dumpState32)(void* state, std::int32_t maxItems);                          // 2
    void (*dumpState64)(void* state, std::int32_t maxItems);                          // 3
    std::int32_t (*seedFromBytes)(void* state, const void* bytes, std::int32_t length, std::uint32_t mode);  // 4
    std::int32_t (*seed32)(void* state, std::uint32_t seed);                          // 5
    std::int32_t (*seed64)(void* state, std::uint64_t seed);                          // 6
    std::int32_t (*seedFromDouble)(void* state, double seed);                         // 7
    std::int32_t (*setStream32)(void* state, std::uint32_t stream);                   // 8
    std::int32_t (*setStream64)(void* state, std::uint64_t stream);                   // 9
    std::int32_t (*setStreamFromDouble)(void* state, double stream);                  // 10
    std::int32_t (*setKey32)(void* state, std::uint32_t key);                         // 11
    std::int32_t (*setKey64)(void* state, std::uint64_t key);                         // 12
    void (*setPosition32)(void* state, std::uint64_t position);                       // 13
    void (*setPosition64)(void* state, std::uint64_t position);                       // 14
    std::uint32_t (*next32)(void* state);                                             // 15
    std::uint64_t (*next64)(void* state);                                             // 16
    double (*uniform)(void* state);                                                   // 17
    double (*uniformPreferred)(void* state);                                          // 18
    double (*uniformScaled)(void* state);                                             // 19
    void* reserved20;                                                                 // 20, never filled
    double (*uniform32Open)(void* state);                                             // 21
    double (*uniform32Centred)(void* state);                                          // 22
    double (*uniform32OpenClosed)(void* state);                                       // 23
    double (*uniform32ClosedOpen)(void* state);                                       // 24
    double (*uniform32Closed)(void* state);                                           // 25
    double (*uniform53Open)(void* state);                                             // 26
    double (*uniform53Odd)(void* state);                                              // 27
    double (*uniform53OpenClosed)(void* state);                                       // 28
    double (*uniform53ClosedOpen)(void* state);                                       // 29
    double (*uniform53Closed)(void* state);                                           // 30
    double (*uniform64Open)(void* state);                                             // 31
    double (*uniform64Odd)(void* state);                                              // 32
    double (*uniform64OpenClosed)(void* state);                                       // 33
    double (*uniform64ClosedOpen)(void* state);                                       // 34
    double (*uniform64Closed)(void* state);                                           // 35
    double (*uniformDense)(void* state);                                              // 36
};
static_assert(sizeof(RngOperations) == 36 * sizeof(void*));

struct RngMethod {
    std::uint32_t nameCapacity;          // always 16
    std::uint32_t descriptionCapacity;   // always 64
    char shortName[16];                  // canonical name, terminated
    char description[64];                // terminated; empty for RANUNI
    TKChar wideName[16];                 // shortName in UTF-16; selectMethod's work buffer meanwhile
    std::uint64_t stateBytes;            // seedable bytes that seedFromBytes accepts
    std::uint32_t stateBits;
    std::uint32_t outputBits;            // 32 or less: the 32-bit seed and stream operations apply
    std::uint32_t flags;                 // RngFlags
    std::uint64_t maxSeed;               // largest seed used unchanged
    std::uint64_t maxStream;
    RngOperations ops;
};

// What a fill routine writes besides the operations.
struct MethodInfo {
    const char* shortName;
    const char* description;
    std::uint32_t outputBits;
    std::uint64_t stateBytes;
    std::uint64_t workBytes;   // what stateSize reports
    std::uint32_t flags;
    std::uint64_t maxSeed;
    std::uint64_t maxStream;
};

// Zeroes the record, writes the names, issues the method message and then
// the sizes, limits and operations.
void fillMethod(RngMethod* record, const MethodInfo& info, const RngOperations& operations);

// The stateSize slot of a method: issues the state-size message and answers.
template <const MethodInfo& Info>
std::uint64_t reportStateSize();

using FillRoutine = void (*)(RngMethod* record);

// One fill routine per method, in table order.
void fillXor64(RngMethod* record);
void fillXor128(RngMethod* record);
void fillXor1024(RngMethod* record);
void fillXor4096(RngMethod* record);
void fillXorgens(RngMethod* record);
void fillFry2x64(RngMethod* record);
void fillFry2x32(RngMethod* record);
void fillRdrand(RngMethod* record);
void fillSubkey32(RngMethod* record);
void fillSubkey64(RngMethod* record);
void fillRanuni(RngMethod* record);
void fillPcg64i(RngMethod* record);
void fillPcg32i(RngMethod* record);
void fillMh3(RngMethod* record);
void fillMt64(RngMethod* record);
void fillMt1998(RngMethod* record);
void fillMt32(RngMethod* record);
void fillMtHybrid(RngMethod* record);
void fillFry4x64(RngMethod* record);

}  // namespace txscan::rng
