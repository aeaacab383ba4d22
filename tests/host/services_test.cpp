// The HostVector's words and the numbered services, called through the
// directory the way the module calls them.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>

#include "tests/host/handle_helpers.h"
#include "host/host.h"
#include "module/abi/services.h"

namespace {

using namespace txscan::contract;
using txhost::Message;
using txhost::Session;

template <typename R, typename... P>
auto service(Session& s, HostService<R(P...)> which) {
    s.hostVector()->serviceUseFlags[which.table] = 1;
    return reinterpret_cast<R (*)(P...)>(s.hostVector()->serviceDirectory[which.table][which.function]);
}

TEST(Services, NoteAndErrorBecomeMessages) {
    Session session;
    service(session, kHostNote)(kNoteUnknownModifier, kNoteKindModifier, "FIND", 'Q');
    service(session, kHostError)(kErrorNoMemory, 0);
    const auto messages = session.takeMessages();
    ASSERT_EQ(2u, messages.size());
    const Message &note = messages[0], &error = messages[1];
    EXPECT_TRUE(note.source == Message::Source::Note && note.code == 744 && note.kind == 6 &&
                note.functionName == "FIND" && note.character == 'Q');
    EXPECT_TRUE(note.text.find("Q") != std::string::npos && note.text.find("FIND") != std::string::npos) << note.text;
    EXPECT_TRUE(error.source == Message::Source::Error && error.code == 1016);
    EXPECT_NE(std::string::npos, error.text.find("memory"));
    EXPECT_TRUE(session.takeMessages().empty());
    EXPECT_EQ(1, session.serviceUseFlag(39));
    session.clearServiceUseFlags();
    EXPECT_EQ(0, session.serviceUseFlag(39));
}

TEST(Services, GetOptionStoresADouble) {
    struct OptionCase { std::map<std::string, std::string> options; std::string name; std::int32_t status; double value; };
    const OptionCase cases[] = {
        {{}, "YEARCUTOFF", 0, 1926.0},       {{{"yearcutoff", "1940"}}, "YearCutoff", 0, 1940.0},
        {{{"YEARCUTOFF", ""}}, "YEARCUTOFF", 1, 0.0}, {{{"YEARCUTOFF", "soon"}}, "YEARCUTOFF", 2, 0.0},
    };
    for (const OptionCase& c : cases) {
        SCOPED_TRACE(c.name);
        Session session({.options = c.options});
        double value = -1.0;
        const std::int32_t status = service(session, kHostGetOption)(
            c.name.data(), static_cast<std::int32_t>(c.name.size()), 0, 0, 0, &value, 0, session.defaultCallContext());
        EXPECT_EQ(c.status, status);
        EXPECT_EQ(c.status == 0 ? c.value : -1.0, value);
    }
}

TEST(Services, TextSlotQueryAndParse) {
    txhost::SessionOptions options;
    options.optionText = "RNGSEED=12345 OTHER";
    Session session(options);
    char text[8];
    service(session, kHostText8)(text);
    EXPECT_EQ("TXHOST  ", std::string(text, 8));

    CallContext* context = session.defaultCallContext();
    int record = 0;
    service(session, kHostSetContextSlot)(context, kEnvironmentSlot, &record);
    EXPECT_EQ(&record, context->slots[kEnvironmentSlot]);
    EXPECT_EQ(1, session.serviceUseFlag(0));

    char buffer[1024];
    std::int32_t length = sizeof buffer;
    EXPECT_EQ(0, service(session, kHostQueryText)(0, kOptionTextItem, 0, 0, 0, buffer, &length, 0, context));
    EXPECT_EQ("RNGSEED=12345 OTHER", std::string(buffer, static_cast<std::size_t>(length)));
    length = 7;
    EXPECT_EQ(0, service(session, kHostQueryText)(0, kOptionTextItem, 0, 0, 0, buffer, &length, 0, context));
    EXPECT_EQ("RNGSEED", std::string(buffer, static_cast<std::size_t>(length)));
    length = sizeof buffer;
    EXPECT_NE(0, service(session, kHostQueryText)(0, 1, 0, 0, 0, buffer, &length, 0, context));
    EXPECT_EQ(0, length);

    const struct { std::string text; std::int32_t status, used, value; } parses[] = {
        {"12345 OTHER", 0, 5, 12345}, {"+7x", 0, 2, 7}, {" 42", 0, 3, 42}, {"-", 1, 0, 0},
        {"-2147483648", 0, 11, -2147483647 - 1}, {"99999999999", 2, 11, 2147483647},
    };
    for (const auto& p : parses) {
        std::int32_t used = -1, value = -1;
        const std::int32_t status = service(session, kHostParseInteger)(
            p.text.data(), static_cast<std::int32_t>(p.text.size()), 0, &used, &value);
        EXPECT_EQ((std::vector<std::int32_t>{p.status, p.used, p.value}), (std::vector<std::int32_t>{status, used, value}))
            << p.text;
    }
}

// Every slot of the directory answers, expected or not. (The HostVector's
// other words are read by every module call the other tests make.)
TEST(Services, RecordedCallsAndUnexpectedSlots) {
    Session session;
    for (int c = 0; c < kServiceTables; ++c) {
        for (int f = 0; f < kServiceFunctions; ++f) ASSERT_NE(nullptr, session.hostVector()->serviceDirectory[c][f]) << c << "," << f;
    }
    EXPECT_EQ(10u, service(session, kHostForwarded)(1, 2, 3, 4));
    EXPECT_EQ(0, service(session, kHostOptionBracket)(0, -1));
    EXPECT_EQ(0, service(session, kHostSetOptionFlag)(0, 28, 1));
    using Unknown = std::uint64_t (*)(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t);
    reinterpret_cast<Unknown>(session.hostVector()->serviceDirectory[7][300])(0, 0, 0, 0);
    const auto calls = session.takeServiceCalls();
    std::vector<std::vector<std::int64_t>> recorded;   // table, function, arguments
    for (const auto& call : calls) {
        recorded.push_back({call.table, call.function});
        recorded.back().insert(recorded.back().end(), call.arguments.begin(), call.arguments.end());
    }
    EXPECT_EQ(recorded, (std::vector<std::vector<std::int64_t>>{
                            {1, 2, 1, 2, 3, 4}, {39, 108, 0, -1}, {39, 138, 0, 28, 1}, {7, 300}}));
    const auto messages = session.takeMessages();
    ASSERT_EQ(1u, messages.size());
    EXPECT_EQ(txhost::kUnexpectedServiceCode, messages[0].code);
    EXPECT_EQ("unexpected service (7, 300)", messages[0].text);
}

}  // namespace
