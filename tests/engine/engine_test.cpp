// The row engine against CallSite::call, row for row, on generated columns
// in three session encodings and for one, two and four workers; and the
// shapes and columns it refuses.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <tuple>
#include <variant>

#include "engine/engine.h"
#include "host/host.h"

namespace {

using txhost::Argument;

// A column in the engine's layout built from optional values (null when empty).
template <typename T>
struct Owned {
    static constexpr bool kText = std::is_same_v<T, std::string>;
    std::vector<std::optional<T>> rows;
    std::vector<std::int64_t> offsets{0};
    std::string bytes;
    std::vector<double> values;
    std::vector<std::uint8_t> validity;

    explicit Owned(std::vector<std::optional<T>> values_) : rows(std::move(values_)), validity((rows.size() + 7) / 8) {
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (rows[i]) validity[i / 8] |= static_cast<std::uint8_t>(1u << (i % 8));
            if constexpr (kText) {
                bytes += rows[i].value_or("");
                offsets.push_back(static_cast<std::int64_t>(bytes.size()));
            } else {
                values.push_back(rows[i].value_or(0));
            }
        }
    }
    // The same rows as one view each, read backwards from a copy of the
    // bytes so that nothing depends on rows lying in order.
    std::string viewBytes;
    std::vector<txengine::TextView> views;
    txengine::TextViewColumn viewColumn() {
        viewBytes.clear();
        views.assign(rows.size(), {});
        viewBytes.reserve(bytes.size());
        for (std::size_t i = rows.size(); i-- > 0;) {
            views[i].length = offsets[i + 1] - offsets[i];
            viewBytes.append(bytes, static_cast<std::size_t>(offsets[i]), static_cast<std::size_t>(views[i].length));
        }
        for (std::size_t i = rows.size(), at = 0; i-- > 0; at += static_cast<std::size_t>(views[i].length)) {
            views[i].data = views[i].length == 0 ? nullptr : viewBytes.data() + at;
        }
        return txengine::TextViewColumn{views.data(), validity.data()};
    }
    auto column() const {
        if constexpr (kText) {
            return txengine::TextColumn{offsets.data(), bytes.data(), validity.data()};
        } else {
            return txengine::NumberColumn{values.data(), validity.data()};
        }
    }
};
using OwnedText = Owned<std::string>;
using OwnedNumbers = Owned<double>;

// Rows of 0 to 7 words joined by blanks or commas; about one row in 13 null
// and one in 11 empty.
std::vector<std::optional<std::string>> wordRows(const std::vector<std::string>& words, std::size_t count) {
    std::mt19937 random(11);
    std::vector<std::optional<std::string>> rows;
    for (std::size_t i = 0; i < count; ++i) {
        std::optional<std::string> row;
        if (random() % 13 != 0) {
            row.emplace();
            const unsigned n = random() % 11 == 0 ? 0 : random() % 8;
            for (unsigned w = 0; w < n; ++w) *row += (w == 0 ? "" : random() % 4 == 0 ? ", " : " ") + words[random() % words.size()];
        }
        rows.push_back(row);
    }
    return rows;
}

// One argument of a case: a generated column or a constant.
enum Column { Words, Sets, Numbers };
using Arg = std::variant<Column, std::string, double>;

struct Case { const char* function; bool callRoutine; std::vector<Arg> args; std::int64_t maxLength = 200; };

const Case kCases[] = {
    {"KFIND", false, {Words, Sets, std::string("i")}},
    {"KFIND", false, {Words, std::string("e"), Numbers}},
    {"KFIND", false, {Words, std::string("x"), std::string("zt")}},   // an unknown modifier: a note per row
    {"KCOUNTX", false, {Words, std::string("a"), std::string("i")}},
    {"KFINDC", false, {Words, std::string("aeiou"), std::string("io")}},   // one cached set per worker
    {"KFINDC", false, {Words, Sets, std::string("o")}},           // sets that change per row: never cached
    {"KCOUNTC", false, {Words, Sets}},
    {"KCOUNTW", false, {Words, std::string(" ,"), std::string("o")}},
    {"KFINDW", false, {Words, Sets, std::string(" "), std::string("e")}},
    {"KSCANX", false, {Words, Numbers, std::string(", ")}, 7},   // results cut to the receiving length
    {"KSCANX", true, {Words, Numbers, std::string(" ,"), std::string("o")}},
};

