// Fuzz target: arbitrary calls of every entry in UTF-8, ISO-8859-1 and
// Shift_JIS sessions, with guarded arguments (a read past one faults at
// once) and without the host's type checks. The input's bytes choose the
// encoding, the function, the argument count and, per argument, its kind
// (absent, number, text) and value. Sessions and call sites live as long as
// the process, so cached sets (site kind 0x48) carry over from one input to
// the next, as from one row to the next.
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/host.h"
#include "module/frame/exports.h"

namespace {

constexpr const char* kEncodings[] = {"UTF-8", "ISO-8859-1", "Shift_JIS"};
constexpr int kEncodingCount = 3;
constexpr std::uint8_t kCachingSite = 0x48;
constexpr std::size_t kMaxText = 40;

struct Input {
    const std::uint8_t* data;
    std::size_t size;
    std::uint8_t byte() {
        if (size == 0) return 0;
        --size;
        return *data++;
    }
    std::string bytes(std::size_t n) {
        n = n < size ? n : size;
        std::string out(reinterpret_cast<const char*>(data), n);
        data += n;
        size -= n;
        return out;
    }
};

// Numbers around the edges that matter (zero, fractions, the source
// lengths, negative starts, NaN, infinities, the missing value), or any f64.
double numberFrom(Input& in) {
    const std::uint8_t kind = in.byte();
    switch (kind % 8) {
        case 0: {
            std::uint64_t bits = 0;
            const std::string raw = in.bytes(8);
            std::memcpy(&bits, raw.data(), raw.size());
            double value;
            std::memcpy(&value, &bits, sizeof value);
            return value;
        }
        case 1: return static_cast<double>(static_cast<std::int8_t>(in.byte())) / 4.0;
        case 2: return -1e10;
        case 3: {
            const std::uint64_t missing = 0xFFFFD10000000000ull;
            double value;
            std::memcpy(&value, &missing, sizeof value);
            return value;
        }
        default: return static_cast<double>(static_cast<std::int8_t>(in.byte()) % 24);
    }
}

struct EncodingWorld {
    std::unique_ptr<txhost::Session> session;
    std::unique_ptr<txhost::Module> module;
    std::vector<std::unique_ptr<txhost::CallSite>> sites;
};

// The module linked into this program serves one Session at a time (a
// second attach takes it over), so one world is live: an input in another
// encoding replaces it. Call sites, and their cached sets, carry over between
// consecutive inputs of the same encoding, which the fuzzer's mutations keep.
EncodingWorld& world(int encoding) {
    static EncodingWorld current;
    static int currentEncoding = -1;
    if (encoding != currentEncoding) {
        current.sites.clear();
        current.module.reset();
        current.session.reset();
        current.session = std::make_unique<txhost::Session>(
            txhost::SessionOptions{.encoding = kEncodings[encoding], .guardedArguments = true});
        current.module = txhost::Module::attach(*current.session, &mcn_main, &tkvercn1);
        for (std::size_t f = 0; f < current.module->functions().size(); ++f) {
            auto site = std::make_unique<txhost::CallSite>(*current.module, static_cast<int>(f), kCachingSite);
            site->setTypeChecking(false);
            current.sites.push_back(std::move(site));
        }
        currentEncoding = encoding;
    }
    return current;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input in{data, size};
    EncodingWorld& w = world(in.byte() % kEncodingCount);
    const std::uint8_t choice = in.byte();
    txhost::CallSite& site = *w.sites[choice % w.sites.size()];
    const txhost::FunctionInfo& function = w.module->functions()[choice % w.sites.size()];
    const auto& d = *function.descriptor;
    const bool callRoutine = d.resultKind == txscan::contract::kCallRoutine;
    if (d.resultKind == txscan::contract::kCharacterResult && (choice & 0x80) != 0) {
        site.useGrowableResult(in.byte() % 64);
    }

    const int count = d.minArgs + in.byte() % (d.maxArgs - d.minArgs + 1);
    std::vector<txhost::Argument> arguments;
    for (int k = 1; k <= count; ++k) {
        const std::uint8_t kind = in.byte() % 4;
        if (callRoutine && (k == 3 || k == 4)) {
            arguments.emplace_back(0.0);   // the host passes numeric variables there
        } else if (kind == 0) {
            arguments.emplace_back(txhost::Absent{});
        } else if (kind == 1) {
            arguments.emplace_back(numberFrom(in));
        } else {
            arguments.emplace_back(in.bytes(in.byte() % kMaxText));
        }
    }
    try {
        site.call(arguments);
    } catch (const std::invalid_argument&) {
        // The host refuses calls no program could make (a text output
        // argument); nothing reached the module.
    }
    w.session->takeMessages();
    return 0;
}
