// Threefry and Mersenne Twister methods against independent references:
// Random123's published known answers and its own implementation, the
// standard library's MT19937 engines, and MurmurHash3's published values.
#include <Random123/threefry.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "module/rng/hash.h"
#include "module/rng/threefry.h"
#include "tests/module/rng/rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

constexpr std::uint64_t F64 = ~std::uint64_t{0};

// Runs one block function on words given as 64-bit values; the output starts
// as a sentinel so that a block function that writes nothing cannot pass.
template <typename Word, int N>
std::vector<std::uint64_t> block(void (*fn)(const Word*, const Word*, Word*), const std::uint64_t* ctr,
                                 const std::uint64_t* key) {
    Word c[N], k[N], out[N];
    for (int i = 0; i < N; ++i) c[i] = static_cast<Word>(ctr[i]), k[i] = static_cast<Word>(key[i]), out[i] = 1;
    fn(c, k, out);
    return std::vector<std::uint64_t>(out, out + N);
}
using Words = std::vector<std::uint64_t>;
Words block2x64(const std::uint64_t* c, const std::uint64_t* k) { return block<std::uint64_t, 2>(&threefryBlock2x64, c, k); }
Words block2x32(const std::uint64_t* c, const std::uint64_t* k) { return block<std::uint32_t, 2>(&threefryBlock2x32, c, k); }
Words block4x64(const std::uint64_t* c, const std::uint64_t* k) { return block<std::uint64_t, 4>(&threefryBlock4x64, c, k); }

// Random123's known answers, 20 rounds, all-ones counter and key; the
// agreement with its implementation below covers the rest.
TEST(Threefry, PublishedKnownAnswers) {
    const std::uint64_t ones[4] = {F64, F64, F64, F64};
    EXPECT_EQ(block2x64(ones, ones), (Words{0xe02cb7c4d95d277aull, 0xd06633d0893b8b68ull}));
    EXPECT_EQ(block2x32(ones, ones), (Words{0x1cb996fc, 0xbb002be7}));
    EXPECT_EQ(block4x64(ones, ones),
              (Words{0x29c24097942bba1bull, 0x0371bbfb0f6f4e11ull, 0x3c231ffa33f83a1cull, 0xcd29113fde32d168ull}));
}

TEST(Threefry, AgreesWithRandom123OnScatteredInputs) {
    std::mt19937_64 inputs(2024);
    for (int trial = 0; trial < 200; ++trial) {
        std::uint64_t c[4], k[4];
        for (int i = 0; i < 4; ++i) c[i] = inputs(), k[i] = inputs();
        threefry2x64_ctr_t r2 = threefry2x64_R(20, {{c[0], c[1]}}, {{k[0], k[1]}});
        ASSERT_EQ(block2x64(c, k), Words(r2.v, r2.v + 2));
        threefry4x64_ctr_t r4 = threefry4x64_R(20, {{c[0], c[1], c[2], c[3]}}, {{k[0], k[1], k[2], k[3]}});
        ASSERT_EQ(block4x64(c, k), Words(r4.v, r4.v + 4));
        auto w = [](std::uint64_t x) { return static_cast<std::uint32_t>(x); };
        threefry2x32_ctr_t r32 = threefry2x32_R(20, {{w(c[0]), w(c[1])}}, {{w(k[0]), w(k[1])}});
        ASSERT_EQ(block2x32(c, k), Words(r32.v, r32.v + 2));
    }
}

// ---- The FRY methods; the state is counter, key, output block, index.

class CounterMethodTest : public RngHostTest {};

TEST_F(CounterMethodTest, Fry2x64SeedingTheThirdCallStreamAndKey) {
    MethodUnderTest m(&fillFry2x64);
    m.ops().seed64(m.s(), 1);
    const std::uint64_t key[2] = {1, fmix64(2)}, ctr1[2] = {1, 0}, ctr2[2] = {2, 0};
    Words first = block2x64(ctr1, key), second = block2x64(ctr2, key);
    EXPECT_EQ(m.draw(3), (Words{first[0], first[1], second[0]}));
    EXPECT_EQ(m.next32(), static_cast<std::uint32_t>(second[1] >> 32));

    m.ops().seed64(m.s(), 1);
    unsigned char before[56];
    std::memcpy(before, m.state, sizeof before);
    EXPECT_EQ(m.ops().setStream64(m.s(), 0), 0);
    EXPECT_EQ(std::memcmp(before, m.state, sizeof before), 0) << "stream 0 changes nothing";
    EXPECT_EQ(m.ops().setStream64(m.s(), 7), 1);
    EXPECT_EQ(m.word<std::uint64_t>(3), fmix64(2) ^ fmix64(7));
    EXPECT_EQ(m.ops().setKey64(m.s(), 9), 1);
    EXPECT_EQ(m.word<std::uint64_t>(1), fmix64(9));
}

