// One data chunk of a scalar function call: DuckDB's vectors become the row
// engine's inputs, the engine runs every row on this thread, and its results,
// statuses and notes become DuckDB's output vector, error and message tally.
//
// DuckDB calls a function on all its threads at once, so each thread has an
// engine of its own with one worker (its pool of one runs inline, on
// DuckDB's thread): one shared engine would make DuckDB's threads take turns.
// Each thread keeps its programs (call sites with their cached sets) keyed by
// the overload and the values of the constant arguments after the first, so
// a set parsed under modifier O always belongs to the arguments it came from.
#include "duckdb_extension.h"
DUCKDB_EXTENSION_EXTERN

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "duckdb/duckdb_function.h"
#include "engine/engine.h"
#include "host/binder.h"
#include "module/abi/argument_frame.h"
#include "module/abi/function_table.h"

namespace txduckdb {

namespace {

namespace contract = txscan::contract;

// Building a call context's function environment and the one-off calls that
// find the argument to blame go through the host's random-number services,
// which serve one task at a time.
std::mutex& oneTaskAtATime() {
    static std::mutex m;
    return m;
}

// A thread's programs are dropped all at once past this many: columns that
// hold runs of equal values would otherwise add one per run.
constexpr std::size_t kMaxPrograms = 256;

struct ThreadPrograms {
    std::unique_ptr<txengine::Engine> engine;
    struct Entry {
        txengine::Program program;
        std::int64_t maxLength;
    };
    std::unordered_map<std::string, Entry> programs;
    // Text columns as views of DuckDB's strings, reused from chunk to chunk.
    std::vector<std::vector<txengine::TextView>> views;
    std::string key;
};

ThreadPrograms& threadPrograms(txhost::Module& module) {
    thread_local ThreadPrograms t;
    if (!t.engine) {
        auto engine = std::make_unique<txengine::Engine>(module.session(), module, txengine::EngineOptions{.threads = 1});
        // The word functions build the context's environment on first need;
        // here, one thread at a time. Without memory for it the thread has
        // no engine yet, so the next chunk tries again under the lock.
        std::lock_guard<std::mutex> lock(oneTaskAtATime());
        const txengine::Result r = engine->prepare({.function = "KCOUNTW"}).run({txengine::Input::constant("a")}, 1);
        if (r.status.at(0) != contract::kStatusOk) throw std::bad_alloc();
        t.engine = std::move(engine);
    }
    return t;
}

bool allValid(const std::uint64_t* validity, idx_t rows) {
    if (validity == nullptr) return true;
    for (idx_t w = 0; w < rows / 64; ++w) {
        if (validity[w] != ~std::uint64_t{0}) return false;
    }
    for (idx_t row = rows / 64 * 64; row < rows; ++row) {
        if (((validity[row / 64] >> (row % 64)) & 1) == 0) return false;
    }
    return true;
}

bool noneValid(const std::uint64_t* validity, idx_t rows) {
    if (validity == nullptr) return rows == 0;
    for (idx_t row = 0; row < rows; ++row) {
        if (((validity[row / 64] >> (row % 64)) & 1) != 0) return false;
    }
    return true;
}

std::string_view textOf(duckdb_string_t& s) {
    return {duckdb_string_t_data(&s), duckdb_string_t_length(s)};
}

// DuckDB hands constant vectors over flattened: every row holds the same
// 16 bytes. Such a column, or one that is NULL throughout, is a constant.
txengine::Input textInput(ThreadPrograms& t, std::size_t i, duckdb_vector vector, idx_t rows, bool first) {
    auto* strings = static_cast<duckdb_string_t*>(duckdb_vector_get_data(vector));
    const std::uint64_t* validity = duckdb_vector_get_validity(vector);
    if (noneValid(validity, rows)) {
        t.key += 'A';
        return txengine::Input::absent();
    }
    const bool valid = allValid(validity, rows);
    bool same = valid;
    for (idx_t row = 1; same && row < rows; ++row) same = std::memcmp(&strings[row], &strings[0], sizeof strings[0]) == 0;
    if (same) {
        const std::string_view text = textOf(strings[0]);
        if (!first) {
            t.key += 'T';
            t.key += std::to_string(text.size());
            t.key += ':';
            t.key.append(text);
        }
        return txengine::Input::constant(text);
    }
    if (!first) t.key += 'V';
    // The engine reads each row where DuckDB keeps it: inline in the vector
    // or behind its pointer. Nothing is copied.
    std::vector<txengine::TextView>& views = t.views[i];
    views.resize(rows);
    for (idx_t row = 0; row < rows; ++row) {
        if (valid || ((validity[row / 64] >> (row % 64)) & 1) != 0) {
            const std::string_view text = textOf(strings[row]);
            views[row] = txengine::TextView{text.data(), static_cast<std::int64_t>(text.size())};
        } else {
            views[row] = txengine::TextView{};
        }
    }
    // DuckDB's validity words are Arrow's bitmap on a little-endian machine.
    return txengine::Input::column(
        txengine::TextViewColumn{views.data(), reinterpret_cast<const std::uint8_t*>(validity)});
}

txengine::Input numberInput(ThreadPrograms& t, duckdb_vector vector, idx_t rows) {
    const auto* values = static_cast<const double*>(duckdb_vector_get_data(vector));
    const std::uint64_t* validity = duckdb_vector_get_validity(vector);
    if (noneValid(validity, rows)) {
        t.key += 'M';
        return txengine::Input::constant(contract::missingValue());
    }
    bool same = allValid(validity, rows);
    for (idx_t row = 1; same && row < rows; ++row) same = std::memcmp(&values[row], &values[0], sizeof values[0]) == 0;
    if (same) {
        char shown[32];
        std::snprintf(shown, sizeof shown, "N%a", values[0]);
        t.key += shown;
        return txengine::Input::constant(values[0]);
    }
    t.key += 'V';
    return txengine::Input::column(txengine::NumberColumn{values, reinterpret_cast<const std::uint8_t*>(validity)});
}

// The longest text of the first argument: a KSCANX word is never longer, so
// a receiving variable that long never cuts it (an absent text gives one
// blank).
std::int64_t longestFirstText(const txengine::Input& in, idx_t rows) {
    std::int64_t longest = 1;
    if (in.kind == txengine::Input::Kind::ConstantText) return std::max<std::int64_t>(longest, in.constantText.size());
    if (in.kind != txengine::Input::Kind::TextViews) return longest;
    for (idx_t row = 0; row < rows; ++row) longest = std::max(longest, in.views.views[row].length);
    return longest;
}

txengine::Program& programFor(ThreadPrograms& t, const Overload& o, std::int64_t maxLength) {
    auto found = t.programs.find(t.key);
    if (found != t.programs.end() && found->second.maxLength >= maxLength) return found->second.program;
    if (found != t.programs.end()) {
        // A longer word than before: a larger receiving variable, at twice
        // the size so a column of growing texts re-prepares a few times only.
        maxLength = std::max(maxLength, 2 * found->second.maxLength);
        t.programs.erase(found);
    }
    if (t.programs.size() >= kMaxPrograms) t.programs.clear();
    txengine::Program program = t.engine->prepare(
        {.function = o.function->moduleName, .callRoutine = o.function->callRoutine, .maxLength = maxLength});
    return t.programs.emplace(t.key, ThreadPrograms::Entry{std::move(program), maxLength}).first->second.program;
}

// ---- Errors: the function, the status by name and number, the argument.

std::string shownValue(duckdb_vector vector, bool numeric, idx_t row) {
    const std::uint64_t* validity = duckdb_vector_get_validity(vector);
    if (validity != nullptr && ((validity[row / 64] >> (row % 64)) & 1) == 0) return "NULL";
    if (numeric) {
        char shown[32];
        std::snprintf(shown, sizeof shown, "%.17g", static_cast<const double*>(duckdb_vector_get_data(vector))[row]);
        return shown;
    }
    constexpr std::size_t kShown = 60;
    std::string text(textOf(static_cast<duckdb_string_t*>(duckdb_vector_get_data(vector))[row]));
    if (text.size() > kShown) {
        std::size_t cut = kShown;
        while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
        text = text.substr(0, cut) + "...";
    }
    return "'" + text + "'";
}

// The SQL argument the module marks when the failing row is called again on
// its own (the engine reports statuses, not marks), else the first NULL
// where only a number goes.
int blamedArgument(const Overload& o, duckdb_data_chunk input, idx_t row) {
    const auto count = static_cast<int>(o.numeric.size());
    std::vector<txhost::Argument> arguments;
    for (int k = 1; k <= count; ++k) {
        if (o.function->callRoutine && k == 3) arguments.insert(arguments.end(), {0.0, 0.0});
        duckdb_vector v = duckdb_data_chunk_get_vector(input, static_cast<idx_t>(k - 1));
        const std::uint64_t* validity = duckdb_vector_get_validity(v);
        const bool valid = validity == nullptr || ((validity[row / 64] >> (row % 64)) & 1) != 0;
        if (o.numeric[static_cast<std::size_t>(k - 1)]) {
            arguments.emplace_back(valid ? static_cast<const double*>(duckdb_vector_get_data(v))[row] : contract::missingValue());
        } else if (valid) {
            arguments.emplace_back(std::string(textOf(static_cast<duckdb_string_t*>(duckdb_vector_get_data(v))[row])));
        } else {
            arguments.emplace_back(txhost::Absent{});
        }
    }
    if (o.function->callRoutine && count == 2) arguments.insert(arguments.end(), {0.0, 0.0});
    txhost::CallResult result;
    {
        std::lock_guard<std::mutex> lock(oneTaskAtATime());
        result = o.module->call(o.function->moduleName, arguments, o.function->callRoutine);
    }
    for (int k = 1; k <= count; ++k) {
        const int position = o.function->callRoutine && k >= 3 ? k + 2 : k;
        if (static_cast<std::size_t>(position) <= result.errorMarks.size() && result.errorMarks[static_cast<std::size_t>(position - 1)] != 0) return k;
    }
    for (int k = 1; k <= count; ++k) {
        const std::uint32_t code = contract::argumentTypeAt(o.info->descriptor->argTypes, o.function->callRoutine && k >= 3 ? k + 2 : k);
        duckdb_vector v = duckdb_data_chunk_get_vector(input, static_cast<idx_t>(k - 1));
        if (code == contract::kArgNumeric && shownValue(v, true, row) == "NULL") return k;
    }
    return 0;
}

std::string statusError(const Overload& o, std::int32_t status, duckdb_data_chunk input, idx_t row) {
    std::string message = std::string(o.function->sqlName) + ": " + txhost::statusText(status);
    if (const int k = blamedArgument(o, input, row); k > 0) {
        duckdb_vector v = duckdb_data_chunk_get_vector(input, static_cast<idx_t>(k - 1));
        message += " in argument " + std::to_string(k) + " (" + shownValue(v, o.numeric[static_cast<std::size_t>(k - 1)], row) + ")";
    }
    return message;
}

// ---- Messages.

struct Tally {
    std::mutex mutex;
    std::map<std::tuple<std::string, bool, std::int32_t, std::int32_t>, MessageTotal> totals;
};

Tally& tally() {
    static Tally* t = new Tally();   // never destroyed: DuckDB's threads may outlive static destruction
    return *t;
}

void countMessages(const Overload& o, const std::vector<txengine::MessageCount>& messages) {
    Tally& t = tally();
    std::lock_guard<std::mutex> lock(t.mutex);
    for (const txengine::MessageCount& m : messages) {
        MessageTotal& total = t.totals[{o.function->sqlName, m.error, m.code, m.character}];
        if (total.count == 0) total = MessageTotal{o.function->sqlName, m.error, m.code, m.character, m.text, 0};
        total.count += m.count;
    }
}

// ---- Results.

bool writeNumbers(const Overload& o, const txengine::Result& r, duckdb_vector output, idx_t rows, std::string& error) {
    auto* out = static_cast<std::int64_t*>(duckdb_vector_get_data(output));
    const bool length = o.function->output == SqlFunction::Output::Length;
    std::uint64_t* validity = nullptr;
    for (idx_t row = 0; row < rows; ++row) {
        const double value = length ? r.lengths[row] : r.numbers[row];
        const bool valid = length ? !contract::exponentAllOnes(value) && r.status[row] == contract::kStatusOk
                                  : r.numberValid[row] != 0;
        if (valid && value == std::trunc(value) && std::fabs(value) < 9.0e18) {
            out[row] = static_cast<std::int64_t>(value);
            continue;
        }
        if (valid) {
            char shown[40];
            std::snprintf(shown, sizeof shown, "%.17g", value);
            error = std::string(o.function->sqlName) + ": result " + shown + " is not a whole number";
            return false;
        }
        if (validity == nullptr) {
            duckdb_vector_ensure_validity_writable(output);
            validity = duckdb_vector_get_validity(output);
        }
        duckdb_validity_set_row_invalid(validity, row);
    }
    return true;
}

void writeWords(const txengine::Result& r, duckdb_vector output, idx_t rows) {
    std::uint64_t* validity = nullptr;
    for (idx_t row = 0; row < rows; ++row) {
        if (txengine::rowValid(r.text.validity.data(), static_cast<std::int64_t>(row))) {
            const std::int64_t start = r.text.offsets[row];
            duckdb_vector_assign_string_element_len(output, row, r.text.bytes.data() + start,
                                                    static_cast<idx_t>(r.text.offsets[row + 1] - start));
            continue;
        }
        if (validity == nullptr) {
            duckdb_vector_ensure_validity_writable(output);
            validity = duckdb_vector_get_validity(output);
        }
        duckdb_validity_set_row_invalid(validity, row);
    }
}

void evaluate(duckdb_function_info info, const Overload& o, duckdb_data_chunk input, duckdb_vector output) {
    const idx_t rows = duckdb_data_chunk_get_size(input);
    if (rows == 0) return;
    ThreadPrograms& t = threadPrograms(*o.module);
    const std::size_t count = o.numeric.size();
    if (t.views.size() < count) t.views.resize(count);
    t.key = std::to_string(o.id);
    std::vector<txengine::Input> inputs;
    inputs.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        duckdb_vector v = duckdb_data_chunk_get_vector(input, i);
        inputs.push_back(o.numeric[i] ? numberInput(t, v, rows) : textInput(t, i, v, rows, i == 0));
    }
    const bool word = o.info->descriptor->resultKind == contract::kCharacterResult;
    txengine::Program& program = programFor(t, o, word ? longestFirstText(inputs[0], rows) : 0);
    const txengine::Result r = program.run(inputs, static_cast<std::int64_t>(rows));
    if (!r.messages.empty()) countMessages(o, r.messages);
    // A missing start is the module's missing result, NULL as DuckDB gives
    // for a NULL argument; every other status fails the query.
    for (idx_t row = 0; row < rows; ++row) {
        const std::int32_t status = r.status[row];
        if (status != contract::kStatusOk && status != contract::kStatusMissingStart) {
            duckdb_scalar_function_set_error(info, statusError(o, status, input, row).c_str());
            return;
        }
    }
    if (word) {
        writeWords(r, output, rows);
        return;
    }
    std::string error;
    if (!writeNumbers(o, r, output, rows, error)) duckdb_scalar_function_set_error(info, error.c_str());
}

}  // namespace

void evaluateChunk(duckdb_function_info info, duckdb_data_chunk input, duckdb_vector output) {
    const auto& o = *static_cast<const Overload*>(duckdb_scalar_function_get_extra_info(info));
    // Words that need no memory of their own, as what failed may be memory.
    char message[160];
    try {
        evaluate(info, o, input, output);
        return;
    } catch (const std::bad_alloc&) {
        std::snprintf(message, sizeof message, "%s: out of memory", o.function->sqlName);
    } catch (const std::exception& e) {
        std::snprintf(message, sizeof message, "%s: %s", o.function->sqlName, e.what());
    }
    duckdb_scalar_function_set_error(info, message);
}

std::vector<MessageTotal> messageTotals() {
    Tally& t = tally();
    std::lock_guard<std::mutex> lock(t.mutex);
    std::vector<MessageTotal> out;
    for (const auto& [key, total] : t.totals) out.push_back(total);
    return out;
}

}  // namespace txduckdb
