// How the host describes one call to an entry routine: the ArgumentFrame with
// its per-argument slots, the StringValue of a character value, the statuses
// an entry routine returns and the host's missing numeric value.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace txscan::contract {

inline constexpr std::int32_t kStatusOk = 0;
inline constexpr std::int32_t kStatusMissingStart = 0x1D801;     // result is the missing value
inline constexpr std::int32_t kStatusInvalidArgument = 0x1D804;  // nothing stored
inline constexpr std::int32_t kStatusNoMemory = static_cast<std::int32_t>(0x8001D811u);

// The module's own missing result.
inline constexpr std::uint64_t kMissingValueBits = 0xFFFFD10000000000ull;
inline double missingValue() { return std::bit_cast<double>(kMissingValueBits); }

// Byte paths: missing when the exponent bits are all ones (NaN or infinity).
inline bool exponentAllOnes(double value) {
    return ((std::bit_cast<std::uint64_t>(value) >> 52) & 0x7FF) == 0x7FF;
}
// Argument interpreter and the SCAN routine: missing when the top 16 bits are all ones.
inline bool topBitsAllOnes(double value) {
    return (std::bit_cast<std::uint64_t>(value) >> 48) == 0xFFFF;
}

// Site kinds at which a worker may keep a parsed set in setCache.
constexpr bool siteAllowsCaching(std::uint8_t siteKind) {
    return siteKind == 0x48 || siteKind == 0x58 || siteKind == 0x68 || siteKind == 0x88;
}

enum TypeFlag : std::uint8_t {
    kTypeNumeric = 0x01,
    kTypeCharacter = 0x02,
    kTypeRecheck = 0x08,   // argument 1: worth the byte path's multi-byte re-check
};
inline constexpr std::uint8_t kErrorMark = 0x01;

struct StringValue {
    std::int64_t maxLength;   // largest length the value may take
    std::int64_t length;      // current length in bytes
    char* data;               // not NUL terminated
    void* growPool;           // result only: pool that can enlarge data, or null (fixed buffer)
    std::int64_t capacity;    // result only: size of the buffer at data
};
static_assert(sizeof(StringValue) == 40);
static_assert(offsetof(StringValue, length) == 8);
static_assert(offsetof(StringValue, data) == 16);
static_assert(offsetof(StringValue, growPool) == 24);
static_assert(offsetof(StringValue, capacity) == 32);

// Argument k (from 1) occupies the 16 bytes at 24 + 16k.
struct ArgumentSlot {
    std::uint8_t typeFlags;
    std::uint8_t errorMarks;
    std::uint8_t reserved[6];
    void* value;              // double* or StringValue*, null when not given
};
static_assert(sizeof(ArgumentSlot) == 16);
static_assert(offsetof(ArgumentSlot, value) == 8);

inline constexpr int kMaxArguments = 6;

struct ArgumentFrame {
    void* callContext;        // may be null; the word functions fill it in
    std::uint64_t reserved8;
    void* setCache;           // per-call-site parsed set, null until a worker caches one
    std::uint8_t siteKind;
    std::uint8_t reserved25[7];
    std::int32_t argCount;
    std::uint32_t reserved36;
    ArgumentSlot args[kMaxArguments];   // args[k - 1] is argument k

    ArgumentSlot& arg(int k) { return args[k - 1]; }
    const ArgumentSlot& arg(int k) const { return args[k - 1]; }
    // A value whose type flags say it is of the other kind reads as not
    // given, so a host that passes a number where only a character value
    // belongs never has its f64 read as a StringValue (and the reverse).
    const StringValue* string(int k) const {
        return k <= argCount && !onlyOfKind(k, kTypeNumeric) ? static_cast<const StringValue*>(args[k - 1].value)
                                                             : nullptr;
    }
    const double* number(int k) const {
        return k <= argCount && !onlyOfKind(k, kTypeCharacter) ? static_cast<const double*>(args[k - 1].value)
                                                               : nullptr;
    }
    bool onlyOfKind(int k, std::uint8_t kind) const {
        return (args[k - 1].typeFlags & (kTypeNumeric | kTypeCharacter)) == kind;
    }
};
static_assert(offsetof(ArgumentFrame, setCache) == 16);
static_assert(offsetof(ArgumentFrame, siteKind) == 24);
static_assert(offsetof(ArgumentFrame, argCount) == 32);
static_assert(offsetof(ArgumentFrame, args) + 0 * 16 == 40);
static_assert(offsetof(ArgumentFrame, args) + offsetof(ArgumentSlot, value) == 48);
static_assert(offsetof(ArgumentFrame, args) + 3 * sizeof(ArgumentSlot) == 88);
static_assert(offsetof(ArgumentFrame, args) + 3 * sizeof(ArgumentSlot) + offsetof(ArgumentSlot, value) == 96);
static_assert(sizeof(ArgumentFrame) == 40 + 16 * kMaxArguments);

// The per-call record each entry routine builds on its stack.
struct PerCallRecord {
    void* word[16];
};
inline constexpr int kPerCallHandleWord = 10;
static_assert(sizeof(PerCallRecord) == 128);

}  // namespace txscan::contract
