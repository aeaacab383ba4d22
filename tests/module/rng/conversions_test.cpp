// The uniform conversions of slots 21 to 36 on chosen raw outputs.
#include "module/rng/conversions.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace {

using namespace txscan::rng;

// A generator that replays chosen raw outputs (then zeros) and counts draws.
struct Script { std::vector<std::uint64_t> values; std::size_t drawn = 0; };
std::uint64_t scripted64(void* state) {
    auto* script = static_cast<Script*>(state);
    std::size_t i = script->drawn++;
    return i < script->values.size() ? script->values[i] : 0;
}
std::uint32_t scripted32(void* state) { return static_cast<std::uint32_t>(scripted64(state)); }

using Conversion = double (*)(void*);

struct ConversionCase {
    const char* name;
    Conversion convert;
    std::vector<std::uint64_t> raw;
    double expected;
    std::size_t draws;   // raw outputs consumed
};

constexpr std::uint64_t kAll = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t kAll32 = 0xFFFFFFFF;

const ConversionCase kCases[] = {
    {"32Open skips zeros", &uniform32Open<&scripted32>, {0, 0, 5}, 5 * 0x1p-32, 3},
    {"32Open gives up after 99", &uniform32Open<&scripted32>, {}, 0.0, 99},
    {"32Centred zero", &uniform32Centred<&scripted32>, {0}, 0.5 * 0x1p-32, 1},
    {"32OpenClosed zero", &uniform32OpenClosed<&scripted32>, {0}, 0x1p-32, 1},
    {"32OpenClosed top", &uniform32OpenClosed<&scripted32>, {kAll32}, 1.0, 1},
    {"32ClosedOpen top", &uniform32ClosedOpen<&scripted32>, {kAll32}, 1 - 0x1p-32, 1},
    {"32Closed top", &uniform32Closed<&scripted32>, {kAll32}, 1.0, 1},
    {"32Closed odd", &uniform32Closed<&scripted32>, {1}, 0x1p-31, 1},
    {"53Open skips low-only outputs", &uniform53Open<&scripted64>, {0x7FF, 1 << 11}, 0x1p-53, 2},
    {"53Open gives up after 99", &uniform53Open<&scripted64>, {}, 0.0, 99},
    {"53Odd zero", &uniform53Odd<&scripted64>, {0}, 0x1p-53, 1},
    {"53Odd top", &uniform53Odd<&scripted64>, {kAll}, 1 - 0x1p-53, 1},
    {"53OpenClosed top", &uniform53OpenClosed<&scripted64>, {kAll}, 1.0, 1},
    {"53ClosedOpen top", &uniform53ClosedOpen<&scripted64>, {kAll}, 1 - 0x1p-53, 1},
    {"53Closed bit 0", &uniform53Closed<&scripted64>, {1 << 11}, 0x1p-52, 1},
    {"64Open skips zero and 1.0", &uniform64Open<&scripted64>, {0, kAll, kAll - 1023, 1ull << 63}, 0.5, 4},
    {"64Open just below the rounding edge", &uniform64Open<&scripted64>, {kAll - 1024}, 1 - 0x1p-53, 1},
    {"64Open dead generator", &uniform64Open<&scripted64>, {}, 0.0, kDeadGeneratorDraws},
    {"64Odd top shifted", &uniform64Odd<&scripted64>, {kAll}, 1 - 0x1p-10, 1},
    {"64OpenClosed top", &uniform64OpenClosed<&scripted64>, {kAll}, 1.0, 1},
    // Exact sum: 2^53 + 2 is a double; (double)(2^53 + 1) + 1.0 would give 2^53.
    {"64OpenClosed one rounding", &uniform64OpenClosed<&scripted64>, {(1ull << 53) + 1}, 0x1p-11 + 0x1p-63, 1},
    {"64ClosedOpen top shifted", &uniform64ClosedOpen<&scripted64>, {kAll}, 1 - 0x1p-10, 1},
    {"64ClosedOpen below the edge", &uniform64ClosedOpen<&scripted64>, {kAll - 1024}, 1 - 0x1p-53, 1},
    {"64Closed top", &uniform64Closed<&scripted64>, {kAll}, 1.0, 1},
    {"Dense refills leading zeros", &uniformDense<&scripted64>, {1, kAll}, 0x1p-63, 2},
    {"Dense one zero word", &uniformDense<&scripted64>, {0, 1ull << 62, 0}, 0x1p-66, 3},
    {"Dense 15 zero words then subnormal", &uniformDense<&scripted64>,
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0}, 0x1p-1024, 17},
    {"Dense gives up below 2^-1074", &uniformDense<&scripted64>, {}, 0.0, 16},
};

TEST(Conversions, ChosenRawOutputs) {
    for (const ConversionCase& c : kCases) {
        Script script{c.raw};
        EXPECT_EQ(c.convert(&script), c.expected) << c.name;
        EXPECT_EQ(script.drawn, c.draws) << c.name;
    }
}

// The open and half-open forms never reach the end they exclude, whatever
// the raw output.
TEST(Conversions, ExcludedEndsAreNeverReached) {
    struct Bound { const char* name; Conversion convert; bool excludesZero, excludesOne; };
    const Bound bounds[] = {
        {"32Open", &uniform32Open<&scripted32>, true, true},   {"32Centred", &uniform32Centred<&scripted32>, true, true},
        {"32OpenClosed", &uniform32OpenClosed<&scripted32>, true, false},
        {"32ClosedOpen", &uniform32ClosedOpen<&scripted32>, false, true},
        {"53Open", &uniform53Open<&scripted64>, true, true},   {"53Odd", &uniform53Odd<&scripted64>, true, true},
        {"53OpenClosed", &uniform53OpenClosed<&scripted64>, true, false},
        {"53ClosedOpen", &uniform53ClosedOpen<&scripted64>, false, true},
        {"64Open", &uniform64Open<&scripted64>, true, true},   {"64Odd", &uniform64Odd<&scripted64>, true, true},
        {"64OpenClosed", &uniform64OpenClosed<&scripted64>, true, false},
        {"64ClosedOpen", &uniform64ClosedOpen<&scripted64>, false, true},
    };
    std::vector<std::uint64_t> raws = {1, 2, 0x7FF, 0x800, kAll32, kAll32 - 1, kAll, kAll - 1, kAll - 1023,
                                       kAll - 1024, kAll - 2047, 1ull << 63, (1ull << 53) + 1};
    for (std::uint64_t top = 1; top < 2048; top += 37) raws.push_back(kAll - top);
    for (const Bound& b : bounds)
        for (std::uint64_t raw : raws) {
            Script script{{raw, raw, (1ull << 62) | 1}};
            double u = b.convert(&script);
            EXPECT_TRUE(u >= 0.0 && u <= 1.0 && !(b.excludesZero && u == 0.0) && !(b.excludesOne && u == 1.0))
                << b.name << " " << raw << " gave " << u;
        }
}

}  // namespace
