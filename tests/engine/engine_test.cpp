// The row engine against CallSite::call, row for row, on generated columns
// in three session encodings and for one, two and four workers; and the
// shapes and columns it refuses.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <map>
#include <stdexcept>
#include <tuple>

#include "engine/engine.h"
#include "host/host.h"
#include "tests/engine/columns.h"

namespace {

using enginetest::OwnedNumbers;
using enginetest::OwnedText;
using txhost::Argument;

// One argument of a case: the generated text column, the column of sets,
// the column of numbers, or a constant.
struct Arg {
    enum Kind { Words, Sets, Numbers, Text, Number } kind;
    std::string text{};
    double number = 0;
};
Arg words() { return {Arg::Words}; }
Arg sets() { return {Arg::Sets}; }
Arg numbers() { return {Arg::Numbers}; }
Arg lit(std::string text) { return {Arg::Text, std::move(text)}; }
Arg num(double number) { return {Arg::Number, {}, number}; }

struct Case {
    const char* function;
    bool callRoutine;
    std::vector<Arg> args;
    std::int64_t maxLength = 200;
};

const Case kCases[] = {
    {"KFIND", false, {words(), lit("an")}},
    {"KFIND", false, {words(), sets(), lit("i")}},
    {"KFIND", false, {words(), lit("e"), numbers()}},
    {"KFIND", false, {words(), lit("O"), lit("i"), num(-3)}},
    {"KFIND", false, {words(), lit("x"), lit("zt")}},   // an unknown modifier: a note per row
    {"KCOUNTX", false, {words(), lit("a"), lit("i")}},
    {"KFINDC", false, {words(), lit("aeiou"), lit("io")}},   // one cached set per worker
    {"KFINDC", false, {words(), sets(), lit("o")}},           // sets that change per row: never cached
    {"KCOUNTC", false, {words(), sets()}},
    {"KCOUNTW", false, {words(), lit(" ,"), lit("o")}},
    {"KFINDW", false, {words(), sets(), lit(" "), lit("e")}},
    {"KSCANX", false, {words(), numbers()}},
    {"KSCANX", false, {words(), num(-2), lit(" ")}},
    {"KSCANX", false, {words(), numbers(), lit(", ")}, 7},   // results cut to the receiving length
    {"KSCANX", true, {words(), numbers(), lit(" ,"), lit("o")}},
};

struct Encoding {
    const char* name;
    std::vector<std::string> words;
    std::vector<std::string> sets;
};

const Encoding kEncodings[] = {
    {"UTF-8",
     {"Gr\xC3\xBC\xC3\x9F" "e", "K\xC3\xB6ln", "\xE6\x97\xA5\xE6\x9C\xAC", "na\xC3\xAFve", "road", "Anne", "x", "\xC3\x89" "COLE"},
     {"a", "aeiou", "\xC3\xB6", "", "\xE6\x97\xA5", "N e"}},
    {"ISO-8859-1",
     {"Gr\xFC\xDF" "e", "K\xF6ln", "na\xEFve", "road", "Anne", "x", "\xC9" "COLE"},
     {"a", "aeiou", "\xF6", "", "\xDF", "N e"}},
    {"Shift_JIS",
     {"\x93\xFA\x96\x7B\x8C\xEA", "\x83\x65\x83\x4C\x83\x58\x83\x67", "\x95\x5C", "\x83\x5C" "a", "road", "Anne", "x"},
     {"a", "\x95\x5C", "\x83\x5C", "", "\\", "N e"}},
};

constexpr std::size_t kRows = 700;

struct Data {
    OwnedText words, sets;
    OwnedNumbers numbers;
};

Data makeData(const Encoding& e) {
    std::vector<std::optional<std::string>> setRows;
    std::vector<std::optional<double>> numberRows;
    std::mt19937 random(7);
    for (std::size_t i = 0; i < kRows; ++i) {
        setRows.emplace_back(i % 17 == 5 ? std::nullopt : std::optional<std::string>(e.sets[random() % e.sets.size()]));
        numberRows.emplace_back(i % 19 == 3 ? std::nullopt : std::optional<double>(static_cast<int>(random() % 24) - 8));
    }
    return {OwnedText(enginetest::wordRows(e.words, kRows, 11)), OwnedText(setRows), OwnedNumbers(numberRows)};
}

std::vector<txengine::Input> engineInputs(const Case& c, const Data& d) {
    std::vector<txengine::Input> inputs;
    for (const Arg& a : c.args) {
        switch (a.kind) {
        case Arg::Words: inputs.push_back(txengine::Input::column(d.words.column())); break;
        case Arg::Sets: inputs.push_back(txengine::Input::column(d.sets.column())); break;
        case Arg::Numbers: inputs.push_back(txengine::Input::column(d.numbers.column())); break;
        case Arg::Text: inputs.push_back(txengine::Input::constant(a.text)); break;
        case Arg::Number: inputs.push_back(txengine::Input::constant(a.number)); break;
        }
    }
    return inputs;
}

Argument rowArgument(const Arg& a, const Data& d, std::size_t row) {
    auto text = [](const std::optional<std::string>& s) { return s ? Argument(*s) : Argument(txhost::Absent{}); };
    switch (a.kind) {
    case Arg::Words: return text(d.words.rows[row]);
    case Arg::Sets: return text(d.sets.rows[row]);
    case Arg::Numbers: return d.numbers.rows[row].value_or(txscan::contract::missingValue());
    case Arg::Text: return a.text;
    case Arg::Number: return a.number;
    }
    return txhost::Absent{};
}

using MessageKey = std::tuple<bool, std::int32_t, std::string, std::int32_t>;
struct Tally {
    std::int64_t count = 0;
    std::int64_t firstRow = -1;
};

bool sameNumber(double expected, double actual) {
    return std::bit_cast<std::uint64_t>(expected) == std::bit_cast<std::uint64_t>(actual);
}

// What CallSite::call gives row by row, in the engine's result layout.
txengine::Result callSiteRows(txhost::Module& module, const Case& c, const Data& d, std::map<MessageKey, Tally>& tallies) {
    const int index = module.functionIndex(c.function, c.callRoutine);
    bool setsConstant = true;
    for (std::size_t k = 1; k < c.args.size(); ++k) setsConstant &= c.args[k].kind != Arg::Words && c.args[k].kind != Arg::Sets;
    txhost::CallSite site(module, index, setsConstant ? 0x48 : 0);
    site.useFixedResult(c.maxLength);
    txengine::Result r;
    const double unset = std::bit_cast<double>(txhost::kResultSentinelBits);
    for (std::size_t row = 0; row < kRows; ++row) {
        std::vector<Argument> args;
        for (const Arg& a : c.args) args.push_back(rowArgument(a, d, row));
        if (c.callRoutine) args.insert(args.begin() + 2, {unset, unset});
        const txhost::CallResult call = site.call(args);
        r.status.push_back(call.status);
        const std::optional<double> number = c.callRoutine ? call.position : call.number;
        const double value = number && !sameNumber(*number, unset) ? *number : txscan::contract::missingValue();
        r.numbers.push_back(value);
        r.numberValid.push_back(number && !sameNumber(*number, unset) && !std::isnan(*number));
        if (c.callRoutine) r.lengths.push_back(sameNumber(*call.length, unset) ? txscan::contract::missingValue() : *call.length);
        r.text.offsets.push_back(call.text ? static_cast<std::int64_t>(call.text->size()) : -1);
        if (call.text) r.text.bytes.insert(r.text.bytes.end(), call.text->begin(), call.text->end());
        for (const txhost::Message& m : call.messages) {
            Tally& t = tallies[{m.source == txhost::Message::Source::Error, m.code, m.functionName, m.character}];
            if (t.count++ == 0) t.firstRow = static_cast<std::int64_t>(row);
        }
    }
    return r;
}

class RowEngine : public ::testing::TestWithParam<const Encoding*> {};

TEST_P(RowEngine, EqualsTheCallSiteRowForRowOnAnyNumberOfWorkers) {
    const Encoding& e = *GetParam();
    txhost::SessionOptions options;
    options.encoding = e.name;
    txhost::Session session(options);
    auto module = txhost::Module::load(session);
    const Data d = makeData(e);
    for (const Case& c : kCases) {
        std::map<MessageKey, Tally> expectedMessages;
        const txengine::Result expected = callSiteRows(*module, c, d, expectedMessages);
        for (int threads : {1, 2, 4}) {
            txengine::Engine engine(session, *module, {threads, 64});
            txengine::Program program = engine.prepare({c.function, c.callRoutine, c.maxLength});
            const txengine::Result r = program.run(engineInputs(c, d), kRows);
            const std::string what = std::string(c.function) + " case " + std::to_string(&c - kCases) + ", " +
                                     std::to_string(threads) + " threads";
            ASSERT_EQ(static_cast<std::int64_t>(kRows), r.rows) << what;
            std::size_t textAt = 0;
            for (std::size_t row = 0; row < kRows; ++row) {
                ASSERT_EQ(expected.status[row], r.status[row]) << what << ", row " << row;
                if (!r.numbers.empty()) {
                    ASSERT_TRUE(sameNumber(expected.numbers[row], r.numbers[row])) << what << ", row " << row;
                    ASSERT_EQ(expected.numberValid[row], r.numberValid[row]) << what << ", row " << row;
                }
                if (!r.lengths.empty()) {
                    ASSERT_TRUE(sameNumber(expected.lengths[row], r.lengths[row])) << what;
                }
                if (!r.text.offsets.empty()) {
                    const std::int64_t length = expected.text.offsets[row];
                    ASSERT_EQ(length >= 0, txengine::rowValid(r.text.validity.data(), static_cast<std::int64_t>(row)))
                        << what << ", row " << row;
                    const std::string want(expected.text.bytes.begin() + static_cast<std::ptrdiff_t>(textAt),
                                           expected.text.bytes.begin() + static_cast<std::ptrdiff_t>(textAt) + std::max<std::int64_t>(length, 0));
                    textAt += want.size();
                    const std::string got(r.text.bytes.begin() + r.text.offsets[row], r.text.bytes.begin() + r.text.offsets[row + 1]);
                    ASSERT_EQ(want, got) << what << ", row " << row;
                }
            }
            std::map<MessageKey, Tally> messages;
            for (const txengine::MessageCount& m : r.messages) {
                messages[{m.error, m.code, m.functionName, m.character}] = {m.count, m.firstRow};
                EXPECT_FALSE(m.text.empty()) << what;
            }
            ASSERT_EQ(expectedMessages.size(), messages.size()) << what;
            for (const auto& [key, tally] : expectedMessages) {
                EXPECT_EQ(tally.count, messages[key].count) << what;
                EXPECT_EQ(tally.firstRow, messages[key].firstRow) << what;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, RowEngine, ::testing::Values(&kEncodings[0], &kEncodings[1], &kEncodings[2]),
                         [](const auto& info) {
                             std::string name = info.param->name;
                             std::erase_if(name, [](char ch) { return !std::isalnum(static_cast<unsigned char>(ch)); });
                             return name;
                         });

}  // namespace

namespace {

// Shapes and columns the engine refuses with a one-line error, leaving the
// Program fit for the next run.
TEST(RowEngineRefusals, BadShapesAndColumns) {
    txhost::Session session;
    auto module = txhost::Module::load(session);
    txengine::Engine engine(session, *module, {2, 8});
    EXPECT_THROW(engine.prepare({"KNOPE"}), std::invalid_argument);

    const OwnedText text({"ab", "b", std::nullopt, "", "abc", "cab", "x", "b", "bb", "b"});
    std::vector<std::int64_t> backwards = text.offsets;
    backwards[9] = backwards[8] - 1;   // row 8 ends before it starts
    const txengine::TextColumn good = text.column();
    const txengine::TextColumn bad{backwards.data(), text.bytes.data(), nullptr};
    using txengine::Input;
    const struct {
        const char* function;
        std::vector<Input> inputs;
        const char* says;
    } cases[] = {
        {"KFIND", {Input::column(good)}, "inputs"},
        {"KFIND", {Input::column(good), Input::constant(2.0)}, "argument 2 must be character"},
        {"KSCANX", {Input::column(good), Input::column(good)}, "argument 2 must be numeric"},
        {"KFIND", {Input::column(good), Input::column(bad)}, "argument 2: row 8 has offsets out of order"},
        {"KSCANX", {Input::column(good), Input::column(txengine::NumberColumn{})}, "argument 2: no values"},
    };
    for (const auto& c : cases) {
        txengine::Program program = engine.prepare({c.function});
        try {
            program.run(c.inputs, 10);
            ADD_FAILURE() << c.says;
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find(c.says), std::string::npos) << e.what();
        }
        const Input second = c.function == std::string("KSCANX") ? Input::constant(1.0) : Input::constant("b");
        const txengine::Result r = program.run({Input::column(good), second}, 10);
        EXPECT_EQ(10, r.rows) << c.says;
    }
}

}  // namespace
