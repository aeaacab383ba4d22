// The random library driven by arbitrary input: option text and settings
// (method, message words, count-downs, the fixed seed, the debug trace),
// method selection by any 8-bit or UTF-16 name, and stream creation and
// re-initialisation with any seed, stream and key, followed by draws
// through every slot the chosen method fills. A session per input, so that
// every run depends on its input alone.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "host/host.h"
#include "module/frame/exports.h"
#include "module/rng/select.h"
#include "module/rng/settings.h"
#include "module/rng/stream.h"

namespace {

using namespace txscan::rng;

const char* const kSettingNames[] = {"OSENV.QIX_RNG_METHOD",     "OSENV.QIX_RNG_SEVERITY",    "OSENV.QIX_RNG_MESSAGES",
                                     "OSENV.QIX_RNG_NOTE_LIMIT", "OSENV.QIX_RNG_ERROR_LIMIT", "OSENV.QIX_TKNR_DEBUG",
                                     "tkbug.RNGSEED"};
// Words and names the library knows, so that inputs reach past the lookups.
const char* const kKnownTexts[] = {"MT32",  "MT64",  "MTHYBRID", "MT1998", "XOR64", "XOR128", "XOR1024", "XOR4096",
                                   "XORGENS", "FRY2X32", "FRY2X64", "FRY4X64", "TF", "SUBKEY32", "SUBKEY64", "PCG",
                                   "PCG32I", "PCG64I", "MH3",   "RANUNI", "RDRAND", "HARD",   "all",     "none",
                                   "note",  "warn ", "ERRORS", "info", "YES",   "2.000",  "99999999999999999999"};

std::string someText(FuzzedDataProvider& in) {
    if (in.ConsumeBool()) return in.PickValueInArray(kKnownTexts);
    return in.ConsumeRandomLengthString(24);
}

std::uint64_t someWord(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: return 0;
    case 1: return ~std::uint64_t{0} - in.ConsumeIntegralInRange<std::uint64_t>(0, 2);
    case 2: return std::uint64_t{1} << in.ConsumeIntegralInRange(0, 63);
    default: return in.ConsumeIntegral<std::uint64_t>();
    }
}

double someDouble(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange(0, 4)) {
    case 0: return 0;
    case 1: return static_cast<double>(someWord(in)) * (in.ConsumeBool() ? -1 : 1);
    case 2: return static_cast<double>(in.ConsumeIntegralInRange<std::int64_t>(-5, 5)) / 2;
    case 3: return in.ConsumeFloatingPoint<double>();
    default: {
        std::uint64_t bits = in.ConsumeIntegral<std::uint64_t>();   // NaNs, infinities, missing values
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    }
}

void applySettings(FuzzedDataProvider& in, txhost::Session& session) {
    for (const char* name : kSettingNames) {
        switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0: break;
        case 1: session.setSetting(name, std::string_view(someText(in))); break;
        case 2: session.setSetting(name, static_cast<std::int64_t>(someWord(in))); break;
        default: session.setSetting(name, someDouble(in)); break;
        }
    }
}

