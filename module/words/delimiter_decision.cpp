// The delimiter decision of the byte-walking word paths: a table for
// characters of one byte from the session's byte tables, the handle's
// answers (memoised) for characters of more than one byte.
#include "module/words/delimiter_decision.h"

#include <cstring>

#include "module/charset/byte_classes.h"
#include "module/charset/utf8_text.h"
#include "module/frame/module_state.h"

namespace txscan {

using namespace contract;

namespace {

constexpr ByteTable kNoDelimiters{};

// Class letters whose byte test looks at the character itself (P, F, N and
// H look at it after any caseless folding).
constexpr ModifierFlag kSelfClassLetters[] = {kModA, kModC, kModD, kModG, kModS, kModW, kModX};

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
    for (ModifierFlag letter : kSelfClassLetters) {
        if (m.has(letter)) q.classMask |= byteClassMask(letter);
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
