// The class letters' questions to the session's EncodingHandle (operation
// word, mask and second argument), and the classTable mask that answers the
// same question for a character of one byte. The wide bits (0x100, 0x200)
// only ever hold for characters of more than one byte, so the low byte of the
// handle's mask is the byte table's.
#pragma once

#include <cstdint>

#include "module/abi/encoding.h"
#include "module/charset/modifier_set.h"

namespace txscan {

struct ClassQuestion {
    ModifierFlag letter;
    int word;              // handle operation
    std::int32_t mask;
    std::int32_t which;    // the operation's second argument
};

inline constexpr ClassQuestion kClassQuestions[] = {
    {kModA, contract::kOpClassTestAlpha, 0x103, 1},   {kModC, contract::kOpClassTestCtlDigit, 0x40, 0},
    {kModD, contract::kOpClassTestCtlDigit, 0x04, 0}, {kModG, contract::kOpClassTestGraphic, 0x317, 0},
    {kModP, contract::kOpClassTestAlpha, 0x10, 0},    {kModS, contract::kOpClassTestSpace, 0x28, 0},
    {kModW, contract::kOpClassTestAlpha, 0x337, 0},   {kModX, contract::kOpClassTestHex, 0x80, 0},
};

// classTable mask of a class letter; 0 for letters that are not class tests.
constexpr std::uint8_t byteClassMask(ModifierFlag letter) {
    for (const ClassQuestion& q : kClassQuestions) {
        if (q.letter == letter) return static_cast<std::uint8_t>(q.mask & 0xFF);
    }
    return 0;
}

// The two quote characters of Q, single bytes in every session encoding.
constexpr bool isQuoteByte(unsigned char c) { return c == '"' || c == '\''; }

}  // namespace txscan
