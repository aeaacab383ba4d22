// Values at the edges of the integer ranges: stream numbers just above and
// below every method's limit, seeds near 2^63 and 2^64, and count-downs at
// the ends of the 64-bit range.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "module/rng/messages.h"
#include "module/rng/seeds.h"
#include "module/rng/select.h"
#include "module/rng/settings.h"
#include "module/rng/stream.h"
#include "tests/module/rng/rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

const char* const kMethods[] = {"XOR64",  "XOR128",   "XOR1024", "XOR4096", "XORGENS", "FRY2X64", "FRY2X32",
                                "FRY4X64", "SUBKEY32", "SUBKEY64", "RANUNI", "PCG64I",  "PCG32I",  "MH3",
                                "MT64",    "MT1998",   "MT32",     "MTHYBRID"};

class LimitsTest : public RngHostTest {
protected:
    std::int32_t requestStream(const char* method, double requested) {
        RngStream* s = createStream(1, 0);
        s->requestedName = method;
        s->requestedStream = requested;
        messages();
        return initStream(s);
    }
};

TEST_F(LimitsTest, RequestedStreamsAgainstEveryMethodsLimit) {
    session.setSetting("OSENV.QIX_RNG_ERROR_LIMIT", std::int64_t{1000000});
    for (const char* name : kMethods) {
        RngMethod record{};
        ASSERT_EQ(selectMethod(name, -1, &record, 0), 0) << name;
        if ((record.flags & kStreamCapability) == 0) continue;
        const std::uint64_t limit = record.maxStream;
        // The largest double that is not above the limit, and the smallest that is.
        double below = static_cast<double>(limit);
        if (below >= 0x1p64 || static_cast<std::uint64_t>(below) > limit) below = std::nextafter(below, 0.0);
        const double above = std::nextafter(below, INFINITY);
        EXPECT_EQ(requestStream(name, below), 0) << name << " " << below;
        for (double bad : {above, -1.0, 0.5}) {
            EXPECT_EQ(requestStream(name, bad), kStreamOutOfRange) << name << " " << bad;
            std::vector<std::int32_t> codes;
            for (const Message& m : messages()) codes.push_back(m.code);
            EXPECT_NE(std::find(codes.begin(), codes.end(), kMsgRequestedStreamBad), codes.end()) << name << " " << bad;
        }
    }
}

TEST_F(LimitsTest, SeedsAtTheTopOfTheRange) {
    constexpr std::uint64_t kMax63 = (std::uint64_t{1} << 63) - 1;
    struct Case {
        double value;
        std::uint64_t limit;
        bool unchanged;
    } const cases[] = {
        {0x1p63 - 1024, kMax63, true}, {0x1p63, kMax63, false},      {0x1p64 - 2048, ~0ull, true},
        {0x1p64, ~0ull, false},        {4294967295.0, 0xFFFFFFFF, true}, {4294967296.0, 0xFFFFFFFF, false},
    };
    for (const Case& c : cases) {
        const double seed = convertSeed(c.value, c.limit);
        if (c.unchanged) {
            EXPECT_EQ(seed, c.value) << c.value;
        } else {
            EXPECT_GE(seed, 1) << c.value;
            EXPECT_LE(seed, 0x1p53) << c.value;
        }
    }
}

// A seed setting of -1 is the automatic seed 2^64 - 1 (2^32 - 1 for 32-bit
// methods), which no double holds: seeding from a double at or below 0 must
// give what seeding from that integer gives.
TEST_F(LimitsTest, AutomaticSeedOfAllOnesThroughAFloatingSeed) {
    session.setSetting("tkbug.RNGSEED", -1.0);
    for (FillRoutine fill : {&fillMt64, &fillXor128, &fillPcg64i, &fillMt32, &fillPcg32i}) {
        MethodUnderTest floating(fill), integral(fill);
        floating.ops().seedFromDouble(floating.s(), -3.0);
        if (integral.method.outputBits > 32)
            integral.ops().seed64(integral.s(), ~std::uint64_t{0});
        else
            integral.ops().seed32(integral.s(), 0xFFFFFFFFu);
        EXPECT_EQ(floating.draw(4), integral.draw(4)) << integral.method.shortName;
    }
}

TEST_F(LimitsTest, CountDownsAtTheEndsOfTheRange) {
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    struct Case {
        std::int64_t stored;
        std::int32_t returned;
        std::int64_t storedAfter;
    } const cases[] = {
        {kMin, -1, -1}, {kMin + 1, -1, -1}, {-1, -1, -1}, {0, -1, -1}, {1, 0, 0}, {kMax, 2147483647, kMax - 1},
    };
    for (const Case& c : cases) {
        session.setSetting("OSENV.QIX_RNG_ERROR_LIMIT", c.stored);
        EXPECT_EQ(tknrlimit(kKeyErrorLimit, 0, kDefaultLimit), c.returned) << c.stored;
        EXPECT_EQ(tknrlget(kKeyErrorLimit, 0), c.storedAfter) << c.stored;
    }
}

}  // namespace
}  // namespace rngtest
