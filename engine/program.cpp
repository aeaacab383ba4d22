// Program::run: the rows split into tasks of rowsPerTask, each task
// evaluated by one worker on its own CallLane, every output written at its
// row, so the result is the same for any number of threads.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>

#include "engine/engine_impl.h"
#include "module/abi/function_table.h"

namespace txengine {

using namespace txscan::contract;

namespace {

// Marks a result place the module did not store into; a NaN no module stores.
constexpr std::uint64_t kNotStoredBits = txhost::kResultSentinelBits;
constexpr std::int64_t kTextNotStored = -1;
char gNoBytes[1] = {0};   // the bytes of a column that has none (every row empty); never written

// One argument of the frame resolved for a run: an input, or an output of
// the call routine (frame positions 3 and 4).
struct ArgumentPlan {
    Input::Kind kind = Input::Kind::Absent;
    bool output = false;
    const std::int64_t* offsets = nullptr;
    char* bytes = nullptr;
    const TextView* views = nullptr;
    const std::uint8_t* validity = nullptr;
    const double* values = nullptr;
    StringValue constantText{};
    double constantNumber = 0;
    std::uint8_t textFlags = kTypeCharacter;
    int input = 0;   // the caller's argument number (from 1)
};

struct RunPlan {
    int argCount = 0;             // as the frame says, the call routine's outputs included
    std::array<ArgumentPlan, kMaxArguments> arguments{};   // by frame position - 1
    std::uint8_t siteKind = 0;
    std::int64_t rowsBefore = 0;
    std::array<int, kMaxArguments> varying{};   // frame positions bound on every row
    int varyingCount = 0;
};

// The call routine's outputs sit at frame positions 3 and 4, between its
// inputs: input k is frame position k, or k + 2 from the third on.
constexpr int kFirstOutput = 3;
constexpr int kOutputs = 2;
int framePosition(bool callRoutine, int input) { return callRoutine && input >= kFirstOutput ? input + kOutputs : input; }

bool varies(const ArgumentPlan& a);

// Site kind of a call site that may keep a parsed set (modifier O).
constexpr std::uint8_t kCachingSite = 0x48;
static_assert(siteAllowsCaching(kCachingSite));

std::string argumentName(const txhost::FunctionInfo& f, int k) { return f.name + ": argument " + std::to_string(k); }

RunPlan planRun(const txhost::FunctionInfo& f, const std::vector<Input>& inputs, std::int64_t rows) {
    const FunctionDescriptor& d = *f.descriptor;
    const bool callRoutine = d.resultKind == kCallRoutine;
    const int outputs = callRoutine ? kOutputs : 0;
    RunPlan plan;
    const auto inputCount = static_cast<int>(inputs.size());
    plan.argCount = inputCount + outputs;
    if (plan.argCount < d.minArgs || plan.argCount > d.maxArgs || plan.argCount > kMaxArguments) {
        throw std::invalid_argument(f.name + " takes " + std::to_string(d.minArgs - outputs) + " to " +
                                    std::to_string(d.maxArgs - outputs) + " inputs, not " +
                                    std::to_string(inputCount));
    }
    if (rows < 0) throw std::invalid_argument(f.name + ": a negative number of rows");
    for (int k = kFirstOutput; k < kFirstOutput + outputs; ++k) plan.arguments[static_cast<std::size_t>(k - 1)].output = true;
    // Cached sets come from the text arguments after the first; a worker
    // keeps the first set it parses, so caching is safe only when they are
    // the same on every row. Otherwise the answer would depend on how rows
    // were split between workers.
    bool setsConstant = true;
    for (int i = 1; i <= inputCount; ++i) {
        const Input& in = inputs[static_cast<std::size_t>(i - 1)];
        const int k = framePosition(callRoutine, i);
        ArgumentPlan& a = plan.arguments[static_cast<std::size_t>(k - 1)];
        a.kind = in.kind;
        a.input = i;
        const std::uint32_t allowed = argumentTypeAt(d.argTypes, k);
        const bool column = in.kind == Input::Kind::Text || in.kind == Input::Kind::TextViews;
        const bool text = column || in.kind == Input::Kind::ConstantText;
        const bool number = in.kind == Input::Kind::Number || in.kind == Input::Kind::ConstantNumber;
        if (text && (allowed & kArgCharacter) == 0) throw std::invalid_argument(argumentName(f, i) + " must be numeric");
        if (number && (allowed & kArgNumeric) == 0) throw std::invalid_argument(argumentName(f, i) + " must be character");
        if (k > 1 && column) setsConstant = false;
        a.textFlags = static_cast<std::uint8_t>(kTypeCharacter | (k == 1 ? kTypeRecheck : 0));
        switch (in.kind) {
        case Input::Kind::Text:
            if (in.text.offsets == nullptr && rows > 0) throw std::invalid_argument(argumentName(f, i) + ": no offsets");
            a.offsets = in.text.offsets;
            a.bytes = in.text.bytes != nullptr ? const_cast<char*>(in.text.bytes) : gNoBytes;
            a.validity = in.text.validity;
            break;
        case Input::Kind::TextViews:
            if (in.views.views == nullptr && rows > 0) throw std::invalid_argument(argumentName(f, i) + ": no views");
            a.views = in.views.views;
            a.validity = in.views.validity;
            break;
        case Input::Kind::Number:
            if (in.number.values == nullptr && rows > 0) throw std::invalid_argument(argumentName(f, i) + ": no values");
            a.values = in.number.values;
            a.validity = in.number.validity;
            break;
        case Input::Kind::ConstantText: {
            const auto length = static_cast<std::int64_t>(in.constantText.size());
            a.constantText = StringValue{length, length, const_cast<char*>(in.constantText.data()), nullptr, length};
            break;
        }
        case Input::Kind::ConstantNumber: a.constantNumber = in.constantNumber; break;
        case Input::Kind::Absent: break;
        }
    }
    plan.siteKind = setsConstant ? kCachingSite : 0;
    for (int k = 1; k <= plan.argCount; ++k) {
        if (varies(plan.arguments[static_cast<std::size_t>(k - 1)])) plan.varying[static_cast<std::size_t>(plan.varyingCount++)] = k;
    }
    return plan;
}

// The first row of [begin, end) whose text does not lie in order (its end
// before its start, or a negative view), or -1. Offsets past the bytes
// cannot be told from here.
std::int64_t firstBadRow(const RunPlan& plan, std::int64_t begin, std::int64_t end, int& argument) {
    for (int k = 1; k <= plan.argCount; ++k) {
        const ArgumentPlan& a = plan.arguments[static_cast<std::size_t>(k - 1)];
        if (a.kind == Input::Kind::TextViews) {
            for (std::int64_t row = begin; row < end; ++row) {
                if (a.views[row].length < 0 && rowValid(a.validity, row)) {
                    argument = a.input;
                    return row;
                }
            }
        }
        if (a.kind != Input::Kind::Text) continue;
        for (std::int64_t row = begin; row < end; ++row) {
            const std::int64_t start = a.offsets[row];
            const std::int64_t stop = a.offsets[row + 1];
            if (start < 0 || stop < start || (a.bytes == gNoBytes && stop != start)) {
                argument = a.input;
                return row;
            }
        }
    }
    return -1;
}

// Binds frame position k for `row`; constants and absent arguments do not
// depend on the row, so bindConstants binds them once per task.
inline void bindArgument(CallLane& lane, const ArgumentPlan& a, int k, std::int64_t row) {
    ArgumentSlot& slot = lane.frame.args[k - 1];
    StringValue& s = lane.strings[static_cast<std::size_t>(k - 1)];
    double& n = lane.numbers[static_cast<std::size_t>(k - 1)];
    slot.errorMarks = 0;
    if (a.output) {
        n = std::bit_cast<double>(kNotStoredBits);
        slot.typeFlags = kTypeNumeric;
        slot.value = &n;
        return;
    }
    switch (a.kind) {
    case Input::Kind::Text:
        if (rowValid(a.validity, row)) {
            const std::int64_t start = a.offsets[row];
            const std::int64_t length = a.offsets[row + 1] - start;
            s = StringValue{length, length, a.bytes + start, nullptr, length};
            slot.typeFlags = a.textFlags;
            slot.value = &s;
        } else {
            slot.typeFlags = 0;
            slot.value = nullptr;
        }
        break;
    case Input::Kind::TextViews:
        if (rowValid(a.validity, row)) {
            const TextView& v = a.views[row];
            s = StringValue{v.length, v.length, v.data != nullptr ? const_cast<char*>(v.data) : gNoBytes, nullptr, v.length};
            slot.typeFlags = a.textFlags;
            slot.value = &s;
        } else {
            slot.typeFlags = 0;
            slot.value = nullptr;
        }
        break;
    case Input::Kind::Number:
        n = rowValid(a.validity, row) ? a.values[row] : missingValue();
        slot.typeFlags = kTypeNumeric;
        slot.value = &n;
        break;
    case Input::Kind::ConstantText:
        s = a.constantText;
        slot.typeFlags = a.textFlags;
        slot.value = &s;
        break;
    case Input::Kind::ConstantNumber:
        n = a.constantNumber;
        slot.typeFlags = kTypeNumeric;
        slot.value = &n;
        break;
    case Input::Kind::Absent:
        slot.typeFlags = 0;
        slot.value = nullptr;
        break;
    }
}

bool varies(const ArgumentPlan& a) {
    return a.output || a.kind == Input::Kind::Text || a.kind == Input::Kind::TextViews || a.kind == Input::Kind::Number;
}

void bindConstants(CallLane& lane, const RunPlan& plan) {
    for (int k = 1; k <= plan.argCount; ++k) {
        const ArgumentPlan& a = plan.arguments[static_cast<std::size_t>(k - 1)];
        if (!varies(a)) bindArgument(lane, a, k, 0);
    }
}

inline void bindRow(CallLane& lane, const RunPlan& plan, std::int64_t row) {
    for (int i = 0; i < plan.varyingCount; ++i) {
        const int k = plan.varying[static_cast<std::size_t>(i)];
        bindArgument(lane, plan.arguments[static_cast<std::size_t>(k - 1)], k, row);
    }
}

void prepareFrame(CallLane& lane, const RunPlan& plan) {
    ArgumentFrame& frame = lane.frame;
    frame.argCount = plan.argCount;
    frame.siteKind = plan.siteKind;
    for (int k = 1; k <= kMaxArguments; ++k) {
        frame.args[k - 1].typeFlags = 0;
        frame.args[k - 1].errorMarks = 0;
        frame.args[k - 1].value = nullptr;
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
inline void storeNumber(const Outputs& o, std::int64_t row, double value) {
    const bool stored = std::bit_cast<std::uint64_t>(value) != kNotStoredBits;
    const bool valid = stored && !std::isnan(value);
    if (o.plainNaN) {
        o.numbers[row] = valid ? value : kNaN;
    } else {
        o.numbers[row] = stored ? value : missingValue();
    }
    if (o.numberValid != nullptr) o.numberValid[row] = valid ? 1 : 0;
    if (o.validity != nullptr) {
        // Tasks start on a byte, so this byte is the task's own.
        std::uint8_t& byte = o.validity[row >> 3];
        const auto bit = static_cast<std::uint8_t>(1u << (row & 7));
        byte = valid ? static_cast<std::uint8_t>(byte | bit) : static_cast<std::uint8_t>(byte & ~bit);
    }
}

inline void storeLength(const Outputs& o, std::int64_t row, double length) {
    const bool stored = std::bit_cast<std::uint64_t>(length) != kNotStoredBits;
    if (o.plainNaNLengths) {
        o.lengths[row] = stored && !std::isnan(length) ? length : kNaN;
    } else {
        o.lengths[row] = stored ? length : missingValue();
    }
}

// Evaluates rows [begin, end) on one lane; `Kind` is the function's result kind.
template <int Kind>
void evaluate(CallLane& lane, const RunPlan& plan, EntryRoutine entry, const Outputs& o, Result& r,
              std::int64_t begin, std::int64_t end) {
    StringValue result{};
    if constexpr (Kind == kCharacterResult) {
        const auto capacity = static_cast<std::int64_t>(lane.resultBuffer.size());
        result = StringValue{capacity, 0, lane.resultBuffer.data(), nullptr, capacity};
        lane.textBytes.clear();
    }
    bindConstants(lane, plan);
    for (std::int64_t row = begin; row < end; ++row) {
        lane.tally.currentRow = plan.rowsBefore + row;
        bindRow(lane, plan, row);
        std::int32_t status = 0;
        if constexpr (Kind == kNumericResult) {
            double number = std::bit_cast<double>(kNotStoredBits);
            status = entry(&lane.frame, &number);
            storeNumber(o, row, number);
        } else if constexpr (Kind == kCharacterResult) {
            result.length = kTextNotStored;
            status = entry(&lane.frame, &result);
            // A length the buffer cannot hold is no result: the row stays null.
            if (result.length >= 0 && result.length <= result.capacity) {
                lane.textBytes.insert(lane.textBytes.end(), result.data, result.data + result.length);
                r.text.validity[static_cast<std::size_t>(row >> 3)] |= static_cast<std::uint8_t>(1u << (row & 7));
            }
            r.text.offsets[static_cast<std::size_t>(row + 1)] = static_cast<std::int64_t>(lane.textBytes.size());
        } else {
            status = entry(&lane.frame, nullptr);
            storeNumber(o, row, lane.numbers[2]);
            storeLength(o, row, lane.numbers[3]);
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
    const txhost::FunctionInfo& f = *program.function;
    RunPlan plan = planRun(f, arguments, rows);
    plan.rowsBefore = program.rowsBefore;
    const std::int32_t kind = f.descriptor->resultKind;

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
        prepareFrame(*lane, plan);
        lane->tally.counts.clear();
    }

    const EntryRoutine entry = f.entry;
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
                evaluate<kNumericResult>(lane, plan, entry, o, r, begin, end);
            } else if (kind == kCharacterResult) {
                evaluate<kCharacterResult>(lane, plan, entry, o, r, begin, end);
            } else {
                evaluate<kCallRoutine>(lane, plan, entry, o, r, begin, end);
            }
        }
        if (kind == kCharacterResult) assembly.finish(r, task, lane.textBytes, rowsPerTask);
    });
    if (badRow >= 0) {
        const Input& bad = arguments[static_cast<std::size_t>(badArgument - 1)];
        if (bad.kind == Input::Kind::TextViews) {
            throw std::invalid_argument(argumentName(f, badArgument) + ": row " + std::to_string(badRow) +
                                        " has a negative length (" + std::to_string(bad.views.views[badRow].length) + ")");
        }
        const std::int64_t* offsets = bad.text.offsets;
        throw std::invalid_argument(argumentName(f, badArgument) + ": row " + std::to_string(badRow) +
                                    " has offsets out of order (" + std::to_string(offsets[badRow]) + " to " +
                                    std::to_string(offsets[badRow + 1]) + ")");
    }
    for (auto& lane : program.lanes) mergeTallies(r.messages, lane->tally.counts);
    orderByFirstRow(r.messages);
    program.rowsBefore += rows;
    return r;
}

}  // namespace txengine
