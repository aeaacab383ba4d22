// How the UTF-8 search paths read a call: as interpretArguments reads it,
// except that the source is checked, counted and trimmed here in one pass
// over its bytes (and the start worked out from that count), so that the
// source is walked once before the search. The search text or list must be
// well-formed as well.
#pragma once

#include <cstdint>

#include "module/abi/argument_frame.h"
#include "module/abi/encoding.h"
#include "module/charset/argument_interpreter.h"

namespace txscan {

struct Utf8Source {
    const std::uint8_t* data;
    std::int64_t bytes;
    std::int64_t characters;   // all of them, trailing blanks included
};

// False, having read nothing that matters, when argument 1 is absent or
// empty, or a text the path walks (the source, roles.second, roles.list) is
// not well-formed UTF-8. `sourceChars` is the source's character count when
// the caller has it (-1: malformed), so that the source is not read again. Otherwise `parsed` is as interpretArguments leaves it
// but for the source cursor, which stays unset.
bool readUtf8Call(contract::ArgumentFrame* frame, contract::EncodingHandle* h, const ArgumentRoles& roles,
                  std::int32_t kind, std::int64_t sourceChars, ParsedArguments* parsed, ModifierSet* modifiers,
                  Utf8Source* source);

}  // namespace txscan
