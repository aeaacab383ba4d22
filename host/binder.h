// One function's call, bound the same way at every door.
//
// Why: the module reads a call from an ArgumentFrame whose rules are easy to
// get subtly wrong: which types each position takes (the descriptor), the
// call routine's two outputs sitting at positions 3 and 4 between its inputs,
// the re-check flag on the first text, result places primed so that "not
// stored" can be told from any value, and which arguments a cached set
// (modifier O) depends on. CallSite, the row engine, SQLite and every later
// door (DuckDB, PostgreSQL) bind through here, so each rule lives once and a
// door keeps only what is its own: turning its values into a text, a number
// or an absent argument, and its results and errors back.
//
// Inputs are the arguments a door gives, counted from 1, the call routine's
// outputs not among them; positions are the frame's. Nothing here allocates
// per call: a BoundFrame is made once per call site and reused row after row.
#pragma once

#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/host.h"

namespace txhost {

// What a door has for one argument.
enum class ValueKind { Absent, Number, Text };

// Site kind of a call site that may keep a parsed set in setCache (modifier
// O). A door uses it only where every argument the set depends on
// (Binding::setDependsOn) is the same on every call of the site; otherwise a
// set parsed from one row would answer for the next.
inline constexpr std::uint8_t kCachingSiteKind = 0x48;
inline constexpr std::uint8_t kParsingSiteKind = 0;
static_assert(contract::siteAllowsCaching(kCachingSiteKind) && !contract::siteAllowsCaching(kParsingSiteKind));

// One function of a module as a door sees it, looked up once.
class Binding {
public:
    // Throws std::invalid_argument when the module has no such function
    // (Module::function).
    Binding(const Module& module, std::string_view name, bool callRoutine = false);
    explicit Binding(const FunctionInfo& function);

    const FunctionInfo& function() const { return *function_; }
    const std::string& name() const { return function_->name; }
    contract::EntryRoutine entry() const { return function_->entry; }
    std::uint8_t resultKind() const { return resultKind_; }
    bool callRoutine() const { return resultKind_ == contract::kCallRoutine; }

    // The call routine's two outputs (position, length) and where they sit.
    static constexpr int kFirstOutput = 3;
    int outputs() const { return callRoutine() ? 2 : 0; }
    int minInputs() const { return function_->descriptor->minArgs - outputs(); }
    int maxInputs() const { return function_->descriptor->maxArgs - outputs(); }
    // Frame position of input k: the outputs push the inputs from the third
    // on. Worked out once, as a door asks on every row.
    int position(int input) const { return positions_[input]; }
    bool isOutput(int position) const {
        return callRoutine() && (position == kFirstOutput || position == kFirstOutput + 1);
    }

    bool takesNumber(int input) const { return (typeCode(input) & contract::kArgNumeric) != 0; }
    bool takesText(int input) const { return (typeCode(input) & contract::kArgCharacter) != 0; }
    // A parsed set (modifier O) is made from the texts after the first.
    bool setDependsOn(int input) const { return input > 1 && takesText(input); }

    // Empty when the count or kind is one the descriptor allows, else the
    // one-line reason ("KFIND takes 2 to 4 inputs, not 5", "KFIND: argument
    // 2 must be character"); require* throw it as std::invalid_argument.
    std::string countProblem(int inputs) const;
    std::string kindProblem(int input, ValueKind kind) const;
    void requireCount(int inputs) const;
    void requireKind(int input, ValueKind kind) const;

private:
    std::uint32_t typeCode(int input) const {
        return contract::argumentTypeAt(function_->descriptor->argTypes, position(input));
    }
    const FunctionInfo* function_;
    std::uint8_t resultKind_;
    int positions_[contract::kMaxArguments + 1];   // by input; [0] unused
};

// One call site's frame and the values it points at, reused call after call
// (so setCache persists). Texts are never copied: a bound text must stay
// where it is until the call returns. A value stays bound until rebound or
// start() is called, so constants are bound once.
class BoundFrame {
public:
    explicit BoundFrame(const Binding& binding, contract::CallContext* context = nullptr,
                        std::uint8_t siteKind = kParsingSiteKind);
    // Frees the set the module kept in setCache (modifier O): nothing else
    // points at it once the site is gone, and a program that prepares
    // statements all day would otherwise hold every set it ever parsed.
    ~BoundFrame();
    BoundFrame(const BoundFrame&) = delete;
    BoundFrame& operator=(const BoundFrame&) = delete;

    const Binding& binding() const { return *binding_; }
    contract::ArgumentFrame& frame() { return frame_; }
    const contract::ArgumentFrame& frame() const { return frame_; }
    void setSiteKind(std::uint8_t kind) { frame_.siteKind = kind; }
    void setCallContext(contract::CallContext* context) { frame_.callContext = context; }
    // On: the first text carries the multi-byte re-check flag, which asks a
    // byte path to look at the whole text again for multi-byte characters.
    // Every entry has looked already before it picks a byte path, so a door
    // calling entries leaves it off; a harness that calls a byte path itself
    // turns it on.
    void setRecheck(bool on) { recheck_ = on; }

