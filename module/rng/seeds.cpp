// Automatic seeds, seed folding and the hardware random instruction.
#include "module/rng/seeds.h"

#include <cmath>

#include "module/rng/hash.h"
#include "module/rng/host_access.h"
#include "module/rng/messages.h"
#include "module/rng/numbers.h"
#include "module/rng/settings.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define TXSCAN_HAVE_RDRAND 1
#endif

namespace txscan::rng {
namespace {

constexpr int kClockReadings = 10'000'000;

double seedSetting() { return tknrdget(kKeySeed, 0, 0.0); }

// Waits for the clock to move so that two seeds drawn in a row differ.
double nextClockTick(double* before) {
    double t0 = clockReading();
    double t1 = t0;
    for (int i = 0; i < kClockReadings && t1 == t0; ++i) t1 = clockReading();
    *before = t0;
    return t1;
}

#ifdef TXSCAN_HAVE_RDRAND
__attribute__((target("rdrnd"))) std::uint64_t rdrand64() {
    unsigned long long value = 0;
    while (!_rdrand64_step(&value)) {
    }
    return value;
}
__attribute__((target("rdrnd"))) std::uint32_t rdrand32() {
    unsigned int value = 0;
    while (!_rdrand32_step(&value)) {
    }
    return value;
}
#endif

}  // namespace

bool hardwareAvailable() {
#ifdef TXSCAN_HAVE_RDRAND
    contract::SystemInfoRecord info{};
    systemQueryFn()(contract::kQueryProcessor.code, &info, contract::kQueryProcessor.flags);
    const contract::ProcessorRecord* processor = info.processor;
    if (processor == nullptr || processor->status != 0) return false;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(processor);
    return (bytes[contract::kRdrandFeatureByte] & contract::kRdrandFeatureBit) != 0;
#else
    return false;
#endif
}

std::uint32_t hardware32() {
#ifdef TXSCAN_HAVE_RDRAND
    return rdrand32();
#else
    return 0;
#endif
}

std::uint64_t hardware64() {
#ifdef TXSCAN_HAVE_RDRAND
    return rdrand64();
#else
    return 0;
#endif
}

double clockReading() {
    contract::ClockReading reading{};
    systemQueryFn()(contract::kQueryClock.code, &reading, contract::kQueryClock.flags);
    return reading.reading - reading.base;
}

double convertSeed(double value, std::uint64_t limit) {
    if (isMissing(value) || value <= 0) return 0;
    if (wholeNumberWithin(value, limit)) return value;
    int exponent = 0;
    double mantissa = std::frexp(value, &exponent);
    double n = limit < (std::uint64_t{1} << 53) ? static_cast<double>(limit) : 0x1p53;
    double r = std::floor((n - 2) * (mantissa - 0.5) * 2 + 1);
    if (r < 1 || r > n) issueRngMessage(contract::kSeverityError, kMsgSeedFolded, value, n, r);
    return r;
}

std::uint64_t autoSeed64() {
    std::uint64_t u = reduceToWord<std::uint64_t>(seedSetting());
    if (u != 0) return u;
    if (hardwareAvailable()) u = hardware64();
    if (u == 0) {
        double t0 = 0;
        double t1 = nextClockTick(&t0);
        contract::MachineRecord machine{};
        systemQueryFn()(contract::kQueryMachine.code, &machine, contract::kQueryMachine.flags);
        const auto* task = static_cast<const std::uint64_t*>(currentTaskFn()());
        std::uint64_t taskWord = task != nullptr ? task[contract::kTaskSeedWord] : 0;
        u = reduceToWord<std::uint64_t>(t1 * 1e9) + machine.seedWord + 1 + 2 * taskWord;
        u = fmix64(u);
    }
    if (u > 2048) u >>= 11;
    return u;
}

std::uint32_t autoSeed32() {
    std::uint64_t v = reduceToWord<std::uint64_t>(seedSetting());
    if (static_cast<std::uint32_t>(v) != 0) return static_cast<std::uint32_t>(v);
    std::uint32_t u = 0;
    if (hardwareAvailable()) u = hardware32();
    if (u == 0) {
        double t0 = 0;
        double t1 = nextClockTick(&t0);
        // Dividing by the tick spreads clocks of any resolution over the 32 bits.
        double x = t1 - t0 != 0 ? (t1 * 0x1.0000000000004p0) / (t1 - t0) : t1;   // 1 + 2^-50
        u = static_cast<std::uint32_t>(reduceToWord<std::uint64_t>(std::fmod(x, 0x1p32)));
        if (u == 0) u = 1;
    }
    u &= 0x7FFFFFFF;
    if (u == 0x7FFFFFFF) u = 1;
    return u;
}

}  // namespace txscan::rng
