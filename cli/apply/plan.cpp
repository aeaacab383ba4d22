// Resolves assignments against the input's header and the module's function
// table. Every refusal happens here, before the first data row is read.
#include "cli/apply/plan.h"

#include <cctype>

#include "cli/terminal_text.h"
#include "host/host.h"

namespace txcli {

namespace {

namespace contract = txscan::contract;

bool sameNameIgnoringCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
    }
    return true;
}

// A name a call may use: an input column or an earlier assignment's column.
struct KnownColumn {
    std::string name;
    Source source;
};

class Planner {
public:
    Planner(const std::vector<std::string>& header, txhost::Module& module, txengine::Engine& engine,
            const TerminalText& terminal, std::int64_t resultLength)
        : module_(module), engine_(engine), terminal_(terminal), resultLength_(resultLength) {
        for (std::size_t i = 0; i < header.size(); ++i) {
            Source source;
            source.kind = Source::Kind::InputText;
            source.index = static_cast<int>(i);
            known_.push_back({header[i], source});
        }
    }

    void add(const Assignment& assignment) {
        current_ = &assignment;
        const int assignmentIndex = static_cast<int>(plan_.assignmentNames.size());
        const int step = addStep(assignment.call, assignmentIndex);
        std::string names;
        for (std::size_t part = 0; part < assignment.targets.size(); ++part) {
            const std::string& target = assignment.targets[part];
            for (const auto& k : known_) {
                if (sameNameIgnoringCase(k.name, target)) fail("a column named " + k.name + " exists already");
            }
            Source source;
            source.kind = Source::Kind::Step;
            source.index = step;
            source.part = static_cast<int>(part);
            source.text = plan_.steps[step].textResult;
            known_.push_back({target, source});
            plan_.columns.push_back({target, step, static_cast<int>(part)});
            names += (part ? ", " : "") + target;
        }
        plan_.assignmentNames.push_back(names);
    }

    Plan take() { return std::move(plan_); }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw PlanError(what + " (in: " + current_->source + ")");
    }

    const txhost::FunctionInfo& function(const Call& call) const {
        const txhost::FunctionInfo* other = nullptr;
        for (const auto& f : module_.functions()) {
            if (f.name != call.function) continue;
            const bool routine = f.descriptor->resultKind == contract::kCallRoutine;
            if (routine == call.callRoutine) return f;
            other = &f;
        }
        if (other == nullptr) fail("unknown function " + call.function);
        if (call.callRoutine) fail(call.function + " is a function, not a call routine");
        fail(call.function + " is a call routine: write (POSITION, LENGTH) = CALL " + call.function + "(...)");
    }

    const KnownColumn& lookUp(const std::string& name) const {
        for (const auto& k : known_) {
            if (k.name == name) return k;
        }
        const KnownColumn* found = nullptr;
        for (const auto& k : known_) {
            if (!sameNameIgnoringCase(k.name, name)) continue;
            if (found != nullptr) fail("column name " + name + " is ambiguous (" + found->name + ", " + k.name + ")");
            found = &k;
        }
        if (found == nullptr) fail("unknown column " + name);
        return *found;
    }

    int addStep(const Call& call, int assignment) {
        const txhost::FunctionInfo& info = function(call);
        // The call routine's two outputs are the assignment's targets, not
        // written among the arguments.
        const int hidden = call.callRoutine ? 2 : 0;
        const int given = static_cast<int>(call.arguments.size());
        const int least = info.descriptor->minArgs - hidden;
        const int most = info.descriptor->maxArgs - hidden;
        if (given < least || given > most) {
            fail(call.function + " takes " + (least == most ? std::to_string(least)
                                                             : std::to_string(least) + " to " + std::to_string(most)) +
                 " arguments, not " + std::to_string(given));
        }
        Step step;
        step.function = call.function;
        step.callRoutine = call.callRoutine;
        step.textResult = info.descriptor->resultKind == contract::kCharacterResult;
        step.assignment = assignment;
        step.source = call.source;
        for (int i = 0; i < given; ++i) {
            const int position = i < 2 ? i + 1 : i + 1 + hidden;
            const std::uint32_t type = contract::argumentTypeAt(info.descriptor->argTypes, position);
            step.arguments.push_back(argument(call, i + 1, type, call.arguments[static_cast<std::size_t>(i)], assignment));
        }
        try {
            step.program = engine_.prepare({call.function, call.callRoutine, resultLength_});
        } catch (const std::invalid_argument& e) {
            fail(call.function + ": " + e.what());
        }
        plan_.steps.push_back(std::move(step));
        return static_cast<int>(plan_.steps.size()) - 1;
    }

    Source argument(const Call& call, int number, std::uint32_t type, const Expression& e, int assignment) {
        const bool takesText = (type & contract::kArgCharacter) != 0;
        const bool takesNumber = (type & contract::kArgNumeric) != 0;
        auto demand = [&](bool isText, const std::string& what) {
            if (isText ? takesText : takesNumber) return;
            fail("argument " + std::to_string(number) + " of " + call.function + " takes " +
                 (takesText ? "text" : "a number") + ", not " + what);
        };
        Source source;
        if (std::holds_alternative<Missing>(e)) {
            demand(false, "the missing value");
            source.kind = Source::Kind::Constant;
            source.constantNumber = contract::missingValue();
        } else if (const auto* number = std::get_if<double>(&e)) {
            demand(false, "a number");
            source.kind = Source::Kind::Constant;
            source.constantNumber = *number;
        } else if (const auto* text = std::get_if<std::string>(&e)) {
            demand(true, "text");
            source.kind = Source::Kind::Constant;
            source.text = true;
            source.constantText = terminal_.toSession(*text);
        } else if (const auto* name = std::get_if<Name>(&e)) {
            const KnownColumn& column = lookUp(name->text);
            source = column.source;
            if (source.kind == Source::Kind::InputText && !takesText) source.kind = Source::Kind::InputNumber;
            if (source.kind == Source::Kind::Step) demand(source.text, std::string("column ") + column.name);
        } else {
            const Call& nested = *std::get<std::unique_ptr<Call>>(e);
            const int step = addStep(nested, assignment);
            source.kind = Source::Kind::Step;
            source.index = step;
            source.nested = true;
            source.text = plan_.steps[static_cast<std::size_t>(step)].textResult;
            demand(source.text, nested.source);
        }
        return source;
    }

    txhost::Module& module_;
    txengine::Engine& engine_;
    const TerminalText& terminal_;
    std::int64_t resultLength_;
    std::vector<KnownColumn> known_;
    const Assignment* current_ = nullptr;
    Plan plan_;
};

}  // namespace

Plan makePlan(const std::vector<Assignment>& assignments, const std::vector<std::string>& headerUtf8,
              txhost::Module& module, txengine::Engine& engine, const TerminalText& terminal,
              std::int64_t resultLength) {
    Planner planner(headerUtf8, module, engine, terminal, resultLength);
    for (const auto& assignment : assignments) planner.add(assignment);
    return planner.take();
}

}  // namespace txcli
