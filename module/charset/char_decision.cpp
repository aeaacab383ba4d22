// The handle's answers to the character questions of the multi-byte paths.
#include "module/charset/char_decision.h"

namespace txscan {

using namespace contract;

namespace {

// Under I with a list: the character in its other case looked up in the
// list. `held` is folded in place.
bool otherCaseListed(HandleQuestions& q, TextCursor* held, bool upper) {
    if (upper) {
        enc::toLowerChar(q.h, held);
    } else {
        enc::toUpperChar(q.h, held);
    }
    return enc::findChar(q.h, q.list, held) >= 0;
}

bool classHolds(HandleQuestions& q, TextCursor* at, TextCursor* held) {
    for (ModifierFlag letter : kClassLetters) {
        if (q.mods->has(letter) && wideClassHolds(q.h, letter, &q.classLists, at, held)) return true;
    }
    return false;
}

}  // namespace

void setupHandleQuestions(HandleQuestions* q, EncodingHandle* h, const ModifierSet& mods, TextCursor* list) {
    q->h = h;
    q->mods = &mods;
    q->list = list;
    setupWideClassLists(h, mods, &q->classLists);
    if (mods.has(kModDefaultDelimiters)) {
        setupCursor(h, &q->defaultList, kDefaultDelimiterText, sizeof kDefaultDelimiterText - 1);
    }
    setupCharCursor(h, &q->held);
}

bool delimiterFromHandle(HandleQuestions& q, TextCursor* at) {
    EncodingHandle* h = q.h;
    const ModifierSet& m = *q.mods;
    TextCursor* held = &q.held.cursor;
    if (q.list != nullptr && enc::findChar(h, q.list, held) >= 0) return true;
    const bool caselessList = q.list != nullptr && m.has(kModI);
    // The case is taken before any folding, since U and L ask about the
    // character as it stands in the source.
    const bool upper = (caselessList || m.has(kModU)) && enc::caseTest(h, held, kIsUpper);
    const bool lower = !upper && (caselessList || m.has(kModL)) && enc::caseTest(h, held, kIsLower);
    if (caselessList && (upper || lower) && otherCaseListed(q, held, upper)) return true;
    if ((upper && m.has(kModU)) || (lower && m.has(kModL))) return true;
    if (m.has(kModDefaultDelimiters) && enc::findChar(h, &q.defaultList, held) >= 0) return true;
    return classHolds(q, at, held);
}

bool memberBeyondListFromHandle(HandleQuestions& q, TextCursor* at, TextCursor* held) {
    EncodingHandle* h = q.h;
    const ModifierSet& m = *q.mods;
    const bool caselessList = q.list != nullptr && m.has(kModI);
    const bool upper = (caselessList || m.has(kModU)) && enc::caseTest(h, held, kIsUpper);
    const bool lower = (caselessList || m.has(kModL)) && enc::caseTest(h, held, kIsLower);
    if (caselessList && (upper || lower)) {
        if (held != &q.held.cursor) {
            held = &q.held.cursor;
            enc::currentChar(h, at, held);
        }
        if (otherCaseListed(q, held, upper)) return true;
    }
    if ((upper && m.has(kModU)) || (lower && m.has(kModL))) return true;
    return classHolds(q, at, held);
}

bool CaselessPairs::sameChar(EncodingHandle* h, const std::uint8_t* a, int la, const std::uint8_t* b, int lb) {
    if (la == lb && std::memcmp(a, b, static_cast<std::size_t>(la)) == 0) return true;
    const std::uint64_t k = static_cast<std::uint64_t>(charKey(a, la)) << 32 | charKey(b, lb);
    const std::uint32_t slot = static_cast<std::uint32_t>(k ^ k >> 29 ^ k >> 41) & 63;
    if (key[slot] == k) return same[slot] != 0;
    TextCursor left;
    TextCursor right;
    setupCursor(h, &left, reinterpret_cast<const char*>(a), la);
    setupCursor(h, &right, reinterpret_cast<const char*>(b), lb);
    const bool answer = enc::compareAt(h, &left, &right, 1, kCompareCaseless) == 0;
    key[slot] = k;
    same[slot] = answer;
    return answer;
}

}  // namespace txscan
