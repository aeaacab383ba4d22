// Runs a plan over one batch of input rows through the engine and keeps the
// counts the closing summary reports.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "cli/apply/csv_reader.h"
#include "cli/apply/plan.h"
#include "engine/engine.h"

namespace txcli {

struct AssignmentTally {
    std::map<std::int32_t, std::int64_t> statuses;   // non-zero statuses by row count
    std::vector<txengine::MessageCount> messages;    // per kind, over the whole run (0-based data rows)
};

struct Tally {
    std::int64_t rows = 0;
    std::vector<std::int64_t> missing;               // per new column
    std::vector<AssignmentTally> assignments;
};

// The outcome of one step over the batch: the engine's result, with the rows
// that hold a value marked (a row whose nested call failed holds none and
// carries that call's status).
struct StepOutcome {
    txengine::Result result;
    std::vector<std::uint8_t> valid;          // per row: the result (the call routine: the position)
    std::vector<std::uint8_t> lengthValid;    // per row: the call routine's length
    std::vector<std::uint8_t> bitmap;         // `valid` as a validity bitmap, when a later step reads it
    std::vector<std::uint8_t> lengthBitmap;
    const std::vector<std::uint8_t>& validity(int part) const { return part == 0 ? valid : lengthValid; }
};

class BatchEvaluator {
public:
    explicit BatchEvaluator(Plan& plan);
    void evaluate(const CsvBatch& batch);
    const StepOutcome& outcome(int step) const { return outcomes_[static_cast<std::size_t>(step)]; }
    const Tally& tally() const { return tally_; }

private:
    txengine::Input input(const Source& source, const CsvBatch& batch);
    void settle(int stepIndex, std::int64_t rows);
    void count(int stepIndex);

    Plan& plan_;
    std::vector<StepOutcome> outcomes_;
    std::vector<bool> readLater_;                        // per step: a later step reads it
    std::vector<std::vector<double>> inputNumbers_;      // per input column read as numbers
    std::vector<std::vector<std::uint8_t>> inputNumberBitmaps_;
    std::vector<bool> inputNumbersReady_;
    Tally tally_;
};

}  // namespace txcli
