// What each byte-path function makes of a modifier byte once upcaseMap has
// folded it: a class letter, one of the function's behaviour letters, an
// ignored blank, or a letter it does not know (note 744). Each worker
// declares its own table as a constant.
#pragma once

#include <cstdint>
#include <string_view>

#include "module/charset/char_set.h"
#include "module/charset/modifier_set.h"
#include "module/frame/module_state.h"

namespace txscan {

enum class LetterUse : std::uint8_t { Note, Ignore, ClassLetter, Behaviour };

struct LetterRule {
    LetterUse use;
    std::uint8_t target;   // ClassLetter: index of its ClassLetterBit; Behaviour: its ModifierFlag
};

struct LetterTable {
    const char* functionName;   // the short name the note carries
    LetterRule rule[256];       // indexed by the folded byte
};

// A function's table: `behaviourLetters` are its switches, `acceptsClasses`
// tells whether the class letters fill its set (else they draw a note like
// every other unknown letter). A blank is always ignored.
constexpr LetterTable makeLetterTable(const char* functionName, std::string_view behaviourLetters,
                                      bool acceptsClasses) {
    LetterTable table{functionName, {}};
    for (int u = 0; u < 256; ++u) table.rule[u] = {LetterUse::Note, 0};
    table.rule[static_cast<unsigned char>(' ')] = {LetterUse::Ignore, 0};
    if (acceptsClasses) {
        for (int u = 'A'; u <= 'Z'; ++u) {
            const std::uint16_t bit = classLetterBit(static_cast<unsigned char>(u));
            if (bit == 0) continue;
            std::uint8_t index = 0;
            while ((1u << index) != bit) ++index;
            table.rule[u] = {LetterUse::ClassLetter, index};
        }
    }
    for (char letter : behaviourLetters) {
        const auto u = static_cast<unsigned char>(letter);
        table.rule[u] = {LetterUse::Behaviour, static_cast<std::uint8_t>(modifierFlagOf(u))};
    }
    return table;
}

// What a modifier text asked for on a byte path.
struct ByteModifiers {
    ModifierSet flags;          // behaviour letters only
    std::uint16_t classLetters; // ClassLetterBit of every class letter seen
};

// Issues note 744 for each letter of the text `table` does not know, in
// text order.
void noteUnknownLetters(const LetterTable& table, const char* text, std::int64_t length);

// Folds each byte of the modifier text with upcaseMap and applies `table`; every unknown byte draws note 744 (kind 6)
// with the function's name and the folded byte, in text order, and reading
// goes on. A null or empty text gives no flags. Inline: a call's modifiers
// are mostly a letter or two, and on short rows the call itself showed. The
// notes are issued after the reading, so that a call within the loop does
// not make every call save its registers around it.
inline ByteModifiers readByteModifiers(const LetterTable& table, const char* text, std::int64_t length) {
    ByteModifiers out{};
    if (text == nullptr) return out;
    const std::uint8_t* upper = host().upcaseMap;
    bool unknown = false;
    for (std::int64_t i = 0; i < length; ++i) {
        const LetterRule rule = table.rule[upper[static_cast<unsigned char>(text[i])]];
        if (rule.use == LetterUse::ClassLetter) {
            out.classLetters |= static_cast<std::uint16_t>(1u << rule.target);
        } else if (rule.use == LetterUse::Behaviour) {
            out.flags.flag[rule.target] = 1;
        } else {
            unknown |= rule.use == LetterUse::Note;
        }
    }
    if (unknown) noteUnknownLetters(table, text, length);
    return out;
}

}  // namespace txscan
