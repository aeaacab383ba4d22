// The host operations of the random-number library: the kernel-object words
// it calls (current task, name-value store, logger, system query, name
// transcoder), the value types and statuses of the store, and the records
// the system query fills. Shared by the module and the reference host.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace txscan::contract {

// The host's text unit: every name and text of the settings store is UTF-16.
using TKChar = char16_t;

// Kernel word 11: the current task object.
using CurrentTaskFn = void* (*)();
inline constexpr int kTaskSeedWord = 7;   // word of the task object that feeds the clock seed

// Kernel words 13, 14, 15: the name-value store. `root` is the kernel object.
using NameIsSetFn = bool (*)(void* root, const TKChar* name, std::int32_t length);
// `size` is the capacity in bytes on the way in and the bytes stored on the way out.
using NameValueGetFn = std::int32_t (*)(void* root, const TKChar* name, std::int32_t length, std::int32_t type,
                                        void* value, std::int64_t* size);
using NameValueSetFn = std::int32_t (*)(void* root, const TKChar* name, std::int32_t length, std::int32_t one,
                                        std::int32_t type, const void* value, std::int64_t size, std::int64_t zero1,
                                        std::int64_t zero2);

enum NameValueType : std::int32_t {
    kValueDouble = 2,    // 8 bytes
    kValueInteger = 3,   // 8 bytes, signed
    kValueText = 4,      // TKChar units; size in bytes without terminator
};

enum NameValueStatus : std::uint32_t {
    kStatusNoValue = 0x803FC26A,          // the name has no value (never reported)
    kStatusOtherType = 0x803FC009,        // the value has another type
    kStatusOtherTypeStored = 0x803FC264,  // the same, as some store paths report it
};

// Kernel word 26: the logger. Formats use the host's conventions: "%s" and
// "%S" take TKChar text, "%hs" 8-bit text, "%.*S" a length then TKChar text.
using FormatTextFn = std::int32_t (*)(void* logger, const TKChar* format, std::int64_t zero, TKChar* buffer,
                                      std::int64_t capacityUnits, std::int64_t* length, ...);
using LogLineFn = std::int32_t (*)(void* logger, std::int32_t level, const TKChar* format, std::int64_t zero, ...);
// The catalogued message `code`; `arguments` are read as its catalogue text says.
using IssueMessageFn = std::int32_t (*)(void* logger, std::int32_t severity, std::int32_t code, std::va_list arguments);

struct Logger {
    void* reserved0[4];
    FormatTextFn formatText;     // word 4
    LogLineFn logLine;           // word 5
    void* reserved6;
    IssueMessageFn issueMessage; // word 7
};
static_assert(offsetof(Logger, formatText) == 4 * 8);
static_assert(offsetof(Logger, logLine) == 5 * 8);
static_assert(offsetof(Logger, issueMessage) == 7 * 8);

enum LogLevel : std::int32_t {
    kLevelDump = 0,
    kLevelTrace = 1,
    kLevelFailure = 4,
};

enum Severity : std::int32_t {
    kSeverityInfo0 = 0,
    kSeverityInfo = 1,
    kSeverityNote = 2,
    kSeverityWarning = 3,
    kSeverityError = 4,
};

// Kernel word 33: the system query.
using SystemQueryFn = std::int32_t (*)(std::int32_t code, void* buffer, std::uint32_t flags);

struct SystemQuery {
    std::int32_t code;
    std::uint32_t flags;
};
inline constexpr SystemQuery kQueryClock{16, 0x10800000};       // fills ClockReading
inline constexpr SystemQuery kQueryMachine{8, 0x10000000};      // fills MachineRecord
inline constexpr SystemQuery kQueryProcessor{16, 0x10200000};   // fills SystemInfoRecord

// The clock: the time reading is `reading - base` (seconds).
struct ClockReading {
    double reading;
    double base;
};
static_assert(sizeof(ClockReading) == 16);

struct MachineRecord {
    std::uint64_t reserved0[5];
    std::uint64_t seedWord;   // byte 40: feeds the clock seed
    std::uint64_t reserved48[2];
};
static_assert(offsetof(MachineRecord, seedWord) == 40);

// The processor record the host builds from CPUID. Bit 30 of leaf 1's ECX
// (RDRAND) is bit 6 of byte 119.
struct ProcessorRecord {
    std::uint32_t status;          // 0 when the record is valid
    std::uint8_t reserved4[112];
    std::uint32_t leaf1Ecx;        // byte 116
    std::uint8_t reserved120[8];
};
static_assert(offsetof(ProcessorRecord, leaf1Ecx) == 116);
inline constexpr int kRdrandFeatureByte = 119;
inline constexpr std::uint8_t kRdrandFeatureBit = 0x40;

struct SystemInfoRecord {
    std::uint8_t reserved0[344];
    const ProcessorRecord* processor;   // byte 344; null when unknown
    std::uint8_t reserved352[8];
};
static_assert(offsetof(SystemInfoRecord, processor) == 344);

// Kernel word 35: widens 8-bit text in the session encoding to TKChar.
// Lengths in bytes on both sides; returns 0 on success.
using WidenTextFn = std::int32_t (*)(void* transcoder, const char* source, std::int64_t sourceBytes,
                                     TKChar* destination, std::int64_t destinationCapacityBytes,
                                     std::int64_t* destinationBytes, std::int32_t zero);
struct NameTranscoder {
    void* reserved0[4];
    WidenTextFn widen;   // word 4
};
static_assert(offsetof(NameTranscoder, widen) == 4 * 8);

}  // namespace txscan::contract
