// Class tests of one character on the multi-byte paths.
#include "module/charset/wide_classes.h"

#include "module/frame/encoding_ops.h"

namespace txscan {

using namespace contract;

namespace {

constexpr char kTabText[] = "\t";

template <std::size_t N>
void setupFixed(EncodingHandle* h, TextCursor* cursor, const char (&text)[N]) {
    setupCursor(h, cursor, text, N - 1);
}

bool inList(EncodingHandle* h, TextCursor* list, TextCursor* held) { return enc::findChar(h, list, held) >= 0; }

}  // namespace

void setupWideClassLists(EncodingHandle* h, const ModifierSet& modifiers, WideClassLists* lists) {
    if (modifiers.has(kModF)) setupFixed(h, &lists->nameStart, kNameStartText);
    if (modifiers.has(kModN)) setupFixed(h, &lists->nameChars, kNameCharsText);
    if (modifiers.has(kModH)) setupFixed(h, &lists->tab, kTabText);
    if (modifiers.has(kModP)) setupFixed(h, &lists->extraPunct, kExtraPunctText);
}

bool wideClassHolds(EncodingHandle* h, ModifierFlag letter, WideClassLists* lists, TextCursor* source,
                    TextCursor* held) {
    switch (letter) {
        case kModU: return enc::caseTest(h, held, kIsUpper);
        case kModL: return enc::caseTest(h, held, kIsLower);
        case kModA: return enc::classTest(h, kOpClassTestAlpha, source, 0x103, 1);
        case kModC: return enc::classTest(h, kOpClassTestCtlDigit, source, 0x40);
        case kModD: return enc::classTest(h, kOpClassTestCtlDigit, source, 0x04);
        case kModG: return enc::classTest(h, kOpClassTestGraphic, source, 0x317);
        case kModP:
            return enc::classTest(h, kOpClassTestAlpha, held, 0x10) || inList(h, &lists->extraPunct, held);
        case kModS: return enc::classTest(h, kOpClassTestSpace, source, 0x28);
        case kModW: return enc::classTest(h, kOpClassTestAlpha, source, 0x337);
        case kModX: return enc::classTest(h, kOpClassTestHex, source, 0x80);
        case kModF: return inList(h, &lists->nameStart, held);
        case kModN: return inList(h, &lists->nameChars, held);
        case kModH: return inList(h, &lists->tab, held);
        default: return false;
    }
}

}  // namespace txscan
