// `txscan info`: the module's image information, version record and function
// table, read through the host as any host reads them.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "cli/commands.h"
#include "host/host.h"

namespace txcli {

namespace {

using namespace txscan::contract;

std::string fixedText(const char* field, std::size_t size) {
    return std::string(field, strnlen(field, size));
}

const char* resultKindName(std::uint8_t kind) {
    switch (kind) {
    case kNumericResult: return "function, numeric result";
    case kCharacterResult: return "function, character result";
    case kCallRoutine: return "call routine";
    default: return "unknown";
    }
}

const char* typeName(std::uint32_t code) {
    switch (code) {
    case kArgNumeric: return "numeric";
    case kArgCharacter: return "character";
    case kArgEither: return "numeric or character";
    default: return "?";
    }
}

int runInfo(const std::string& modulePath) {
    txhost::Session session;
    std::unique_ptr<txhost::Module> module;
    try {
        module = txhost::Module::load(session, modulePath);
    } catch (const std::exception& e) {
        std::cerr << "txscan: " << e.what() << "\n";
        return kUsageError;
    }
    const ImageInformation& info = module->image();
    std::printf("Image information\n");
    std::printf("  tag            %s\n", fixedText(info.tag, sizeof info.tag).c_str());
    std::printf("  magic          0x%08X\n", info.magic);
    std::printf("  version        %s\n", fixedText(info.shortVersion, sizeof info.shortVersion).c_str());
    std::printf("  release        %s\n", fixedText(info.releaseId, sizeof info.releaseId).c_str());
    std::printf("  build date     %s\n", fixedText(info.buildDate, sizeof info.buildDate).c_str());
    std::printf("  notice         %s\n", info.notice);
    std::printf("  level          %s\n", fixedText(info.level, sizeof info.level).c_str());
    const ModuleHeader& header = *info.moduleHeader;
    std::printf("Module header\n");
    std::printf("  name           %s\n", fixedText(header.name, sizeof header.name).c_str());
    std::printf("  constants      %u %u %u %u %u %u 0x%08X %u %u\n", header.zero, header.allOnes, header.interfaceA,
                header.interfaceB, header.one, header.buildNumber, header.interfaceFlags, header.fifteen,
                header.three);

    const VersionRecord v = module->version();
    std::printf("Version record\n");
    std::printf("  release        %s\n", v.releaseWithYear);
    std::printf("  build label    %s\n", v.buildLabel);
    std::printf("  build time     %llu (%s)\n", static_cast<unsigned long long>(v.buildTime), v.buildTimeText);
    std::printf("  identifiers    %s %s %s %s\n", v.base, v.buildId8, v.fnc, v.buildId19);
    std::printf("  platform       %s\n", v.platformCode);
    std::printf("  hot fix        %s\n", v.hotfixPatchArea);
    std::printf("  description    %s\n", v.descriptionPatchArea);

    std::printf("Function table\n");
    for (const txhost::FunctionInfo& f : module->functions()) {
        const FunctionDescriptor& d = *f.descriptor;
        std::printf("  %d %-8s %d to %d arguments, %s\n", f.index, f.name.c_str(), d.minArgs, d.maxArgs,
                    resultKindName(d.resultKind));
        std::string types;
        for (int p = 1; p <= d.maxArgs; ++p) {
            if (p > 1) types += ", ";
            types += typeName(argumentTypeAt(d.argTypes, p));
        }
        std::printf("      argument types 0x%X: %s\n", d.argTypes, types.c_str());
    }
    return 0;
}

}  // namespace

void addInfoCommand(CLI::App& app) {
    auto* command = app.add_subcommand("info", "Show the module's records and function table");
    auto modulePath = std::make_shared<std::string>(TXSCAN_MODULE_PATH);
    command->add_option("--module", *modulePath, "Path of the module file");
    command->callback([modulePath] {
        const int code = runInfo(*modulePath);
        if (code != 0) throw CLI::RuntimeError(code);
    });
}

}  // namespace txcli