TEST_F(CounterMethodTest, Fry4x64CounterCarry) {
    MethodUnderTest m(&fillFry4x64);
    m.ops().seed64(m.s(), 5);
    EXPECT_EQ(m.word<std::uint64_t>(7), fmix64(8));
    const std::uint64_t ones = F64, three = 3, sentinel = 0xABCDEF;
    std::memcpy(m.state, &ones, 8);             // counter word 0
    std::memcpy(m.state + 8 * 11, &sentinel, 8);   // output word 3
    std::memcpy(m.state + 8 * 12, &three, 8);      // index
    EXPECT_EQ(m.next64(), 0xABCDEFu);
    EXPECT_EQ((Words{m.word<std::uint64_t>(0), m.word<std::uint64_t>(1), m.word<std::uint64_t>(2),
                                          m.word<std::uint64_t>(12)}),
              (Words{0, 1, 0, 0}));
    const std::uint64_t key2 = m.word<std::uint64_t>(6);
    m.ops().setKey64(m.s(), 3);
    EXPECT_EQ(m.word<std::uint64_t>(6), key2 ^ fmix64(3));
}

TEST_F(CounterMethodTest, Fry2x32WordsAndPairs) {
    MethodUnderTest m(&fillFry2x32);
    m.ops().seed32(m.s(), 1);
    const std::uint64_t key[2] = {1, fmix32(2)}, ctr[2] = {1, 0}, keyedCtr[2] = {1, fmix32(4)};
    Words out = block2x32(ctr, key);
    EXPECT_EQ(m.next64(), out[0] << 32 | out[1]);
    m.ops().seed32(m.s(), 1);
    m.ops().setKey32(m.s(), 4);
    EXPECT_EQ(m.next32(), block2x32(keyedCtr, key)[0]);
}

// A position is the index of a word since seeding, whatever the block size.
TEST_F(CounterMethodTest, PositionsCountWordsFromTheSeeding) {
    for (FillRoutine fill : {&fillFry2x64, &fillFry4x64, &fillFry2x32}) {
        MethodUnderTest m(fill);
        SCOPED_TRACE(m.method.shortName);
        const bool wide = m.method.outputBits == 64;
        auto next = [&] { return wide ? m.next64() : m.next32(); };
        m.ops().seed64(m.s(), 99);
        std::vector<std::uint64_t> words;
        for (int i = 0; i < 23; ++i) words.push_back(next());
        auto setPosition = wide ? m.ops().setPosition64 : m.ops().setPosition32;
        ASSERT_NE(setPosition, nullptr);
        for (std::uint64_t p : {0u, 1u, 2u, 3u, 5u, 8u, 13u, 22u}) {
            m.ops().seed64(m.s(), 99);
            setPosition(m.s(), p);
            EXPECT_EQ(next(), words[p]) << p;
        }
    }
}

// ---- Mersenne Twisters.

class TwisterTest : public RngHostTest {};

TEST_F(TwisterTest, Mt32And64MatchTheStandardEngines) {
    MethodUnderTest mt32(&fillMt32), mt64(&fillMt64);
    mt32.ops().seed32(mt32.s(), 5489);
    mt64.ops().seed64(mt64.s(), 5489);
    std::mt19937 reference32(5489);
    std::mt19937_64 reference64(5489);
    for (int i = 0; i < 5000; ++i) {
        std::uint32_t expected = static_cast<std::uint32_t>(reference32());
        if (expected != 0) {   // the 32-bit twisters never deliver 0
            ASSERT_EQ(mt32.next32(), expected) << i;
        }
        ASSERT_EQ(mt64.next64(), reference64()) << i;
    }
    EXPECT_EQ(mt64.next32(), static_cast<std::uint32_t>(reference64() >> 32));
}

TEST_F(TwisterTest, SeedingRules) {
    struct RuleCase { FillRoutine fill; std::uint64_t seed; std::uint32_t mt1; };   // mt1: the second state word
    const RuleCase cases[] = {
        {&fillMtHybrid, 8192, 1812433253u * 8192u + 1u},
        {&fillMtHybrid, 4096, 69069u * 4096u},   // 12 low zero bits are not enough
        {&fillMt1998, 8192, 69069u * 8192u},
        {&fillMt32, 8193, 1812433253u * 8193u + 1u},
        {&fillMtHybrid, (std::uint64_t{8193} << 32) | 1, 1812433253u * 8192u + 1u},   // halves folded first
    };
    for (const RuleCase& c : cases) {
        MethodUnderTest m(c.fill);
        (c.seed >> 32) != 0 ? m.ops().seed64(m.s(), c.seed) : m.ops().seed32(m.s(), static_cast<std::uint32_t>(c.seed));
        EXPECT_EQ(m.word<std::uint32_t>(1), c.mt1) << m.method.shortName << " " << c.seed;
    }
}

