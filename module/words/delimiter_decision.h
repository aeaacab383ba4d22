// The word scanner's delimiter decision without cursor moves, for the paths
// that walk single-byte or UTF-8 text on its bytes (KSCANX, and KCOUNTW and
// KFINDW in UTF-8 sessions): a 256-entry table, built once per call from the
// session's byte tables, answers for characters of one byte; characters of
// more than one byte ask the handle the scanner's questions, remembered per
// character in a small memo on the call's stack.
#pragma once

#include <cstdint>

#include "module/abi/encoding.h"
#include "module/charset/argument_interpreter.h"
#include "module/charset/char_decision.h"
#include "module/frame/encoding_ops.h"

namespace txscan {

// One call's decision state; lives on the call's stack. `parsed` and `mods`
// are the interpreter's reading of the call (the delimiter list is read from
// `parsed.delimiters`).
struct DelimiterDecision {
    contract::EncodingHandle* h;
    bool utf8;
    ParsedArguments parsed;
    ModifierSet mods;
    const std::uint8_t* list;     // delimiter list bytes, or null
    std::int64_t listBytes;
    bool listHasWide;             // a list character of more than one byte
    bool wideAsksHandle;          // case or class questions for wide characters
    const std::uint8_t* decision; // after K, for characters of one byte: `built` or a constant table
    std::uint8_t built[256];
    // Handle-side state for characters of more than one byte, set up on the
    // first such character.
    HandleQuestions questions;
    bool handleReady;
    CharMemo<16> memo;
};

// Sets up the decision once `h`, `utf8`, `parsed` and `mods` are filled.
// False when the delimiter list is not well-formed UTF-8 (the scanner then
// has to take the call).
bool prepareDelimiterDecision(DelimiterDecision& d);

// The decision for a character of more than one byte (well-formed UTF-8 of
// `length` bytes at p), K applied.
bool wideDelimiter(DelimiterDecision& d, const std::uint8_t* p, int length);

// The decision, K applied, for the well-formed character of `length` bytes at p.
inline bool delimiterAt(DelimiterDecision& d, const std::uint8_t* p, int length) {
    return length == 1 ? d.decision[*p] != 0 : wideDelimiter(d, p, length);
}

}  // namespace txscan
