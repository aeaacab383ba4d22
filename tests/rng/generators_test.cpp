// Method records and the generator families: the table of every method,
// known answers, the seeding conventions, seedFromBytes and the state dumps.
#include <pcg_random.hpp>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "rng/hash.h"
#include "rng/messages.h"
#include "rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

constexpr std::uint64_t kAll = ~std::uint64_t{0};
constexpr std::uint64_t kAll32 = 0xFFFFFFFF;

struct RecordCase {
    FillRoutine fill;
    const char* shortName;
    const char* description;
    std::uint32_t outputBits;
    std::uint64_t stateBytes;
    std::uint64_t work;
    std::uint32_t flags;
    std::uint64_t maxSeed;
    std::uint64_t maxStream;
};

const RecordCase kRecords[] = {
    {&fillXor64, "XOR64", "64-bit XORSHIFT64*", 64, 8, 8, 0x1017, kAll, 0},
    {&fillXor128, "XOR128", "64-bit XORSHIFT128+", 64, 16, 16, 0x1017, kAll, 0},
    {&fillXor1024, "XOR1024", "64-bit XORSHIFT1024*", 64, 128, 136, 0x1017, kAll, 0},
    {&fillXor4096, "XOR4096", "64-bit XORSHIFT4096*", 64, 512, 520, 0x1017, kAll, 0},
    {&fillXorgens, "XORGENS", "64-bit XORGENS*", 64, 0, 528, 0x1013, kAll, 0},
    {&fillRdrand, "RDRAND", "Intel RDRAND", 0, 0, 0, 0x3801, 0, 0},
    {&fillSubkey32, "SUBKEY32", "32-bit Subtract Key", 32, 4, 8, 0x082F, kAll32, kAll32},
    {&fillSubkey64, "SUBKEY64", "64-bit Subtract Key", 64, 8, 16, 0x1057, kAll, kAll},
    {&fillRanuni, "RANUNI", "", 31, 0, 4, 0x080A, kAll32, 0},
    {&fillPcg64i, "PCG64I", "64-bit PCG64i", 64, 8, 16, 0x1057, kAll, kAll >> 1},
    {&fillPcg32i, "PCG32I", "32-bit PCG32i", 32, 4, 8, 0x082F, kAll32, kAll32 >> 1},
    {&fillMh3, "MH3", "64-bit Murmur Hash 3", 64, 8, 8, 0x1017, kAll, 0},
};

class RecordTest : public RngHostTest {};

TEST_F(RecordTest, EveryFillWritesItsRow) {
    showAllMessages();
    for (const RecordCase& c : kRecords) {
        MethodUnderTest m(c.fill);
        const RngMethod& r = m.method;
        SCOPED_TRACE(c.shortName);
        EXPECT_EQ(r.nameCapacity, 16u);
        EXPECT_EQ(r.descriptionCapacity, 64u);
        EXPECT_STREQ(r.shortName, c.shortName);
        EXPECT_STREQ(r.description, c.description);
        EXPECT_EQ(std::u16string(r.wideName), std::u16string(c.shortName, c.shortName + std::strlen(c.shortName)));
        EXPECT_EQ(r.outputBits, c.outputBits);
        EXPECT_EQ(r.stateBytes, c.stateBytes);
        EXPECT_EQ(r.stateBits, c.stateBytes * 8);
        EXPECT_EQ(r.flags, c.flags);
        EXPECT_EQ(r.maxSeed, c.maxSeed);
        EXPECT_EQ(r.maxStream, c.maxStream);
        std::vector<Message> filled = catalogued();
        ASSERT_EQ(filled.size(), 1u);
        EXPECT_EQ(static_cast<std::uint32_t>(filled[0].code), 0x8C7FE851u);
        EXPECT_NE(filled[0].text.find(c.description[0] ? c.description : c.shortName), std::string::npos);
        EXPECT_EQ(r.ops.stateSize(), c.work);
        std::vector<Message> sized = catalogued();
        ASSERT_EQ(sized.size(), 1u);
        EXPECT_EQ(static_cast<std::uint32_t>(sized[0].code), 0x8C7FE852u);
        EXPECT_NE(sized[0].text.find(std::string(c.shortName) + " keeps " + std::to_string(c.work)), std::string::npos);

        // Slots 1-12, 15-17 and 19 always; 21-25 for 32-bit output, 26-36 for 64-bit.
        const RngOperations& o = r.ops;
        for (const void* slot : {(const void*)o.dumpState32, (const void*)o.dumpState64, (const void*)o.seedFromBytes,
                                 (const void*)o.seed32, (const void*)o.seed64, (const void*)o.seedFromDouble,
                                 (const void*)o.setStream32, (const void*)o.setStream64,
                                 (const void*)o.setStreamFromDouble, (const void*)o.setKey32, (const void*)o.setKey64,
                                 (const void*)o.next32, (const void*)o.next64, (const void*)o.uniform,
                                 (const void*)o.uniformScaled})
            EXPECT_NE(slot, nullptr);
        EXPECT_EQ(o.reserved20, nullptr);
        EXPECT_EQ(o.setPosition32, nullptr);
        EXPECT_EQ(o.setPosition64, nullptr);
        bool has32 = c.outputBits <= 32;   // RDRAND (0) has both
        bool has64 = c.outputBits > 32 || c.outputBits == 0;
        EXPECT_EQ(o.uniform32Open != nullptr && o.uniform32Closed != nullptr, has32);
        EXPECT_EQ(o.uniform53Open != nullptr && o.uniformDense != nullptr, has64);
        EXPECT_EQ(o.uniformPreferred != nullptr, std::string(c.shortName) == "RANUNI");
    }
}

