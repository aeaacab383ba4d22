// Binds each step's arguments to the batch's columns and earlier outcomes,
// runs the engine program, and carries failures of nested calls outwards.
#include "cli/apply/evaluate.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "engine/message_tally.h"

namespace txcli {

namespace {

void packBitmap(const std::vector<std::uint8_t>& valid, std::vector<std::uint8_t>& bitmap) {
    bitmap.assign((valid.size() + 7) / 8, 0);
    for (std::size_t row = 0; row < valid.size(); ++row) {
        if (valid[row]) bitmap[row >> 3] = static_cast<std::uint8_t>(bitmap[row >> 3] | (1u << (row & 7)));
    }
}

// A named text column reads back as its cells do: a row without a value is
// empty text, so its span in the result must be empty too.
void emptyInvalidRows(txengine::TextResult& text, const std::vector<std::uint8_t>& valid) {
    std::int64_t write = 0;
    std::int64_t begin = text.offsets[0];
    for (std::size_t row = 0; row < valid.size(); ++row) {
        const std::int64_t end = text.offsets[row + 1];
        if (valid[row] && end > begin) {
            if (write != begin) std::memmove(text.bytes.data() + write, text.bytes.data() + begin, static_cast<std::size_t>(end - begin));
            write += end - begin;
        }
        begin = end;
        text.offsets[row + 1] = write;
    }
    text.bytes.resize(static_cast<std::size_t>(write));
}

// A cell read as a number: empty, "." or anything that is not a number is
// the missing value.
bool readNumber(const char* begin, const char* end, double& value) {
    while (begin < end && (*begin == ' ' || *begin == '\t')) ++begin;
    while (end > begin && (end[-1] == ' ' || end[-1] == '\t')) --end;
    if (begin < end && *begin == '+') ++begin;
    const auto [stop, error] = std::from_chars(begin, end, value);
    return begin < end && error == std::errc() && stop == end;
}

}  // namespace

BatchEvaluator::BatchEvaluator(Plan& plan)
    : plan_(plan), outcomes_(plan.steps.size()), readLater_(plan.steps.size(), false) {
    for (const auto& step : plan.steps) {
        for (const auto& source : step.arguments) {
            if (source.kind == Source::Kind::Step) readLater_[static_cast<std::size_t>(source.index)] = true;
        }
    }
    tally_.missing.assign(plan.columns.size(), 0);
    tally_.assignments.resize(plan.assignmentNames.size());
}

txengine::Input BatchEvaluator::input(const Source& source, const CsvBatch& batch) {
    using txengine::Input;
    const auto index = static_cast<std::size_t>(source.index);
    switch (source.kind) {
    case Source::Kind::InputText:
        return Input::column(txengine::TextViewColumn{batch.columns[index].views.data(), nullptr});
    case Source::Kind::InputNumber: {
        if (!inputNumbersReady_[index]) {
            const CsvColumn& column = batch.columns[index];
            auto& values = inputNumbers_[index];
            std::vector<std::uint8_t> valid(static_cast<std::size_t>(batch.rows));
            values.assign(valid.size(), 0);
            for (std::size_t row = 0; row < valid.size(); ++row) {
                const txengine::TextView cell = column.views[row];
                valid[row] = readNumber(cell.data, cell.data + cell.length, values[row]);
            }
            packBitmap(valid, inputNumberBitmaps_[index]);
            inputNumbersReady_[index] = true;
        }
        return Input::column(txengine::NumberColumn{inputNumbers_[index].data(), inputNumberBitmaps_[index].data()});
    }
    case Source::Kind::Step: {
        const StepOutcome& outcome = outcomes_[index];
        if (source.text) {
            const auto& text = outcome.result.text;
            return Input::column(txengine::TextColumn{text.offsets.data(), text.bytes.data(),
                                                      source.nested ? outcome.bitmap.data() : nullptr});
        }
        if (source.part == 1) return Input::column(txengine::NumberColumn{outcome.result.lengths.data(), outcome.lengthBitmap.data()});
        return Input::column(txengine::NumberColumn{outcome.result.numbers.data(), outcome.bitmap.data()});
    }
    case Source::Kind::Constant:
        return source.text ? Input::constant(std::string_view(source.constantText)) : Input::constant(source.constantNumber);
    case Source::Kind::Absent:
        break;
    }
    return Input::absent();
}

void BatchEvaluator::settle(int stepIndex, std::int64_t rows) {
    const Step& step = plan_.steps[static_cast<std::size_t>(stepIndex)];
    StepOutcome& outcome = outcomes_[static_cast<std::size_t>(stepIndex)];
    txengine::Result& result = outcome.result;
    const auto count = static_cast<std::size_t>(rows);
    outcome.valid.resize(count);
    outcome.lengthValid.resize(step.callRoutine ? count : 0);
    const std::uint8_t* textValidity = result.text.validity.empty() ? nullptr : result.text.validity.data();
    for (std::size_t row = 0; row < count; ++row) {
        outcome.valid[row] = step.textResult ? txengine::rowValid(textValidity, static_cast<std::int64_t>(row))
                                             : result.numberValid[row] != 0;
        if (step.callRoutine) outcome.lengthValid[row] = !std::isnan(result.lengths[row]);
    }
    for (const auto& source : step.arguments) {
        if (source.kind != Source::Kind::Step || !source.nested) continue;
        const StepOutcome& inner = outcomes_[static_cast<std::size_t>(source.index)];
        for (std::size_t row = 0; row < count; ++row) {
            const std::int32_t innerStatus = inner.result.status[row];
            if (innerStatus == 0 && (!source.text || inner.valid[row])) continue;
            outcome.valid[row] = 0;
            if (step.callRoutine) outcome.lengthValid[row] = 0;
            if (result.status[row] == 0) result.status[row] = innerStatus;
        }
    }
    if (!readLater_[static_cast<std::size_t>(stepIndex)]) return;
    packBitmap(outcome.valid, outcome.bitmap);
    if (step.callRoutine) packBitmap(outcome.lengthValid, outcome.lengthBitmap);
    if (step.textResult) emptyInvalidRows(result.text, outcome.valid);
}

void BatchEvaluator::count(int stepIndex) {
    const Step& step = plan_.steps[static_cast<std::size_t>(stepIndex)];
    const txengine::Result& result = outcomes_[static_cast<std::size_t>(stepIndex)].result;
    AssignmentTally& tally = tally_.assignments[static_cast<std::size_t>(step.assignment)];
    txengine::mergeTallies(tally.messages, result.messages);
}

void BatchEvaluator::evaluate(const CsvBatch& batch) {
    const std::int64_t rows = batch.rows;
    inputNumbers_.resize(batch.columns.size());
    inputNumberBitmaps_.resize(batch.columns.size());
    inputNumbersReady_.assign(batch.columns.size(), false);
    for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
        Step& step = plan_.steps[i];
        std::vector<txengine::Input> arguments;
        arguments.reserve(step.arguments.size());
        for (const auto& source : step.arguments) arguments.push_back(input(source, batch));
        outcomes_[i].result = step.program->run(arguments, rows);
        settle(static_cast<int>(i), rows);
        count(static_cast<int>(i));
    }
    // Statuses are counted on the call an assignment stores; failures of its
    // nested calls have been carried up to it.
    std::vector<bool> counted(plan_.assignmentNames.size(), false);
    for (std::size_t c = 0; c < plan_.columns.size(); ++c) {
        const NewColumn& column = plan_.columns[c];
        const StepOutcome& outcome = outcomes_[static_cast<std::size_t>(column.step)];
        const auto& valid = outcome.validity(column.part);
        for (std::size_t row = 0; row < static_cast<std::size_t>(rows); ++row) tally_.missing[c] += valid[row] ? 0 : 1;
        const auto assignment = static_cast<std::size_t>(plan_.steps[static_cast<std::size_t>(column.step)].assignment);
        if (counted[assignment]) continue;
        counted[assignment] = true;
        for (std::size_t row = 0; row < static_cast<std::size_t>(rows); ++row) {
            const std::int32_t status = outcome.result.status[row];
            if (status != 0) ++tally_.assignments[assignment].statuses[status];
        }
    }
    tally_.rows += rows;
}

}  // namespace txcli
