// Filling a byte-path CharSet from class letters and character lists.
#include "module/charset/char_set.h"

#include <bit>
#include <cstring>

#include "module/frame/module_state.h"

namespace txscan {

namespace {

// classTable mask of each class letter by its ClassLetterBit index; 0 for
// the letters that are not plain class tests (D, F, H, N).
constexpr std::uint8_t kTableMasks[13] = {
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

// D takes the ten digits, F the 27 name-start characters, N all 37.
constexpr char kNameText[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_";
constexpr int kDigitCount = 10;
constexpr int kNameTextLength = sizeof kNameText - 1;

void addTextWithLowerForms(CharSet* set, const char* text, int length) {
    const std::uint8_t* lower = host().lowcaseMap;
    for (int i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        set->member[c] = 1;
        set->member[lower[c]] = 1;
    }
}

std::uint8_t classTableMask(std::uint16_t classLetters) {
    std::uint8_t mask = 0;
    for (unsigned bits = classLetters & 0x1FFFu; bits != 0; bits &= bits - 1) mask |= kTableMasks[std::countr_zero(bits)];
    return mask;
}

}  // namespace

bool byteSetTestOf(std::uint16_t classLetters, const char* list, std::int64_t length, bool caseless, bool negated,
                   ByteSetTest* test) {
    if ((classLetters & (kClassLetterF | kClassLetterN)) != 0 || length > kByteSetTestListMax) return false;
    *test = ByteSetTest{host().classTable,
                        caseless ? host().upcaseMap : nullptr,
                        caseless ? host().lowcaseMap : nullptr,
                        reinterpret_cast<const std::uint8_t*>(list),
                        list == nullptr ? 0 : length,
                        classTableMask(classLetters),
                        (classLetters & kClassLetterD) != 0,
                        (classLetters & kClassLetterH) != 0,
                        negated};
    return true;
}

void clearSet(CharSet* set) { std::memset(set->member, 0, sizeof set->member); }

void addByteClasses(CharSet* set, std::uint16_t classLetters) {
    const std::uint8_t mask = classTableMask(classLetters);
    if (mask != 0) {
        const std::uint8_t* classes = host().classTable;
        for (int b = 0; b < 256; ++b) set->member[b] |= (classes[b] & mask) != 0;
    }
    if (classLetters & kClassLetterD) {
        for (int i = 0; i < kDigitCount; ++i) set->member[static_cast<unsigned char>(kNameText[i])] = 1;
    }
    if (classLetters & kClassLetterN) {
        addTextWithLowerForms(set, kNameText, kNameTextLength);
    } else if (classLetters & kClassLetterF) {
        addTextWithLowerForms(set, kNameText + kDigitCount, kNameTextLength - kDigitCount);
    }
    if (classLetters & kClassLetterH) set->member[static_cast<unsigned char>('\t')] = 1;
}

void addListBytes(CharSet* set, const char* list, std::int64_t length, bool caseless) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(list);
    if (!caseless) {
        for (std::int64_t i = 0; i < length; ++i) set->member[bytes[i]] = 1;
        return;
    }
    const std::uint8_t* upper = host().upcaseMap;
    const std::uint8_t* lower = host().lowcaseMap;
    for (std::int64_t i = 0; i < length; ++i) {
        set->member[upper[bytes[i]]] = 1;
        set->member[lower[bytes[i]]] = 1;
    }
}

void negateSet(CharSet* set) {
    for (std::uint8_t& e : set->member) e ^= 1;
}

void buildByteSet(CharSet* set, std::uint16_t classLetters, const char* list, std::int64_t length, bool caseless,
                  bool negated) {
    clearSet(set);
    addByteClasses(set, classLetters);
    if (list != nullptr) addListBytes(set, list, length, caseless);
    if (negated) negateSet(set);
}

}  // namespace txscan