// ---- Known answers.

class GeneratorTest : public RngHostTest {};

TEST_F(GeneratorTest, Xor64FromSeedOne) {
    MethodUnderTest m(&fillXor64);
    m.ops().seed64(m.s(), 1);
    EXPECT_EQ(m.ops().next64(m.s()), 0x47E4CE4B896CDD1Dull);
    std::uint64_t x;
    std::memcpy(&x, m.state, 8);
    EXPECT_EQ(x, 0x2000001u);
    m.ops().seed32(m.s(), 1);
    EXPECT_EQ(m.ops().next32(m.s()), 0x47E4CE4Bu);
}

TEST_F(GeneratorTest, Xor128FromSeedOneStoresTheSum) {
    MethodUnderTest m(&fillXor128);
    m.ops().seed64(m.s(), 1);
    std::uint64_t s[2];
    std::memcpy(s, m.state, 16);
    EXPECT_EQ(s[0], 1u);
    EXPECT_EQ(s[1], 0x3ABF2A20650683E7ull);
    EXPECT_EQ(m.ops().next64(m.s()), 0x757E544F2F528FA6ull);
    std::memcpy(s, m.state, 16);
    EXPECT_EQ(s[0], 0x3ABF2A20650683E7ull);
    EXPECT_EQ(s[1], 0x757E544F2F528FA6ull);
}

TEST_F(GeneratorTest, Mh3FromSeedOne) {
    MethodUnderTest m(&fillMh3);
    m.ops().seed64(m.s(), 1);
    EXPECT_EQ(m.ops().next64(m.s()), 0xB456BCFC34C2CB2Cull);
    EXPECT_EQ(m.ops().next64(m.s()), fmix64(0xB456BCFC34C2CB2Cull));
}

struct SubkeyCase {
    std::uint32_t seed;
    std::uint32_t stream;
    std::vector<std::uint32_t> outputs;
};

TEST_F(GeneratorTest, Subkey32CountsDownByItsStream) {
    const SubkeyCase cases[] = {
        {10, 3, {7, 4, 1, 0xFFFFFFFE, 0xFFFFFFFB}},
        {10, 0, {10, 10, 10}},
        {1, 1, {0, 0xFFFFFFFF}},
    };
    for (const SubkeyCase& c : cases) {
        MethodUnderTest m(&fillSubkey32);
        m.ops().seed32(m.s(), c.seed);
        m.ops().setStream32(m.s(), c.stream);
        for (std::uint32_t expected : c.outputs) EXPECT_EQ(m.ops().next32(m.s()), expected);
    }
    MethodUnderTest m(&fillSubkey32);
    m.ops().seed32(m.s(), 10);
    m.ops().setStream64(m.s(), 0x500000003ull);   // low 32 bits
    EXPECT_EQ(m.ops().next64(m.s()), 0x0000000700000004ull);
}

