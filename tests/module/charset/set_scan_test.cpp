// The set scans against a plain byte-by-byte scan, on generated sets and
// inputs of every length around the vector block sizes. Each input lives in
// a buffer of exactly its length, so a read past either end shows up under
// AddressSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "module/charset/set_scan.h"

namespace {

using txscan::countInSet;
using txscan::firstInSet;
using txscan::lastInSet;

TEST(SetScan, AgreesWithPlainScan) {
    std::mt19937 random(20240611);
    // Member densities from none to all, so that hits fall in every lane and
    // in the scalar tails.
    const double densities[] = {0.0, 0.002, 0.02, 0.2, 0.7, 1.0};
    for (double density : densities) {
        for (int trial = 0; trial < 40; ++trial) {
            std::uint8_t set[256];
            std::bernoulli_distribution member(density);
            for (auto& e : set) e = member(random) ? 1 : 0;
            // Members entered with other nonzero values count as members too.
            if (trial % 5 == 0) {
                for (auto& e : set) e = e ? static_cast<std::uint8_t>(1 + random() % 255) : 0;
            }
            for (std::size_t length : {0ul, 1ul, 15ul, 31ul, 32ul, 33ul, 47ul, 48ul, 63ul, 64ul, 65ul, 97ul, 200ul,
                                       1000ul + random() % 64}) {
                std::vector<std::uint8_t> data(length);
                for (auto& b : data) b = static_cast<std::uint8_t>(random());
                SCOPED_TRACE(::testing::Message() << "density " << density << " length " << length);
                const auto n = static_cast<std::int32_t>(length);
                const auto member = [&](std::uint8_t b) { return set[b] != 0; };
                const auto first = std::find_if(data.begin(), data.end(), member);
                const auto last = std::find_if(data.rbegin(), data.rend(), member);
                ASSERT_EQ(first == data.end() ? -1 : first - data.begin(), firstInSet(data.data(), n, set));
                ASSERT_EQ(last == data.rend() ? -1 : data.rend() - last - 1, lastInSet(data.data(), n, set));
                ASSERT_EQ(std::count_if(data.begin(), data.end(), member), countInSet(data.data(), n, set));
            }
        }
    }
}

TEST(SetScan, NonPositiveLengthsFindNothing) {
    const std::vector<std::uint8_t> set(256, 1);
    const std::uint8_t byte = 'a';
    for (std::int32_t length : {0, -1, -100}) {
        EXPECT_EQ(-1, firstInSet(&byte, length, set.data()));
        EXPECT_EQ(-1, lastInSet(&byte, length, set.data()));
        EXPECT_EQ(0, countInSet(&byte, length, set.data()));
    }
}

}  // namespace
