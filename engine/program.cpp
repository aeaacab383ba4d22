// Program::run: the rows split into tasks of rowsPerTask, each task
// evaluated by one worker on its own CallLane, every output written at its
// row, so the result is the same for any number of threads.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "engine/engine_impl.h"
#include "engine/prefetch.h"
#include "host/binder.h"
#include "module/abi/function_table.h"

namespace txengine {

using namespace txscan::contract;

namespace {

char gNoBytes[1] = {0};   // the bytes of a column that has none (every row empty); never written

// One input resolved for a run: where its values are.
struct ArgumentPlan {
    Input::Kind kind = Input::Kind::Absent;
    const std::int64_t* offsets = nullptr;
    const char* bytes = nullptr;
    const TextView* views = nullptr;
    const std::uint8_t* validity = nullptr;
    const double* values = nullptr;
    const char* constantText = nullptr;
    std::int64_t constantLength = 0;
    double constantNumber = 0;
};

struct RunPlan {
    int inputs = 0;
    std::array<ArgumentPlan, kMaxArguments> arguments{};   // by input - 1
    std::uint8_t siteKind = txhost::kParsingSiteKind;
    std::int64_t rowsBefore = 0;
    std::array<int, kMaxArguments> varying{};   // inputs bound on every row
    int varyingCount = 0;
};

txhost::ValueKind valueKind(Input::Kind kind) {
    switch (kind) {
    case Input::Kind::Text:
    case Input::Kind::TextViews:
    case Input::Kind::ConstantText: return txhost::ValueKind::Text;
    case Input::Kind::Number:
    case Input::Kind::ConstantNumber: return txhost::ValueKind::Number;
    case Input::Kind::Absent: break;
    }
    return txhost::ValueKind::Absent;
}

bool isTextColumn(Input::Kind kind) { return kind == Input::Kind::Text || kind == Input::Kind::TextViews; }

bool varies(const ArgumentPlan& a) { return isTextColumn(a.kind) || a.kind == Input::Kind::Number; }

std::string argumentName(const txhost::Binding& b, int k) { return b.name() + ": argument " + std::to_string(k); }

RunPlan planRun(const txhost::Binding& b, const std::vector<Input>& inputs, std::int64_t rows) {
    RunPlan plan;
    plan.inputs = static_cast<int>(inputs.size());
    b.requireCount(plan.inputs);
    if (rows < 0) throw std::invalid_argument(b.name() + ": a negative number of rows");
    // A worker keeps the first set it parses, so caching is safe only when
    // what the set is made from is the same on every row. Otherwise the
    // answer would depend on how rows were split between workers.
    bool setsConstant = true;
    for (int i = 1; i <= plan.inputs; ++i) {
        const Input& in = inputs[static_cast<std::size_t>(i - 1)];
        ArgumentPlan& a = plan.arguments[static_cast<std::size_t>(i - 1)];
        a.kind = in.kind;
        b.requireKind(i, valueKind(in.kind));
        if (isTextColumn(in.kind) && b.setDependsOn(i)) setsConstant = false;
        switch (in.kind) {
        case Input::Kind::Text:
            if (in.text.offsets == nullptr && rows > 0) throw std::invalid_argument(argumentName(b, i) + ": no offsets");
            a.offsets = in.text.offsets;
            a.bytes = in.text.bytes != nullptr ? in.text.bytes : gNoBytes;
            a.validity = in.text.validity;
            break;
        case Input::Kind::TextViews:
            if (in.views.views == nullptr && rows > 0) throw std::invalid_argument(argumentName(b, i) + ": no views");
            a.views = in.views.views;
            a.validity = in.views.validity;
            break;
        case Input::Kind::Number:
            if (in.number.values == nullptr && rows > 0) throw std::invalid_argument(argumentName(b, i) + ": no values");
            a.values = in.number.values;
            a.validity = in.number.validity;
            break;
        case Input::Kind::ConstantText:
            a.constantText = in.constantText.data();
            a.constantLength = static_cast<std::int64_t>(in.constantText.size());
            break;
        case Input::Kind::ConstantNumber: a.constantNumber = in.constantNumber; break;
        case Input::Kind::Absent: break;
        }
        if (varies(a)) plan.varying[static_cast<std::size_t>(plan.varyingCount++)] = i;
    }
    plan.siteKind = setsConstant ? txhost::kCachingSiteKind : txhost::kParsingSiteKind;
    return plan;
}

// The first row of [begin, end) whose text does not lie in order (its end
// before its start, or a negative view), or -1. Offsets past the bytes
// cannot be told from here.
std::int64_t firstBadRow(const RunPlan& plan, std::int64_t begin, std::int64_t end, int& argument) {
    for (int i = 1; i <= plan.inputs; ++i) {
        const ArgumentPlan& a = plan.arguments[static_cast<std::size_t>(i - 1)];
        if (a.kind == Input::Kind::TextViews) {
            // Lengths are checked together first (one vectorised pass):
            // the row is looked for only when one is negative.
            std::int64_t anyLength = 0;
            for (std::int64_t row = begin; row < end; ++row) anyLength |= a.views[row].length;
            for (std::int64_t row = begin; anyLength < 0 && row < end; ++row) {
                if (a.views[row].length < 0 && rowValid(a.validity, row)) {
                    argument = i;
                    return row;
                }
            }
        }
        if (a.kind != Input::Kind::Text) continue;
        for (std::int64_t row = begin; row < end; ++row) {
            const std::int64_t start = a.offsets[row];
            const std::int64_t stop = a.offsets[row + 1];
            if (start < 0 || stop < start || (a.bytes == gNoBytes && stop != start)) {
                argument = i;
                return row;
            }
        }
    }
    return -1;
}

// Binds input i for `row`; constants and absent arguments do not depend on
// the row, so bindConstants binds them once per task.
inline void bindInput(txhost::BoundFrame& call, const ArgumentPlan& a, int i, std::int64_t row) {
    switch (a.kind) {
    case Input::Kind::Text:
        if (rowValid(a.validity, row)) {
            const std::int64_t start = a.offsets[row];
            call.text(i, a.bytes + start, a.offsets[row + 1] - start);
        } else {
            call.absent(i);
        }
        break;
    case Input::Kind::TextViews:
        if (rowValid(a.validity, row)) {
            const TextView& v = a.views[row];
            call.text(i, v.data != nullptr ? v.data : gNoBytes, v.length);
        } else {
            call.absent(i);
        }
        break;
    case Input::Kind::Number: call.number(i, rowValid(a.validity, row) ? a.values[row] : missingValue()); break;
    case Input::Kind::ConstantText: call.text(i, a.constantText, a.constantLength); break;
    case Input::Kind::ConstantNumber: call.number(i, a.constantNumber); break;
    case Input::Kind::Absent: call.absent(i); break;
    }
}

void bindConstants(txhost::BoundFrame& call, const RunPlan& plan) {
    for (int i = 1; i <= plan.inputs; ++i) {
        const ArgumentPlan& a = plan.arguments[static_cast<std::size_t>(i - 1)];
        if (!varies(a)) bindInput(call, a, i, 0);
    }
}

inline void bindRow(txhost::BoundFrame& call, const RunPlan& plan, std::int64_t row) {
    for (int v = 0; v < plan.varyingCount; ++v) {
        const int i = plan.varying[static_cast<std::size_t>(v)];
        bindInput(call, plan.arguments[static_cast<std::size_t>(i - 1)], i, row);
    }
}

// Views point wherever their owner keeps the text (a Python str, a DuckDB
// string): ask for a later row's bytes while this row is evaluated, as
// offsets and bytes get from the hardware's own prefetch. Its last line as
// well as its first: the module reads a row's last bytes before the rest.
// A long row's every line (up to kViewPrefetchBytes, past which the
// hardware has a stream within the row): a row that starts where the
// previous one did not end gives the hardware no stream to follow. A short
// row's loop over its lines costs more than it brings.
constexpr std::int64_t kViewsAhead = 4;
constexpr std::int64_t kShortView = 256;
constexpr std::int64_t kViewPrefetchBytes = 4096;

inline void prefetchViews(const RunPlan& plan, std::int64_t row) {
    for (int v = 0; v < plan.varyingCount; ++v) {
        const ArgumentPlan& a = plan.arguments[static_cast<std::size_t>(plan.varying[static_cast<std::size_t>(v)] - 1)];
        if (a.kind != Input::Kind::TextViews) continue;
        const TextView& view = a.views[row];
        if (view.length > kShortView) {
            prefetchLines(view.data, view.length, kViewPrefetchBytes);
        } else {
            prefetchLine(view.data);
            prefetchLine(view.data + std::max<std::int64_t>(view.length, 1) - 1);
        }
    }
}

// Where a run's per-row outputs go: the Result's vectors, or the caller's
// places (with a plain NaN for no value and an optional bitmap).
struct Outputs {
    double* numbers = nullptr;
    std::uint8_t* numberValid = nullptr;   // a byte per row (the Result's)
    std::uint8_t* validity = nullptr;      // a bit per row (the caller's)
    double* lengths = nullptr;
    std::int32_t* status = nullptr;
    bool plainNaN = false;          // numbers
    bool plainNaNLengths = false;
};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A stored number, or the missing value for a row the module left alone.
inline void storeNumber(const Outputs& o, std::int64_t row, std::optional<double> value) {
    const bool valid = value && !std::isnan(*value);
    if (o.plainNaN) {
        o.numbers[row] = valid ? *value : kNaN;
    } else {
        o.numbers[row] = value ? *value : missingValue();
    }
    if (o.numberValid != nullptr) o.numberValid[row] = valid ? 1 : 0;
    if (o.validity != nullptr) {
        // Tasks start on a byte, so this byte is the task's own.
        std::uint8_t& byte = o.validity[row >> 3];
        const auto bit = static_cast<std::uint8_t>(1u << (row & 7));
        byte = valid ? static_cast<std::uint8_t>(byte | bit) : static_cast<std::uint8_t>(byte & ~bit);
    }
}

inline void storeLength(const Outputs& o, std::int64_t row, std::optional<double> length) {
    if (o.plainNaNLengths) {
        o.lengths[row] = length && !std::isnan(*length) ? *length : kNaN;
    } else {
        o.lengths[row] = length.value_or(missingValue());
    }
}

// Evaluates rows [begin, end) on one lane; `Kind` is the function's result kind.
template <int Kind>
void evaluate(CallLane& lane, const RunPlan& plan, const Outputs& o, Result& r, std::int64_t begin,
              std::int64_t end) {
    txhost::BoundFrame& call = lane.call;
    if constexpr (Kind == kCharacterResult) {
        call.useTextResult(lane.resultBuffer.data(), static_cast<std::int64_t>(lane.resultBuffer.size()));
        lane.textBytes.clear();
    }
    bindConstants(call, plan);
    for (std::int64_t row = begin; row < end; ++row) {
        lane.tally.currentRow = plan.rowsBefore + row;
        if (row + kViewsAhead < end) prefetchViews(plan, row + kViewsAhead);
        bindRow(call, plan, row);
        if constexpr (Kind == kCallRoutine) call.primeOutputs();
        const std::int32_t status = call.call();
        if constexpr (Kind == kNumericResult) {
            storeNumber(o, row, call.number());
        } else if constexpr (Kind == kCharacterResult) {
            // A length the buffer cannot hold is no result: the row stays null.
            if (const StringValue* text = call.text()) {
                lane.textBytes.insert(lane.textBytes.end(), text->data, text->data + text->length);
                r.text.validity[static_cast<std::size_t>(row >> 3)] |= static_cast<std::uint8_t>(1u << (row & 7));
            }
            r.text.offsets[static_cast<std::size_t>(row + 1)] = static_cast<std::int64_t>(lane.textBytes.size());
        } else {
            storeNumber(o, row, call.number());
            storeLength(o, row, call.length());
        }
        o.status[row] = status;
    }
}

// Text results reach the column in task order: a finished task waits (its
// bytes held by its lane's buffer) until every earlier task is in, so the
// bytes are written once, in row order, whatever order tasks finish in.
struct TextAssembly {
    std::mutex mutex;
    std::int64_t nextTask = 0;
    std::vector<std::vector<char>> waiting;
    std::vector<std::uint8_t> done;