TEST_F(GeneratorTest, Subkey64AndItsFloatingStream) {
    MethodUnderTest m(&fillSubkey64);
    m.ops().seed64(m.s(), 10);
    EXPECT_EQ(m.ops().setStreamFromDouble(m.s(), 0x1p64 + 0x1p12), 1);   // fmod 2^64: 4096
    EXPECT_EQ(m.ops().next64(m.s()), 10ull - 4096ull);
    EXPECT_EQ(m.ops().setStreamFromDouble(m.s(), 0x1p64), 1);   // reduces to 0 and is stored
    EXPECT_EQ(m.ops().next64(m.s()), 10ull - 4096ull);
    EXPECT_EQ(m.ops().setStreamFromDouble(m.s(), 0.0), 0);
    EXPECT_EQ(m.ops().setStream64(m.s(), 0), 0);
    EXPECT_EQ(m.ops().setStream32(m.s(), 2), 1);
    EXPECT_EQ(m.ops().next64(m.s()), 8ull - 4096ull);
}

TEST_F(GeneratorTest, RanuniFromSeedOne) {
    MethodUnderTest m(&fillRanuni);
    m.ops().seed32(m.s(), 1);
    EXPECT_EQ(m.ops().uniformPreferred(m.s()), 397204094 / 2147483647.0);
    m.ops().seed32(m.s(), 1);
    EXPECT_EQ(m.ops().next32(m.s()), 397204094u);
    // x stays below the modulus, even from a seed above it.
    m.ops().seed32(m.s(), 0xFFFFFFFF);
    for (int i = 0; i < 1000; ++i) EXPECT_LT(m.ops().next32(m.s()), 0x7FFFFFFFu);
}

TEST_F(GeneratorTest, Pcg32iSeedAndStream) {
    MethodUnderTest m(&fillPcg32i);
    m.ops().seed32(m.s(), 5);
    std::uint32_t st[2];
    std::memcpy(st, m.state, 8);
    EXPECT_EQ(st[0], 6u);
    EXPECT_EQ(st[1], 1u);
    m.ops().setStream32(m.s(), 2);
    std::memcpy(st, m.state, 8);
    EXPECT_EQ(st[0], 10u);
    EXPECT_EQ(st[1], 5u);
}

// The PCG reference implementation with the same output function and a
// chosen stream produces the same sequence from the same seed.
TEST_F(GeneratorTest, PcgAgainstTheReferenceImplementation) {
    for (std::uint64_t stream : {0ull, 1ull, 12345ull}) {
        MethodUnderTest m64(&fillPcg64i);
        m64.ops().seed64(m64.s(), 42);
        m64.ops().setStream64(m64.s(), stream);
        pcg_engines::setseq_rxs_m_xs_64_64 reference64(42, stream);
        for (int i = 0; i < 1000; ++i) ASSERT_EQ(m64.ops().next64(m64.s()), reference64()) << stream << " " << i;

        MethodUnderTest m32(&fillPcg32i);
        m32.ops().seed32(m32.s(), 42);
        m32.ops().setStream32(m32.s(), static_cast<std::uint32_t>(stream));
        pcg_engines::setseq_rxs_m_xs_32_32 reference32(42, static_cast<std::uint32_t>(stream));
        for (int i = 0; i < 1000; ++i) ASSERT_EQ(m32.ops().next32(m32.s()), reference32()) << stream << " " << i;
    }
}

// ---- Conventions shared by every generator.

const FillRoutine kSeeded[] = {&fillXor64,    &fillXor128, &fillXor1024, &fillXor4096, &fillXorgens, &fillSubkey32,
                               &fillSubkey64, &fillRanuni, &fillPcg64i,  &fillPcg32i,  &fillMh3};

std::vector<std::uint64_t> draw(MethodUnderTest& m, int n) {
    std::vector<std::uint64_t> out;
    for (int i = 0; i < n; ++i) out.push_back(m.ops().next64(m.s()));
    return out;
}

