// Formats whole batches into one buffer, so the output is written in large
// blocks and a failed run never leaves a half row.
#include "cli/apply/csv_writer.h"

#include <charconv>
#include <cstring>

namespace txcli {

namespace {

bool needsQuotes(std::string_view field) {
    for (const char c : field) {
        if (c == ',' || c == '"' || c == '\n' || c == '\r') return true;
    }
    return false;
}

void appendNumber(std::string& out, double value) {
    char text[40];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value);
    if (error == std::errc()) out.append(text, end);
}

}  // namespace

void appendCsvField(std::string& out, std::string_view field) {
    if (!needsQuotes(field)) {
        out.append(field);
        return;
    }
    out += '"';
    for (const char c : field) {
        if (c == '"') out += '"';
        out += c;
    }
    out += '"';
}

void appendCsvHeader(std::string& out, const std::vector<std::string>& fields, const char* lineEnd) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i) out += ',';
        appendCsvField(out, fields[i]);
    }
    out += lineEnd;
}

void appendCsvRows(std::string& out, const CsvBatch& batch, const Plan& plan, const BatchEvaluator& outcomes,
                   const char* lineEnd) {
    const auto rows = static_cast<std::size_t>(batch.rows);
    for (std::size_t row = 0; row < rows; ++row) {
        bool first = true;
        for (const auto& column : batch.columns) {
            if (!first) out += ',';
            first = false;
            const std::int64_t begin = column.offsets[row];
            appendCsvField(out, std::string_view(column.bytes.data() + begin,
                                                 static_cast<std::size_t>(column.offsets[row + 1] - begin)));
        }
        for (const auto& column : plan.columns) {
            if (!first) out += ',';
            first = false;
            const StepOutcome& outcome = outcomes.outcome(column.step);
            if (!outcome.validity(column.part)[row]) continue;
            const txengine::Result& result = outcome.result;
            if (plan.steps[static_cast<std::size_t>(column.step)].textResult) {
                const std::int64_t begin = result.text.offsets[row];
                appendCsvField(out, std::string_view(result.text.bytes.data() + begin,
                                                     static_cast<std::size_t>(result.text.offsets[row + 1] - begin)));
            } else {
                appendNumber(out, column.part == 0 ? result.numbers[row] : result.lengths[row]);
            }
        }
        out += lineEnd;
    }
}

}  // namespace txcli
