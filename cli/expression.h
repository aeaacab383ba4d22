// Calls as a person writes them on the command line, e.g.
//   KFIND("abcabc", "bc", -4)      KSCANX('a b', -1)      CALL KSCANX(s, 2, pos, len)
// String literals take single or double quotes (a doubled quote inside), `.`
// is a missing number, calls nest, and names stand for the output arguments
// of a call routine.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace txcli {

struct Call;

struct Missing {};
struct Name {
    std::string text;
};
using Expression = std::variant<Missing, double, std::string, Name, std::unique_ptr<Call>>;

struct Call {
    bool callRoutine = false;   // written with CALL
    std::string function;       // upper-cased
    std::vector<Expression> arguments;
    std::string source;         // the text as written
};

struct SyntaxError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Calls nest at most this deep (the reader and the evaluator recurse once
// per level); deeper text is a SyntaxError.
inline constexpr int kMaxNesting = 100;

// Parses one whole call; throws SyntaxError with the position of the fault.
Call parseCall(std::string_view text);

}  // namespace txcli
