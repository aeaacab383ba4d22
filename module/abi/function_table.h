// The function descriptors and the two tables the function-table routine
// hands to the host: mode 1 describes the functions, mode 2 lists their
// entry routines in the same order.
#pragma once

#include <cstddef>
#include <cstdint>

namespace txscan::contract {

struct ArgumentFrame;
using EntryRoutine = std::int32_t (*)(ArgumentFrame* frame, void* result);

inline constexpr std::int32_t kDescriptorTableMode = 1;
inline constexpr std::int32_t kEntryTableMode = 2;

enum ResultKind : std::uint8_t {
    kNumericResult = 0,
    kCallRoutine = 1,
    kCharacterResult = 2,
};

// Argument type codes, 3 bits per position (position 1 in bits 0-2).
enum ArgumentTypeCode : std::uint32_t {
    kArgNumeric = 1,
    kArgCharacter = 2,
    kArgEither = 3,
};

constexpr std::uint32_t argumentTypeAt(std::uint32_t argTypes, int position) {
    return (argTypes >> (3 * (position - 1))) & 7u;
}

struct FunctionDescriptor {
    char name[24];                      // upper case, NUL padded
    std::uint16_t minArgs;
    std::uint16_t maxArgs;
    std::uint32_t constant42;           // 0x42
    std::uint8_t resultKind;            // ResultKind
    std::uint8_t flag33;                // 0 for KCOUNTX and KFIND, 2 otherwise
    std::uint8_t flag34;                // 0x20
    std::uint8_t flag35;                // 0x08
    std::uint32_t argTypes;             // ArgumentTypeCode per position
};
static_assert(sizeof(FunctionDescriptor) == 40);
static_assert(offsetof(FunctionDescriptor, minArgs) == 24);
static_assert(offsetof(FunctionDescriptor, maxArgs) == 26);
static_assert(offsetof(FunctionDescriptor, constant42) == 28);
static_assert(offsetof(FunctionDescriptor, resultKind) == 32);
static_assert(offsetof(FunctionDescriptor, flag33) == 33);
static_assert(offsetof(FunctionDescriptor, flag34) == 34);
static_assert(offsetof(FunctionDescriptor, flag35) == 35);
static_assert(offsetof(FunctionDescriptor, argTypes) == 36);

// Mode 1 result, allocated from the module pool (0x2006) and owned by the host.
struct FunctionTable {
    std::int32_t count;
    std::uint32_t zero;
    const FunctionDescriptor* descriptors;
};
static_assert(sizeof(FunctionTable) == 16);
static_assert(offsetof(FunctionTable, descriptors) == 8);

// Mode 2 result: an array of 8-byte words; word 0 as allocated (zero),
// words 1..count the entry routines in descriptor order.
constexpr std::size_t entryTableBytes(std::int32_t count) {
    return 8 + 8 * static_cast<std::size_t>(count);
}

}  // namespace txscan::contract
