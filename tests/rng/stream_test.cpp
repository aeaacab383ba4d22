// Streams: the seed option, creation, initialisation checks and seeding.
#include "rng/stream.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "rng/hash.h"
#include "rng/messages.h"
#include "rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

// ---- readSeedOption

struct OptionCase {
    const char* text;
    std::int32_t value;
};

TEST(ReadSeedOption, OptionTexts) {
    const OptionCase cases[] = {
        {"RNGSEED=12345", 12345},       {"RNG*=7", 7},
        {"RNGSEEDS=5", 0},              {"RNGSEED", 1},
        {"", 0},                        {"rngseed=0", 0},
        {"RNGSEED=-5", -5},             {"nodate rngseed=5 RNGSEED=9", 9},
        {"RNGSEED=9 other=4", 9},       {"rngseed_x=4", 0},
        {"xrngseed=4", 0},              {"  RngSeed=31  ", 31},
        {"RNGSEED=3 RNGSEED", 1},       {"RNG=4", 0},
    };
    for (const OptionCase& c : cases) {
        txhost::SessionOptions options;
        options.optionText = c.text;
        txhost::Session session(options);
        auto module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
        session.takeServiceCalls();
        EXPECT_EQ(readSeedOption("-rngseed"), c.value) << c.text;
        std::vector<std::vector<std::int64_t>> flagCalls;
        for (const txhost::ServiceCall& call : session.takeServiceCalls())
            if (call.table == 39 && (call.function == 108 || call.function == 138)) {
                std::vector<std::int64_t> entry = {call.function};
                entry.insert(entry.end(), call.arguments.begin(), call.arguments.end());
                flagCalls.push_back(entry);
            }
        std::vector<std::vector<std::int64_t>> expected;
        if (c.value != 0) expected = {{108, 0, -1}, {138, 0, 28, 1}, {108, 0, 0}};
        EXPECT_EQ(flagCalls, expected) << c.text;
    }
}

// ---- Creation and initialisation.

class StreamTest : public RngHostTest {
protected:
    void showAll() { showAllMessages(); }
    void useMethod(const char* name) { session.setSetting("OSENV.QIX_RNG_METHOD", std::string_view(name)); }
    std::vector<std::uint64_t> draws(RngStream* s, int n) {
        std::vector<std::uint64_t> out;
        for (int i = 0; i < n; ++i) out.push_back(streamNext64(s));
        return out;
    }
    // The same method record seeded by hand.
    std::vector<std::uint64_t> reference(FillRoutine fill, void (*prepare)(const RngOperations&, void*), int n) {
        MethodUnderTest m(fill);
        prepare(m.ops(), m.s());
        std::vector<std::uint64_t> out;
        for (int i = 0; i < n; ++i) out.push_back(m.ops().next64(m.s()));
        return out;
    }
    std::vector<std::uint32_t> codesOnly() {
        std::vector<std::uint32_t> codes;
        for (const Message& m : catalogued())
            if ((static_cast<std::uint32_t>(m.code) & 0xF0) != 0x50) codes.push_back(static_cast<std::uint32_t>(m.code));
        return codes;
    }
};

TEST_F(StreamTest, DefaultStreamWithAFixedSeed) {
    session.setSetting("tkbug.RNGSEED", 42.0);
    const std::int64_t allocations = session.counters().allocationsByFlags[0x2006];
    RngStream* s = createStream(0, 0);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->status, 0);
    EXPECT_EQ(s->headMark, 123456789u);
    EXPECT_EQ(s->tailMark, 987654321u);
    EXPECT_STREQ(s->method->shortName, "MTHYBRID");
    EXPECT_EQ(std::u16string(s->methodName), u"MTHYBRID");
    EXPECT_EQ(s->seed, 42u);
    EXPECT_EQ(s->lastSeed, 42u);
    EXPECT_EQ(s->seedHash, 0x087FCD5Cu);
    EXPECT_EQ(s->seeded, 1);
    EXPECT_EQ(s->stateSizeBytes, 2500u);
    EXPECT_EQ(s->uniformFn, s->method->ops.uniformPreferred);
    EXPECT_EQ(s->requestedName, static_cast<const void*>(s->embedded.shortName));
    EXPECT_EQ(s->savedValueA, -3.141592653589793);
    EXPECT_EQ(s->savedWord, 0x80000001u);
    EXPECT_EQ(draws(s, 5), reference(&fillMtHybrid, [](const RngOperations& o, void* st) { o.seed32(st, 42); }, 5));
    EXPECT_EQ(session.counters().allocationsByFlags[0x2006], allocations + 1);
}