    // A call of `inputs` inputs: every slot cleared, the outputs primed.
    void start(int inputs);

    // Input k's value for the calls to come.
    void text(int input, const char* data, std::int64_t length) { textAt(binding_->position(input), data, length); }
    void number(int input, double value) { numberAt(binding_->position(input), value); }
    void absent(int input) { absentAt(binding_->position(input)); }
    // The same by frame position, for a door whose arguments already count
    // the outputs (CallSite). numberPlace binds a number that lives elsewhere.
    void textAt(int position, const char* data, std::int64_t length) {
        strings_[index(position)] = contract::StringValue{length, length, const_cast<char*>(data), nullptr, length};
        slot(position) = {textFlags(position), 0, {}, &strings_[index(position)]};
    }
    void numberAt(int position, double value) {
        numbers_[index(position)] = value;
        numberPlace(position, &numbers_[index(position)]);
    }
    void numberPlace(int position, double* place) { slot(position) = {contract::kTypeNumeric, 0, {}, place}; }
    void absentAt(int position) { slot(position) = {}; }

    // The outputs back to "not stored" (start() does it once; a door that
    // reads them after every call primes them before every call).
    void primeOutputs() {
        if (!binding_->callRoutine()) return;
        for (const int p : {Binding::kFirstOutput, Binding::kFirstOutput + 1}) numberAt(p, kNotStored);
    }

    // Where a text result goes: a buffer of `capacity` bytes, growable from
    // `growPool` up to maxLength when a pool is given.
    void useTextResult(char* buffer, std::int64_t capacity, void* growPool = nullptr, std::int64_t maxLength = -1) {
        textResult_ = contract::StringValue{maxLength < 0 ? capacity : maxLength, kTextNotStored, buffer, growPool,
                                            capacity};
    }

    // Calls the entry with the result place primed; returns its status.
    // Error marks are cleared first, so they are this call's.
    std::int32_t call() {
        for (int k = 0; k < frame_.argCount; ++k) frame_.args[k].errorMarks = 0;
        void* place = nullptr;
        if (binding_->resultKind() == contract::kNumericResult) {
            numberResult_ = kNotStored;
            place = &numberResult_;
        } else if (binding_->resultKind() == contract::kCharacterResult) {
            textResult_.length = kTextNotStored;
            place = &textResult_;
        }
        return entry_(&frame_, place);
    }

    // The numeric result, or the call routine's position; empty when the
    // module stored nothing.
    std::optional<double> number() const {
        return stored(binding_->callRoutine() ? numbers_[Binding::kFirstOutput - 1] : numberResult_);
    }
    // The call routine's length.
    std::optional<double> length() const { return stored(numbers_[Binding::kFirstOutput]); }
    // The text result, or null when none was stored or its length is one
    // the buffer cannot hold; textImpossible() tells the latter apart.
    const contract::StringValue* text() const {
        return textResult_.length == kTextNotStored || textImpossible() ? nullptr : &textResult_;
    }
    bool textImpossible() const {
        const auto& r = textResult_;
        return r.length != kTextNotStored &&
               (r.length < 0 || r.length > r.capacity || (r.data == nullptr && r.length > 0));
    }
    std::uint8_t errorMarks(int input) const { return frame_.arg(binding_->position(input)).errorMarks; }

private:
    static constexpr double kNotStored = std::bit_cast<double>(kResultSentinelBits);
    static constexpr std::int64_t kTextNotStored = -1;
    static std::size_t index(int position) { return static_cast<std::size_t>(position - 1); }
    contract::ArgumentSlot& slot(int position) { return frame_.args[position - 1]; }
    std::uint8_t textFlags(int position) const {
        return static_cast<std::uint8_t>(contract::kTypeCharacter |
                                         (position == 1 && recheck_ ? contract::kTypeRecheck : 0));
    }
    static std::optional<double> stored(double value) {
        if (std::bit_cast<std::uint64_t>(value) == kResultSentinelBits) return std::nullopt;
        return value;
    }

    const Binding* binding_;
    contract::EntryRoutine entry_;
    bool recheck_ = false;
    contract::ArgumentFrame frame_{};
    double numbers_[contract::kMaxArguments]{};
    contract::StringValue strings_[contract::kMaxArguments]{};
    double numberResult_ = kNotStored;
    contract::StringValue textResult_{0, kTextNotStored, nullptr, nullptr, 0};
};

// Statuses for people, worded once for every door: statusName gives the
// name ("missing start"), statusText the name and the number as every
// message shows them ("missing start (status 0x1D801)").
std::string statusName(std::int32_t status);
std::string statusText(std::int32_t status);

// The text of a note or error as the host's catalogue words it (the text the
// event carries, when the host already made one).
std::string messageText(const MessageEvent& event);

}  // namespace txhost
