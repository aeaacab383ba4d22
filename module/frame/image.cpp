// The module's static identity: ImageInformation, the VersionRecord right
// behind it, the ModuleHeader, and the two exported entry points that bind
// the module to its host and hand those records out.
#include <cstring>

#include "module/frame/exports.h"
#include "module/frame/function_table.h"
#include "module/abi/image_records.h"
#include "module/frame/host_call.h"
#include "module/frame/module_state.h"

namespace txscan {

using namespace contract;

ModuleState moduleState{};

namespace {

std::int32_t moduleProcedureA() { return 1; }
std::int32_t moduleProcedureC() { return 1; }
std::uint64_t moduleProcedureB(std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d) {
    return callHost(kHostForwarded, a, b, c, d);
}

constinit ModuleHeader moduleHeader{
    0, 0xFFFF, 1024, 1024, "txscanmd", &functionTableRoutine, 1, 9683, 0x20018F13, 15,
    &moduleProcedureA, &moduleProcedureB, &moduleProcedureC, 3, 0,
};

// Version texts live in writable data: the two patch areas are meant to be
// overwritten in place by a patch tool, the others share the section.
char releaseWithYear[] = "5.12.03R2C03112014";
char buildLabel[] = "lab/bld-v512r2";
char emptyText[] = "";
char baseText[] = "base";
char buildId8[] = "k2Pq9sLd";
char fncText[] = "fnc";
char buildId19[] = "Xq7rBn2VhaP5-C/Lwtd";
char versionText[] = "version";
char separatorText[] = "::";
char hotfixPatchArea[kHotfixPatchAreaSize] =
    "QIX_VERSION_HOTFIX_NUMBER=                                       ";
char descriptionPatchArea[kDescriptionPatchAreaSize] =
    "VERCON_IMAGE_DESCRIPTION=                                        ";
char platformCode[] = "px6ab";
char buildTimeText[] = "Tue Mar 11 14:02:33 EDT 2014";
// The same instant as buildTimeText: 2014-03-11 18:02:33 UTC.
constexpr std::uint64_t kBuildTime = 1394560953;

static_assert(sizeof(hotfixPatchArea) == 96 && sizeof("QIX_VERSION_HOTFIX_NUMBER=") - 1 + 39 == 65);
static_assert(sizeof(descriptionPatchArea) == 68 && sizeof("VERCON_IMAGE_DESCRIPTION=") - 1 + 40 == 65);
static_assert(sizeof(releaseWithYear) - 1 == 18 && sizeof(buildId19) - 1 == 19 && sizeof(buildTimeText) - 1 == 28);

constexpr char kNotice[] = "txscanmd character-based string functions and random-number streams, level 001";

constinit ImageBlock imageBlock{
    {
        "QIX_Image_Information=", kImageMagic, 8, "5.12", "5.12.03R2C031114", "Mar 11 2014",
        &imageBlock.info.moduleHeader, kNotice, "001", &moduleHeader, 0,
    },
    {
        releaseWithYear, buildLabel, emptyText, kBuildTime, baseText, buildId8, fncText, buildId19, emptyText,
        versionText, separatorText, emptyText, hotfixPatchArea, emptyText, descriptionPatchArea, platformCode,
        buildTimeText, {},
    },
};

}  // namespace
}  // namespace txscan

using namespace txscan;

TXSCAN_EXPORT void* mcn_main(void* hostVector, std::uint64_t hostWord) {
    moduleState.hostVector = static_cast<const HostVector*>(hostVector);
    moduleState.hostWord = hostWord;
    auto* const* initRecord = static_cast<void* const*>(moduleState.hostVector->initRecord);
    moduleState.hostValue = *static_cast<const std::uint32_t*>(initRecord[kInitRecordValueWord]);
    moduleState.encodingRoot = moduleState.hostVector->encodingRoot;
    return &imageBlock.info;
}

TXSCAN_EXPORT void tkvercn1(void* destination) {
    std::memcpy(destination, &imageBlock.version, sizeof(VersionRecord));
}

#if defined(_WIN32)
// The library's load entry: all binding happens in mcn_main.
extern "C" int __stdcall DllMain(void*, unsigned long, void*) { return 1; }
#endif
