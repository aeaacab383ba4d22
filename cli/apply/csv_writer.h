// CSV output of `txscan apply`: every input record as it was read, then the
// new columns; quotes only where a field needs them, numbers as the shortest
// text that reads back to the same double, a missing value as an empty cell.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/apply/csv_reader.h"
#include "cli/apply/csv_scan.h"
#include "cli/apply/evaluate.h"
#include "cli/apply/plan.h"

namespace txcli {

// Text being formatted: grown by doubling, never zero-filled, kept between
// batches.
class OutputText {
public:
    // Room for `more` bytes at the end; returns where they go.
    char* reserve(std::size_t more);
    void setEnd(const char* end) { size_ = static_cast<std::size_t>(end - data_.data()); }
    const char* data() const { return data_.data(); }
    std::size_t size() const { return size_; }
    void clear() { size_ = 0; }

private:
    LargeVector<char> data_;   // its size is the capacity; size_ bytes are text
    std::size_t size_ = 0;
};

class CsvWriter {
public:
    CsvWriter(CsvBytes bytes, const char* lineEnd) : bytes_(bytes), scan_(bytes), lineEnd_(lineEnd) {}

    // One record of text fields (the header, or rows from elsewhere).
    void appendRecord(OutputText& out, const std::vector<std::string>& fields) const;
    void appendRows(OutputText& out, const CsvBatch& batch, const Plan& plan, const BatchEvaluator& outcomes) const;

private:
    char* field(char* to, std::string_view text) const;

    CsvBytes bytes_;
    CsvScan scan_;
    std::string lineEnd_;
};

}  // namespace txcli
