// Threefry and Mersenne Twister methods against independent references:
// Random123's published known answers and its own implementation, the
// standard library's MT19937 engines, and MurmurHash3's published values.
#include <Random123/threefry.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "rng/hash.h"
#include "rng/threefry.h"
#include "rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

// ---- Threefry block functions.

struct Kat2x64 {
    std::uint64_t ctr[2], key[2], out[2];
};
struct Kat2x32 {
    std::uint32_t ctr[2], key[2], out[2];
};
struct Kat4x64 {
    std::uint64_t ctr[4], key[4], out[4];
};

constexpr std::uint64_t F64 = ~std::uint64_t{0};
constexpr std::uint32_t F32 = 0xFFFFFFFF;

// Random123's known answers, 20 rounds: zeros, all ones, and (2x32) the digits of pi.
const Kat2x64 kKat2x64[] = {
    {{0, 0}, {0, 0}, {0xc2b6e3a8c2c69865ull, 0x6f81ed42f350084dull}},
    {{F64, F64}, {F64, F64}, {0xe02cb7c4d95d277aull, 0xd06633d0893b8b68ull}},
};
const Kat2x32 kKat2x32[] = {
    {{0, 0}, {0, 0}, {0x6b200159, 0x99ba4efe}},
    {{F32, F32}, {F32, F32}, {0x1cb996fc, 0xbb002be7}},
    {{0x243f6a88, 0x85a308d3}, {0x13198a2e, 0x03707344}, {0xc4923a9c, 0x483df7a0}},
};
const Kat4x64 kKat4x64[] = {
    {{0, 0, 0, 0}, {0, 0, 0, 0}, {0x09218ebde6c85537ull, 0x55941f5266d86105ull, 0x4bd25e16282434dcull, 0xee29ec846bd2e40bull}},
    {{F64, F64, F64, F64},
     {F64, F64, F64, F64},
     {0x29c24097942bba1bull, 0x0371bbfb0f6f4e11ull, 0x3c231ffa33f83a1cull, 0xcd29113fde32d168ull}},
};

TEST(Threefry, PublishedKnownAnswers) {
    for (const Kat2x64& k : kKat2x64) {
        std::uint64_t out[2] = {1, 1};   // a block function that writes nothing cannot pass
        threefryBlock2x64(k.ctr, k.key, out);
        EXPECT_EQ(out[0], k.out[0]);
        EXPECT_EQ(out[1], k.out[1]);
    }
    for (const Kat2x32& k : kKat2x32) {
        std::uint32_t out[2] = {1, 1};
        threefryBlock2x32(k.ctr, k.key, out);
        EXPECT_EQ(out[0], k.out[0]);
        EXPECT_EQ(out[1], k.out[1]);
    }
    for (const Kat4x64& k : kKat4x64) {
        std::uint64_t out[4] = {1, 1, 1, 1};
        threefryBlock4x64(k.ctr, k.key, out);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(out[i], k.out[i]) << i;
    }
}

TEST(Threefry, AgreesWithRandom123OnScatteredInputs) {
    std::mt19937_64 inputs(2024);
    for (int trial = 0; trial < 500; ++trial) {
        threefry2x64_ctr_t c2 = {{inputs(), inputs()}};
        threefry2x64_key_t k2 = {{inputs(), inputs()}};
        threefry2x64_ctr_t r2 = threefry2x64_R(20, c2, k2);
        std::uint64_t o2[2];
        threefryBlock2x64(c2.v, k2.v, o2);
        ASSERT_EQ(o2[0], r2.v[0]);
        ASSERT_EQ(o2[1], r2.v[1]);

        threefry4x64_ctr_t c4 = {{inputs(), inputs(), inputs(), inputs()}};
        threefry4x64_key_t k4 = {{inputs(), inputs(), inputs(), inputs()}};
        threefry4x64_ctr_t r4 = threefry4x64_R(20, c4, k4);
        std::uint64_t o4[4];
        threefryBlock4x64(c4.v, k4.v, o4);
        for (int i = 0; i < 4; ++i) ASSERT_EQ(o4[i], r4.v[i]);

        threefry2x32_ctr_t c32 = {{static_cast<std::uint32_t>(inputs()), static_cast<std::uint32_t>(inputs())}};
        threefry2x32_key_t k32 = {{static_cast<std::uint32_t>(inputs()), static_cast<std::uint32_t>(inputs())}};
        threefry2x32_ctr_t r32 = threefry2x32_R(20, c32, k32);
        std::uint32_t o32[2];
        threefryBlock2x32(c32.v, k32.v, o32);
        ASSERT_EQ(o32[0], r32.v[0]);
        ASSERT_EQ(o32[1], r32.v[1]);
    }
}