TEST_F(StreamTest, NegativeOptionSeedReachesSeed32AsItsLowBits) {
    RngStream* s = createStream(static_cast<std::uint64_t>(std::int64_t{-5}), 0);
    EXPECT_EQ(s->seed, ~std::uint64_t{0} - 4);
    EXPECT_EQ(s->seedHash, fmix32(0xFFFFFFFB));
    EXPECT_EQ(draws(s, 5),
              reference(&fillMtHybrid, [](const RngOperations& o, void* st) { o.seed32(st, 0xFFFFFFFB); }, 5));
}

TEST_F(StreamTest, NoMemoryNoStream) {
    session.failAllocationAfter(1);
    EXPECT_EQ(createStream(1, 0), nullptr);
    EXPECT_NE(createStream(1, 0), nullptr);
    EXPECT_EQ(initStream(nullptr), kNullContext);
    EXPECT_EQ(applySeed(nullptr), kNullContext);
}

struct CheckCase {
    const char* label;
    const char* method;            // the setting
    std::uint64_t seed, stream;
    double requestedSeed, requestedStream;
    std::uint32_t status;
    std::vector<std::uint32_t> messages;
    bool needsRdrand;
};

class StreamCheckTest : public StreamTest, public ::testing::WithParamInterface<CheckCase> {};

TEST_P(StreamCheckTest, StatusAndMessages) {
    const CheckCase& c = GetParam();
    if (c.needsRdrand && !processorHasRdrand()) GTEST_SKIP() << "no RDRAND";
    showAll();
    useMethod(c.method);
    RngStream* s = createStream(c.seed, c.stream);
    catalogued();
    s->requestedSeed = c.requestedSeed;
    s->requestedStream = c.requestedStream;
    EXPECT_EQ(static_cast<std::uint32_t>(initStream(s)), c.status);
    EXPECT_EQ(static_cast<std::uint32_t>(s->status), c.status);
    EXPECT_EQ(codesOnly(), c.messages);
    EXPECT_EQ(s->seeded, 1) << "the stream stays usable";
}

const double kMissing = std::bit_cast<double>(0xFFFFD10000000000ull);

