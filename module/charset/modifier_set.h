// The modifier letters: their alphabet, the flag byte each letter sets and
// the ModifierSet that holds one flag per letter for a call.
#pragma once

#include <cstdint>

namespace txscan {

// Flag bytes of a ModifierSet, named by their letter.
enum ModifierFlag : std::uint8_t {
    kModA = 0,
    kModC = 1,
    kModD = 2,
    kModF = 3,
    kModG = 4,
    kModP = 5,
    kModS = 6,
    kModU = 7,
    kModL = 8,
    kModN = 9,
    kModW = 10,
    kModB = 11,   // also set by a negative count or start position
    kModH = 12,
    kModX = 13,
    kModE = 14,
    kModV = 15,
    kModK = 16,
    kModR = 17,
    kModI = 18,
    kModT = 19,
    kModO = 20,
    kModQ = 21,
    kModDefaultDelimiters = 22,   // derived, never a letter
    kModM = 23,
    kModColon = 24,
    kModInterpreted = 25,         // a modifier text has been read
    kModifierFlagCount = 26,
};

// One byte per flag, each 0 or 1; all zero before a call's modifiers are read.
struct ModifierSet {
    std::uint8_t flag[kModifierFlagCount];

    bool has(ModifierFlag f) const { return flag[f] != 0; }
    void set(ModifierFlag f) { flag[f] = 1; }
    void clear(ModifierFlag f) { flag[f] = 0; }
};
static_assert(sizeof(ModifierSet) == 26);

// The letters in alphabet order. The multi-byte path looks a character up in
// this alphabet converted into the session encoding, hence the UTF-16 form
// (its terminator is converted too, as the 25th unit).
inline constexpr char16_t kModifierAlphabet[] = u"ABCDFGHIKLMNOPQSTUVWXER:";
inline constexpr int kModifierLetters = 24;
static_assert(sizeof(kModifierAlphabet) == 2 * (kModifierLetters + 1));

// The flag byte of the letter at each alphabet index.
inline constexpr ModifierFlag kAlphabetFlag[kModifierLetters] = {
    kModA, kModB, kModC, kModD, kModF, kModG, kModH, kModI, kModK, kModL, kModM, kModN,
    kModO, kModP, kModQ, kModS, kModT, kModU, kModV, kModW, kModX, kModE, kModR, kModColon,
};

// The flag byte of an upper-case letter (or ':'), or -1 for any other byte.
constexpr int modifierFlagOf(unsigned char letter) {
    for (int i = 0; i < kModifierLetters; ++i) {
        if (kModifierAlphabet[i] == letter) return kAlphabetFlag[i];
    }
    return -1;
}

}  // namespace txscan
