// Settings operations and the message emitter, through the host's store and logger.
#include "module/rng/settings.h"

#include <cstdint>
#include <string>
#include <variant>

#include "module/rng/messages.h"
#include "module/rng/text.h"
#include "tests/module/rng/rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;
using Codes = std::vector<std::uint32_t>;
using Lines = std::vector<std::string>;

constexpr std::uint32_t kLimitReached = 0x8C7FE8CA;
constexpr std::uint32_t kNotInteger = 0x8C7FE8C8;
constexpr std::uint32_t kUnknownWord = 0x8C7FE8C9;

class SettingsTest : public RngHostTest {
protected:
    txhost::StoredValue stored(std::string_view name) { return txhost::storeGet(services(), name); }
    std::int32_t limit() { return tknrlimit(u"L", 0, 100); }
    std::int32_t messagesLook() {
        return tknrlook(kKeyMessages, 0, 4, u"NO", 9, u"WARN", 3, u"NOTE", 2, static_cast<const TKChar*>(nullptr));
    }
};

TEST_F(SettingsTest, CountDownFromUnsetStoresTheDefaultAndTextStaysText) {
    EXPECT_EQ(limit(), 100);
    EXPECT_EQ(std::get<std::int64_t>(stored("L")), 100);
    EXPECT_EQ(limit(), 99);
    EXPECT_EQ(limit(), 98);
    setText("L", "5");
    EXPECT_EQ(limit(), 4);
    EXPECT_EQ(std::get<std::string>(stored("L")), "4");
}

TEST_F(SettingsTest, CountDownFromAUserValue) {
    // The user's text (null: the number), the answers of successive uses, the use
    // that reaches the limit (-1: none) and any other code issued on the first use.
    struct CountDownCase { const char* text; std::int64_t number; std::vector<int> returns; int limitMessageAtUse;
                           std::uint32_t otherMessage; };
    const CountDownCase cases[] = {
        {nullptr, 2, {1, 0, -1, -1}, 1, 0},       {"3", 0, {2, 1, 0, -1, -1}, 2, 0},
        {"2.5", 0, {99, 98}, -1, kNotInteger},    {"99999999999999999999", 0, {2147483647}, -1, 0},
        {"-99999999999999999999", 0, {99}, -1, kNotInteger},
        {nullptr, -1, {-1, -1}, -1, 0},           {nullptr, 1, {0, -1}, 0, 0},
        // the ends of the 64-bit range neither wrap nor overflow
        {nullptr, INT64_MIN, {-1, -1}, -1, 0},    {nullptr, INT64_MAX, {2147483647, 2147483647}, -1, 0},
    };
    for (const CountDownCase& c : cases) {
        c.text != nullptr ? setText("L", c.text) : session.setSetting("L", c.number);
        for (std::size_t use = 0; use < c.returns.size(); ++use) {
            SCOPED_TRACE(std::string(c.text ? c.text : std::to_string(c.number)) + " use " + std::to_string(use));
            EXPECT_EQ(limit(), c.returns[use]);
            Codes expected;
            if (use == 0 && c.otherMessage != 0) expected.push_back(c.otherMessage);
            if (static_cast<int>(use) == c.limitMessageAtUse) expected.push_back(kLimitReached);
            EXPECT_EQ(cataloguedCodes(), expected);
        }
    }
}

TEST(ParseIntegerText, AcceptsWhatALimitMayHold) {
    struct IntegerTextCase { const char16_t* text; bool valid; std::int64_t value; };
    const IntegerTextCase cases[] = {
        {u"  12  ", true, 12}, {u"-3", true, -3},   {u"+0", true, 0},   {u"2.000", true, 2},
        {u"2.5", false, 0},    {u"2.0 1", false, 0}, {u"", false, 0},   {u"-", false, 0}, {u"1 2", false, 0},
        {u"-9007199254740993", true, -(std::int64_t{1} << 53)},   // rounds to 2^53: not above it
        {u"-9007199254740994", false, 0},
    };
    for (const IntegerTextCase& c : cases) {
        std::int64_t value = 0;
        std::int32_t length = textLength(c.text);
        EXPECT_EQ(parseIntegerText(c.text, length, &value), c.valid) << std::string(c.text, c.text + length);
        EXPECT_EQ(value, c.value) << std::string(c.text, c.text + length);
    }
}

TEST_F(SettingsTest, WordSettingsTrimTrailingBlanksOnly) {
    struct WordCase { const char* text; int result; bool refused; };   // refused: 0x8C7FE8C9 and the setting cleared
    const WordCase cases[] = {
        {"WARN  ", 3, false}, {"Note", 2, false}, {" warn", 4, true}, {"warns", 4, true}, {"   ", 4, false},
    };
    for (const WordCase& c : cases) {
        setText("OSENV.QIX_RNG_MESSAGES", c.text);
        EXPECT_EQ(messagesLook(), c.result) << "'" << c.text << "'";
        EXPECT_EQ(cataloguedCodes(), c.refused ? Codes{kUnknownWord} : Codes{}) << c.text;
        if (c.refused) {
            EXPECT_EQ(std::get<std::string>(stored("OSENV.QIX_RNG_MESSAGES")), "") << c.text;
            EXPECT_EQ(messagesLook(), 4);
            EXPECT_TRUE(cataloguedCodes().empty()) << "a cleared setting is silent";
        }
    }
}