void drawEverything(FuzzedDataProvider& in, RngStream* s) {
    const RngOperations& ops = s->method->ops;
    double (*const conversions[])(void*) = {
        ops.uniform,           ops.uniformPreferred,    ops.uniformScaled,       ops.uniform32Open,
        ops.uniform32Centred,  ops.uniform32OpenClosed, ops.uniform32ClosedOpen, ops.uniform32Closed,
        ops.uniform53Open,     ops.uniform53Odd,        ops.uniform53OpenClosed, ops.uniform53ClosedOpen,
        ops.uniform53Closed,   ops.uniform64Open,       ops.uniform64Odd,        ops.uniform64OpenClosed,
        ops.uniform64ClosedOpen, ops.uniform64Closed,   ops.uniformDense};
    for (auto* conversion : conversions) {
        if (conversion == nullptr) continue;
        const double u = conversion(s->state);
        if (!(u >= -1 && u <= 1)) __builtin_trap();   // every conversion lies within [-1, 1]
    }
    streamNext32(s);
    streamNext64(s);
    streamUniform(s);
    if (in.ConsumeBool()) ops.seedFromDouble(s->state, someDouble(in));
    if (in.ConsumeBool()) ops.setStreamFromDouble(s->state, someDouble(in));
    if (in.ConsumeBool() && ops.setPosition64 != nullptr) ops.setPosition64(s->state, someWord(in));
    if (in.ConsumeBool() && ops.setPosition32 != nullptr) ops.setPosition32(s->state, someWord(in));
    if (in.ConsumeBool()) {
        const std::vector<std::uint8_t> bytes = in.ConsumeBytes<std::uint8_t>(in.ConsumeIntegralInRange(0, 2600));
        ops.seedFromBytes(s->state, bytes.data(), static_cast<std::int32_t>(bytes.size()),
                          in.ConsumeIntegralInRange<std::uint32_t>(0, 3));
    }
    if (in.ConsumeBool()) (s->method->outputBits > 32 ? ops.dumpState64 : ops.dumpState32)(s->state, in.ConsumeIntegralInRange(-2, 40));
    for (int i = in.ConsumeIntegralInRange(0, 8); i > 0; --i) streamUniform(s);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    txhost::SessionOptions options;
    options.hardwareRandom = in.ConsumeBool();
    options.optionText = in.ConsumeBool() ? "RNGSEED=" + std::to_string(in.ConsumeIntegral<std::int32_t>())
                                          : in.ConsumeRandomLengthString(40);
    txhost::Session session(options);
    auto module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
    applySettings(in, session);

    // Selection alone, by a name of any length, 8-bit or UTF-16.
    RngMethod record{};
    if (in.ConsumeBool()) {
        const std::string name = someText(in);
        selectMethod(name.c_str(), in.ConsumeBool() ? -1 : static_cast<std::int32_t>(name.size()), &record, 0);
    } else {
        std::u16string name;
        for (unsigned char c : someText(in)) name += static_cast<char16_t>(in.ConsumeBool() ? c : c * 257u);
        selectMethod(name.c_str(), in.ConsumeBool() ? -1 : static_cast<std::int32_t>(name.size()), &record,
                     kNameIsWide);
    }

    // The stream as the function environment makes it, then re-initialised
    // as a caller may: any of name, seed, stream and key changed each time.
    RngStream* s = createStream(static_cast<std::uint64_t>(std::int64_t{readSeedOption("-rngseed")}), someWord(in));
    if (s == nullptr) return 0;
    std::vector<std::string> names;   // alive as long as the stream may point at them
    for (int round = in.ConsumeIntegralInRange(0, 3); round > 0 && in.remaining_bytes() > 0; --round) {
        if (in.ConsumeBool()) {
            names.push_back(someText(in));
            s->requestedName = names.back().c_str();
            s->options &= ~std::uint64_t{kNameIsWide};
        }
        if (in.ConsumeBool()) s->requestedSeed = someDouble(in);
        if (in.ConsumeBool()) s->requestedStream = someDouble(in);
        if (in.ConsumeBool()) s->seed = someWord(in);
        if (in.ConsumeBool()) s->stream = someWord(in);
        if (in.ConsumeBool()) s->key = someWord(in);
        initStream(s);
        drawEverything(in, s);
    }

    // Settings operations on names of any shape.
    std::u16string name;
    for (unsigned char c : someText(in)) name += static_cast<char16_t>(c);
    tknrlimit(name.c_str(), static_cast<std::int32_t>(name.size()), static_cast<std::int64_t>(someWord(in)));
    tknrlget(name.c_str(), 0);
    tknrdget(name.c_str(), 0, 1.0);
    tknrlook(name.c_str(), 0, 7, u"ALL", 0, u"NONE", 9, static_cast<const TKChar*>(nullptr));
    return 0;
}