INSTANTIATE_TEST_SUITE_P(
    Checks, StreamCheckTest,
    ::testing::Values(
        CheckCase{"rdrandSeed", "RDRAND", 5, 0, 0, 0, 0x8C7FE80D, {0x8C7FE817}, true},
        CheckCase{"rdrandStream", "RDRAND", 0, 3, 0, 0, 0x8C7FE80F, {0x8C7FE81A}, true},
        CheckCase{"rdrandBothFirstWins", "RDRAND", 5, 3, 0, 0, 0x8C7FE80D, {0x8C7FE817, 0x8C7FE81A}, true},
        CheckCase{"xor64Stream", "XOR64", 1, 3, 0, 0, 0x8C7FE80F, {0x8C7FE81A}, false},
        CheckCase{"xor64RequestedStream", "XOR64", 1, 0, 0, 2, 0x8C7FE80F, {0x8C7FE81A}, false},
        CheckCase{"subkeyPackedLimit", "SUBKEY32", 9, 1024, 0, 0, 0x8C7FE810, {0x8C7FE81C}, false},
        CheckCase{"pcg64PackedLimit", "PCG64I", 9, 1048576, 0, 0, 0x8C7FE810, {0x8C7FE81C}, false},
        CheckCase{"pcg32StreamAboveMax", "PCG32I", 9, 0x80000000, 0, 0, 0x8C7FE810, {0x8C7FE81C, 0x8C7FE81C}, false},
        CheckCase{"requestedNegative", "PCG32I", 9, 0, 0, -1, 0x8C7FE810, {0x8C7FE81B}, false},
        CheckCase{"requestedFraction", "PCG32I", 9, 0, 0, 1.5, 0x8C7FE810, {0x8C7FE81B}, false},
        CheckCase{"requestedAboveMax", "PCG32I", 9, 0, 0, 2147483648.0, 0x8C7FE810, {0x8C7FE81B}, false},
        CheckCase{"requestedValid", "PCG32I", 9, 0, 0, 5, 0, {}, false},
        CheckCase{"requestedMissing", "PCG32I", 9, 0, kMissing, kMissing, 0, {}, false},
        CheckCase{"seedConverted", "XOR64", 0, 0, 2.5, 0, 0, {0x8C7FE818}, false},
        CheckCase{"seedWhole", "XOR64", 0, 0, 7, 0, 0, {}, false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(StreamTest, AnUnknownConfiguredNameIsKeptAsTheStatus) {
    useMethod("NOSUCH");
    RngStream* s = createStream(1, 0);
    EXPECT_EQ(static_cast<std::uint32_t>(s->status), 0x8C7FE80Bu);
    EXPECT_STREQ(s->method->shortName, "MTHYBRID");
    EXPECT_EQ(initStream(s), 0) << "re-initialising keeps the method and checks only seed and stream";
}

TEST_F(StreamTest, SubkeyPackingStillReachesTheGenerator) {
    useMethod("SUBKEY32");
    RngStream* s = createStream(9, 1024);
    EXPECT_EQ(draws(s, 3), reference(&fillSubkey32, [](const RngOperations& o, void* st) {
                  o.seed32(st, 9);
                  o.setStream32(st, 0x80000000u);
              }, 3));
    useMethod("PCG64I");
    RngStream* p = createStream(9, 3);
    p->key = 2;
    initStream(p);
    EXPECT_EQ(draws(p, 3), reference(&fillPcg64i, [](const RngOperations& o, void* st) {
                  o.seed64(st, 9);
                  o.setStream64(st, (std::uint64_t{3} << 43) | 2);
              }, 3));
}

TEST_F(StreamTest, KeyedMethodsTakeKeyThenStream) {
    useMethod("FRY2X64");
    RngStream* s = createStream(11, 7);
    s->key = 9;
    initStream(s);
    EXPECT_EQ(draws(s, 4), reference(&fillFry2x64, [](const RngOperations& o, void* st) {
                  o.seed64(st, 11);
                  o.setKey64(st, 9);
                  o.setStream64(st, 7);
              }, 4));
}

TEST_F(StreamTest, ReinitialisationRestartsTheSequence) {
    RngStream* s = createStream(77, 0);
    s->requestedName = "xor128";
    initStream(s);
    EXPECT_STREQ(s->method->shortName, "XOR128");
    std::vector<std::uint64_t> first = draws(s, 10);
    EXPECT_EQ(initStream(s), 0);
    EXPECT_EQ(draws(s, 10), first);
    EXPECT_EQ(s->seedHash, static_cast<std::uint32_t>(fmix64(77)));
}

TEST_F(StreamTest, TheMethodNoteComesOncePerNaming) {
    session.setSetting("OSENV.QIX_RNG_MESSAGES", std::string_view("note"));
    RngStream* s = createStream(77, 0);
    EXPECT_TRUE(codesOnly().empty()) << "no note for the configured default";
    s->requestedName = "pcg";
    initStream(s);
    std::vector<Message> notes = catalogued();
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(notes[0].code), 0x8C7FE829u);
    EXPECT_EQ(notes[0].kind, 2);
    EXPECT_NE(notes[0].text.find("64-bit PCG64i with seed 77 (0x4d)"), std::string::npos) << notes[0].text;
    initStream(s);
    EXPECT_TRUE(codesOnly().empty()) << "the same naming: no second note";
    s->requestedName = u"RANUNI";
    s->options |= kRequestedNameWide;
    s->stream = 0;
    initStream(s);
    notes = catalogued();
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_NE(notes[0].text.find("method RANUNI with seed"), std::string::npos) << "RANUNI is named by its short name";
    s->options &= ~std::uint64_t{kRequestedNameWide};
    s->requestedName = "pcg";
    s->stream = 5;
    initStream(s);
    EXPECT_EQ(codesOnly(), std::vector<std::uint32_t>{0x8C7FE82A});
}

TEST_F(StreamTest, HardwareStreamWithoutSeedOrStreamGetsTheShortNote) {
    if (!processorHasRdrand()) GTEST_SKIP() << "no RDRAND";
    session.setSetting("OSENV.QIX_RNG_MESSAGES", std::string_view("note"));
    RngStream* s = createStream(0, 0);
    s->requestedName = "hardware";
    s->seed = 0;
    EXPECT_EQ(initStream(s), 0);
    EXPECT_EQ(codesOnly(), std::vector<std::uint32_t>{0x8C7FE828});
    EXPECT_NE(streamNext64(s), streamNext64(s));
}

TEST_F(StreamTest, HardwareNamedWithoutTheInstructionFallsBack) {
    txhost::setHardwareRandom(services(), false);
    RngStream* s = createStream(3, 0);
    s->requestedName = "RDRAND";
    EXPECT_EQ(static_cast<std::uint32_t>(initStream(s)), 0x8C7FE80Cu);
    EXPECT_STREQ(s->method->shortName, "MTHYBRID");
    EXPECT_EQ(s->seed, 3u);
}

// A new stream takes a 32-bit automatic seed whatever the method; a
// re-initialised one takes the width of the method it had.
TEST_F(StreamTest, AutomaticSeedWidthFollowsThePreviousMethod) {
    session.setSetting("tkbug.RNGSEED", 0x1p40 + 5);
    useMethod("XOR64");
    RngStream* s = createStream(0, 0);
    EXPECT_EQ(s->seed, 5u);
    s->seed = 0;
    initStream(s);
    EXPECT_EQ(s->seed, (std::uint64_t{1} << 40) + 5);
}

}  // namespace
}  // namespace rngtest
