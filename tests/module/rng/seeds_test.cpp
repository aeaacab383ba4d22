// Seed sources: folding of floating seeds, automatic seeds from the setting,
// the hardware and the clock, and the hardware method.
#include "module/rng/seeds.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <set>

#include "tests/module/rng/rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

constexpr std::uint64_t kLimit32 = 0xFFFFFFFF;
constexpr std::uint64_t kLimit63 = (std::uint64_t{1} << 63) - 1;
constexpr std::uint64_t kLimit64 = ~std::uint64_t{0};

class SeedTest : public RngHostTest {
protected:
    void hardwareOff() { txhost::setHardwareRandom(services(), false); }
};

TEST_F(SeedTest, ConvertSeedFolds) {
    struct ConvertCase { double value; std::uint64_t limit; double expected; bool outOfRangeMessage; };
    int exponent = 0;
    const double mantissa1e30 = std::frexp(1e30, &exponent);
    const ConvertCase cases[] = {
        {3.0, kLimit32, 3.0, false},
        {2.5, kLimit32, std::floor((0x1p32 - 3) * 0.25 + 1), false},
        {0x1p32, kLimit32, 1.0, false},           // mantissa 0.5
        {0x1p64, kLimit64, 1.0, false},           // not below 2^64
        {1e30, kLimit64, std::floor((0x1p53 - 2) * (mantissa1e30 - 0.5) * 2 + 1), false},
        {5.0, 3, 1.0, false},                     // 0.625: floor(0.25 + 1)
        {3.0, 1, 0.0, true},                      // n = 1 leaves room for nothing
        {-1.0, kLimit32, 0.0, false},
        {std::bit_cast<double>(0xFFFFD10000000000ull), kLimit32, 0.0, false},   // missing
        // At the top of the range: kept up to the limit, folded from the power of two above it.
        {0x1p63 - 1024, kLimit63, 0x1p63 - 1024, false}, {0x1p63, kLimit63, 1.0, false},
        {0x1p64 - 2048, kLimit64, 0x1p64 - 2048, false}, {4294967295.0, kLimit32, 4294967295.0, false},
    };
    showAllMessages();
    for (const ConvertCase& c : cases) {
        EXPECT_EQ(convertSeed(c.value, c.limit), c.expected) << c.value << " " << c.limit;
        std::vector<std::uint32_t> codes = cataloguedCodes();
        EXPECT_EQ(!codes.empty() && codes[0] == 0x8C7FE819u, c.outOfRangeMessage) << c.value;
    }
}

TEST_F(SeedTest, TheSettingFixesTheAutomaticSeed) {
    struct SettingSeedCase { double setting; std::uint32_t seed32; std::uint64_t seed64; };
    hardwareOff();
    const SettingSeedCase cases[] = {
        {42.0, 42, 42},
        {0x1p32 + 5, 5, 0x100000005ull},          // 32 bits: the low half
        {7.9, 7, 7},
    };
    for (const SettingSeedCase& c : cases) {
        session.setSetting("tkbug.RNGSEED", c.setting);
        EXPECT_EQ(autoSeed32(), c.seed32) << c.setting;
        EXPECT_EQ(autoSeed64(), c.seed64) << c.setting;
    }
    session.setSetting("tkbug.RNGSEED", std::int64_t{42});
    EXPECT_EQ(autoSeed32(), 42u) << "an integer setting is read as a number too";
    // Zero low bits fall through to the other sources for 32 bits.
    session.setSetting("tkbug.RNGSEED", 0x1p32);
    std::uint32_t seed = autoSeed32();
    EXPECT_TRUE(seed >= 1 && seed <= 0x7FFFFFFE) << seed;
    EXPECT_EQ(autoSeed64(), 0x100000000ull);
}

// From the hardware when it has the instruction, else from the clock, which
// is waited on so that seeds in a row differ (so the clock must move).
TEST_F(SeedTest, HardwareAndClockSeedsStayInRange) {
    for (bool hardware : {true, false}) {
        if (hardware && !processorHasRdrand()) continue;
        SCOPED_TRACE(hardware ? "hardware" : "clock");
        txhost::setHardwareRandom(services(), hardware);
        EXPECT_EQ(hardwareAvailable(), hardware);
        std::set<std::uint32_t> seeds32;
        std::set<std::uint64_t> seeds64;
        for (int i = 0; i < 20; ++i) {
            std::uint32_t s32 = autoSeed32();
            std::uint64_t s64 = autoSeed64();
            EXPECT_TRUE(s32 >= 1 && s32 <= 0x7FFFFFFE) << s32;
            EXPECT_TRUE(s64 >= (hardware ? 1 : 0) && s64 < (1ull << 53)) << s64;
            seeds32.insert(s32);
            seeds64.insert(s64);
        }
        EXPECT_GT(seeds32.size(), 15u);
        EXPECT_EQ(seeds64.size(), 20u);
    }
    txhost::Session quiet({.hardwareRandom = false});   // the session option switches it off too
    auto bound = txhost::Module::attach(quiet, &mcn_main, &tkvercn1);
    EXPECT_FALSE(hardwareAvailable());
}

TEST_F(SeedTest, HardwareMethodDrawsAndFallsSilentWithoutTheInstruction) {
    MethodUnderTest m(&fillRdrand);
    if (processorHasRdrand()) {
        std::vector<std::uint64_t> draws = m.draw(50);
        EXPECT_GT(std::set<std::uint64_t>(draws.begin(), draws.end()).size(), 45u);
        double u = m.ops().uniform(m.s());
        EXPECT_TRUE(u > 0.0 && u < 1.0) << u;
    }
    hardwareOff();
    EXPECT_EQ(m.next64(), 0u);
    EXPECT_EQ(m.next32(), 0u);
    EXPECT_EQ(m.ops().uniform(m.s()), 0.0);
    EXPECT_EQ(m.ops().uniformDense(m.s()), 0.0);
    EXPECT_EQ(m.ops().seed64(m.s(), 5), 0);
}

}  // namespace
}  // namespace rngtest