// ---- The FRY methods.

class CounterMethodTest : public RngHostTest {};

template <typename Word, int N>
struct FryView {
    Word ctr[N], key[N], out[N], idx;
};

TEST_F(CounterMethodTest, Fry2x64SeedingAndTheThirdCall) {
    MethodUnderTest m(&fillFry2x64);
    m.ops().seed64(m.s(), 1);
    FryView<std::uint64_t, 2> v;
    std::memcpy(&v, m.state, sizeof v);
    EXPECT_EQ(v.key[0], 1u);
    EXPECT_EQ(v.key[1], fmix64(2));
    EXPECT_EQ(v.ctr[0], 1u);
    EXPECT_EQ(v.ctr[1], 0u);
    EXPECT_EQ(v.idx, 0u);
    const std::uint64_t key[2] = {1, fmix64(2)};
    std::uint64_t first[2], second[2];
    const std::uint64_t ctr1[2] = {1, 0}, ctr2[2] = {2, 0};
    threefryBlock2x64(ctr1, key, first);
    threefryBlock2x64(ctr2, key, second);
    EXPECT_EQ(m.ops().next64(m.s()), first[0]);
    EXPECT_EQ(m.ops().next64(m.s()), first[1]);
    EXPECT_EQ(m.ops().next64(m.s()), second[0]);
    EXPECT_EQ(m.ops().next32(m.s()), static_cast<std::uint32_t>(second[1] >> 32));
}

TEST_F(CounterMethodTest, Fry2x64StreamAndKey) {
    MethodUnderTest m(&fillFry2x64);
    m.ops().seed64(m.s(), 1);
    FryView<std::uint64_t, 2> before, after;
    std::memcpy(&before, m.state, sizeof before);
    EXPECT_EQ(m.ops().setStream64(m.s(), 0), 0);
    std::memcpy(&after, m.state, sizeof after);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    EXPECT_EQ(m.ops().setStream64(m.s(), 7), 1);
    std::memcpy(&after, m.state, sizeof after);
    EXPECT_EQ(after.key[1], before.key[1] ^ fmix64(7));
    EXPECT_EQ(m.ops().setKey64(m.s(), 9), 1);
    std::memcpy(&after, m.state, sizeof after);
    EXPECT_EQ(after.ctr[1], fmix64(9));
}

TEST_F(CounterMethodTest, Fry4x64CounterCarry) {
    MethodUnderTest m(&fillFry4x64);
    m.ops().seed64(m.s(), 5);
    FryView<std::uint64_t, 4> v;
    std::memcpy(&v, m.state, sizeof v);
    EXPECT_EQ(v.key[3], fmix64(8));
    v.ctr[0] = F64;
    v.idx = 3;
    v.out[3] = 0xABCDEF;
    std::memcpy(m.state, &v, sizeof v);
    EXPECT_EQ(m.ops().next64(m.s()), 0xABCDEFu);
    std::memcpy(&v, m.state, sizeof v);
    EXPECT_EQ(v.ctr[0], 0u);
    EXPECT_EQ(v.ctr[1], 1u);
    EXPECT_EQ(v.ctr[2], 0u);
    EXPECT_EQ(v.idx, 0u);
    m.ops().setKey64(m.s(), 3);
    FryView<std::uint64_t, 4> keyed;
    std::memcpy(&keyed, m.state, sizeof keyed);
    EXPECT_EQ(keyed.key[2], v.key[2] ^ fmix64(3));
}

TEST_F(CounterMethodTest, Fry2x32WordsAndPairs) {
    MethodUnderTest m(&fillFry2x32);
    m.ops().seed32(m.s(), 1);
    const std::uint32_t key[2] = {1, fmix32(2)};
    const std::uint32_t ctr[2] = {1, 0};
    std::uint32_t block[2];
    threefryBlock2x32(ctr, key, block);
    EXPECT_EQ(m.ops().next64(m.s()), std::uint64_t{block[0]} << 32 | block[1]);
    m.ops().seed32(m.s(), 1);
    m.ops().setKey32(m.s(), 4);
    const std::uint32_t keyedCtr[2] = {1, fmix32(4)};
    threefryBlock2x32(keyedCtr, key, block);
    EXPECT_EQ(m.ops().next32(m.s()), block[0]);
}

