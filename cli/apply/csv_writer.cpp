// Formats whole batches into one buffer, sized for the worst case up front
// and written through a pointer, so the output goes out in large blocks and
// a failed run never leaves a half row.
#include "cli/apply/csv_writer.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace txcli {

namespace {

// The shortest round-trip text of a double fits in 24 bytes.
constexpr std::size_t kNumberBytes = 32;

}  // namespace

char* OutputText::reserve(std::size_t more) {
    if (data_.size() - size_ < more) data_.resize(std::max(2 * data_.size(), size_ + more));
    return data_.data() + size_;
}

// The escape byte, where there is one, is doubled too, so that the output
// reads back the same under the same --escape.
char* CsvWriter::field(char* to, std::string_view text) const {
    if (!scan_.anyIn(text.data(), text.data() + text.size())) {
        std::memcpy(to, text.data(), text.size());
        return to + text.size();
    }
    *to++ = bytes_.quote;
    for (const char c : text) {
        if (c == bytes_.quote || (bytes_.escape >= 0 && c == static_cast<char>(bytes_.escape))) *to++ = c;
        *to++ = c;
    }
    *to++ = bytes_.quote;
    return to;
}

void CsvWriter::appendRecord(OutputText& out, const std::vector<std::string>& fields) const {
    std::size_t bound = lineEnd_.size();
    for (const auto& f : fields) bound += 2 * f.size() + 3;
    char* to = out.reserve(bound);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i) *to++ = bytes_.separator;
        to = field(to, fields[i]);
    }
    std::memcpy(to, lineEnd_.data(), lineEnd_.size());
    out.setEnd(to + lineEnd_.size());
}

void CsvWriter::appendRows(OutputText& out, const CsvBatch& batch, const Plan& plan,
                           const BatchEvaluator& outcomes) const {
    const auto rows = static_cast<std::size_t>(batch.rows);
    std::size_t bound = batch.text.size() + rows * lineEnd_.size();
    for (const auto& column : plan.columns) {
        const bool text = plan.steps[static_cast<std::size_t>(column.step)].textResult;
        bound += text ? 2 * outcomes.outcome(column.step).result.text.bytes.size() + 3 * rows
                      : (kNumberBytes + 1) * rows;
    }
    char* to = out.reserve(bound);
    for (std::size_t row = 0; row < rows; ++row) {
        const std::int64_t begin = batch.recordBegin[row];
        const auto length = static_cast<std::size_t>(batch.recordEnd[row] - begin);
        std::memcpy(to, batch.text.data() + begin, length);
        to += length;
        for (const auto& column : plan.columns) {
            *to++ = bytes_.separator;
            const StepOutcome& outcome = outcomes.outcome(column.step);
            if (!outcome.validity(column.part)[row]) continue;
            const txengine::Result& result = outcome.result;
            if (plan.steps[static_cast<std::size_t>(column.step)].textResult) {
                const std::int64_t from = result.text.offsets[row];
                to = field(to, std::string_view(result.text.bytes.data() + from,
                                                static_cast<std::size_t>(result.text.offsets[row + 1] - from)));
            } else {
                const double value = column.part == 0 ? result.numbers[row] : result.lengths[row];
                to = std::to_chars(to, to + kNumberBytes, value).ptr;
            }
        }
        std::memcpy(to, lineEnd_.data(), lineEnd_.size());
        to += lineEnd_.size();
    }
    out.setEnd(to);
}

}  // namespace txcli