TEST_F(GeneratorTest, SeedingConventions) {
    session.setSetting("tkbug.RNGSEED", 4242.0);
    for (FillRoutine fill : kSeeded) {
        MethodUnderTest m(fill);
        SCOPED_TRACE(m.method.shortName);
        const RngOperations& o = m.ops();
        bool narrow = m.method.outputBits <= 32;
        if (m.method.flags & kStreamCapability) o.setStream64(m.s(), 3);   // SUBKEY: a moving sequence
        o.seed64(m.s(), 77);
        std::vector<std::uint64_t> reference = draw(m, 20);
        // Reseeding restarts the sequence, indices included.
        o.seed64(m.s(), 77);
        EXPECT_EQ(draw(m, 20), reference);
        o.seed32(m.s(), 77);
        EXPECT_EQ(draw(m, 20), reference);
        o.seedFromDouble(m.s(), 77.0);
        EXPECT_EQ(draw(m, 20), reference);
        // A 32-bit method folds the halves of a 64-bit seed; a 64-bit one takes it whole.
        o.seed64(m.s(), narrow ? (5ull << 32) | (77ull ^ 5ull) : 77);
        EXPECT_EQ(draw(m, 20), reference);
        // Zero asks for the automatic seed, here fixed by "tkbug.RNGSEED".
        o.seed64(m.s(), 4242);
        std::vector<std::uint64_t> automatic = draw(m, 20);
        o.seed32(m.s(), 0);
        EXPECT_EQ(draw(m, 20), automatic);
        o.seed64(m.s(), 0);
        EXPECT_EQ(draw(m, 20), automatic);
        o.seedFromDouble(m.s(), -3.0);
        EXPECT_EQ(draw(m, 20), automatic);
        o.seedFromDouble(m.s(), std::nan(""));
        EXPECT_EQ(draw(m, 20), automatic);
        // A fractional seed is folded into range, the same for 2.5 and 1.25.
        o.seedFromDouble(m.s(), 2.5);
        std::vector<std::uint64_t> folded = draw(m, 20);
        o.seedFromDouble(m.s(), 1.25);
        EXPECT_EQ(draw(m, 20), folded);
        // Missing or zero streams change nothing.
        EXPECT_EQ(o.setStreamFromDouble(m.s(), 0.0), 0);
        EXPECT_EQ(o.setStreamFromDouble(m.s(), std::nan("")), 0);
    }
}

TEST_F(GeneratorTest, StreamsFromDoublesReduceModuloTheWidth) {
    MethodUnderTest a(&fillPcg32i);
    MethodUnderTest b(&fillPcg32i);
    a.ops().seed32(a.s(), 9);
    b.ops().seed32(b.s(), 9);
    EXPECT_EQ(a.ops().setStreamFromDouble(a.s(), 0x1p32 + 7), 1);
    b.ops().setStream32(b.s(), 7);
    EXPECT_EQ(draw(a, 10), draw(b, 10));
    EXPECT_EQ(a.ops().setStreamFromDouble(a.s(), 0x1p32), 1) << "reduces to 0: nothing applied";
    EXPECT_EQ(draw(a, 10), draw(b, 10));
}

// ---- seedFromBytes.

struct BytesCase {
    FillRoutine fill;
    std::vector<std::uint8_t> bytes;
    std::uint32_t mode;
    std::int32_t result;
};

std::vector<std::uint8_t> counting(int n) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) bytes[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(0xA0 + i);
    return bytes;
}

std::uint64_t wordAt(const MethodUnderTest& m, int k) {
    std::uint64_t w;
    std::memcpy(&w, m.state + 8 * k, 8);
    return w;
}

