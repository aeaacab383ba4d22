// The character questions of the word and character-set functions: the
// handle's answers, and the byte tables of the walkers on bytes.
#include "module/charset/char_decision.h"

#include "module/charset/byte_classes.h"
#include "module/charset/utf8_text.h"
#include "module/frame/module_state.h"

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

constexpr ByteTable kNoDelimiters{};

// P, F, N and H test the held character, after any caseless folding; the
// other class letters test the character itself.
constexpr bool testsHeldChar(ModifierFlag letter) {
    return letter == kModP || letter == kModF || letter == kModN || letter == kModH;
}

// What a call's modifiers ask of a one-byte character, settled once so
// that the table of 128 or 256 decisions is a tight loop.
struct ByteQuestions {
    const std::uint8_t* classes;
    const std::uint8_t* upcase;
    const std::uint8_t* lowcase;
    bool caselessList, askUpper, askLower, upperCounts, lowerCounts, defaults;
    std::uint8_t classMask;   // class letters that test the character itself
    bool punct, nameStart, nameChars, tab;   // tests of the held (possibly folded) character
    bool heldTests;
};

ByteQuestions questionsOf(const ModifierSet& m, bool hasList) {
    ByteQuestions q{};
    q.classes = host().classTable;
    q.upcase = host().upcaseMap;
    q.lowcase = host().lowcaseMap;
    q.caselessList = hasList && m.has(kModI);
    q.upperCounts = m.has(kModU);
    q.lowerCounts = m.has(kModL);
    q.askUpper = q.caselessList || q.upperCounts;
    q.askLower = q.caselessList || q.lowerCounts;
    q.defaults = m.has(kModDefaultDelimiters);
    for (ModifierFlag letter : kClassLetters) {
        if (m.has(letter) && !testsHeldChar(letter)) q.classMask |= byteClassMask(letter);
    }
    q.punct = m.has(kModP);
    q.nameStart = m.has(kModF);
    q.nameChars = m.has(kModN);
    q.tab = m.has(kModH);
    q.heldTests = q.punct || q.nameStart || q.nameChars || q.tab;
    return q;
}

// The scanner's delimiter decision for a one-byte character from the byte
// tables: list, caseless list, U and L, default list, classes, fixed lists,
// with the tests that look at the held character seeing it after folding.
// The tests are tried in another order than the scanner's, which changes
// nothing: each is a plain question, and the first that holds decides.
bool byteDecision(const ByteQuestions& q, const std::uint8_t* listHas, unsigned c) {
    const std::uint8_t* classes = q.classes;
    if (listHas[c] || (q.defaults && kDefaultDelimiterBytes.has[c]) || (classes[c] & q.classMask) != 0) return true;
    unsigned held = c;
    if (q.askUpper || q.askLower) {
        const bool upper = q.askUpper && (classes[c] & kClassUpper) != 0;
        const bool lower = !upper && q.askLower && (classes[c] & kClassLower) != 0;
        if (q.caselessList && (upper || lower)) {
            held = upper ? q.lowcase[c] : q.upcase[c];
            if (listHas[held]) return true;
        }
        if ((upper && q.upperCounts) || (lower && q.lowerCounts)) return true;
    }
    if (!q.heldTests) return false;
    return (q.punct && ((classes[held] & byteClassMask(kModP)) != 0 || kExtraPunctBytes.has[held])) ||
           (q.nameStart && kNameStartBytes.has[held]) || (q.nameChars && kNameCharBytes.has[held]) ||
           (q.tab && held == '\t');
}

// Whether a case or class question decides anything (I only with a list).
bool anyCaseOrClass(const ModifierSet& m, bool hasList) {
    return anyClassLetter(m) || m.has(kModU) || m.has(kModL) || (hasList && m.has(kModI));
}

void buildByteDecisions(DelimiterDecision& s) {
    const ModifierSet& m = s.mods;
    const int singles = s.utf8 ? 0x80 : 0x100;
    const bool hasList = s.list != nullptr;
    if (!anyCaseOrClass(m, hasList) && !hasList && !m.has(kModK)) {
        // The commonest call of all needs no table of its own.
        s.decision = m.has(kModDefaultDelimiters) ? kDefaultDelimiterBytes.has : kNoDelimiters.has;
        return;
    }
    std::uint8_t listHas[256] = {};
    for (std::int64_t i = 0; i < s.listBytes; ++i) listHas[s.list[i]] = 1;
    if (!anyCaseOrClass(m, hasList)) {
        for (int c = 0; c < 256; ++c) {
            s.built[c] = listHas[c] | (m.has(kModDefaultDelimiters) ? kDefaultDelimiterBytes.has[c] : 0);
        }
    } else {
        const ByteQuestions q = questionsOf(m, hasList);
        for (int c = 0; c < singles; ++c) s.built[c] = byteDecision(q, listHas, static_cast<unsigned>(c));
    }
    if (m.has(kModK)) {
        for (int c = 0; c < singles; ++c) s.built[c] ^= 1;
    }
    s.decision = s.built;
}

// The scanner's tests a to f for a character of more than one byte, asked
// of the handle as the scanner asks them.
bool wideDecisionFromHandle(DelimiterDecision& s, const std::uint8_t* p, int length) {
    EncodingHandle* h = s.h;
    if (!s.handleReady) {
        setupHandleQuestions(&s.questions, h, s.mods, s.parsed.delimitersSet ? &s.parsed.delimiters : nullptr);
        s.handleReady = true;
    }
    TextCursor at;
    setupCursor(h, &at, reinterpret_cast<const char*>(p), length);
    enc::currentChar(h, &at, &s.questions.held.cursor);
    return delimiterFromHandle(s.questions, &at);
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

bool prepareDelimiterDecision(DelimiterDecision& s) {
    s.handleReady = false;
    s.memo.clear();
    s.list = s.parsed.delimitersSet ? reinterpret_cast<const std::uint8_t*>(s.parsed.delimiters.text) : nullptr;
    s.listBytes = s.list != nullptr ? s.parsed.delimiters.length : 0;
    if (s.listBytes < 0) return false;
    s.listHasWide = s.utf8 && anyHighByte(s.list, s.listBytes);
    if (s.listHasWide && !wellFormedUtf8(s.list, s.listBytes)) return false;
    s.wideAsksHandle = anyCaseOrClass(s.mods, s.list != nullptr);
    buildByteDecisions(s);
    return true;
}

// The decision for a character of more than one byte, K applied. Without
// case or class questions only the list can hold it (the fixed lists are
// ASCII); otherwise the handle answers, remembered per code point.
bool wideDelimiter(DelimiterDecision& s, const std::uint8_t* p, int length) {
    bool delimiter = false;
    if (!s.wideAsksHandle) {
        delimiter = s.listHasWide && listHoldsChar(s.list, s.listBytes, p, length);
    } else {
        delimiter = s.memo.remember(charKey(p, length), [&] { return wideDecisionFromHandle(s, p, length); });
    }
    return s.mods.has(kModK) ? !delimiter : delimiter;
}

}  // namespace txscan
