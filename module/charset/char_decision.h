// One character's decision, in one of two roles: a delimiter of the word
// functions (the scanner's tests a to f; K negates), or a member of the set
// of KFINDC and KCOUNTC (the list, then U, L and the classes; V negates).
// The handle answers on every path; the walkers on bytes take characters of
// one byte from a table built from the session's byte tables, and remember
// the handle's answers for wider ones per character in a CharMemo.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/abi/encoding.h"
#include "module/charset/argument_interpreter.h"
#include "module/charset/modifier_set.h"
#include "module/charset/wide_classes.h"
#include "module/frame/encoding_ops.h"

namespace txscan {

enum class CharRole : std::uint8_t { kDelimiter, kMember };

// The handle-side state of one call's questions; lives on the call's stack.
struct HandleQuestions {
    contract::EncodingHandle* h;
    const ModifierSet* mods;
    CharRole role;
    bool defaults;                     // the default delimiters count
    contract::TextCursor* list;        // the call's delimiter or character list; null without one
    ModifierFlag classes[11];          // the class letters asked, in asking order
    int classCount;
    WideClassLists classLists;
    contract::TextCursor defaultList;  // laid out under default delimiters
    CharBufferCursor held;             // the character under examination, folded in place
};

// Lays out the fixed lists the modifiers ask for and the held character.
void setupHandleQuestions(HandleQuestions* q, contract::EncodingHandle* h, CharRole role, const ModifierSet& mods,
                          contract::TextCursor* list);

// The decision, negation not applied, of the character at `at`, which is
// copied into q.held first.
bool decideFromHandle(HandleQuestions& q, contract::TextCursor* at);

// A character's bytes packed into one word: a memo key.
inline std::uint32_t charKey(const std::uint8_t* p, int length) {
    std::uint32_t key = 0;
    for (int i = 0; i < length; ++i) key = key << 8 | p[i];
    return key;
}

// The handle's answers remembered for one call in 64 slots, keyed by the
// characters' bytes. A slot counts only once its bit in `used` is set, so
// forgetting everything is one store.
template <typename Key>
struct Memo {
    std::uint64_t used;
    Key key[64];
    std::uint8_t value[64];

    static std::uint32_t slotOf(Key k) {
        if constexpr (sizeof(Key) == 8) return static_cast<std::uint32_t>(k ^ k >> 29 ^ k >> 41) & 63;
        return static_cast<std::uint32_t>(k ^ k >> 7 ^ k >> 17) & 63;
    }
    void clear() { used = 0; }
    // The remembered answer for k: 0 or 1, or -1 when there is none.
    int find(Key k) const {
        const std::uint32_t slot = slotOf(k);
        return (used >> slot & 1) != 0 && key[slot] == k ? value[slot] : -1;
    }
    void enter(Key k, bool answer) {
        const std::uint32_t slot = slotOf(k);
        used |= std::uint64_t{1} << slot;
        key[slot] = k;
        value[slot] = answer ? 1 : 0;
    }
};
using CharMemo = Memo<std::uint32_t>;

// Caseless comparisons of two characters of which one has more than one
// byte, as the handle's compareAt over one character answers them.
struct CaselessPairs : Memo<std::uint64_t> {
    bool sameChar(contract::EncodingHandle* h, const std::uint8_t* a, int la, const std::uint8_t* b, int lb);
};

// What a call's modifiers ask of a character of one byte, settled once.
struct ByteQuestions {
    const std::uint8_t* classes;
    const std::uint8_t* upcase;
    const std::uint8_t* lowcase;
    const std::uint8_t* defaults;   // the default delimiters' table, or none
    bool caselessList, askUpper, askLower, upperCounts, lowerCounts;
    bool bothCases;                 // a member may be upper and lower case at once
    std::uint8_t classMask;         // class letters that test the character itself
    bool punct, nameStart, nameChars, tab;   // tests of the held (possibly folded) character
    bool heldTests;
};

// Table entries besides 0 and 1 (the decision, negation applied).
inline constexpr std::uint8_t kUnknown = 2;   // a member's ASCII character not decided yet
inline constexpr std::uint8_t kAskWide = 3;   // a UTF-8 lead byte whose character must be looked at

// One call's decision for the walkers on bytes; lives on the call's stack.
// `parsed` and `mods` are the interpreter's reading of the call; the list
// is `parsed.delimiters` or `parsed.list` by role.
struct CharDecision {
    contract::EncodingHandle* h;
    bool utf8;
    CharRole role = CharRole::kDelimiter;
    ParsedArguments parsed;
    ModifierSet mods;
    const std::uint8_t* list;     // list bytes, or null without a list
    std::int64_t listBytes;
    bool listHasWide;             // a list character of more than one byte
    bool wideAsksHandle;          // case or class questions for wide characters
    // Per byte value, negation applied: the decision of a character of one
    // byte (or kUnknown); in UTF-8, 0 for continuation bytes and for lead
    // bytes the answer every wide character gets when nothing can tell them
    // apart, else kAskWide. `built` or a constant table.
    const std::uint8_t* decision;
    std::uint8_t built[256];
    bool lazy;                    // ASCII entries start as kUnknown
    std::uint8_t listHas[256];    // the list's characters of one byte
    ByteQuestions questionsOfByte;
    // Handle-side state for characters of more than one byte, set up on the
    // first such character.
    HandleQuestions questions;
    bool handleReady;
    CharMemo memo;

    bool negated() const { return mods.has(role == CharRole::kMember ? kModV : kModK); }
};

// Sets up the decision once `h`, `utf8`, `role`, `parsed` and `mods` are
// filled. False when the list is not well-formed UTF-8 (the handle has to
// take the call).
bool prepareCharDecision(CharDecision& d);

// The decision for a character of more than one byte (well-formed UTF-8 of
// `length` bytes at p), negation applied: remembered, or worked out by
// decideWide.
bool decideWide(CharDecision& d, const std::uint8_t* p, int length, std::uint32_t key);
inline bool wideDecision(CharDecision& d, const std::uint8_t* p, int length) {
    if (!d.handleReady && !d.wideAsksHandle && !d.listHasWide) return d.negated();
    const std::uint32_t key = charKey(p, length);
    if (d.handleReady) {
        if (const int known = d.memo.find(key); known >= 0) return (known != 0) != d.negated();
    }
    return decideWide(d, p, length, key);
}

// Decides the ASCII character c whose entry is kUnknown, and enters it.
bool decideByte(CharDecision& d, std::uint8_t c);

}  // namespace txscan