    void finish(Result& r, std::int64_t task, std::vector<char>& bytes, std::int64_t rowsPerTask) {
        std::lock_guard<std::mutex> lock(mutex);
        waiting[static_cast<std::size_t>(task)].swap(bytes);
        done[static_cast<std::size_t>(task)] = 1;
        while (nextTask < static_cast<std::int64_t>(done.size()) && done[static_cast<std::size_t>(nextTask)] != 0) {
            std::vector<char>& ready = waiting[static_cast<std::size_t>(nextTask)];
            const auto base = static_cast<std::int64_t>(r.text.bytes.size());
            r.text.bytes.insert(r.text.bytes.end(), ready.begin(), ready.end());
            const std::int64_t begin = nextTask * rowsPerTask;
            const std::int64_t end = std::min(r.rows, begin + rowsPerTask);
            for (std::int64_t row = begin; row < end; ++row) r.text.offsets[static_cast<std::size_t>(row + 1)] += base;
            std::vector<char>().swap(ready);
            ++nextTask;
        }
    }
};

}  // namespace

Result Program::run(const std::vector<Input>& arguments, std::int64_t rows) { return run(arguments, rows, {}); }

Result Program::run(const std::vector<Input>& arguments, std::int64_t rows, const OutputPlaces& places) {
    Impl& program = *impl_;
    Engine::Impl& engine = *program.engine;
    engine.module->requireItsSession();
    const txhost::Binding& binding = program.binding;
    RunPlan plan = planRun(binding, arguments, rows);
    plan.rowsBefore = program.rowsBefore;
    const std::int32_t kind = binding.resultKind();

    Result r;
    r.rows = rows;
    Outputs o;
    o.plainNaN = places.numbers != nullptr;
    if (places.status == nullptr) r.status.assign(static_cast<std::size_t>(rows), 0);
    o.status = places.status != nullptr ? places.status : r.status.data();
    if (kind == kCharacterResult) {
        r.text.offsets.assign(static_cast<std::size_t>(rows + 1), 0);
        r.text.validity.assign(static_cast<std::size_t>((rows + 7) / 8), 0);
    } else {
        if (places.numbers == nullptr) {
            r.numbers.assign(static_cast<std::size_t>(rows), 0.0);
            r.numberValid.assign(static_cast<std::size_t>(rows), 0);
            o.numbers = r.numbers.data();
            o.numberValid = r.numberValid.data();
        } else {
            o.numbers = places.numbers;
            o.validity = places.validity;
        }
        if (kind == kCallRoutine) {
            if (places.lengths == nullptr) r.lengths.assign(static_cast<std::size_t>(rows), 0.0);
            o.lengths = places.lengths != nullptr ? places.lengths : r.lengths.data();
            o.plainNaNLengths = places.lengths != nullptr;
        }
    }

    const std::int64_t rowsPerTask = engine.options.rowsPerTask;
    const std::int64_t tasks = (rows + rowsPerTask - 1) / rowsPerTask;
    TextAssembly assembly;
    if (kind == kCharacterResult) {
        assembly.waiting.resize(static_cast<std::size_t>(tasks));
        assembly.done.assign(static_cast<std::size_t>(tasks), 0);
    }
    // A task with text out of order evaluates nothing; the lowest such row is reported.
    std::mutex badMutex;
    std::int64_t badRow = -1;
    int badArgument = 0;
    for (auto& lane : program.lanes) {
        lane->call.start(plan.inputs);
        lane->call.setSiteKind(plan.siteKind);
        lane->tally.counts.clear();
    }

    engine.pool->run(tasks, [&](int worker, std::int64_t task) {
        CallLane& lane = *program.lanes[static_cast<std::size_t>(worker)];
        const std::int64_t begin = task * rowsPerTask;
        const std::int64_t end = std::min(rows, begin + rowsPerTask);
        int argument = 0;
        const std::int64_t bad = firstBadRow(plan, begin, end, argument);
        if (bad >= 0) {
            std::lock_guard<std::mutex> lock(badMutex);
            if (badRow < 0 || bad < badRow) {
                badRow = bad;
                badArgument = argument;
            }
        } else {
            txhost::TaskScope scope(*engine.session, &lane.tally.sink);
            if (kind == kNumericResult) {
                evaluate<kNumericResult>(lane, plan, o, r, begin, end);
            } else if (kind == kCharacterResult) {
                evaluate<kCharacterResult>(lane, plan, o, r, begin, end);
            } else {
                evaluate<kCallRoutine>(lane, plan, o, r, begin, end);
            }
        }
        if (kind == kCharacterResult) assembly.finish(r, task, lane.textBytes, rowsPerTask);
    });
    if (badRow >= 0) {
        const Input& bad = arguments[static_cast<std::size_t>(badArgument - 1)];
        if (bad.kind == Input::Kind::TextViews) {
            throw std::invalid_argument(argumentName(binding, badArgument) + ": row " + std::to_string(badRow) +
                                        " has a negative length (" + std::to_string(bad.views.views[badRow].length) + ")");
        }
        const std::int64_t* offsets = bad.text.offsets;
        throw std::invalid_argument(argumentName(binding, badArgument) + ": row " + std::to_string(badRow) +
                                    " has offsets out of order (" + std::to_string(offsets[badRow]) + " to " +
                                    std::to_string(offsets[badRow + 1]) + ")");
    }
    for (auto& lane : program.lanes) mergeTallies(r.messages, lane->tally.counts);
    orderByFirstRow(r.messages);
    program.rowsBefore += rows;
    return r;
}

}  // namespace txengine
