// The multi-byte paths' reading of a call: which argument plays which role,
// and interpretArguments, which turns those arguments into text cursors,
// numbers and a ModifierSet through the session's EncodingHandle.
#pragma once

#include <cstdint>

#include "module/charset/modifier_set.h"
#include "module/abi/argument_frame.h"
#include "module/abi/encoding.h"

namespace txscan {

// 1-based argument numbers; 0 means the role is absent in this call.
struct ArgumentRoles {
    std::uint32_t source;
    std::uint32_t second;       // search text (FIND) or word (FINDW)
    std::uint32_t list;         // character list (FINDC, COUNTC)
    std::uint32_t modifiers;
    std::uint32_t start;        // numeric
    std::uint32_t count;        // numeric, SCAN
    std::uint32_t delimiters;   // character list of the word functions
};
static_assert(sizeof(ArgumentRoles) == 7 * 4);

// Which family of functions calls; it decides when the default delimiters apply.
enum CallKind : std::int32_t {
    kCallCounting = 1,      // COUNT, COUNTC, COUNTW
    kCallFinding = 2,       // FIND, FINDC, FINDW
    kCallScanFunction = 3,
    kCallScanRoutine = 4,
};

struct ParsedArguments {
    contract::TextCursor source;
    contract::TextCursor second;
    contract::TextCursor list;
    contract::TextCursor delimiters;
    std::int64_t start;         // 1-based, in characters
    std::int64_t count;         // word number (SCAN)
    std::uint8_t sourceSet;     // 1 when the cursor above was laid out
    std::uint8_t secondSet;
    std::uint8_t listSet;
    std::uint8_t delimitersSet;
    std::int64_t sourceChars;   // without trailing blanks under T
    std::int64_t secondChars;   // likewise
};

// A start or count argument as the interpreter reads it: false when the
// role is absent (k is 0) or its value is not given, missing or above
// 2147483647; otherwise the value truncated toward zero. Values far below
// any text length (down to minus infinity) are held at -2^62 so that the
// conversion stays defined; no answer changes, since every such number lies
// beyond any text. Inline: KSCANX reads its word number here on every row.
inline bool usableValue(const double* number, std::int64_t* value) {
    if (number == nullptr || contract::topBitsAllOnes(*number) || !(*number <= 2147483647.0)) return false;
    constexpr double kFloor = -4611686018427387904.0;
    *value = static_cast<std::int64_t>(*number < kFloor ? kFloor : *number);
    return true;
}
inline bool usableNumber(const contract::ArgumentFrame* frame, std::uint32_t k, std::int64_t* value) {
    return usableValue(k != 0 ? frame->number(static_cast<int>(k)) : nullptr, value);
}

// The start position of a source of `sourceChars` characters: the given
// start (a negative one counts from the end, and sets *negative), else the
// end when `backward` (1 for an empty source), else 1.
std::int64_t startPosition(const contract::ArgumentFrame* frame, std::uint32_t k, bool backward,
                           std::int64_t sourceChars, bool* negative = nullptr);

// Sets the flags of a modifier text's letters in `modifiers` (and
// kModInterpreted), unless the handle has the text skipped.
void readModifierText(contract::EncodingHandle* h, const contract::StringValue* text, ModifierSet* modifiers);

// Fills `out` and `modifiers` from the call's arguments. `wide` is 0 on every
// path of this module (texts in the session encoding, one unit per byte).
void interpretArguments(contract::ArgumentFrame* frame, contract::EncodingHandle* h, const ArgumentRoles& roles,
                        ParsedArguments* out, ModifierSet* modifiers, std::uint8_t wide, std::int32_t kind);

}  // namespace txscan
