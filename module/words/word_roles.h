// Which argument plays which role in a KCOUNTW or KFINDW call, read once for
// the word scanner and for the UTF-8 paths that must read calls the same way.
#pragma once

#include "module/abi/argument_frame.h"
#include "module/charset/argument_interpreter.h"

namespace txscan {

// Source 1; delimiters 2 and modifiers 3 when given.
ArgumentRoles countWordsRoles(const contract::ArgumentFrame* frame);

// Source 1, word 2, and the delimiter, modifier and start roles of the
// signature the argument types form; false when they form none.
bool findWordRoles(const contract::ArgumentFrame* frame, ArgumentRoles* roles);

}  // namespace txscan
