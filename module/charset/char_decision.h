// One character's decision: as the multi-byte paths ask it of the session's
// EncodingHandle, whether it is a delimiter of the word functions (the
// scanner's tests a to f), or whether it belongs to the set of KFINDC and
// KCOUNTC beyond the list's own characters. The walkers on bytes answer
// characters of one byte from tables and ask here only for the others,
// remembering the answers per character in a CharMemo.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/abi/encoding.h"
#include "module/charset/argument_interpreter.h"
#include "module/charset/modifier_set.h"
#include "module/charset/wide_classes.h"
#include "module/frame/encoding_ops.h"

namespace txscan {

// The class letters after U and L, in the order they are asked. The tests
// have no side effects, so the order only decides which host calls are made.
inline constexpr ModifierFlag kClassLetters[] = {kModA, kModC, kModD, kModG, kModP, kModS,
                                                 kModW, kModX, kModF, kModN, kModH};

inline bool anyClassLetter(const ModifierSet& m) {
    for (ModifierFlag letter : kClassLetters) {
        if (m.has(letter)) return true;
    }
    return false;
}

// The handle-side state of one call's questions; lives on the call's stack.
struct HandleQuestions {
    contract::EncodingHandle* h;
    const ModifierSet* mods;
    contract::TextCursor* list;        // the call's delimiter or character list; null without one
    WideClassLists classLists;
    contract::TextCursor defaultList;  // laid out under default delimiters
    CharBufferCursor held;             // the character under examination, folded in place
};

// Lays out the fixed lists the modifiers ask for and the held character.
void setupHandleQuestions(HandleQuestions* q, contract::EncodingHandle* h, const ModifierSet& mods,
                          contract::TextCursor* list);

// The word scanner's tests a to f (K not applied) of the character at `at`,
// which the caller has copied into q.held.
bool delimiterFromHandle(HandleQuestions& q, contract::TextCursor* at);

// KFINDC's and KCOUNTC's membership (V not applied) of the character at
// `at` that the list itself does not hold: the list in the character's
// other case under I, then U, L and the class letters. `held` is q.held's
// cursor with the character copied in, or `at` itself while no fold has
// needed the buffer.
bool memberBeyondListFromHandle(HandleQuestions& q, contract::TextCursor* at, contract::TextCursor* held);

// A character's bytes packed into one word: a memo key, never 0 for a
// character of more than one byte.
inline std::uint32_t charKey(const std::uint8_t* p, int length) {
    std::uint32_t key = 0;
    for (int i = 0; i < length; ++i) key = key << 8 | p[i];
    return key;
}

// The handle's answers for characters of more than one byte, remembered per
// character for one call (N slots, a power of two).
template <int N>
struct CharMemo {
    static_assert((N & (N - 1)) == 0);
    std::uint32_t key[N];   // 0 is an empty slot
    std::uint8_t value[N];

    void clear() { std::memset(key, 0, sizeof key); }
    template <typename Ask>
    bool remember(std::uint32_t k, Ask ask) {
        const std::uint32_t slot = (k ^ k >> 7 ^ k >> 17) & (N - 1);
        if (key[slot] != k) {
            key[slot] = k;
            value[slot] = ask() ? 1 : 0;
        }
        return value[slot] != 0;
    }
};

// Caseless comparisons of two characters of which one has more than one
// byte, as the handle's compareAt over one character answers them,
// remembered per pair for one call.
struct CaselessPairs {
    std::uint64_t key[64];   // 0 is an empty slot
    std::uint8_t same[64];

    void clear() { std::memset(key, 0, sizeof key); }
    bool sameChar(contract::EncodingHandle* h, const std::uint8_t* a, int la, const std::uint8_t* b, int lb);
};

// The word functions' delimiter decision for walkers on bytes: a 256-entry
// table, built once per call from the session's byte tables, answers for
// characters of one byte; characters of more than one byte ask the handle
// through delimiterFromHandle, remembered per character in a CharMemo.
// One call's decision state; lives on the call's stack. `parsed` and `mods`
// are the interpreter's reading of the call (the delimiter list is read from
// `parsed.delimiters`).
struct DelimiterDecision {
    contract::EncodingHandle* h;
    bool utf8;
    ParsedArguments parsed;
    ModifierSet mods;
    const std::uint8_t* list;     // delimiter list bytes, or null
    std::int64_t listBytes;
    bool listHasWide;             // a list character of more than one byte
    bool wideAsksHandle;          // case or class questions for wide characters
    const std::uint8_t* decision; // after K, for characters of one byte: `built` or a constant table
    std::uint8_t built[256];
    // Handle-side state for characters of more than one byte, set up on the
    // first such character.
    HandleQuestions questions;
    bool handleReady;
    CharMemo<16> memo;
};

// Sets up the decision once `h`, `utf8`, `parsed` and `mods` are filled.
// False when the delimiter list is not well-formed UTF-8 (the scanner then
// has to take the call).
bool prepareDelimiterDecision(DelimiterDecision& d);

// The decision for a character of more than one byte (well-formed UTF-8 of
// `length` bytes at p), K applied.
bool wideDelimiter(DelimiterDecision& d, const std::uint8_t* p, int length);

// The decision, K applied, for the well-formed character of `length` bytes at p.
inline bool delimiterAt(DelimiterDecision& d, const std::uint8_t* p, int length) {
    return length == 1 ? d.decision[*p] != 0 : wideDelimiter(d, p, length);
}

}  // namespace txscan
