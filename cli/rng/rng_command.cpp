// `txscan rng`: draws numbers from a stream created as the function
// environment creates one (seed from the "-rngseed" option text, stream 0,
// method from the setting or MTHYBRID), optionally re-initialised with an
// explicit method, seed, stream and key. The library runs in-process, bound
// to a host session; its messages and trace lines go to standard error.
#include "cli/rng/rng_command.h"

#include <cmath>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/number_option.h"
#include "host/host.h"
#include "host/rng_services.h"
#include "module/frame/exports.h"
#include "module/rng/method.h"
#include "module/rng/stream.h"

namespace txcli {
namespace {

using namespace txscan::rng;

struct RngSettings {
    std::string method;                  // explicit naming; empty: the setting or the default
    std::optional<double> seed;          // requested seed
    std::optional<double> stream;        // requested stream
    std::uint64_t key = 0;
    long long count = 10;
    std::string form = "uniform";
    std::optional<int> dump;
    std::string optionText;              // the host's option text, e.g. "RNGSEED=42"
    std::vector<std::string> settings;   // NAME=VALUE, stored as text
    std::string messages;                // OSENV.QIX_RNG_MESSAGES
    bool debug = false;
    bool noHardware = false;
    bool hex = false;
};

using Conversion = double (*)(void*);

// The conversion slots by name.
Conversion conversionNamed(const RngOperations& ops, const std::string& name) {
    const std::map<std::string, Conversion> slots = {
        {"uniform32Open", ops.uniform32Open},
        {"uniform32Centred", ops.uniform32Centred},
        {"uniform32OpenClosed", ops.uniform32OpenClosed},
        {"uniform32ClosedOpen", ops.uniform32ClosedOpen},
        {"uniform32Closed", ops.uniform32Closed},
        {"uniform53Open", ops.uniform53Open},
        {"uniform53Odd", ops.uniform53Odd},
        {"uniform53OpenClosed", ops.uniform53OpenClosed},
        {"uniform53ClosedOpen", ops.uniform53ClosedOpen},
        {"uniform53Closed", ops.uniform53Closed},
        {"uniform64Open", ops.uniform64Open},
        {"uniform64Odd", ops.uniform64Odd},
        {"uniform64OpenClosed", ops.uniform64OpenClosed},
        {"uniform64ClosedOpen", ops.uniform64ClosedOpen},
        {"uniform64Closed", ops.uniform64Closed},
        {"uniformDense", ops.uniformDense},
        {"methodUniform", ops.uniform},
        {"uniformPreferred", ops.uniformPreferred},
        {"uniformScaled", ops.uniformScaled},
    };
    auto found = slots.find(name);
    return found != slots.end() ? found->second : nullptr;
}

const std::vector<std::string> kForms = {
    "uniform", "raw32", "raw64", "uniform32Open", "uniform32Centred", "uniform32OpenClosed", "uniform32ClosedOpen",
    "uniform32Closed", "uniform53Open", "uniform53Odd", "uniform53OpenClosed", "uniform53ClosedOpen",
    "uniform53Closed", "uniform64Open", "uniform64Odd", "uniform64OpenClosed", "uniform64ClosedOpen",
    "uniform64Closed", "uniformDense", "methodUniform", "uniformPreferred", "uniformScaled"};

void printMessages(txhost::Session& session) {
    for (const txhost::Message& m : session.takeMessages()) std::cerr << m.text << "\n";
}

std::string hexStatus(std::int32_t status) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(status));
    return text;
}

