// Calls as a person writes them on the command line, e.g.
//   KFIND("abcabc", "bc", -4)      KSCANX('a b', -1)      CALL KSCANX(s, 2, pos, len)
// String literals take single or double quotes (a doubled quote inside), `.`
// is a missing number, calls nest, and names stand for the output arguments
// of a call routine. A name in backticks (`first name`) may hold any text.
#pragma once

#include <memory>
#include <optional>
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

// A name in backticks, for names a bare name cannot spell (`first name`,
// `Adj. Close*`), as pandas' query and SQL dialects write them: any bytes,
// a doubled backtick standing for one. `pos` is at the opening backtick and
// ends past the closing one; nullopt for a name left open or empty.
std::optional<std::string> readQuotedName(std::string_view text, std::size_t& pos);

}  // namespace txcli