struct Encoding { const char* name; std::vector<std::string> words; std::vector<std::string> sets; };

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

struct Data { OwnedText words, sets; OwnedNumbers numbers; };

Data makeData(const Encoding& e) {
    std::vector<std::optional<std::string>> setRows;
    std::vector<std::optional<double>> numberRows;
    std::mt19937 random(7);
    for (std::size_t i = 0; i < kRows; ++i) {
        setRows.emplace_back(i % 17 == 5 ? std::nullopt : std::optional<std::string>(e.sets[random() % e.sets.size()]));
        numberRows.emplace_back(i % 19 == 3 ? std::nullopt : std::optional<double>(static_cast<int>(random() % 24) - 8));
    }
    return {OwnedText(wordRows(e.words, kRows)), OwnedText(setRows), OwnedNumbers(numberRows)};
}

std::vector<txengine::Input> engineInputs(const Case& c, Data& d, bool views = false) {
    std::vector<txengine::Input> inputs;
    for (const Arg& a : c.args) {
        if (const Column* column = std::get_if<Column>(&a)) {
            OwnedText& text = *column == Words ? d.words : d.sets;
            inputs.push_back(*column == Numbers ? txengine::Input::column(d.numbers.column())
                             : views            ? txengine::Input::column(text.viewColumn())
                                                : txengine::Input::column(text.column()));
        } else if (const std::string* text = std::get_if<std::string>(&a)) {
            inputs.push_back(txengine::Input::constant(*text));
        } else {
            inputs.push_back(txengine::Input::constant(std::get<double>(a)));
        }
    }
    return inputs;
}

Argument rowArgument(const Arg& a, const Data& d, std::size_t row) {
    const Column* column = std::get_if<Column>(&a);
    if (column == nullptr) return std::holds_alternative<double>(a) ? Argument(std::get<double>(a)) : Argument(std::get<std::string>(a));
    if (*column == Numbers) return d.numbers.rows[row].value_or(txscan::contract::missingValue());
    const std::optional<std::string>& text = (*column == Words ? d.words : d.sets).rows[row];
    return text ? Argument(*text) : Argument(txhost::Absent{});
}

// Per row: status, number, length and text, as far as the function gives them.
std::string number(std::optional<double> value) {
    if (!value || std::isnan(*value)) return ".";   // nothing stored (the NaN sentinel) or missing
    return std::to_string(*value);
}

using Messages = std::map<std::tuple<bool, std::int32_t, std::string, std::int32_t>, std::pair<std::int64_t, std::int64_t>>;

// What CallSite::call gives row by row, at a site that caches as the engine's does.
std::vector<std::string> callSiteRows(txhost::Module& module, const Case& c, const Data& d, Messages& messages) {
    bool setsConstant = true;
    for (std::size_t k = 1; k < c.args.size(); ++k) setsConstant &= !std::holds_alternative<Column>(c.args[k]) || std::get<Column>(c.args[k]) == Numbers;
    txhost::CallSite site(module, module.functionIndex(c.function, c.callRoutine), setsConstant ? 0x48 : 0);
    site.useFixedResult(c.maxLength);
    std::vector<std::string> rows;
    for (std::size_t row = 0; row < kRows; ++row) {
        std::vector<Argument> args;
        for (const Arg& a : c.args) args.push_back(rowArgument(a, d, row));
        const double unset = std::bit_cast<double>(txhost::kResultSentinelBits);
        if (c.callRoutine) args.insert(args.begin() + 2, {unset, unset});
        const txhost::CallResult r = site.call(args);
        rows.push_back(std::to_string(r.status) + " " + number(c.callRoutine ? r.position : r.number) + " " +
                       number(r.length) + " " + (r.text ? "'" + *r.text + "'" : "null"));
        for (const txhost::Message& m : r.messages) {
            auto& [count, first] = messages[{m.source == txhost::Message::Source::Error, m.code, m.functionName, m.character}];
            if (count++ == 0) first = static_cast<std::int64_t>(row);
        }
    }
    return rows;
}