int runRng(const RngSettings& settings) {
    txhost::SessionOptions options;
    options.optionText = settings.optionText;
    options.hardwareRandom = !settings.noHardware;
    txhost::Session session(options);
    auto module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
    for (const std::string& setting : settings.settings) {
        const auto equals = setting.find('=');
        if (equals == std::string::npos || equals == 0) {
            std::cerr << "txscan: --set needs NAME=VALUE, not '" << setting << "'\n";
            return kUsageError;
        }
        session.setSetting(setting.substr(0, equals), std::string_view(setting).substr(equals + 1));
    }
    if (!settings.messages.empty()) session.setSetting("OSENV.QIX_RNG_MESSAGES", std::string_view(settings.messages));
    if (settings.debug) session.setSetting("OSENV.QIX_TKNR_DEBUG", std::string_view("1"));

    // As the function environment does it.
    const std::int32_t optionSeed = readSeedOption("-rngseed");
    RngStream* stream = createStream(static_cast<std::uint64_t>(std::int64_t{optionSeed}), 0);
    if (stream == nullptr) {
        printMessages(session);
        std::cerr << "txscan: no memory for the stream\n";
        return 1;
    }
    const bool reinitialise = !settings.method.empty() || settings.seed || settings.stream || settings.key != 0;
    if (reinitialise) {
        if (!settings.method.empty()) stream->requestedName = settings.method.c_str();
        if (settings.seed) stream->requestedSeed = *settings.seed;
        if (settings.stream) {
            // Checked by the library as requested; a whole value in range is also used.
            stream->requestedStream = *settings.stream;
            const double v = *settings.stream;
            if (v >= 0 && v < 0x1p64 && v == std::floor(v)) stream->stream = static_cast<std::uint64_t>(v);
        }
        stream->key = settings.key;
        initStream(stream);
    }
    std::fprintf(stderr, "method %s, seed %llu, stream %llu, key %llu, status %s\n", stream->method->shortName,
                 static_cast<unsigned long long>(stream->seed), static_cast<unsigned long long>(stream->stream),
                 static_cast<unsigned long long>(stream->key), hexStatus(stream->status).c_str());
    printMessages(session);

    const RngOperations& ops = stream->method->ops;
    if (settings.dump) {
        (stream->method->outputBits > 32 ? ops.dumpState64 : ops.dumpState32)(stream->state, *settings.dump);
        printMessages(session);
    }
    Conversion conversion = nullptr;
    if (settings.form != "uniform" && settings.form != "raw32" && settings.form != "raw64") {
        conversion = conversionNamed(ops, settings.form);
        if (conversion == nullptr) {
            std::cerr << "txscan: method " << stream->method->shortName << " has no " << settings.form << "\n";
            return kUsageError;
        }
    }
    for (long long i = 0; i < settings.count; ++i) {
        if (settings.form == "raw32") {
            const std::uint32_t v = streamNext32(stream);
            std::printf(settings.hex ? "0x%08X\n" : "%u\n", static_cast<unsigned>(v));
        } else if (settings.form == "raw64") {
            const std::uint64_t v = streamNext64(stream);
            std::printf(settings.hex ? "0x%016llX\n" : "%llu\n", static_cast<unsigned long long>(v));
        } else {
            const double u = conversion != nullptr ? conversion(stream->state) : streamUniform(stream);
            std::printf("%.17g\n", u);
        }
    }
    printMessages(session);
    return 0;
}

}  // namespace

void addRngCommand(CLI::App& app) {
    auto settings = std::make_shared<RngSettings>();
    auto* command = app.add_subcommand("rng", "Draw numbers from a random-number stream of the module's library");
    command->add_option("--method", settings->method, "Method name or alias (explicit naming)");
    addNumberOption<double>(command, "--seed", settings->seed,
                            "Seed (a number; fractional or large seeds are folded into range)");
    addNumberOption<double>(command, "--stream", settings->stream, "Stream number");
    addNumberOption<std::uint64_t>(command, "--key", settings->key,
                                   "Key, or the sub-stream of a method without keys");
    addNumberOption<long long>(command, "--count", settings->count, "How many numbers to draw", 0LL);
    command->add_option("--form", settings->form, "raw32, raw64, uniform (the stream's), or a conversion slot name")
        ->check(CLI::IsMember(kForms));
    addNumberOption<int>(command, "--dump", settings->dump, "Dump the state after seeding, at most N items", 0);
    command->add_option("--option-text", settings->optionText, "The host's option text, e.g. RNGSEED=42");
    command->add_option("--set", settings->settings, "Setting NAME=VALUE, stored as text (repeatable)")
        ->allow_extra_args(false);
    command->add_option("--messages", settings->messages,
                        "Lowest severity shown: all, info, note, warn, error, none (OSENV.QIX_RNG_MESSAGES)");
    command->add_flag("--debug", settings->debug, "Trace every settings operation (OSENV.QIX_TKNR_DEBUG)");
    command->add_flag("--no-hardware", settings->noHardware, "Host reports no RDRAND instruction");
    command->add_flag("--hex", settings->hex, "Raw numbers in hexadecimal");
    command->callback([settings] {
        const int code = runRng(*settings);
        if (code != 0) throw CLI::RuntimeError(code);
    });
}

}  // namespace txcli
