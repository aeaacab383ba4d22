// Settings operations and the message emitter, through the host's store and logger.
#include "rng/settings.h"

#include <cstdint>
#include <string>
#include <variant>

#include "rng/messages.h"
#include "rng/text.h"
#include "rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

constexpr std::uint32_t kLimitReached = 0x8C7FE8CA;
constexpr std::uint32_t kNotInteger = 0x8C7FE8C8;
constexpr std::uint32_t kUnknownWord = 0x8C7FE8C9;

class SettingsTest : public RngHostTest {
protected:
    void debugOn() { session.setSetting("OSENV.QIX_TKNR_DEBUG", std::string_view("1")); }
    txhost::StoredValue stored(std::string_view name) { return txhost::storeGet(services(), name); }
    std::int32_t limit() { return tknrlimit(u"L", 0, 100); }
    std::int32_t messagesLook() {
        return tknrlook(kKeyMessages, 0, 4, u"NO", 9, u"WARN", 3, u"NOTE", 2, static_cast<const TKChar*>(nullptr));
    }
};

TEST_F(SettingsTest, CountDownFromUnsetStoresTheDefaultThenCountsDown) {
    EXPECT_EQ(limit(), 100);
    EXPECT_EQ(std::get<std::int64_t>(stored("L")), 100);
    EXPECT_EQ(limit(), 99);
    EXPECT_EQ(limit(), 98);
    EXPECT_TRUE(cataloguedCodes().empty());
}

struct CountDownCase {
    const char* label;
    std::variant<std::int64_t, std::string> userValue;
    std::vector<int> returns;        // successive uses
    int limitMessageAtUse;           // index into returns, -1 for none
    std::uint32_t otherMessage;      // 0 or the code issued on the first use
};

class CountDownTest : public SettingsTest, public ::testing::WithParamInterface<CountDownCase> {};

