// Streams: the seed option, creation, initialisation checks and seeding.
#include "module/rng/stream.h"

#include <bit>
#include <cmath>
#include <string>
#include <vector>

#include "module/rng/hash.h"
#include "module/rng/messages.h"
#include "tests/module/rng/rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;
using Codes = std::vector<std::uint32_t>;
using Draws = std::vector<std::uint64_t>;

TEST(ReadSeedOption, OptionTexts) {
    const std::pair<const char*, std::int32_t> cases[] = {
        {"RNG*=7", 7},    {"RNGSEEDS=5", 0}, {"RNGSEED", 1},     {"RNGSEED=-5", -5}, {"nodate rngseed=5 RNGSEED=9", 9},
        {"xrngseed=4", 0}, {"  RngSeed=31  ", 31}, {"RNG=4", 0},
    };
    for (const auto& [text, value] : cases) {
        txhost::Session session({.optionText = text});
        auto module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
        session.takeServiceCalls();
        EXPECT_EQ(readSeedOption("-rngseed"), value) << text;
        // A found value is read with the option service's flag set around it.
        std::vector<std::vector<std::int64_t>> flagCalls, expected;
        for (const txhost::ServiceCall& call : session.takeServiceCalls())
            if (call.table == 39 && (call.function == 108 || call.function == 138)) {
                flagCalls.push_back({call.function});
                flagCalls.back().insert(flagCalls.back().end(), call.arguments.begin(), call.arguments.end());
            }
        if (value != 0) expected = {{108, 0, -1}, {138, 0, 28, 1}, {108, 0, 0}};
        EXPECT_EQ(flagCalls, expected) << text;
    }
}

// ---- Creation and initialisation.

class StreamTest : public RngHostTest {
protected:
    void useMethod(const char* name) { setText("OSENV.QIX_RNG_METHOD", name); }
    Draws draws(RngStream* s, int n) {
        Draws out;
        for (int i = 0; i < n; ++i) out.push_back(streamNext64(s));
        return out;
    }
    // The same method record seeded by hand: seed, then key, then stream.
    Draws reference(FillRoutine fill, std::uint64_t seed, std::uint64_t stream = 0, std::uint64_t key = 0) {
        MethodUnderTest m(fill);
        m.ops().seed64(m.s(), seed);
        if (key != 0) m.ops().setKey64(m.s(), key);
        if (stream != 0) m.ops().setStream64(m.s(), stream);
        return m.draw(5);
    }
    // The codes issued, without the method record's own notes (0x...5x).
    Codes codesOnly() {
        Codes codes;
        for (std::uint32_t code : cataloguedCodes())
            if ((code & 0xF0) != 0x50) codes.push_back(code);
        return codes;
    }
};

TEST_F(StreamTest, DefaultStreamWithAFixedSeed) {
    session.setSetting("tkbug.RNGSEED", 42.0);
    const std::int64_t allocations = session.counters().allocationsByFlags[0x2006];
    RngStream* s = createStream(0, 0);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(session.counters().allocationsByFlags[0x2006], allocations + 1);
    EXPECT_EQ((std::vector<std::uint64_t>{static_cast<std::uint64_t>(s->status), s->seed, s->lastSeed, s->seedHash,
                                          s->stateSizeBytes}),
              (std::vector<std::uint64_t>{0, 42, 42, 0x087FCD5C, 2500}));
    EXPECT_STREQ(s->method->shortName, "MTHYBRID");
    EXPECT_EQ(s->uniformFn, s->method->ops.uniformPreferred);
    EXPECT_EQ(draws(s, 5), reference(&fillMtHybrid, 42));
}

TEST_F(StreamTest, NegativeOptionSeedReachesSeed32AsItsLowBits) {
    RngStream* s = createStream(static_cast<std::uint64_t>(std::int64_t{-5}), 0);
    EXPECT_EQ(s->seed, ~std::uint64_t{0} - 4);
    EXPECT_EQ(draws(s, 5), reference(&fillMtHybrid, 0xFFFFFFFB));
}

TEST_F(StreamTest, NoMemoryNoStream) {
    session.failAllocationAfter(1);
    EXPECT_EQ(createStream(1, 0), nullptr);
    EXPECT_NE(createStream(1, 0), nullptr);
    EXPECT_EQ(initStream(nullptr), kNullContext);
}

