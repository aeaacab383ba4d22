// The per-call-context FunctionEnvironment: the default word delimiters, a
// seeded random stream and a few host values, built on first need and kept
// in slot 37 of the call context for the context's whole life.
#pragma once

#include <cstddef>
#include <cstdint>

#include "module/abi/argument_frame.h"

namespace txscan {

namespace rng {
struct RngStream;
}

struct FunctionEnvironment {
    std::uint32_t word0;                 // as the pool returned it
    std::uint32_t zero4;                 // 0
    rng::RngStream* randomStream;        // seeded from "-rngseed", stream 0
    std::uint64_t word16;
    double emptyMark;                    // -pi, the random library's "no saved value"
    std::uint64_t words32[2];
    const std::uint8_t* defaultDelimiters;  // 256 entries, the 17 delimiters set
    std::uint64_t yearCutoff;            // "YEARCUTOFF" as the host stores it
    std::uint8_t* spareTable;            // 256 entries, all zero
    char hostText[8];                    // blank padded
    std::uint16_t hostTextLength;        // without trailing blanks
    std::uint8_t rest[142];
};
static_assert(sizeof(FunctionEnvironment) == 224);
static_assert(offsetof(FunctionEnvironment, randomStream) == 8);
static_assert(offsetof(FunctionEnvironment, emptyMark) == 24);
static_assert(offsetof(FunctionEnvironment, defaultDelimiters) == 48);
static_assert(offsetof(FunctionEnvironment, yearCutoff) == 56);
static_assert(offsetof(FunctionEnvironment, spareTable) == 64);
static_assert(offsetof(FunctionEnvironment, hostText) == 72);
static_assert(offsetof(FunctionEnvironment, hostTextLength) == 80);

inline constexpr std::int32_t kEnvironmentNoMemory = static_cast<std::int32_t>(0x80000803u);

// The spare table is the last thing a build sets: a record in slot 37
// without it is one whose build stopped part way, and no caller may use it.
inline bool environmentComplete(const FunctionEnvironment* record) { return record->spareTable != nullptr; }

// Builds the record for `callContext`, or finishes the one a previous build
// left incomplete in slot 37 (it is registered as soon as it is allocated).
// Answers 0, kEnvironmentNoMemory, or the option lookup's status.
std::int32_t buildFunctionEnvironment(void* callContext);

// The frame's environment, built on first need; null (after host error
// 1016) when none can be had: the caller then fails the call with
// kStatusNoMemory and stores nothing. A frame without a call context gets
// the task record's context written into it.
FunctionEnvironment* functionEnvironmentFor(contract::ArgumentFrame* frame);

}  // namespace txscan
