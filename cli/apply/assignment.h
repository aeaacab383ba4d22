// One assignment of `txscan apply` as a person writes it:
//   surname = KSCANX(name, -1)
//   (pos, len) = CALL KSCANX(name, 2)
//   `word count` = KCOUNTW(`first name`)
// The right side is a call of the `eval` language whose bare names stand for
// columns of the input or new columns made by earlier assignments.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/expression.h"

namespace txcli {

struct Assignment {
    std::vector<std::string> targets;   // one name, or two for a call routine (position, length)
    Call call;
    std::string source;                 // the assignment as written
};

// Throws SyntaxError naming the fault and the text.
Assignment parseAssignment(std::string_view text);

}  // namespace txcli