// A position is the index of a word since seeding, whatever the block size.
TEST_F(CounterMethodTest, PositionsCountWordsFromTheSeeding) {
    struct PositionCase {
        FillRoutine fill;
        bool wide;
    };
    for (const PositionCase& c : {PositionCase{&fillFry2x64, true}, PositionCase{&fillFry4x64, true},
                                  PositionCase{&fillFry2x32, false}}) {
        MethodUnderTest m(c.fill);
        SCOPED_TRACE(m.method.shortName);
        m.ops().seed64(m.s(), 99);
        std::vector<std::uint64_t> words;
        for (int i = 0; i < 23; ++i) words.push_back(c.wide ? m.ops().next64(m.s()) : m.ops().next32(m.s()));
        auto setPosition = c.wide ? m.ops().setPosition64 : m.ops().setPosition32;
        ASSERT_NE(setPosition, nullptr);
        for (std::uint64_t p : {0u, 1u, 2u, 3u, 5u, 8u, 13u, 22u}) {
            m.ops().seed64(m.s(), 99);
            setPosition(m.s(), p);
            EXPECT_EQ(c.wide ? m.ops().next64(m.s()) : m.ops().next32(m.s()), words[p]) << p;
        }
    }
}

// ---- Mersenne Twisters.

class TwisterTest : public RngHostTest {};

TEST_F(TwisterTest, Mt32And64MatchTheStandardEngines) {
    MethodUnderTest mt32(&fillMt32);
    MethodUnderTest mt64(&fillMt64);
    mt32.ops().seed32(mt32.s(), 5489);
    mt64.ops().seed64(mt64.s(), 5489);
    std::mt19937 reference32(5489);
    std::mt19937_64 reference64(5489);
    for (int i = 0; i < 5000; ++i) {
        std::uint32_t expected = static_cast<std::uint32_t>(reference32());
        if (expected == 0) continue;   // the 32-bit twisters never deliver 0
        ASSERT_EQ(mt32.ops().next32(mt32.s()), expected) << i;
    }
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(mt64.ops().next64(mt64.s()), reference64()) << i;
    EXPECT_EQ(mt64.ops().next32(mt64.s()), static_cast<std::uint32_t>(reference64() >> 32));
}

std::uint32_t word1(MethodUnderTest& m) {
    std::uint32_t w[2];
    std::memcpy(w, m.state, sizeof w);
    return w[1];
}

TEST_F(TwisterTest, SeedingRules) {
    struct RuleCase {
        FillRoutine fill;
        std::uint32_t seed;
        std::uint32_t mt1;
    };
    const RuleCase cases[] = {
        {&fillMtHybrid, 8192, 1812433253u * 8192u + 1u},
        {&fillMtHybrid, 8193, 69069u * 8193u},
        {&fillMtHybrid, 0x10000000, 1812433253u * 0x10000000u + 1u},
        {&fillMt1998, 8192, 69069u * 8192u},
        {&fillMt32, 8193, 1812433253u * 8193u + 1u},
    };
    for (const RuleCase& c : cases) {
        MethodUnderTest m(c.fill);
        m.ops().seed32(m.s(), c.seed);
        EXPECT_EQ(word1(m), c.mt1) << m.method.shortName << " " << c.seed;
    }
    // A 64-bit seed folds its halves first.
    MethodUnderTest m(&fillMtHybrid);
    m.ops().seed64(m.s(), (std::uint64_t{8193} << 32) | 1);
    EXPECT_EQ(word1(m), 1812433253u * 8192u + 1u);
}

// The inverse of MT19937's tempering, to place chosen outputs in the state.
std::uint32_t untemper(std::uint32_t y) {
    y ^= y >> 18;
    y ^= (y << 15) & 0xEFC60000u;
    std::uint32_t x = y;
    for (int i = 0; i < 5; ++i) x = y ^ ((x << 7) & 0x9D2C5680u);
    return x ^ (x >> 11) ^ (x >> 22);
}

std::uint32_t temper(std::uint32_t y) {
    y ^= y >> 11;
    y ^= (y << 7) & 0x9D2C5680u;
    y ^= (y << 15) & 0xEFC60000u;
    y ^= y >> 18;
    return y;
}

TEST_F(TwisterTest, ZeroOutputsAreSkippedAndTheTopStaysBelowOne) {
    for (std::uint32_t y : {0u, 1u, 0xFFFFFFFFu, 0x80000000u}) ASSERT_EQ(temper(untemper(y)), y);
    for (FillRoutine fill : {&fillMt1998, &fillMt32, &fillMtHybrid}) {
        MethodUnderTest m(fill);
        const std::uint32_t words[3] = {untemper(0), untemper(0xFFFFFFFF), untemper(12345)};
        m.ops().seedFromBytes(m.s(), words, sizeof words, 1);   // mti is 0: no twist before these
        EXPECT_EQ(m.ops().uniformPreferred(m.s()), 0xFFFFFFFF * 0x1.fffffffffffffp-33);
        EXPECT_EQ(m.ops().next32(m.s()), 12345u);
        std::memset(m.state, 0, sizeof m.state);
        m.ops().seedFromBytes(m.s(), words, sizeof words, 1);
        EXPECT_EQ(m.ops().next32(m.s()), 0xFFFFFFFFu) << "0 skipped";
        std::memset(m.state, 0, sizeof m.state);
        m.ops().seedFromBytes(m.s(), words, sizeof words, 1);
        double u = m.ops().uniformPreferred(m.s());
        EXPECT_LT(u, 1.0);
        EXPECT_EQ(m.ops().uniform32Closed(m.s()), (12344 + 2) * 0x1p-32);
    }
}