TEST_P(CountDownTest, UsesTheUserValue) {
    const CountDownCase& c = GetParam();
    if (auto* i = std::get_if<std::int64_t>(&c.userValue))
        session.setSetting("L", *i);
    else
        session.setSetting("L", std::string_view(std::get<std::string>(c.userValue)));
    for (std::size_t use = 0; use < c.returns.size(); ++use) {
        EXPECT_EQ(limit(), c.returns[use]) << "use " << use;
        std::vector<std::uint32_t> codes = cataloguedCodes();
        std::vector<std::uint32_t> expected;
        if (use == 0 && c.otherMessage != 0) expected.push_back(c.otherMessage);
        if (static_cast<int>(use) == c.limitMessageAtUse) expected.push_back(kLimitReached);
        EXPECT_EQ(codes, expected) << "use " << use;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Limits, CountDownTest,
    ::testing::Values(
        CountDownCase{"integer", std::int64_t{2}, {1, 0, -1, -1}, 1, 0},
        CountDownCase{"text", std::string("3"), {2, 1, 0, -1, -1}, 2, 0},
        CountDownCase{"textWithZeros", std::string(" 2.000 "), {1, 0, -1}, 1, 0},
        CountDownCase{"plusSign", std::string("+2"), {1, 0, -1}, 1, 0},
        CountDownCase{"fraction", std::string("2.5"), {99, 98}, -1, kNotInteger},
        CountDownCase{"letters", std::string("5x"), {99}, -1, kNotInteger},
        CountDownCase{"hugePositive", std::string("99999999999999999999"), {2147483647}, -1, 0},
        CountDownCase{"hugeNegative", std::string("-99999999999999999999"), {99}, -1, kNotInteger},
        CountDownCase{"exhaustedStaysAtMinusOne", std::int64_t{-1}, {-1, -1}, -1, 0},
        CountDownCase{"oneLeft", std::int64_t{1}, {0, -1}, 0, 0}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(SettingsTest, TextCountDownStaysText) {
    session.setSetting("L", std::string_view("5"));
    EXPECT_EQ(limit(), 4);
    EXPECT_EQ(std::get<std::string>(stored("L")), "4");
}

TEST_F(SettingsTest, HugeTextBecomesTwoToThe53) {
    session.setSetting("L", std::string_view("99999999999999999999"));
    EXPECT_EQ(tknrlget(u"L", 0), std::int64_t{1} << 53);
}

struct IntegerTextCase {
    const char16_t* text;
    bool valid;
    std::int64_t value;
};

TEST(ParseIntegerText, AcceptsWhatALimitMayHold) {
    const IntegerTextCase cases[] = {
        {u"12", true, 12},       {u"  12  ", true, 12}, {u"-3", true, -3},   {u"+0", true, 0},
        {u"2.", true, 2},        {u"2.000", true, 2},   {u"2.5", false, 0},  {u"2.0 1", false, 0},
        {u"", false, 0},         {u"-", false, 0},      {u"x1", false, 0},   {u"1 2", false, 0},
        {u"9007199254740993", true, std::int64_t{1} << 53},
        {u"-9007199254740993", true, -(std::int64_t{1} << 53)},   // rounds to 2^53: not above it
        {u"-9007199254740994", false, 0},
        {u"9007199254740992", true, std::int64_t{1} << 53},
    };
    for (const IntegerTextCase& c : cases) {
        std::int64_t value = -1;
        std::int32_t length = textLength(c.text);
        EXPECT_EQ(parseIntegerText(c.text, length, &value), c.valid) << std::string(c.text, c.text + length);
        if (c.valid) {
            EXPECT_EQ(value, c.value);
        }
    }
}

struct WordCase {
    const char* text;
    int result;
    bool refused;   // 0x8C7FE8C9 issued and the setting cleared
};

TEST_F(SettingsTest, WordSettingsTrimTrailingBlanksOnly) {
    const WordCase cases[] = {
        {"warn", 3, false}, {"WARN  ", 3, false}, {"Note", 2, false}, {"no", 9, false},
        {" warn", 4, true}, {"warns", 4, true},   {"", 4, false},     {"   ", 4, false},
    };
    for (const WordCase& c : cases) {
        session.setSetting("OSENV.QIX_RNG_MESSAGES", std::string_view(c.text));
        EXPECT_EQ(messagesLook(), c.result) << "'" << c.text << "'";
        std::vector<std::uint32_t> codes = cataloguedCodes();
        if (c.refused) {
            EXPECT_EQ(codes, std::vector<std::uint32_t>{kUnknownWord}) << c.text;
            EXPECT_EQ(std::get<std::string>(stored("OSENV.QIX_RNG_MESSAGES")), "") << c.text;
            EXPECT_EQ(messagesLook(), 4);
            EXPECT_TRUE(cataloguedCodes().empty()) << "a cleared setting is silent";
        } else {
            EXPECT_TRUE(codes.empty()) << c.text;
        }
    }
}

TEST_F(SettingsTest, TextReadStopsAtCapacity) {
    session.setSetting("T", std::string_view("abcdefghijklmnopqrstuvwxyz"));
    TKChar buffer[15];
    EXPECT_EQ(tknrtget(u"T", 0, buffer, 15), 14);
    EXPECT_EQ(std::u16string(buffer), u"abcdefghijklmn");
    EXPECT_EQ(tknrtget(u"T", 1, buffer, 1), 0) << "capacity 1 holds only the terminator";
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(tknrtget(u"missing", 0, buffer, 15), 0);
    EXPECT_TRUE(messages().empty()) << "no value is never reported";
}

TEST_F(SettingsTest, NamesTakeTheirLengthOrRunToTheTerminator) {
    session.setSetting("AB", std::int64_t{7});
    EXPECT_EQ(tknrlget(u"ABC", 2), 7);
    EXPECT_EQ(tknrlget(u"AB", 0), 7);
    EXPECT_EQ(tknrlget(u"AB", -4), 7);
    EXPECT_EQ(tknrlget(u"ABC", 0), kNoInteger);
    EXPECT_EQ(tknrdget(u"AB", 0, 1.5), 7.0);
    EXPECT_EQ(tknrdget(nullptr, 0, 1.5), 1.5);
}

// ---- The emitter.

class EmitterTest : public SettingsTest {
protected:
    std::int32_t issue(int severity) {
        return issueRngMessage(severity, kMsgMethodFilled, "X");
    }
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

struct ThresholdCase {
    const char* messages;   // "OSENV.QIX_RNG_MESSAGES"
    const char* severity;   // "OSENV.QIX_RNG_SEVERITY", or null
    std::vector<int> shown; // severities issued for input severities 0 .. 4
};

TEST_F(EmitterTest, ThresholdAndPromotion) {
    const ThresholdCase cases[] = {
        {"note", nullptr, {2, 3, 4}},
        {"note", "notes", {2, 2, 2, 3, 4}},
        {"warning", "yes", {3, 4}},
        {"info", nullptr, {2, 2, 3, 4}},
        {"all", nullptr, {2, 2, 2, 3, 4}},
        {"none", nullptr, {}},
        {"all", "error", {4, 4, 2, 3, 4}},
    };
    for (const ThresholdCase& c : cases) {
        session.setSetting("OSENV.QIX_RNG_MESSAGES", std::string_view(c.messages));
        if (c.severity != nullptr)
            session.setSetting("OSENV.QIX_RNG_SEVERITY", std::string_view(c.severity));
        else
            session.clearSetting("OSENV.QIX_RNG_SEVERITY");
        for (int severity = 0; severity <= 4; ++severity) issue(severity);
        EXPECT_EQ(issuedSeverities(), c.shown) << c.messages << " / " << (c.severity ? c.severity : "-");
    }
}

TEST_F(EmitterTest, NoteLimitLetsOneHundredAndOnePass) {
    showAllMessages();
    int passed = 0;
    int limitMessages = 0;
    for (int i = 0; i < 150; ++i) {
        issue(1);
        for (const Message& m : catalogued()) {
            if (static_cast<std::uint32_t>(m.code) == kLimitReached) {
                ++limitMessages;
                EXPECT_EQ(i, 100);
            } else {
                ++passed;
            }
        }
    }
    EXPECT_EQ(passed, 101);
    EXPECT_EQ(limitMessages, 1);
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

struct TraceCase {
    const char* label;
    void (*operation)();
    std::vector<std::string> lines;   // level-1 lines, in order
};

class TraceTest : public SettingsTest, public ::testing::WithParamInterface<TraceCase> {};

TEST_P(TraceTest, WritesItsLine) {
    debugOn();
    session.setSetting("T", std::string_view("Ab c"));
    session.setSetting("I", std::int64_t{42});
    session.setSetting("D", 2.25);
    session.setSetting("W", std::string_view("warn "));
    messages();
    GetParam().operation();
    EXPECT_EQ(logLines(1), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, TraceTest,
    ::testing::Values(
        TraceCase{"tknrtget", [] { TKChar b[20]; tknrtget(u"T", 0, b, 20); }, {"tknrtget(T)='Ab c'"}},
        TraceCase{"tknrcget", [] { char b[20]; tknrcget(u"T", 0, b, 20); }, {"tknrcget(T)='Ab c'"}},
        TraceCase{"tknrdget", [] { tknrdget(u"D", 0, 0); }, {"tknrdget(D)=                2.25"}},
        TraceCase{"tknrdgetDefault", [] { tknrdget(u"none", 0, 1e30); }, {"tknrdget(none)=               1e+30"}},
        TraceCase{"tknrlget", [] { tknrlget(u"I", 0); }, {"tknrlget(I)=42"}},
        TraceCase{"tknrlgetText", [] { tknrlget(u"W", 0); }, {"tknrtget(W)='warn '", "tknrlget(W)=-666"}},
        TraceCase{"tknrlset", [] { tknrlset(u"I", 0, -7); }, {"tknrlset(I)=-7"}},
        TraceCase{"tknrlsetOverText", [] { tknrlset(u"T", 0, 12); }, {"tknrlset(T)=12", "tknrlset(T)='12'"}},
        TraceCase{"tknrlimit", [] { tknrlimit(u"I", 0, 100); },
                  {"tknrlget(I)=42", "tknrlset(I)=41", "tknrlimit(I)=41"}},
        TraceCase{"tknrlimitUnset", [] { tknrlimit(u"new", 0, 100); }, {"tknrlset(new)=100", "tknrlimit(new)=100"}},
        TraceCase{"tknrlook",
                  [] { tknrlook(u"W", 0, 4, u"NO", 9, u"WARN", 3, u"ALL", 0, static_cast<const TKChar*>(nullptr)); },
                  {"tknrtget(W)='warn '", "tknrlook(W) 'WARN' != 'NO' 9", "tknrlook(W) 'WARN' == 'WARN' 3",
                   "tknrlook(W)=3 'WARN'"}},
        TraceCase{"tknrlookEmpty", [] { tknrlook(u"none", 0, 4, u"NO", 9, static_cast<const TKChar*>(nullptr)); },
                  {"tknrtget(none)=''", "tknrlook(none)=4 ''"}}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(SettingsTest, ALimitThatIsNoIntegerIsTracedAtLevelFour) {
    debugOn();
    session.setSetting("L", std::string_view("x"));
    EXPECT_EQ(limit(), 99);
    std::vector<std::string> failures = logLines(4);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0],
              "tkNameValueGet failed for L in tknrlimit. The existing value may not be a TKChar string or QIXLONG.");
}

struct FailureCase {
    const char* label;
    void (*operation)();
    const char* line;
};

class FailureReportTest : public SettingsTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(FailureReportTest, ReportsAndKeepsTheDefault) {
    constexpr std::int32_t kBroken = static_cast<std::int32_t>(0x803FC0ABu);
    txhost::failStoreCalls(services(), kBroken);
    GetParam().operation();
    std::vector<Message> all = messages();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].source, Message::Source::LogLine);
    EXPECT_EQ(all[0].kind, 4);
    EXPECT_EQ(all[0].text, GetParam().line);
    EXPECT_EQ(all[1].source, Message::Source::Catalogued);
    EXPECT_EQ(all[1].code, kBroken);
    EXPECT_EQ(all[1].kind, 4);
}

INSTANTIATE_TEST_SUITE_P(
    Operations, FailureReportTest,
    ::testing::Values(
        FailureCase{"tknrtget", [] { TKChar b[8]; EXPECT_EQ(tknrtget(u"K", 0, b, 8), 0); },
                    "tkNameValueGet failed for K in tknrtget"},
        FailureCase{"tknrdget", [] { EXPECT_EQ(tknrdget(u"K", 0, 3.5), 3.5); }, "tkNameValueGet failed for K in tknrdget"},
        FailureCase{"tknrlget", [] { EXPECT_EQ(tknrlget(u"K", 0), kNoInteger); }, "tkNameValueGet failed for K in tknrlget"},
        FailureCase{"tknrlset", [] { tknrlset(u"K", 0, 1); }, "tkNameValueSet failed for K in tknrlset"},
        FailureCase{"tknrtset", [] { tknrtset(u"K", 0, u"v"); }, "tkNameValueSet failed for K in tknrtset"},
        FailureCase{"tknrdset", [] { tknrdset(u"K", 0, 1.0); }, "tkNameValueSet failed for K in tknrdset"}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(SettingsTest, AFailingFailureLineIsIssuedToo) {
    constexpr std::int32_t kBroken = static_cast<std::int32_t>(0x803FC0ABu);
    constexpr std::int32_t kLineBroken = static_cast<std::int32_t>(0x803FC0ACu);
    txhost::failStoreCalls(services(), kBroken);
    txhost::failLogLines(services(), kLineBroken);
    tknrdget(u"K", 0, 0);
    EXPECT_EQ(cataloguedCodes(), (std::vector<std::uint32_t>{0x803FC0AB, 0x803FC0AC}));
}

TEST_F(SettingsTest, EmptyTextInALimitIsAFailedRead) {
    session.setSetting("L", std::string_view(""));
    EXPECT_EQ(tknrlget(u"L", 0), kNoInteger);
    std::vector<std::string> failures = logLines(4);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0], "tkNameValueGet failed for L in tknrlget");
}

}  // namespace
}  // namespace rngtest
