// What `txscan apply` computes, resolved once before any data is read: every
// call of every assignment (nested calls first) as a step with a prepared
// engine program, each argument bound to an input column, an earlier step or
// a constant, and the new columns in output order.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/apply/assignment.h"
#include "engine/engine.h"

namespace txhost {
class Module;
}

namespace txcli {

class TerminalText;

// A fault in the assignments against this input (unknown column or function,
// wrong argument count or type); one line.
struct PlanError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Source {
    enum class Kind {
        InputText,     // a column of the input as text
        InputNumber,   // a column of the input read as numbers (empty or unreadable: missing)
        Step,          // the result of an earlier step
        Constant,
        Absent,
    };
    Kind kind = Kind::Absent;
    int index = 0;                 // input column or step
    int part = 0;                  // Step: 0 the result (or position), 1 the length
    // Step: a nested call (a failed row fails the call it feeds, as in `eval`)
    // rather than a named column (read back as its cells read: missing text is
    // empty, a missing number is missing).
    bool nested = false;
    bool text = false;             // Step and Constant: a text value
    std::string constantText;      // session encoding
    double constantNumber = 0;
};

struct Step {
    std::string function;
    bool callRoutine = false;
    bool textResult = false;       // the KSCANX function
    std::vector<Source> arguments;
    int assignment = 0;            // the assignment this step belongs to
    std::string source;            // the call as written
    std::optional<txengine::Program> program;
};

struct NewColumn {
    std::string name;              // as written (UTF-8)
    int step = 0;
    int part = 0;
};

struct Plan {
    std::vector<Step> steps;
    std::vector<NewColumn> columns;
    std::vector<std::string> assignmentNames;   // "surname", "pos, len"
};

// Throws PlanError.
Plan makePlan(const std::vector<Assignment>& assignments, const std::vector<std::string>& headerUtf8,
              txhost::Module& module, txengine::Engine& engine, const TerminalText& terminal,
              std::int64_t resultLength);

}  // namespace txcli
