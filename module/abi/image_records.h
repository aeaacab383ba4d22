// The static records through which the host identifies a loaded module:
// ImageInformation (returned by mcn_main), the VersionRecord that follows it
// directly in memory (copied out by tkvercn1), and the ModuleHeader that
// leads the host to the function-table routine. The host reads all three in
// place, byte by byte: the layouts below never change.
#pragma once

#include <cstddef>
#include <cstdint>

namespace txscan::contract {

using FunctionTableRoutine = void* (*)(std::int32_t mode);
using ModuleProcedure = std::int32_t (*)();
// moduleProcedureB hands its arguments, untouched, to host service (1, 2).
using ForwardingProcedure = std::uint64_t (*)(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t);

struct ModuleHeader {
    std::uint16_t zero;                 // 0
    std::uint16_t allOnes;              // 0xFFFF
    std::uint32_t interfaceA;           // 1024
    std::uint32_t interfaceB;           // 1024
    char name[12];                      // "txscanmd", NUL padded
    FunctionTableRoutine functionTableRoutine;
    std::uint32_t one;                  // 1
    std::uint32_t buildNumber;          // 9683
    std::uint32_t interfaceFlags;       // 0x20018F13
    std::uint32_t fifteen;              // 15
    ModuleProcedure procedureA;
    ForwardingProcedure procedureB;
    ModuleProcedure procedureC;
    std::uint32_t three;                // 3
    std::uint32_t padding;              // 0
};
static_assert(sizeof(ModuleHeader) == 80);
static_assert(offsetof(ModuleHeader, allOnes) == 2);
static_assert(offsetof(ModuleHeader, interfaceA) == 4);
static_assert(offsetof(ModuleHeader, interfaceB) == 8);
static_assert(offsetof(ModuleHeader, name) == 12);
static_assert(offsetof(ModuleHeader, functionTableRoutine) == 24);
static_assert(offsetof(ModuleHeader, one) == 32);
static_assert(offsetof(ModuleHeader, buildNumber) == 36);
static_assert(offsetof(ModuleHeader, interfaceFlags) == 40);
static_assert(offsetof(ModuleHeader, fifteen) == 44);
static_assert(offsetof(ModuleHeader, procedureA) == 48);
static_assert(offsetof(ModuleHeader, procedureB) == 56);
static_assert(offsetof(ModuleHeader, procedureC) == 64);
static_assert(offsetof(ModuleHeader, three) == 72);
static_assert(offsetof(ModuleHeader, padding) == 76);

inline constexpr char kImageTag[] = "QIX_Image_Information=";
inline constexpr std::uint32_t kImageMagic = 0xB0BDEBED;

struct ImageInformation {
    char tag[24];                       // kImageTag, then 2 NUL bytes
    std::uint32_t magic;                // kImageMagic
    std::uint32_t eight;                // 8
    char shortVersion[6];               // "5.12"
    char releaseId[20];                 // "5.12.03R2C031114"
    char buildDate[30];                 // "Mar 11 2014"
    ModuleHeader* const* headerField;   // address of this record's own moduleHeader field
    const char* notice;                 // one NUL-terminated line
    char level[8];                      // "001"
    ModuleHeader* moduleHeader;
    std::uint64_t zero;
};
static_assert(sizeof(ImageInformation) == 128);
static_assert(offsetof(ImageInformation, magic) == 24);
static_assert(offsetof(ImageInformation, eight) == 28);
static_assert(offsetof(ImageInformation, shortVersion) == 32);
static_assert(offsetof(ImageInformation, releaseId) == 38);
static_assert(offsetof(ImageInformation, buildDate) == 58);
static_assert(offsetof(ImageInformation, headerField) == 88);
static_assert(offsetof(ImageInformation, notice) == 96);
static_assert(offsetof(ImageInformation, level) == 104);
static_assert(offsetof(ImageInformation, moduleHeader) == 112);
static_assert(offsetof(ImageInformation, zero) == 120);

// 26 words; every text lives in the module's writable data.
struct VersionRecord {
    char* releaseWithYear;              // word 0: "5.12.03R2C03112014"
    char* buildLabel;                   // word 1
    char* empty2;                       // word 2
    std::uint64_t buildTime;            // word 3: seconds since 1970-01-01 UTC
    char* base;                         // word 4: "base"
    char* buildId8;                     // word 5: 8 characters
    char* fnc;                          // word 6: "fnc"
    char* buildId19;                    // word 7: 19 characters
    char* empty8;                       // word 8
    char* version;                      // word 9: "version"
    char* separator;                    // word 10: "::"
    char* empty11;                      // word 11
    char* hotfixPatchArea;              // word 12: tag + 39 blanks in a 96-byte buffer
    char* empty13;                      // word 13
    char* descriptionPatchArea;         // word 14: tag + 40 blanks in a 68-byte buffer
    char* platformCode;                 // word 15: 5 characters
    char* buildTimeText;                // word 16: as the date command prints it
    std::uint64_t zero[9];              // words 17-25
};
static_assert(sizeof(VersionRecord) == 208);
static_assert(offsetof(VersionRecord, buildTime) == 3 * 8);
static_assert(offsetof(VersionRecord, hotfixPatchArea) == 12 * 8);
static_assert(offsetof(VersionRecord, descriptionPatchArea) == 14 * 8);
static_assert(offsetof(VersionRecord, buildTimeText) == 16 * 8);
static_assert(offsetof(VersionRecord, zero) == 17 * 8);

inline constexpr std::size_t kHotfixPatchAreaSize = 96;
inline constexpr std::size_t kDescriptionPatchAreaSize = 68;

// mcn_main returns the address of `info`; a host that reads on past its 128
// bytes finds the VersionRecord.
struct ImageBlock {
    ImageInformation info;
    VersionRecord version;
};
static_assert(offsetof(ImageBlock, version) == 128);
static_assert(sizeof(ImageBlock) == 336);

}  // namespace txscan::contract
