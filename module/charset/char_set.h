// The byte paths' character set: a 256-entry membership table over byte
// values, and the rules that fill it from class letters and a character list
// with the host's byte tables (upcaseMap, lowcaseMap, classTable).
#pragma once

#include <bit>
#include <cstdint>

#include "module/frame/module_state.h"

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

// The set buildByteSet would fill, asked one byte at a time instead: for a
// short text, where filling and scanning 256 entries costs more than asking
// a few bytes. Covers the class tests of classTable, D, H and a short list.
struct ByteSetTest {
    const std::uint8_t* classes;   // the session's classTable
    const std::uint8_t* upper;     // upcaseMap and lowcaseMap under I, else null
    const std::uint8_t* lower;
    const std::uint8_t* list;
    std::int64_t listLength;
    std::uint8_t mask;             // classTable bits of the class letters
    bool digits, tab, negated;

    bool holds(std::uint8_t b) const {
        bool member = (classes[b] & mask) != 0 || (digits && static_cast<unsigned>(b - '0') < 10) || (tab && b == '\t');
        for (std::int64_t i = 0; i < listLength && !member; ++i) {
            member = upper == nullptr ? b == list[i] : b == upper[list[i]] || b == lower[list[i]];
        }
        return member != negated;
    }
};

// classTable mask of each class letter by its ClassLetterBit index; 0 for
// the letters that are not plain class tests (D, F, H, N).
inline constexpr std::uint8_t kClassTableMasks[13] = {
    0x03,   // A
    0x40,   // C
    0,      // D
    0,      // F
    0x17,   // G
    0,      // H
    0x02,   // L
    0,      // N
    0x10,   // P
    0x08,   // S
    0x01,   // U
    0x37,   // W
    0x80,   // X
};

inline std::uint8_t classTableMask(std::uint16_t classLetters) {
    std::uint8_t mask = 0;
    for (unsigned bits = classLetters & 0x1FFFu; bits != 0; bits &= bits - 1) {
        mask |= kClassTableMasks[std::countr_zero(bits)];
    }
    return mask;
}

// Short lists only: each byte asked walks the list. False (and nothing to
// use) for F or N, whose fixed texts with their lower-case forms want the
// table, or a list longer than that. Inline: it serves the shortest rows.
inline constexpr std::int64_t kByteSetTestListMax = 8;
inline bool byteSetTestOf(std::uint16_t classLetters, const char* list, std::int64_t length, bool caseless,
                          bool negated, ByteSetTest* test) {
    if ((classLetters & (kClassLetterF | kClassLetterN)) != 0 || length > kByteSetTestListMax) return false;
    const contract::HostVector& h = host();
    *test = ByteSetTest{h.classTable,
                        caseless ? h.upcaseMap : nullptr,
                        caseless ? h.lowcaseMap : nullptr,
                        reinterpret_cast<const std::uint8_t*>(list),
                        list == nullptr ? 0 : length,
                        classTableMask(classLetters),
                        (classLetters & kClassLetterD) != 0,
                        (classLetters & kClassLetterH) != 0,
                        negated};
    return true;
}

}  // namespace txscan
