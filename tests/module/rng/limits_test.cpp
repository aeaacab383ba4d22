// Values at the edges of the integer ranges: stream numbers just above and
// below every method's limit, the automatic seed of all ones.
#include <cmath>

#include "module/rng/messages.h"
#include "module/rng/select.h"
#include "module/rng/stream.h"
#include "tests/module/rng/rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

class LimitsTest : public RngHostTest {};

TEST_F(LimitsTest, RequestedStreamsAgainstEveryMethodsLimit) {
    for (const char* name : {"XOR64", "FRY2X64", "FRY2X32", "FRY4X64", "SUBKEY32", "SUBKEY64", "RANUNI", "PCG64I",
                             "PCG32I", "MH3", "MT64", "MT1998", "MT32", "MTHYBRID"}) {
        RngMethod record{};
        ASSERT_EQ(selectMethod(name, -1, &record, 0), 0) << name;
        if ((record.flags & kStreamCapability) == 0) continue;
        // The largest double not above the limit, and the smallest above it.
        double below = static_cast<double>(record.maxStream);
        if (below >= 0x1p64 || static_cast<std::uint64_t>(below) > record.maxStream) below = std::nextafter(below, 0.0);
        for (double requested : {below, std::nextafter(below, INFINITY), -1.0, 0.5}) {
            RngStream* s = createStream(1, 0);
            s->requestedName = name;
            s->requestedStream = requested;
            EXPECT_EQ(initStream(s), requested == below ? 0 : kStreamOutOfRange) << name << " " << requested;
        }
    }
}

// A seed setting of -1 is the automatic seed 2^64 - 1 (2^32 - 1 for 32-bit
// methods), which no double holds.
TEST_F(LimitsTest, AutomaticSeedOfAllOnesThroughAFloatingSeed) {
    session.setSetting("tkbug.RNGSEED", -1.0);
    for (FillRoutine fill : {&fillMt64, &fillXor128, &fillPcg64i, &fillMt32, &fillPcg32i}) {
        MethodUnderTest floating(fill), integral(fill);
        floating.ops().seedFromDouble(floating.s(), -3.0);
        integral.method.outputBits > 32 ? integral.ops().seed64(integral.s(), ~0ull)
                                        : integral.ops().seed32(integral.s(), 0xFFFFFFFFu);
        EXPECT_EQ(floating.draw(4), integral.draw(4)) << integral.method.shortName;
    }
}

}  // namespace
}  // namespace rngtest
