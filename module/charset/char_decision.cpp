// The character decision: the handle's answers, and the byte tables of the
// walkers on bytes.
#include "module/charset/char_decision.h"

#include "module/charset/byte_classes.h"
#include "module/charset/utf8_text.h"
#include "module/frame/module_state.h"

namespace txscan {

using namespace contract;

namespace {

// The class letters after U and L, in the order they are asked. The tests
// have no side effects, so the order only decides which host calls are made.
constexpr ModifierFlag kClassLetters[] = {kModA, kModC, kModD, kModG, kModP, kModS,
                                          kModW, kModX, kModF, kModN, kModH};
static_assert(sizeof kClassLetters == sizeof HandleQuestions::classes);

// P, F, N and H test the held character, after any caseless folding; the
// other class letters test the character itself.
constexpr bool testsHeldChar(ModifierFlag letter) {
    return letter == kModP || letter == kModF || letter == kModN || letter == kModH;
}

// The decision's steps after the list, negation not applied: the list in the
// character's other case under I, U and L, the default delimiters, the
// classes. `held` is q.held's cursor with the character copied in, or `at`
// itself while no fold has needed the buffer.
[[gnu::always_inline]] inline bool beyondListFromHandle(HandleQuestions& q, TextCursor* at, TextCursor* held) {
    EncodingHandle* h = q.h;
    const ModifierSet& m = *q.mods;
    const bool caselessList = q.list != nullptr && m.has(kModI);
    // The case is taken before any folding, since U and L ask about the
    // character as it stands in the source. A delimiter is upper or else
    // lower case; a member is asked both.
    const bool upper = (caselessList || m.has(kModU)) && enc::caseTest(h, held, kIsUpper);
    const bool lower = (q.role == CharRole::kMember || !upper) && (caselessList || m.has(kModL)) &&
                       enc::caseTest(h, held, kIsLower);
    if (caselessList && (upper || lower)) {
        if (held != &q.held.cursor) {
            held = &q.held.cursor;
            enc::currentChar(h, at, held);
        }
        // The other case looked up in the list, folded in place.
        if (upper) {
            enc::toLowerChar(h, held);
        } else {
            enc::toUpperChar(h, held);
        }
        if (enc::findChar(h, q.list, held) >= 0) return true;
    }
    if ((upper && m.has(kModU)) || (lower && m.has(kModL))) return true;
    if (q.defaults && enc::findChar(h, &q.defaultList, held) >= 0) return true;
    for (int i = 0; i < q.classCount; ++i) {
        if (wideClassHolds(h, q.classes[i], &q.classLists, at, held)) return true;
    }
    return false;
}

constexpr ByteTable kNoDelimiters{};

// `asks`: some case or class question is asked (I with a list included).
ByteQuestions questionsOf(const ModifierSet& m, bool hasList, CharRole role, bool asks) {
    ByteQuestions q{};
    q.defaults = role == CharRole::kDelimiter && m.has(kModDefaultDelimiters) ? kDefaultDelimiterBytes.has
                                                                              : kNoDelimiters.has;
    if (!asks) return q;   // the list and the default delimiters decide alone
    q.classes = host().classTable;
    q.upcase = host().upcaseMap;
    q.lowcase = host().lowcaseMap;
    q.caselessList = hasList && m.has(kModI);
    q.upperCounts = m.has(kModU);
    q.lowerCounts = m.has(kModL);
    q.askUpper = q.caselessList || q.upperCounts;
    q.askLower = q.caselessList || q.lowerCounts;
    q.bothCases = role == CharRole::kMember;
    for (const ClassQuestion& c : kClassQuestions) {
        if (!testsHeldChar(c.letter) && m.has(c.letter)) q.classMask |= static_cast<std::uint8_t>(c.mask);
    }
    q.punct = m.has(kModP);
    q.nameStart = m.has(kModF);
    q.nameChars = m.has(kModN);
    q.tab = m.has(kModH);
    q.heldTests = q.punct || q.nameStart || q.nameChars || q.tab;
    return q;
}

// The decision (negation not applied) for a character of one byte from the
// byte tables, with the tests that look at the held character seeing it
// after folding. The tests are tried in another order than the handle's,
// which changes nothing: each is a plain question, and the first that holds
// decides.
bool byteDecision(const ByteQuestions& q, const std::uint8_t* listHas, unsigned c) {
    const std::uint8_t* classes = q.classes;
    if (listHas[c] || q.defaults[c] || (classes[c] & q.classMask) != 0) return true;
    unsigned held = c;
    if (q.askUpper || q.askLower) {
        const bool upper = q.askUpper && (classes[c] & kClassUpper) != 0;
        const bool lower = (q.bothCases || !upper) && q.askLower && (classes[c] & kClassLower) != 0;
        if (q.caselessList && (upper || lower)) {
            held = upper ? q.lowcase[c] : q.upcase[c];
            if (listHas[held]) return true;
        }
        if ((upper && q.upperCounts) || (lower && q.lowerCounts)) return true;
    }
    return q.heldTests && ((q.punct && ((classes[held] & byteClassMask(kModP)) != 0 || kExtraPunctBytes.has[held])) ||
                           (q.nameStart && kNameStartBytes.has[held]) || (q.nameChars && kNameCharBytes.has[held]) ||
                           (q.tab && held == '\t'));
}

bool anyCaseOrClass(const ModifierSet& m) {
    for (ModifierFlag letter : kClassLetters) {
        if (m.has(letter)) return true;
    }
    return m.has(kModU) || m.has(kModL);
}

// Without held-character tests or a caseless list, the table is the list,
// the default delimiters and class table bits, filled at once. Otherwise a
// delimiter's entries are worked out now (the word walkers read the table
// as it stands) and a member's when its character first appears.
void buildByteDecisions(CharDecision& d) {
    const ByteQuestions& q = d.questionsOfByte;
    const int singles = d.utf8 ? 0x80 : 0x100;
    const std::uint8_t negated = d.negated() ? 1 : 0;
    d.lazy = d.role == CharRole::kMember && (q.heldTests || q.caselessList);
    if (!q.heldTests && !q.caselessList) {
        std::uint8_t mask = q.classMask;
        if (q.upperCounts) mask |= kClassUpper;
        if (q.lowerCounts) mask |= kClassLower;
        for (int c = 0; c < singles; ++c) {
            d.built[c] = static_cast<std::uint8_t>(
                (q.defaults[c] | (mask != 0 && (q.classes[c] & mask) != 0)) ^ negated);
        }
        for (std::int64_t i = 0; i < d.listBytes; ++i) {
            if (d.list[i] < singles) d.built[d.list[i]] = negated ^ 1;
        }
    } else {
        std::memset(d.listHas, 0, sizeof d.listHas);
        for (std::int64_t i = 0; i < d.listBytes; ++i) {
            if (d.list[i] < singles) d.listHas[d.list[i]] = 1;
        }
        if (d.lazy) {
            std::memset(d.built, kUnknown, static_cast<std::size_t>(singles));
        } else {
            for (int c = 0; c < singles; ++c) d.built[c] = byteDecision(q, d.listHas, static_cast<unsigned>(c)) ^ negated;
        }
    }
    if (d.utf8) {
        std::memset(d.built + 0x80, 0, 0x40);
        const bool wideAlike = !d.listHasWide && !d.wideAsksHandle;
        std::memset(d.built + 0xC0, wideAlike ? negated : kAskWide, 0x40);
    }
    d.decision = d.built;
}

}  // namespace

void setupHandleQuestions(HandleQuestions* q, EncodingHandle* h, CharRole role, const ModifierSet& mods,
                          TextCursor* list) {
    q->h = h;
    q->mods = &mods;
    q->role = role;
    q->defaults = role == CharRole::kDelimiter && mods.has(kModDefaultDelimiters);
    q->list = list;
    q->classCount = 0;
    for (ModifierFlag letter : kClassLetters) {
        if (mods.has(letter)) q->classes[q->classCount++] = letter;
    }
    setupWideClassLists(h, mods, &q->classLists);
    if (q->defaults) setupCursor(h, &q->defaultList, kDefaultDelimiterText, sizeof kDefaultDelimiterText - 1);
    setupCharCursor(h, &q->held);
}

bool decideFromHandle(HandleQuestions& q, TextCursor* at) {
    TextCursor* held = &q.held.cursor;
    enc::currentChar(q.h, at, held);
    return (q.list != nullptr && enc::findChar(q.h, q.list, held) >= 0) || beyondListFromHandle(q, at, held);
}

bool CaselessPairs::sameChar(EncodingHandle* h, const std::uint8_t* a, int la, const std::uint8_t* b, int lb) {
    if (la == lb && std::memcmp(a, b, static_cast<std::size_t>(la)) == 0) return true;
    const std::uint64_t k = static_cast<std::uint64_t>(charKey(a, la)) << 32 | charKey(b, lb);
    if (const int known = find(k); known >= 0) return known != 0;
    TextCursor left;
    TextCursor right;
    setupCursor(h, &left, reinterpret_cast<const char*>(a), la);
    setupCursor(h, &right, reinterpret_cast<const char*>(b), lb);
    const bool answer = enc::compareAt(h, &left, &right, 1, kCompareCaseless) == 0;
    enter(k, answer);
    return answer;
}

bool prepareCharDecision(CharDecision& d) {
    d.handleReady = false;
    const bool delimiters = d.role == CharRole::kDelimiter;
    const TextCursor& list = delimiters ? d.parsed.delimiters : d.parsed.list;
    d.list = nullptr;
    d.listBytes = 0;
    if (delimiters ? d.parsed.delimitersSet != 0 : d.parsed.listSet != 0) {
        if (list.length < 0) return false;
        d.list = list.text != nullptr ? reinterpret_cast<const std::uint8_t*>(list.text)
                                      : reinterpret_cast<const std::uint8_t*>("");
        d.listBytes = list.text != nullptr ? list.length : 0;
    }
    d.listHasWide = d.utf8 && anyHighByte(d.list, d.listBytes);
    if (d.listHasWide && !wellFormedUtf8(d.list, d.listBytes)) return false;
    const bool asks = anyCaseOrClass(d.mods) || (d.list != nullptr && d.mods.has(kModI));
    if (d.role == CharRole::kDelimiter && d.list == nullptr && !d.mods.has(kModK) && !asks) {
        // The commonest call of all needs no table of its own.
        d.wideAsksHandle = false;
        d.decision = d.mods.has(kModDefaultDelimiters) ? kDefaultDelimiterBytes.has : kNoDelimiters.has;
        return true;
    }
    d.questionsOfByte = questionsOf(d.mods, d.list != nullptr, d.role, asks);
    // The fixed lists of F, N and H and the default delimiters are ASCII:
    // without a case or class question only the list holds wide characters.
    const ByteQuestions& q = d.questionsOfByte;
    d.wideAsksHandle = q.classMask != 0 || q.punct || q.askUpper || q.askLower;
    buildByteDecisions(d);
    return true;
}

bool decideByte(CharDecision& d, std::uint8_t c) {
    const bool decision = byteDecision(d.questionsOfByte, d.listHas, c) != d.negated();
    d.built[c] = decision ? 1 : 0;
    return decision;
}

bool decideWide(CharDecision& d, const std::uint8_t* p, int length, std::uint32_t key) {
    const bool listed = d.listHasWide && listHoldsChar(d.list, d.listBytes, p, length);
    if (!d.wideAsksHandle) return listed != d.negated();
    if (!d.handleReady) {
        const bool delimiters = d.role == CharRole::kDelimiter;
        const bool listSet = delimiters ? d.parsed.delimitersSet != 0 : d.parsed.listSet != 0;
        setupHandleQuestions(&d.questions, d.h, d.role, d.mods,
                             !listSet ? nullptr : delimiters ? &d.parsed.delimiters : &d.parsed.list);
        d.memo.clear();
        d.handleReady = true;
    }
    bool answer = listed;
    if (!listed) {
        TextCursor at;
        setupCursor(d.h, &at, reinterpret_cast<const char*>(p), length);
        answer = beyondListFromHandle(d.questions, &at, &at);
    }
    d.memo.enter(key, answer);
    return answer != d.negated();
}

}  // namespace txscan
