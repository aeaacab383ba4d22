// Filling a byte-path CharSet from class letters and character lists.
#include "module/charset/char_set.h"

#include <cstring>

#include "module/frame/module_state.h"

namespace txscan {

namespace {

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

}  // namespace

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