TEST_F(GeneratorTest, SeedFromBytesModes) {
    std::vector<std::uint8_t> three = counting(3);
    {   // three bytes, mode 0: zero-filled word 0, word 1 hashed from it
        MethodUnderTest m(&fillXor128);
        std::memset(m.state, 0x55, 16);
        EXPECT_EQ(m.ops().seedFromBytes(m.s(), three.data(), 3, 0), 4);
        EXPECT_EQ(wordAt(m, 0), 0xA2A1A0u);
        EXPECT_EQ(wordAt(m, 1), fmix64(0xA2A1A0u));
    }
    {   // mode 2 repeats the bytes over the whole state
        MethodUnderTest m(&fillXor128);
        EXPECT_EQ(m.ops().seedFromBytes(m.s(), three.data(), 3, 2), 3);
        for (int i = 0; i < 16; ++i) EXPECT_EQ(m.state[i], 0xA0 + i % 3);
    }
    {   // mode 1 leaves the rest
        MethodUnderTest m(&fillXor128);
        std::memset(m.state, 0x55, 16);
        EXPECT_EQ(m.ops().seedFromBytes(m.s(), three.data(), 3, 1), 1);
        EXPECT_EQ(m.state[3], 0x55);
        EXPECT_EQ(m.state[2], 0xA2);
    }
    {   // enough bytes: the first N are taken
        MethodUnderTest m(&fillXor128);
        std::vector<std::uint8_t> twenty = counting(20);
        EXPECT_EQ(m.ops().seedFromBytes(m.s(), twenty.data(), 20, 0), 2);
        EXPECT_EQ(std::memcmp(m.state, twenty.data(), 16), 0);
        EXPECT_EQ(m.state[16], 0);
    }
    {   // 17 bytes of XOR1024: k = 2, each later word from the word two before it
        MethodUnderTest m(&fillXor1024);
        std::vector<std::uint8_t> seventeen = counting(17);
        EXPECT_EQ(m.ops().seedFromBytes(m.s(), seventeen.data(), 17, 0), 4);
        for (int k = 2; k < 16; ++k) EXPECT_EQ(wordAt(m, k), fmix64(wordAt(m, k - 2))) << k;
    }
    {   // the 4-byte states: the rest is zeroed, nothing hashed
        MethodUnderTest m(&fillPcg32i);
        std::memset(m.state, 0x55, 8);
        EXPECT_EQ(m.ops().seedFromBytes(m.s(), three.data(), 2, 0), 4);
        EXPECT_EQ(m.state[1], 0xA1);
        EXPECT_EQ(m.state[2], 0);
        EXPECT_EQ(m.state[3], 0);
        EXPECT_EQ(m.state[4], 0x55);
    }
    {   // no bytes, and methods without the capability
        MethodUnderTest m(&fillXor64);
        EXPECT_EQ(m.ops().seedFromBytes(m.s(), three.data(), 0, 0), 0);
        MethodUnderTest g(&fillXorgens);
        EXPECT_EQ(g.ops().seedFromBytes(g.s(), three.data(), 3, 0), -1);
        EXPECT_EQ(g.ops().seedFromBytes(g.s(), three.data(), 0, 0), 0);
        MethodUnderTest h(&fillRdrand);
        EXPECT_EQ(h.ops().seedFromBytes(h.s(), three.data(), 3, 0), 0);
    }
}

TEST_F(GeneratorTest, AllZeroStateGivesUpInsteadOfHanging) {
    std::uint8_t zeros[16] = {};
    MethodUnderTest m(&fillXor64);
    m.ops().seedFromBytes(m.s(), zeros, 8, 0);
    EXPECT_EQ(m.ops().next64(m.s()), 0u);
    EXPECT_EQ(m.ops().uniform(m.s()), 0.0);
    EXPECT_EQ(m.ops().uniformDense(m.s()), 0.0);
    EXPECT_EQ(m.ops().uniform53Open(m.s()), 0.0);
}

// ---- State dumps.

struct DumpCase {
    FillRoutine fill;
    std::uint64_t seed;
    bool words64;
    int maxItems;
    std::vector<std::string> lines;
};

TEST_F(GeneratorTest, DumpsLineByLine) {
    const DumpCase cases[] = {
        {&fillXor128, 1, true, 10, {"     0:                1    1: 3abf2a20650683e7"}},
        {&fillXor128, 1, false, 10, {"     0:        1    1:        0    2: 650683e7    3: 3abf2a20"}},
        {&fillXor128, 1, false, 3, {"     0:        1    1:        0    2: 650683e7", "        Further elements omitted."}},
        {&fillXor64, 1, true, 0, {"        Further elements omitted."}},
        {&fillRanuni, 1, true, 5, {}},
        {&fillRanuni, 1, false, 5, {"     0:        1"}},
        {&fillSubkey32, 0x12345678, false, 8, {"     0: 12345678    1:        0"}},
    };
    for (const DumpCase& c : cases) {
        MethodUnderTest m(c.fill);
        m.ops().seed64(m.s(), c.seed);
        messages();
        (c.words64 ? m.ops().dumpState64 : m.ops().dumpState32)(m.s(), c.maxItems);
        EXPECT_EQ(logLines(0), c.lines) << m.method.shortName << " " << c.maxItems;
    }
}

TEST_F(GeneratorTest, DumpCountsLinesOfFour) {
    MethodUnderTest m(&fillXor1024);
    m.ops().seed64(m.s(), 1);
    messages();
    m.ops().dumpState64(m.s(), 20);
    std::vector<std::string> lines = logLines(0);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[4].size(), std::string("    16: ").size() + 16);
    EXPECT_EQ(lines[4].substr(0, 8), "    16: ");
    EXPECT_EQ(lines[1].substr(0, 8), "     4: ");
    m.ops().dumpState64(m.s(), 5);
    lines = logLines(0);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2], "        Further elements omitted.");
}

}  // namespace
}  // namespace rngtest
