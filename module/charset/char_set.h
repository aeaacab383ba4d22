// The byte paths' character set: a 256-entry membership table over byte
// values, and the rules that fill it from class letters and a character list
// with the host's byte tables (upcaseMap, lowcaseMap, classTable).
#pragma once

#include <cstdint>

namespace txscan {

// Entry b is 1 when byte value b is a member, else 0 (never anything else:
// the scanners and negation rely on it).
struct CharSet {
    std::uint8_t member[256];
};
static_assert(sizeof(CharSet) == 256);

// The class letters, one bit each, so that a worker can gather the letters
// of a modifier text first and fill the set once.
enum ClassLetterBit : std::uint16_t {
    kClassLetterA = 1u << 0,    // alphabetic
    kClassLetterC = 1u << 1,    // control characters
    kClassLetterD = 1u << 2,    // digits
    kClassLetterF = 1u << 3,    // characters that may begin a name
    kClassLetterG = 1u << 4,    // graphic characters
    kClassLetterH = 1u << 5,    // horizontal tab
    kClassLetterL = 1u << 6,    // lower-case letters
    kClassLetterN = 1u << 7,    // characters of a name
    kClassLetterP = 1u << 8,    // punctuation
    kClassLetterS = 1u << 9,    // white space
    kClassLetterU = 1u << 10,   // upper-case letters
    kClassLetterW = 1u << 11,   // printable characters
    kClassLetterX = 1u << 12,   // hexadecimal digits
};

// The class bit of an upper-case class letter, 0 for any other byte.
constexpr std::uint16_t classLetterBit(unsigned char letter) {
    switch (letter) {
        case 'A': return kClassLetterA;
        case 'C': return kClassLetterC;
        case 'D': return kClassLetterD;
        case 'F': return kClassLetterF;
        case 'G': return kClassLetterG;
        case 'H': return kClassLetterH;
        case 'L': return kClassLetterL;
        case 'N': return kClassLetterN;
        case 'P': return kClassLetterP;
        case 'S': return kClassLetterS;
        case 'U': return kClassLetterU;
        case 'W': return kClassLetterW;
        case 'X': return kClassLetterX;
        default: return 0;
    }
}

void clearSet(CharSet* set);

// Adds the classes of `classLetters` (ClassLetterBit) in one pass over the
// 256 byte values of the session's classTable, plus the fixed texts of D,
// F, N and H.
void addByteClasses(CharSet* set, std::uint16_t classLetters);

// Adds each list byte; caseless adds its upcaseMap and lowcaseMap images
// instead (classes are never widened that way).
void addListBytes(CharSet* set, const char* list, std::int64_t length, bool caseless);

// Every entry e becomes 1 - e.
void negateSet(CharSet* set);

// The set every byte path builds from its class letters and list: the
// classes, the list's bytes (under I their upcaseMap and lowcaseMap images),
// and all of it turned round when negated.
void buildByteSet(CharSet* set, std::uint16_t classLetters, const char* list, std::int64_t length, bool caseless,
                  bool negated);

}  // namespace txscan