std::vector<std::string> engineRows(const txengine::Result& r, Messages& messages) {
    std::vector<std::string> rows;
    for (std::int64_t row = 0; row < r.rows; ++row) {
        const auto i = static_cast<std::size_t>(row);
        const bool text = !r.text.offsets.empty() && txengine::rowValid(r.text.validity.data(), row);
        rows.push_back(std::to_string(r.status[i]) + " " +
                       number(r.numbers.empty() || !r.numberValid[i] ? std::nullopt : std::optional(r.numbers[i])) +
                       " " + number(r.lengths.empty() ? std::nullopt : std::optional(r.lengths[i])) + " " +
                       (text ? "'" + std::string(r.text.bytes.data() + r.text.offsets[i], r.text.bytes.data() + r.text.offsets[i + 1]) + "'"
                             : "null"));
    }
    for (const txengine::MessageCount& m : r.messages) {
        messages[{m.error, m.code, m.functionName, m.character}] = {m.count, m.firstRow};
        EXPECT_FALSE(m.text.empty());
    }
    return rows;
}

// The same run with text views in and numbers, lengths and statuses written
// into the caller's places, which start out holding garbage.
std::vector<std::string> placedRows(txengine::Program& program, const Case& c, Data& d, Messages& messages) {
    std::vector<double> numbers(kRows, 12345.0), lengths(kRows, 12345.0);
    std::vector<std::uint8_t> validity(kRows / 8 + 1, 0xA5);
    std::vector<std::int32_t> status(kRows, 77);
    txengine::Result r = program.run(engineInputs(c, d, true), kRows,
                                     {numbers.data(), validity.data(), c.callRoutine ? lengths.data() : nullptr, status.data()});
    EXPECT_TRUE(r.status.empty() && r.numbers.empty() && r.lengths.empty());
    r.status = status;
    for (std::size_t i = 0; i < kRows && r.text.offsets.empty(); ++i) {
        const bool valid = txengine::rowValid(validity.data(), static_cast<std::int64_t>(i));
        EXPECT_EQ(!valid, std::isnan(numbers[i])) << "row " << i;
        r.numbers.push_back(numbers[i]);
        r.numberValid.push_back(valid ? 1 : 0);
    }
    if (c.callRoutine) r.lengths = lengths;
    return engineRows(r, messages);
}

class RowEngine : public ::testing::TestWithParam<const Encoding*> {};

