// What every generator shares: the seeding conventions (seed widths, zero
// seeds, floating seeds and streams), the slots that do nothing for a method
// without the capability, the state-size report, the state dumps and
// seedFromBytes. Included by the generator files only.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "module/rng/conversions.h"
#include "module/rng/hash.h"
#include "module/rng/messages.h"
#include "module/rng/method.h"
#include "module/rng/numbers.h"
#include "module/rng/seeds.h"
#include "module/rng/settings.h"

namespace txscan::rng {

template <typename State>
State& stateOf(void* state) {
    return *static_cast<State*>(state);
}

// ---- Seeding conventions. Core(state, s) seeds from s of the method's width.

template <typename Word>
using SeedCore = void (*)(void* state, Word seed);

template <typename Word>
Word automaticSeed() {
    if constexpr (sizeof(Word) == 8)
        return autoSeed64();
    else
        return autoSeed32();
}

template <typename Word, SeedCore<Word> Core>
std::int32_t seed32(void* state, std::uint32_t seed) {
    Core(state, seed == 0 ? automaticSeed<Word>() : Word{seed});
    return 1;
}

template <typename Word, SeedCore<Word> Core>
std::int32_t seed64(void* state, std::uint64_t seed) {
    if (seed == 0)
        Core(state, automaticSeed<Word>());
    else if constexpr (sizeof(Word) == 8)
        Core(state, seed);
    else
        Core(state, static_cast<Word>(seed ^ (seed >> 32)));
    return 1;
}

template <typename Word, SeedCore<Word> Core, std::uint64_t MaxSeed>
std::int32_t seedFromDouble(void* state, double seed) {
    if (isMissing(seed)) seed = 0;
    // The automatic seed stays an integer: one near 2^64 (from the seed
    // setting) rounds up to 2^64 as a double, which fits no Word.
    Core(state, seed <= 0 ? automaticSeed<Word>() : reduceToWord<Word>(convertSeed(seed, MaxSeed)));
    return 1;
}

template <typename Word, std::int32_t (*SetStream)(void*, Word)>
std::int32_t streamFromDouble(void* state, double stream) {
    if (isMissing(stream) || stream == 0) return 0;
    Word v = reduceToWord<Word>(stream);
    if (v != 0) SetStream(state, v);
    return 1;
}

// A 32-bit method's 64-bit stream or key takes the low 32 bits.
template <std::int32_t (*Set32)(void*, std::uint32_t)>
std::int32_t low32(void* state, std::uint64_t value) {
    return Set32(state, static_cast<std::uint32_t>(value));
}
// A 64-bit method's 32-bit stream or key is zero-extended.
template <std::int32_t (*Set64)(void*, std::uint64_t)>
std::int32_t widened(void* state, std::uint32_t value) {
    return Set64(state, value);
}

// ---- Slots of a method without the capability.

inline std::int32_t noSeed32(void*, std::uint32_t) { return 0; }
inline std::int32_t noSeed64(void*, std::uint64_t) { return 0; }
inline std::int32_t noSeedDouble(void*, double) { return 0; }
inline std::int32_t noBytes(void*, const void*, std::int32_t length, std::uint32_t) { return length > 0 ? -1 : 0; }

// ---- Slot 1: the working-state size, reported as a message.

template <const MethodInfo& Info>
std::uint64_t reportStateSize() {
    issueRngMessage(contract::kSeverityInfo, kMsgStateSize, Info.shortName, static_cast<long long>(Info.workBytes));
    return Info.workBytes;
}

// ---- Slots 2 and 3: the state dumps, four items a line at level 0.

void dumpWords64(const void* state, std::uint64_t words, std::int32_t maxItems);
void dumpWords32(const void* state, std::uint64_t words, std::int32_t maxItems);

template <std::uint64_t WorkBytes>
void dumpState64(void* state, std::int32_t maxItems) {
    dumpWords64(state, WorkBytes / 8, maxItems);
}
template <std::uint64_t WorkBytes>
void dumpState32(void* state, std::int32_t maxItems) {
    dumpWords32(state, WorkBytes / 4, maxItems);
}

// ---- Slot 4: state from bytes.

// N seedable bytes (a multiple of 8, or 4 for the two 32-bit-state methods).
std::int32_t stateFromBytes(void* state, std::uint64_t n, const void* bytes, std::int32_t length, std::uint32_t mode);

template <std::uint64_t N>
std::int32_t seedFromBytes(void* state, const void* bytes, std::int32_t length, std::uint32_t mode) {
    return stateFromBytes(state, N, bytes, length, mode);
}

// The slots every method fills the same way from its names and sizes.
template <const MethodInfo& Info>
constexpr RngOperations baseOperations() {
    RngOperations ops{};
    ops.stateSize = &reportStateSize<Info>;
    ops.dumpState32 = &dumpState32<Info.workBytes>;
    ops.dumpState64 = &dumpState64<Info.workBytes>;
    ops.seedFromBytes = Info.stateBytes != 0 ? &seedFromBytes<Info.stateBytes> : &noBytes;
    ops.seed32 = &noSeed32;
    ops.seed64 = &noSeed64;
    ops.seedFromDouble = &noSeedDouble;
    ops.setStream32 = &noSeed32;
    ops.setStream64 = &noSeed64;
    ops.setStreamFromDouble = &noSeedDouble;
    ops.setKey32 = &noSeed32;
    ops.setKey64 = &noSeed64;
    return ops;
}

// Slots 21 to 25 and 26 to 36: the conversions of each width's raw output.
template <Next32 Next>
constexpr void setConversions32(RngOperations& ops) {
    ops.uniform32Open = &uniform32Open<Next>;
    ops.uniform32Centred = &uniform32Centred<Next>;
    ops.uniform32OpenClosed = &uniform32OpenClosed<Next>;
    ops.uniform32ClosedOpen = &uniform32ClosedOpen<Next>;
    ops.uniform32Closed = &uniform32Closed<Next>;
}

template <Next64 Next>
constexpr void setConversions64(RngOperations& ops) {
    ops.uniform53Open = &uniform53Open<Next>;
    ops.uniform53Odd = &uniform53Odd<Next>;
    ops.uniform53OpenClosed = &uniform53OpenClosed<Next>;
    ops.uniform53ClosedOpen = &uniform53ClosedOpen<Next>;
    ops.uniform53Closed = &uniform53Closed<Next>;
    ops.uniform64Open = &uniform64Open<Next>;
    ops.uniform64Odd = &uniform64Odd<Next>;
    ops.uniform64OpenClosed = &uniform64OpenClosed<Next>;
    ops.uniform64ClosedOpen = &uniform64ClosedOpen<Next>;
    ops.uniform64Closed = &uniform64Closed<Next>;
    ops.uniformDense = &uniformDense<Next>;
}

// A 64-bit method's next32 is the high half of one output.
template <Next64 Next>
std::uint32_t high32(void* state) {
    return static_cast<std::uint32_t>(Next(state) >> 32);
}

// A 32-bit method's next64 is two outputs, the first as the high half.
template <Next32 Next>
std::uint64_t pair64(void* state) {
    std::uint64_t high = Next(state);
    return high << 32 | Next(state);
}

template <typename Word>
using SetWord = std::int32_t (*)(void* state, Word value);

// A stream or key routine of the method's width serves the other width too:
// zero-extended for a 64-bit method, cut to the low 32 bits for a 32-bit one.
template <typename Word, SetWord<Word> Set>
constexpr SetWord<std::uint32_t> as32() {
    if constexpr (sizeof(Word) == 8)
        return &widened<Set>;
    else
        return Set;
}
template <typename Word, SetWord<Word> Set>
constexpr SetWord<std::uint64_t> as64() {
    if constexpr (sizeof(Word) == 8)
        return Set;
    else
        return &low32<Set>;
}

// The operations of a method seeded from one word of its width, from its
// raw generator and, where it has them, its stream and key routines (the
// slots of a missing one do nothing).
// A missing routine is told by its type, not by comparing an address with
// null, which not every compiler settles at compile time (GCC with the
// sanitizers does not).
template <const MethodInfo& Info, typename Word, SeedCore<Word> Seed, Word (*Next)(void*), auto Stream = nullptr,
          auto Key = nullptr>
constexpr RngOperations methodOperations() {
    RngOperations ops = baseOperations<Info>();
    ops.seed32 = &seed32<Word, Seed>;
    ops.seed64 = &seed64<Word, Seed>;
    ops.seedFromDouble = &seedFromDouble<Word, Seed, Info.maxSeed>;
    if constexpr (sizeof(Word) == 8) {
        ops.next32 = &high32<Next>;
        ops.next64 = Next;
        setConversions64<Next>(ops);
        ops.uniform = ops.uniform64Open;
        ops.uniformScaled = ops.uniform64Closed;
    } else {
        ops.next32 = Next;
        ops.next64 = &pair64<Next>;
        setConversions32<Next>(ops);
        ops.uniform = ops.uniform32Open;
        ops.uniformScaled = ops.uniform32ClosedOpen;
    }
    if constexpr (!std::is_null_pointer_v<decltype(Stream)>) {
        ops.setStream32 = as32<Word, Stream>();
        ops.setStream64 = as64<Word, Stream>();
        ops.setStreamFromDouble = &streamFromDouble<Word, Stream>;
    }
    if constexpr (!std::is_null_pointer_v<decltype(Key)>) {
        ops.setKey32 = as32<Word, Key>();
        ops.setKey64 = as64<Word, Key>();
    }
    return ops;
}

}  // namespace txscan::rng