// Each check's status and messages; the first failure gives the status and
// the stream stays usable.
TEST_F(StreamTest, SeedAndStreamChecks) {
    struct CheckCase { const char* method; std::uint64_t seed, stream; double requestedSeed, requestedStream;
                       std::uint32_t status; Codes messages; };
    const double missing = std::bit_cast<double>(0xFFFFD10000000000ull);
    const CheckCase cases[] = {
        {"RDRAND", 5, 0, 0, 0, 0x8C7FE80D, {0x8C7FE817}},
        {"RDRAND", 5, 3, 0, 0, 0x8C7FE80D, {0x8C7FE817, 0x8C7FE81A}},
        {"XOR64", 1, 0, 0, 2, 0x8C7FE80F, {0x8C7FE81A}},
        {"SUBKEY32", 9, 1024, 0, 0, 0x8C7FE810, {0x8C7FE81C}},   // packed limits
        {"PCG32I", 9, 0x80000000, 0, 0, 0x8C7FE810, {0x8C7FE81C, 0x8C7FE81C}},   // above the maximum too
        {"PCG32I", 9, 0, 0, 1.5, 0x8C7FE810, {0x8C7FE81B}},
        {"PCG32I", 9, 0, 0, 2147483648.0, 0x8C7FE810, {0x8C7FE81B}},
        {"PCG32I", 9, 0, missing, missing, 0, {}},
        {"XOR64", 0, 0, 2.5, 0, 0, {0x8C7FE818}},   // a seed that needs converting
    };
    showAllMessages();
    for (const CheckCase& c : cases) {
        SCOPED_TRACE(std::string(c.method) + " " + std::to_string(c.seed) + " " + std::to_string(c.stream) + " " +
                     std::to_string(c.requestedSeed) + " " + std::to_string(c.requestedStream));
        if (std::string(c.method) == "RDRAND" && !processorHasRdrand()) continue;
        useMethod(c.method);
        RngStream* s = createStream(c.seed, c.stream);
        catalogued();
        s->requestedSeed = c.requestedSeed;
        s->requestedStream = c.requestedStream;
        EXPECT_EQ(static_cast<std::uint32_t>(initStream(s)), c.status);
        EXPECT_EQ(static_cast<std::uint32_t>(s->status), c.status);
        EXPECT_EQ(codesOnly(), c.messages);
        EXPECT_EQ(s->seeded, 1);
    }
}

TEST_F(StreamTest, AnUnknownConfiguredNameIsKeptAsTheStatus) {
    useMethod("NOSUCH");
    RngStream* s = createStream(1, 0);
    EXPECT_EQ(static_cast<std::uint32_t>(s->status), 0x8C7FE80Bu);
    EXPECT_STREQ(s->method->shortName, "MTHYBRID");
    EXPECT_EQ(initStream(s), 0) << "re-initialising keeps the method and checks only seed and stream";
}

// Packed streams and keys reach the generator as stream and key calls, key first.
TEST_F(StreamTest, StreamsAndKeysReachTheGenerator) {
    struct SeedingCase { const char* method; std::uint64_t seed, stream, key; FillRoutine fill; std::uint64_t methodStream, methodKey; };
    const SeedingCase cases[] = {
        {"SUBKEY32", 9, 1024, 0, &fillSubkey32, 0x80000000u, 0},
        {"PCG64I", 9, 3, 2, &fillPcg64i, (std::uint64_t{3} << 43) | 2, 0},   // the key is the sub-stream
        {"FRY2X64", 11, 7, 9, &fillFry2x64, 7, 9},
    };
    for (const SeedingCase& c : cases) {
        useMethod(c.method);
        RngStream* s = createStream(c.seed, c.stream);
        s->key = c.key;
        initStream(s);
        EXPECT_EQ(draws(s, 5), reference(c.fill, c.seed, c.methodStream, c.methodKey)) << c.method;
    }
}

TEST_F(StreamTest, ReinitialisationRestartsTheSequence) {
    RngStream* s = createStream(77, 0);
    s->requestedName = "xor128";
    initStream(s);
    EXPECT_STREQ(s->method->shortName, "XOR128");
    Draws first = draws(s, 10);
    EXPECT_EQ(initStream(s), 0);
    EXPECT_EQ(draws(s, 10), first);
    EXPECT_EQ(s->seedHash, static_cast<std::uint32_t>(fmix64(77)));
}

TEST_F(StreamTest, TheMethodNoteComesOncePerNaming) {
    setText("OSENV.QIX_RNG_MESSAGES", "note");
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
    EXPECT_EQ(codesOnly(), Codes{0x8C7FE82A});
}

TEST_F(StreamTest, HardwareStreams) {
    txhost::setHardwareRandom(services(), false);
    RngStream* s = createStream(3, 0);
    s->requestedName = "RDRAND";
    EXPECT_EQ(static_cast<std::uint32_t>(initStream(s)), 0x8C7FE80Cu) << "named without the instruction";
    EXPECT_STREQ(s->method->shortName, "MTHYBRID");
    EXPECT_EQ(s->seed, 3u);
    if (!processorHasRdrand()) GTEST_SKIP() << "no RDRAND";
    txhost::setHardwareRandom(services(), true);
    setText("OSENV.QIX_RNG_MESSAGES", "note");
    s = createStream(0, 0);
    s->requestedName = "hardware";
    s->seed = 0;
    EXPECT_EQ(initStream(s), 0);
    EXPECT_EQ(codesOnly(), Codes{0x8C7FE828}) << "without seed or stream: the short note";
    EXPECT_NE(streamNext64(s), streamNext64(s));
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