// The inverse of MT19937's tempering, to place chosen outputs in the state.
std::uint32_t untemper(std::uint32_t y) {
    y ^= y >> 18;
    y ^= (y << 15) & 0xEFC60000u;
    std::uint32_t x = y;
    for (int i = 0; i < 5; ++i) x = y ^ ((x << 7) & 0x9D2C5680u);
    return x ^ (x >> 11) ^ (x >> 22);
}

TEST_F(TwisterTest, ZeroOutputsAreSkippedAndTheTopStaysBelowOne) {
    const std::uint32_t words[3] = {untemper(0), untemper(0xFFFFFFFF), untemper(12345)};
    for (FillRoutine fill : {&fillMt1998, &fillMt32, &fillMtHybrid}) {
        MethodUnderTest m(fill);
        auto place = [&] {   // the index is 0: no twist before these words
            std::memset(m.state, 0, sizeof m.state);
            m.ops().seedFromBytes(m.s(), words, sizeof words, 1);
        };
        place();
        EXPECT_EQ(m.ops().uniformPreferred(m.s()), 0xFFFFFFFF * 0x1.fffffffffffffp-33) << "0 skipped, top below 1";
        EXPECT_EQ(m.next32(), 12345u);
        place();
        EXPECT_EQ(m.next32(), 0xFFFFFFFFu) << "0 skipped";
        EXPECT_EQ(m.ops().uniform32Closed(m.s()), (12344 + 2) * 0x1p-32);
    }
    MethodUnderTest m(&fillMtHybrid);
    std::vector<std::uint8_t> zeros(2496, 0);
    m.ops().seedFromBytes(m.s(), zeros.data(), static_cast<std::int32_t>(zeros.size()), 0);
    EXPECT_EQ(m.next32(), 0u) << "an all-zero array gives up";
}

TEST_F(TwisterTest, StreamsAndKeysRehashEveryWord) {
    MethodUnderTest m(&fillMt32);
    m.ops().seed32(m.s(), 7);
    std::vector<std::uint32_t> before(624);
    std::memcpy(before.data(), m.state, 2496);
    EXPECT_EQ(m.ops().setStream32(m.s(), 0), 0);
    EXPECT_EQ(m.ops().setStream32(m.s(), 3), 1);
    for (int i : {0, 1, 623}) {   // the word's index, 0x0F and the stream, as 32-bit words
        const std::uint32_t bytes[3] = {static_cast<std::uint32_t>(i), 0x0F, 3};
        EXPECT_EQ(m.word<std::uint32_t>(i), murmur3x86_32(bytes, 12, before[static_cast<std::size_t>(i)])) << i;
    }
    MethodUnderTest k(&fillMt64);
    k.ops().seed64(k.s(), 7);
    const std::uint64_t first = k.word<std::uint64_t>(0);
    k.ops().setKey64(k.s(), 5);
    const std::uint64_t words[3] = {0, 0xFF, 5};
    EXPECT_EQ(k.word<std::uint64_t>(0), hashWords64(words, 3, first));
}

// ---- Hashes: MurmurHash3 x86_32's published test values.

TEST(Murmur3, PublishedValues) {
    struct MurmurCase { std::string data; std::uint32_t seed, hash; };
    const MurmurCase cases[] = {
        {"", 1, 0x514E28B7}, {"\x21\x43\x65\x87", 0x5082EDEE, 0x2362F9DE}, {"\x21\x43\x65", 0, 0x7E4A8634},
        {"\x21\x43", 0, 0xA0F7B07A}, {"\x21", 0, 0x72661CF4},
        {"The quick brown fox jumps over the lazy dog", 0x9747B28C, 0x2FA826CD},
    };
    for (const MurmurCase& c : cases)
        EXPECT_EQ(murmur3x86_32(c.data.data(), c.data.size(), c.seed), c.hash) << c.data;
}

// hashWords64 of an even count is MurmurHash3 x64_128 over the words' bytes
// with both halves folded; the odd count pads with fmix64(seed).
TEST(HashWords64, OddCountsPadWithTheMixedSeed) {
    const std::uint64_t three[3] = {1, 2, 3}, four[4] = {1, 2, 3, fmix64(77)};
    EXPECT_EQ(hashWords64(three, 3, 77), hashWords64(four, 4, 77));
    EXPECT_NE(hashWords64(three, 3, 77), hashWords64(three, 3, 78));
}

}  // namespace
}  // namespace rngtest
