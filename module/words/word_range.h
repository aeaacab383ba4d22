// What a scan for the n-th word hands to KSCANX's result step: a range of
// character indexes of the source, or no such word.
#pragma once

#include <cstdint>

#include "module/charset/argument_interpreter.h"
#include "module/charset/modifier_set.h"
#include "module/abi/argument_frame.h"
#include "module/frame/encoding_ops.h"
#include "module/abi/encoding.h"

namespace txscan {

struct WordRange {
    bool found;           // false: no such word (or the scan never started)
    std::int64_t first;   // 0-based index of the word's first character
    std::int64_t end;     // index just past its last; first == end for an empty word
};

// Writes the function's string (textResult given) or the call routine's
// position and length (arguments 3 and 4). `parsed.source` must still be
// attached to the source text.
std::int32_t storeWordResult(contract::ArgumentFrame* frame, contract::StringValue* textResult,
                             contract::EncodingHandle* h, ParsedArguments* parsed, const ModifierSet& modifiers,
                             const WordRange& range);

// The function's string from the word's bytes: R and Q trimming, the
// reservation, and the cut to whole characters.
std::int32_t storeWordText(contract::StringValue* result, contract::EncodingHandle* h, const char* word,
                           std::int64_t n, const ModifierSet& modifiers);

// Byte offset of character `index` of a cursor's text whose length in
// characters is `chars` (trailing blanks left out when `trimmed`). The
// cursor must stand at character 0. Indexes at or past `chars` map to the
// end of the (trimmed) bytes, so the host is never asked about the position
// one past the last character. A range may reach into the trimmed blanks
// (a scan that starts at index 0 of a source that T left empty): those are
// one byte each.
inline std::int64_t byteOffsetAt(contract::EncodingHandle* h, contract::TextCursor* cursor, std::int64_t index,
                                 std::int64_t chars, bool trimmed) {
    if (index <= 0) return 0;
    if (index < chars) return enc::byteOffsetOf(h, cursor, index);
    if (!trimmed) return cursor->length;
    const std::int64_t offset = enc::blankTrimmedBytes(h, cursor->text, cursor->length) + (index - chars);
    return offset < cursor->length ? offset : cursor->length;
}

}  // namespace txscan
