// The HostVector handed to mcn_main and the host objects reached through it:
// memory pools, call contexts, the task and session records and the kernel
// object (encodingRoot). Host objects are word arrays; the named indices
// below are the only words the module reads.
#pragma once

#include <cstddef>
#include <cstdint>

namespace txscan::contract {

struct HostVector {
    void* const* const* serviceDirectory;  // word 0: serviceDirectory[c][f] is service (c, f)
    std::uint8_t* serviceUseFlags;         // word 1: byte c set to 1 before every call into table c
    void* reserved2[2];
    void* taskRecord;                      // word 4: its word 34 is the fallback call context
    void* hostPool;                        // word 5: pool of the random-number library
    const std::uint8_t* upcaseMap;         // word 6: 256 bytes
    const std::uint8_t* lowcaseMap;        // word 7: 256 bytes
    const std::uint8_t* classTable;        // word 8: 256 bytes of ClassBit
    void* reserved9;
    void* modulePool;                      // word 10: pool of the function tables
    void* reserved11[2];
    void* sessionRecord;                   // word 13: its word 3 is the session-encoding record
    void* reserved14[48];
    void* initRecord;                      // word 62: its word 98 points to a 32-bit value
    void* reserved63[19];
    void* encodingRoot;                    // word 82: the kernel object
    void* reserved83[12];
    std::uint64_t word95;                  // word 95: must be 0 for this module
};
static_assert(offsetof(HostVector, serviceUseFlags) == 1 * 8);
static_assert(offsetof(HostVector, taskRecord) == 4 * 8);
static_assert(offsetof(HostVector, hostPool) == 5 * 8);
static_assert(offsetof(HostVector, upcaseMap) == 6 * 8);
static_assert(offsetof(HostVector, lowcaseMap) == 7 * 8);
static_assert(offsetof(HostVector, classTable) == 8 * 8);
static_assert(offsetof(HostVector, modulePool) == 10 * 8);
static_assert(offsetof(HostVector, sessionRecord) == 13 * 8);
static_assert(offsetof(HostVector, initRecord) == 62 * 8);
static_assert(offsetof(HostVector, encodingRoot) == 82 * 8);
static_assert(offsetof(HostVector, word95) == 95 * 8);
static_assert(sizeof(HostVector) == 96 * 8);

inline constexpr int kInitRecordValueWord = 98;   // word of the initRecord pointing to the u32

// Character-class bits of classTable (and of the handle's classTest, which
// adds two classes that only characters of more than one byte have).
enum ClassBit : std::uint32_t {
    kClassUpper = 0x01,
    kClassLower = 0x02,
    kClassDigit = 0x04,
    kClassSpace = 0x08,
    kClassPunct = 0x10,
    kClassBlank = 0x20,
    kClassControl = 0x40,
    kClassHexDigit = 0x80,
    kClassWideAlpha = 0x100,    // alphabetic, more than one byte
    kClassWideGraphic = 0x200,  // graphic but not alphabetic, more than one byte
};
inline constexpr std::uint32_t kMaskAlpha = 0x03;
inline constexpr std::uint32_t kMaskGraphic = 0x17;
inline constexpr std::uint32_t kMaskPrintable = 0x37;

// Memory pool: word 0 allocate, word 5 reallocate.
using AllocateFn = void* (*)(void* pool, std::int64_t size, std::int32_t flags);
using ReallocateFn = void* (*)(void* pool, void* address, std::int64_t size, std::int32_t flags);
struct MemoryPool {
    AllocateFn allocate;
    void* reserved1[4];
    ReallocateFn reallocate;
};
static_assert(offsetof(MemoryPool, reallocate) == 5 * 8);

enum PoolFlags : std::int32_t {
    kPoolModuleZeroed = 0x2006,   // zero-filled module memory
    kPoolEnvironment = 0x3006,    // the FunctionEnvironment record
    kPoolSiteCache = 0x2004,      // per-call-site parsed sets
    kPoolGrowResult = 0x40000000, // reallocate: enlarge a character result
};

// Call context: word 5 its pool, word 6 its slot table.
struct CallContext {
    void* reserved0[5];
    MemoryPool* pool;
    void** slots;
};
static_assert(offsetof(CallContext, pool) == 5 * 8);
static_assert(offsetof(CallContext, slots) == 6 * 8);
inline constexpr int kEnvironmentSlot = 37;

// Task record: word 34 is the call context used when a frame carries none.
inline constexpr int kTaskCallContextWord = 34;

// Session record: word 3 is the session-encoding record, whose byte 72 is
// nonzero for a multi-byte session.
inline constexpr int kSessionEncodingWord = 3;
inline constexpr int kMultiByteSessionByte = 72;

// Kernel object (HostVector word 82, encodingRoot): words the module reads.
enum KernelWord : int {
    kKernelCurrentTask = 11,
    kKernelNameIsSet = 13,
    kKernelNameValueGet = 14,
    kKernelNameValueSet = 15,
    kKernelLogger = 26,
    kKernelEncodingService = 27,
    kKernelSystemQuery = 33,
    kKernelNameTranscoder = 35,
};

}  // namespace txscan::contract