TEST_P(RowEngine, EqualsTheCallSiteRowForRowOnAnyNumberOfWorkers) {
    txhost::Session session({.encoding = GetParam()->name});
    auto module = txhost::Module::load(session);
    Data d = makeData(*GetParam());
    for (const Case& c : kCases) {
        Messages expectedMessages;
        const std::vector<std::string> expected = callSiteRows(*module, c, d, expectedMessages);
        for (int threads : {1, 2, 4}) {
            txengine::Engine engine(session, *module, {threads, 64});
            txengine::Program program = engine.prepare({c.function, c.callRoutine, c.maxLength});
            Messages messages;
            const std::vector<std::string> rows = engineRows(program.run(engineInputs(c, d), kRows), messages);
            const std::string what = std::string(c.function) + " case " + std::to_string(&c - kCases) + ", " +
                                     std::to_string(threads) + " threads";
            ASSERT_EQ(expected.size(), rows.size()) << what;
            for (std::size_t row = 0; row < kRows; ++row) ASSERT_EQ(expected[row], rows[row]) << what << ", row " << row;
            EXPECT_EQ(expectedMessages, messages) << what;
            if (threads == 1) continue;
            // Views and places, twice on one Program: a second run finds its cached sets and the same rows.
            txengine::Program placed = engine.prepare({c.function, c.callRoutine, c.maxLength});
            for (int run = 0; run < 2; ++run) {
                Messages placedMessages;
                const std::vector<std::string> viewRows = placedRows(placed, c, d, placedMessages);
                for (std::size_t row = 0; row < kRows; ++row) ASSERT_EQ(expected[row], viewRows[row]) << what << ", views, row " << row;
                if (run == 0) {
                    EXPECT_EQ(expectedMessages, placedMessages) << what;
                }
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
    std::vector<txengine::TextView> negative(10, txengine::TextView{"b", 1});
    negative[6].length = -1;
    using txengine::Input;
    const struct { const char* function; std::vector<Input> inputs; const char* says; } cases[] = {
        {"KFIND", {Input::column(good)}, "inputs"},
        {"KFIND", {Input::column(good), Input::constant(2.0)}, "argument 2 must be character"},
        {"KSCANX", {Input::column(good), Input::column(good)}, "argument 2 must be numeric"},
        {"KFIND", {Input::column(good), Input::column(bad)}, "argument 2: row 8 has offsets out of order"},
        {"KSCANX", {Input::column(good), Input::column(txengine::NumberColumn{})}, "argument 2: no values"},
        {"KFIND", {Input::column(good), Input::column(txengine::TextViewColumn{})}, "argument 2: no views"},
        {"KFIND", {Input::column(good), Input::column(txengine::TextViewColumn{negative.data(), nullptr})},
         "argument 2: row 6 has a negative length (-1)"},
    };
    for (const auto& c : cases) {
        txengine::Program program = engine.prepare({c.function});
        try {
            program.run(c.inputs, 10);
            ADD_FAILURE() << c.says;
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find(c.says), std::string::npos) << e.what();
        }
    }
    // A refused run leaves the Program fit for the next.
    txengine::Program program = engine.prepare({"KFIND"});
    EXPECT_THROW(program.run({Input::column(good), Input::column(bad)}, 10), std::invalid_argument);
    EXPECT_EQ(2.0, program.run({Input::column(good), Input::constant("b")}, 10).numbers[0]);
}

// Refused memory at every allocation a run makes (the function environment,
// its random stream, a cached set under O): each row either answers as
// without the fault or carries the no-memory status, nothing crashes, and
// the next run on the same Program answers every row.
TEST(RowEngineFaults, RefusedAllocationsGiveTheirStatusRowByRow) {
    const OwnedText text({"a b,c", "x", std::nullopt, "", "one two three", "abc", "b c"});
    using txengine::Input;
    const struct { const char* function; std::vector<Input> inputs; } cases[] = {
        {"KCOUNTW", {Input::column(text.column())}},
        {"KFINDC", {Input::column(text.column()), Input::constant("cb"), Input::constant("o")}},
        {"KFINDW", {Input::column(text.column()), Input::constant("c"), Input::constant(", "), Input::constant("o")}},
    };
    constexpr std::int64_t kRows = 7;
    constexpr std::int32_t kNoMemory = static_cast<std::int32_t>(0x8001D811u);
    for (const auto& c : cases) {
        std::vector<double> expected;
        bool refused = false;   // the sweep reached an allocation at all
        for (std::int64_t failAt = 0; failAt <= 12; ++failAt) {
            txhost::Session session;
            auto module = txhost::Module::load(session);
            txengine::Engine engine(session, *module, {1, 8});
            txengine::Program program = engine.prepare({c.function});
            session.failAllocationAfter(failAt);
            const txengine::Result r = program.run(c.inputs, kRows);
            session.failAllocationAfter(0);
            if (failAt == 0) expected = r.numbers;
            const txengine::Result again = program.run(c.inputs, kRows);
            for (std::size_t i = 0; i < static_cast<std::size_t>(kRows); ++i) {
                SCOPED_TRACE(std::string(c.function) + ", allocation " + std::to_string(failAt) + ", row " + std::to_string(i));
                const auto bits = [](double x) { return std::bit_cast<std::uint64_t>(x); };
                if (r.status[i] == 0) {
                    EXPECT_EQ(bits(expected[i]), bits(r.numbers[i]));
                } else {
                    EXPECT_EQ(kNoMemory, r.status[i]);
                    refused = true;
                }
                EXPECT_EQ(0, again.status[i]);
                EXPECT_EQ(bits(expected[i]), bits(again.numbers[i]));
            }
        }
        EXPECT_TRUE(refused) << c.function;
    }
}

}  // namespace
