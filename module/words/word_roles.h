// Which argument plays which role in a KCOUNTW or KFINDW call, read once for
// the word scanner and for the UTF-8 paths that must read calls the same way,
// and the one-byte delimiter table of the word functions' byte shortcuts.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/abi/argument_frame.h"
#include "module/charset/argument_interpreter.h"
#include "module/charset/wide_classes.h"

namespace txscan {

// Source 1; delimiters 2 and modifiers 3 when given.
ArgumentRoles countWordsRoles(const contract::ArgumentFrame* frame);

// Source 1, word 2, and the delimiter, modifier and start roles of the
// signature the argument types form; false when they form none.
bool findWordRoles(const contract::ArgumentFrame* frame, ArgumentRoles* roles);

// The delimiters of a word call when each is one byte: the default ones, or
// a list filled into `table`. In UTF-8 a wider character is then never a
// delimiter, so in well-formed text the words are runs of bytes, found as in
// single-byte text. Null for a UTF-8 list that holds a wider character, or a
// list with no usable value. Inline: KSCANX takes it on every row.
inline const std::uint8_t* oneByteDelimiters(const contract::StringValue* list, bool defaults, bool utf8,
                                             std::uint8_t (&table)[256]) {
    if (defaults) return kDefaultDelimiterBytes.has;
    if (list == nullptr || list->length < 0 || (list->data == nullptr && list->length > 0)) return nullptr;
    std::memset(table, 0, sizeof table);
    for (std::int64_t i = 0; i < list->length; ++i) {
        const auto c = static_cast<std::uint8_t>(list->data[i]);
        if (utf8 && c >= 0x80) return nullptr;
        table[c] = 1;
    }
    return table;
}

}  // namespace txscan
