// Entry routines and adapters: the answers for an absent first argument, the
// path choice as the host sees it (which handle operations a call causes),
// the session-handle lookup, and growing a character result.
#include <gtest/gtest.h>

#include <cstring>

#include "host/host.h"
#include "module/frame/entries.h"
#include "module/frame/exports.h"
#include "module/frame/workers.h"
#include "tests/support/module_calls.h"

namespace {

using namespace txscan::contract;
using txhost::Absent;
using txhost::Argument;

const char* const kEncodings[] = {"UTF-8", "ISO-8859-1", "Shift_JIS"};

// (KSCANX's one blank is among its own cases.)
TEST(Adapters, AbsentFirstArgumentAnswersNothingFound) {
    std::vector<txtest::Case> cases;
    for (const char* function : {"KFINDC", "KCOUNTC", "KFINDW", "KCOUNTW", "KFIND", "KCOUNTX"}) {
        cases.push_back({function, {Absent{}, std::string("a")}, 0});
    }
    for (const char* encoding : kEncodings) txtest::runCases(encoding, cases);
}

TEST(Adapters, CachedSessionHandleIsNeverReopened) {
    for (bool cached : {true, false}) {
        txhost::Session session({.encoding = "UTF-8", .cacheSessionHandle = cached});
        auto module = txhost::Module::load(session);
        session.counters().openHandleCalls = 0;
        for (const auto& f : module->functions()) {
            txhost::CallSite site(*module, f.index);
            std::vector<Argument> args(f.descriptor->minArgs, Argument{std::string("a b")});
            for (std::size_t i = 1; f.name == "KSCANX" && i < args.size(); ++i) args[i] = 1.0;
            site.call(args);
        }
        const std::int64_t opened = session.counters().openHandleCalls;
        EXPECT_TRUE(cached ? opened == 0 : opened >= 8) << opened;
    }
}

TEST(Adapters, OnlyTheFirstArgumentChoosesThePath) {
    // In a UTF-8 session an ASCII source keeps the byte path, which reads no
    // handle operation, whatever the other arguments hold; in a single-byte
    // session every byte value does.
    struct PathCase { const char* encoding; const char* function; std::vector<Argument> arguments; };
    const PathCase cases[] = {
        {"UTF-8", "KFIND", {std::string("abc"), std::string("\xC3\xA4")}},
        {"UTF-8", "KFINDC", {std::string("abc"), std::string("\xC3\xA4")}},
        {"ISO-8859-1", "KFIND", {std::string("ab\xC3\xA4"), std::string("\xC3")}},
        {"ISO-8859-1", "KCOUNTC", {std::string("\xE4\xC4"), std::string("\xE4"), std::string("i")}},
    };
    for (const PathCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " " + c.function);
        txhost::Session session({.encoding = c.encoding});
        auto module = txhost::Module::load(session);
        session.counters().handleOperations.clear();
        module->call(c.function, c.arguments);
        EXPECT_TRUE(session.counters().handleOperations.empty());
    }
}

// The one read of argument 1 that chooses a path: one high byte anywhere
// in a row of any length leaves the byte path.
TEST(SourceShape, Utf8HighBitAtEveryPositionAndLength) {
    txhost::Session session({.encoding = "UTF-8"});
    auto module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
    const auto shapeOf = [&](char* data, std::size_t length) {
        StringValue value{0, static_cast<std::int64_t>(length), data, nullptr, 0};
        return txscan::sourceShapeOf(session.encodingHandle(), &value).kind;
    };
    for (std::size_t length = 0; length <= 140; ++length) {
        std::string text(length, 'a');
        EXPECT_EQ(txscan::SourceShape::kSingleBytes, shapeOf(text.data(), length));
        for (std::size_t at = 0; at < length; ++at) {
            text[at] = '\x80';
            // Copied to exactly its length, so reading past it is caught.
            const auto copy = std::make_unique<char[]>(length);
            std::memcpy(copy.get(), text.data(), length);
            EXPECT_NE(txscan::SourceShape::kSingleBytes, shapeOf(copy.get(), length)) << length << " " << at;
            text[at] = 'a';
        }
    }
}

// The entries read argument 1 in their own steps (up to 16 bytes, up to
// 128, longer): one two-byte character at every position of rows of every
// length up to 141 bytes, each ending in the letter sought, whose position
// counts characters only on the right path.
TEST(SourceShape, EntriesCountCharactersAtEveryPositionAndLength) {
    txtest::InProcess p;
    for (std::size_t length = 2; length <= 140; ++length) {
        for (std::size_t at = 0; at + 1 < length; ++at) {
            std::string text(length - 1, 'a');
            text += 'z';
            text.replace(at, 1, "\xC3\xA9");
            txtest::FrameBuilder f({text, std::string("z")});
            double number = -1;
            EXPECT_EQ(txscan::kfindEntry(&f.frame, &number), kStatusOk);
            EXPECT_EQ(number, static_cast<double>(length)) << length << " " << at;
        }
    }
}

TEST(ResultCapacity, GrowsInKilobytesUpToTheMaximum) {
    struct CapacityCase {
        bool growable;
        std::int64_t maxLength, capacity, needed, expectedCapacity;
        bool reallocates;
    };
    const CapacityCase cases[] = {
        {false, 200, 50, 500, 200, false},   {true, 5000, 0, 1, 1024, true},
        {true, 5000, 1024, 1025, 2048, true}, {true, 1500, 1024, 4000, 1500, true},
        {true, 1500, 1500, 4000, 1500, false},
        {true, 5000, 0, 0, 0, false},
    };
    txhost::Session session;
    auto module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
    for (const CapacityCase& c : cases) {
        SCOPED_TRACE(c.needed);
        char fixed[8] = {};
        StringValue v{c.maxLength, 0, c.growable ? nullptr : fixed,
                      c.growable ? session.hostVector()->hostPool : nullptr, c.capacity};
        const std::int64_t before = session.counters().reallocations;
        EXPECT_EQ(0, txscan::ensureResultCapacity(&v, c.needed));
        EXPECT_EQ(c.expectedCapacity, v.capacity);
        EXPECT_EQ(c.reallocates ? 1 : 0, session.counters().reallocations - before);
        if (c.reallocates) {
            ASSERT_NE(nullptr, v.data);
            std::memset(v.data, 'x', static_cast<std::size_t>(v.capacity));
        }
    }
}

}  // namespace