TEST_F(TwisterTest, AnAllZeroArrayGivesUp) {
    MethodUnderTest m(&fillMtHybrid);
    std::vector<std::uint8_t> zeros(2496, 0);
    m.ops().seedFromBytes(m.s(), zeros.data(), static_cast<std::int32_t>(zeros.size()), 0);
    EXPECT_EQ(m.ops().next32(m.s()), 0u);
}

TEST_F(TwisterTest, StreamsAndKeysRehashEveryWord) {
    MethodUnderTest m(&fillMt32);
    m.ops().seed32(m.s(), 7);
    std::vector<std::uint32_t> before(624);
    std::memcpy(before.data(), m.state, 2496);
    EXPECT_EQ(m.ops().setStream32(m.s(), 0), 0);
    EXPECT_EQ(m.ops().setStream32(m.s(), 3), 1);
    for (std::uint32_t i : {0u, 1u, 623u}) {
        std::uint8_t bytes[12] = {static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(i >> 8), 0, 0, 0x0F, 0, 0, 0,
                                  3, 0, 0, 0};
        std::uint32_t word;
        std::memcpy(&word, m.state + 4 * i, 4);
        EXPECT_EQ(word, murmur3x86_32(bytes, 12, before[i])) << i;
    }
    MethodUnderTest k(&fillMt64);
    k.ops().seed64(k.s(), 7);
    std::uint64_t first;
    std::memcpy(&first, k.state, 8);
    k.ops().setKey64(k.s(), 5);
    std::uint64_t rekeyed;
    std::memcpy(&rekeyed, k.state, 8);
    const std::uint64_t words[3] = {0, 0xFF, 5};
    EXPECT_EQ(rekeyed, hashWords64(words, 3, first));
}

// ---- MurmurHash3 x86_32: the published test values.

struct MurmurCase {
    std::string data;
    std::uint32_t seed;
    std::uint32_t hash;
};

TEST(Murmur3, PublishedValues) {
    const MurmurCase cases[] = {
        {"", 0, 0},
        {"", 1, 0x514E28B7},
        {"", 0xFFFFFFFF, 0x81F16F39},
        {std::string("\0\0\0\0", 4), 0, 0x2362F9DE},
        {"\xFF\xFF\xFF\xFF", 0, 0x76293B50},
        {"\x21\x43\x65\x87", 0, 0xF55B516B},
        {"\x21\x43\x65\x87", 0x5082EDEE, 0x2362F9DE},
        {"\x21\x43\x65", 0, 0x7E4A8634},
        {"\x21\x43", 0, 0xA0F7B07A},
        {"\x21", 0, 0x72661CF4},
        {"aaaa", 0x9747B28C, 0x5A97808A},
        {"aaa", 0x9747B28C, 0x283E0130},
        {"aa", 0x9747B28C, 0x5D211726},
        {"a", 0x9747B28C, 0x7FA09EA6},
        {"abcd", 0x9747B28C, 0xF0478627},
        {"abc", 0x9747B28C, 0xC84A62DD},
        {"ab", 0x9747B28C, 0x74875592},
        {"Hello, world!", 0x9747B28C, 0x24884CBA},
        {"The quick brown fox jumps over the lazy dog", 0x9747B28C, 0x2FA826CD},
    };
    for (const MurmurCase& c : cases)
        EXPECT_EQ(murmur3x86_32(c.data.data(), c.data.size(), c.seed), c.hash) << c.data;
}

// hashWords64 of an even count is MurmurHash3 x64_128 over the words' bytes
// with both halves folded; the odd count pads with fmix64(seed).
TEST(HashWords64, OddCountsPadWithTheMixedSeed) {
    const std::uint64_t three[3] = {1, 2, 3};
    const std::uint64_t four[4] = {1, 2, 3, fmix64(77)};
    EXPECT_EQ(hashWords64(three, 3, 77), hashWords64(four, 4, 77));
    EXPECT_NE(hashWords64(three, 3, 77), hashWords64(three, 3, 78));
}

}  // namespace
}  // namespace rngtest
