// The character classes on the multi-byte paths: each class letter's test of
// one character through the session's EncodingHandle, and the fixed lists
// (F, N, H and the extra symbols of P) laid out as cursors.
#pragma once

#include <cstdint>

#include "module/charset/modifier_set.h"
#include "module/abi/encoding.h"

namespace txscan {

// The default delimiters and the fixed lists of modifiers F, N and P in the
// session encoding's byte form; every encoding the host offers keeps these
// ASCII characters as single bytes, so every path shares them.
inline constexpr char kDefaultDelimiterText[] = " !$%&()*+,-./;<^|";
inline constexpr char kNameStartText[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
inline constexpr char kNameCharsText[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_0123456789";
inline constexpr char kExtraPunctText[] = "`+$=|<>^~";
static_assert(sizeof kDefaultDelimiterText - 1 == 17);
static_assert(sizeof kNameStartText - 1 == 53 && sizeof kNameCharsText - 1 == 63);

// The same lists as tables over byte values, for the walks on bytes.
struct ByteTable {
    std::uint8_t has[256];
};
constexpr ByteTable byteTableOf(const char* text) {
    ByteTable t{};
    for (const char* p = text; *p != '\0'; ++p) t.has[static_cast<unsigned char>(*p)] = 1;
    return t;
}
inline constexpr ByteTable kDefaultDelimiterBytes = byteTableOf(kDefaultDelimiterText);
inline constexpr ByteTable kNameStartBytes = byteTableOf(kNameStartText);
inline constexpr ByteTable kNameCharBytes = byteTableOf(kNameCharsText);
inline constexpr ByteTable kExtraPunctBytes = byteTableOf(kExtraPunctText);

// Cursors over the fixed lists a call's class letters need; a list is laid
// out only when its letter is set.
struct WideClassLists {
    contract::TextCursor nameStart;    // F: 53 characters
    contract::TextCursor nameChars;    // N: 63 characters
    contract::TextCursor tab;          // H
    contract::TextCursor extraPunct;   // P: symbols taken beside the punctuation class
};

void setupWideClassLists(contract::EncodingHandle* h, const ModifierSet& modifiers, WideClassLists* lists);

// Whether the class of `letter` (a class flag of ModifierSet) holds for the
// character at `source`, a copy of which is in the one-character cursor
// `held`. U and L ask caseTest of the held character; A C D G S W X ask
// classTest of the source cursor; P asks classTest of the held character or
// looks for it among the extra symbols; F, N and H look it up in their lists.
bool wideClassHolds(contract::EncodingHandle* h, ModifierFlag letter, WideClassLists* lists,
                    contract::TextCursor* source, contract::TextCursor* held);

}  // namespace txscan
