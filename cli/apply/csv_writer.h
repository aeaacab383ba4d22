// CSV output of `txscan apply`: every input field as it was read, then the
// new columns; quotes only where a field needs them, numbers as the shortest
// text that reads back to the same double, a missing value as an empty cell.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/apply/csv_reader.h"
#include "cli/apply/evaluate.h"
#include "cli/apply/plan.h"

namespace txcli {

void appendCsvField(std::string& out, std::string_view field);
void appendCsvHeader(std::string& out, const std::vector<std::string>& fields, const char* lineEnd);
void appendCsvRows(std::string& out, const CsvBatch& batch, const Plan& plan, const BatchEvaluator& outcomes,
                   const char* lineEnd);

}  // namespace txcli