TEST_F(SettingsTest, NamesTakeTheirLengthAndTextStopsAtCapacity) {
    session.setSetting("AB", std::int64_t{7});
    EXPECT_EQ((std::vector<std::int64_t>{tknrlget(u"ABC", 2), tknrlget(u"AB", 0), tknrlget(u"AB", -4)}),
              (std::vector<std::int64_t>{7, 7, 7}));
    EXPECT_EQ(tknrlget(u"ABC", 0), kNoInteger);
    EXPECT_EQ(tknrdget(nullptr, 0, 1.5), 1.5);
    setText("T", "abcdefghijklmnopqrstuvwxyz");
    TKChar buffer[15];
    EXPECT_EQ(tknrtget(u"T", 0, buffer, 15), 14);
    EXPECT_EQ(std::u16string(buffer), u"abcdefghijklmn");
    EXPECT_EQ(tknrtget(u"missing", 0, buffer, 15), 0);
    EXPECT_TRUE(messages().empty()) << "no value is never reported";
}

// ---- The emitter.

class EmitterTest : public SettingsTest {
protected:
    std::int32_t issue(int severity) { return issueRngMessage(severity, kMsgMethodFilled, "X"); }
    std::vector<int> issuedSeverities() {
        std::vector<int> severities;
        for (const Message& m : catalogued()) severities.push_back(m.kind);
        return severities;
    }
};

TEST_F(EmitterTest, DefaultThresholdShowsErrorsOnlyAndSparesTheCountDowns) {
    for (int severity : {0, 1, 2, 3}) issue(severity);
    EXPECT_TRUE(issuedSeverities().empty());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(stored("OSENV.QIX_RNG_NOTE_LIMIT")));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(stored("OSENV.QIX_RNG_ERROR_LIMIT")));
    issue(4);
    EXPECT_EQ(issuedSeverities(), std::vector<int>{4});
    EXPECT_EQ(std::get<std::int64_t>(stored("OSENV.QIX_RNG_ERROR_LIMIT")), 100);
}

TEST_F(EmitterTest, ThresholdAndPromotion) {
    // The two settings (no severity setting for null) and the severities shown for input severities 0 .. 4.
    struct ThresholdCase { const char *messages, *severity; std::vector<int> shown; };
    const ThresholdCase cases[] = {
        {"note", nullptr, {2, 3, 4}}, {"note", "notes", {2, 2, 2, 3, 4}}, {"warning", "yes", {3, 4}},
        {"info", nullptr, {2, 2, 3, 4}}, {"all", nullptr, {2, 2, 2, 3, 4}}, {"none", nullptr, {}},
        {"all", "error", {4, 4, 2, 3, 4}},
    };
    for (const ThresholdCase& c : cases) {
        setText("OSENV.QIX_RNG_MESSAGES", c.messages);
        c.severity != nullptr ? setText("OSENV.QIX_RNG_SEVERITY", c.severity) : session.clearSetting("OSENV.QIX_RNG_SEVERITY");
        for (int severity = 0; severity <= 4; ++severity) issue(severity);
        EXPECT_EQ(issuedSeverities(), c.shown) << c.messages << " / " << (c.severity ? c.severity : "-");
    }
}

TEST_F(EmitterTest, NoteLimitLetsOneHundredAndOnePassThenSaysSoOnce) {
    showAllMessages();
    Codes codes;
    for (int i = 0; i < 150; ++i) {
        issue(1);
        for (std::uint32_t code : cataloguedCodes()) codes.push_back(code);
    }
    // The hundred-and-first use reaches the limit: its message comes first, then the note itself.
    const auto filled = static_cast<std::uint32_t>(kMsgMethodFilled);
    Codes expected(100, filled);
    expected.insert(expected.end(), {kLimitReached, filled});
    EXPECT_EQ(codes, expected);
}

TEST_F(EmitterTest, NoLoggerNoMessages) {
    showAllMessages();
    txhost::setLoggerPresent(services(), false);
    EXPECT_EQ(issue(4), 0);
    txhost::setLoggerPresent(services(), true);
    EXPECT_TRUE(messages().empty());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(stored("OSENV.QIX_RNG_ERROR_LIMIT")));
}

// ---- Trace lines and failure reports.

TEST_F(SettingsTest, FailingStoreCallsAreReportedAndKeepTheDefault) {
    constexpr std::int32_t kBroken = static_cast<std::int32_t>(0x803FC0ABu);
    const std::pair<void (*)(), const char*> cases[] = {
        {[] { TKChar b[8]; EXPECT_EQ(tknrtget(u"K", 0, b, 8), 0); }, "tkNameValueGet failed for K in tknrtget"},
        {[] { EXPECT_EQ(tknrlget(u"K", 0), kNoInteger); }, "tkNameValueGet failed for K in tknrlget"},
        {[] { tknrdset(u"K", 0, 1.0); }, "tkNameValueSet failed for K in tknrdset"},
    };
    txhost::failStoreCalls(services(), kBroken);
    for (const auto& [operation, line] : cases) {
        operation();
        std::vector<Message> all = messages();
        ASSERT_EQ(all.size(), 2u) << line;
        EXPECT_TRUE(all[0].source == Message::Source::LogLine && all[0].kind == 4 && all[0].text == line) << line;
        EXPECT_TRUE(all[1].source == Message::Source::Catalogued && all[1].code == kBroken && all[1].kind == 4) << line;
    }
}

}  // namespace
}  // namespace rngtest
