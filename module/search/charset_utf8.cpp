// The UTF-8 paths of KFINDC and KCOUNTC (charSetUtf8): the
// answers of the handle-walking paths, with the text walked on its bytes.
// The membership of an ASCII character comes from a 128-entry table built
// once per call from the list, the modifiers and the session's byte tables,
// in the handle path's order (list, caseless list, U, L, the other classes).
// A character of more than one byte is looked up in the list by its bytes;
// when a case or class question could still decide, the handle answers it,
// remembered per character on the call's stack. Malformed text in the
// source or the list is left to the handle.
#include <cstring>

#include "module/charset/argument_interpreter.h"
#include "module/charset/byte_classes.h"
#include "module/charset/utf8_text.h"
#include "module/charset/char_decision.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/search/search_region.h"
#include "module/search/utf8_call.h"
#include "module/search/utf8_offsets.h"
#include "module/search/search_roles.h"

namespace txscan {

using namespace contract;

namespace {

struct AsciiTable {
    std::uint8_t has[128];
};

// The classes asked of the source character itself (the others look at the
// held character, which a caseless list may have folded).
constexpr ModifierFlag kSourceClasses[] = {kModA, kModC, kModD, kModG, kModS, kModW, kModX};

// Entries of the byte table besides 0 and 1 (member or not, V applied).
constexpr std::uint8_t kUnknown = 2;   // an ASCII character not yet decided
constexpr std::uint8_t kAskWide = 3;   // a lead byte whose character must be looked at

// Everything one call needs; lives on the call's stack.
struct Utf8Set {
    EncodingHandle* h;
    ParsedArguments parsed;
    ModifierSet modifiers;
    const std::uint8_t* source;
    std::int64_t sourceBytes;
    std::int64_t sourceTotal;   // characters
    const std::uint8_t* list;   // null without a list
    std::int64_t listBytes;
    bool listHasWide;
    bool wideAsksHandle;        // a case or class question can decide for a wide character
    // Per byte value: an ASCII character's membership, 0 for continuation
    // bytes, and for lead bytes the answer every wide character gets when
    // nothing can tell them apart, else kAskWide.
    std::uint8_t table[256];
    AsciiTable listHas;         // the list's ASCII characters
    std::uint8_t sourceMask;    // classTable bits of the classes asked of the source character
    // Handle-side state for characters of more than one byte.
    bool handleReady;
    HandleQuestions questions;
    CharMemo<64> memo;
};

bool anyClass(const ModifierSet& m) { return m.has(kModU) || m.has(kModL) || anyClassLetter(m); }

// The handle path's membership of an ASCII character, from the byte tables.
// The classes are asked one after another there, without side effects, so
// their order does not change the answer.
bool asciiMember(const Utf8Set& s, unsigned c) {
    const ModifierSet& m = s.modifiers;
    const bool negated = m.has(kModV);
    const bool hasList = s.list != nullptr;
    if (hasList && s.listHas.has[c]) return !negated;
    const std::uint8_t* classes = host().classTable;
    const bool upper = (classes[c] & kClassUpper) != 0;
    const bool lower = (classes[c] & kClassLower) != 0;
    unsigned held = c;
    if (hasList && m.has(kModI) && (upper || lower)) {
        held = upper ? host().lowcaseMap[c] : host().upcaseMap[c];
        if (held < 0x80 && s.listHas.has[held]) return !negated;
    }
    const bool heldAscii = held < 0x80;
    const bool inClass = (classes[c] & s.sourceMask) != 0 || (m.has(kModU) && upper) || (m.has(kModL) && lower) ||
                         (m.has(kModP) && ((classes[held] & byteClassMask(kModP)) != 0 ||
                                           (heldAscii && kExtraPunctBytes.has[held]))) ||
                         (m.has(kModF) && heldAscii && kNameStartBytes.has[held]) ||
                         (m.has(kModN) && heldAscii && kNameCharBytes.has[held]) || (m.has(kModH) && held == '\t');
    return inClass != negated;
}

// The classTable bits that decide an ASCII character's membership when its
// held character is itself (no caseless list) and every class asked is a
// class table test; 0 when some class needs more (P, F, N, H).
std::uint8_t plainClassMask(const Utf8Set& s) {
    const ModifierSet& m = s.modifiers;
    if (m.has(kModP) || m.has(kModF) || m.has(kModN) || m.has(kModH) || (s.list != nullptr && m.has(kModI))) return 0;
    std::uint8_t mask = 0;
    if (m.has(kModU)) mask |= kClassUpper;
    if (m.has(kModL)) mask |= kClassLower;
    for (ModifierFlag letter : kSourceClasses) {
        if (m.has(letter)) mask |= byteClassMask(letter);
    }
    return mask;
}

// Without class letters or a caseless list the ASCII entries are the list's
// bytes; with class table tests alone they are filled from classTable at
// once; otherwise each is worked out when its character first appears.
void buildByteTable(Utf8Set* s) {
    s->listHas = AsciiTable{};
    for (std::int64_t i = 0; i < s->listBytes; ++i) {
        if (s->list[i] < 0x80) s->listHas.has[s->list[i]] = 1;
    }
    const std::uint8_t negated = s->modifiers.has(kModV) ? 1 : 0;
    const std::uint8_t plainMask = plainClassMask(*s);
    if (!anyClass(s->modifiers) && !(s->list != nullptr && s->modifiers.has(kModI))) {
        for (int c = 0; c < 128; ++c) s->table[c] = s->listHas.has[c] ^ negated;
    } else if (plainMask != 0) {
        const std::uint8_t* classes = host().classTable;
        for (int c = 0; c < 128; ++c) {
            s->table[c] = static_cast<std::uint8_t>((s->listHas.has[c] | ((classes[c] & plainMask) != 0)) ^ negated);
        }
    } else {
        s->sourceMask = 0;
        for (ModifierFlag letter : kSourceClasses) {
            if (s->modifiers.has(letter)) s->sourceMask |= byteClassMask(letter);
        }
        std::memset(s->table, kUnknown, 128);
    }
    std::memset(s->table + 0x80, 0, 0x40);
    const bool wideAlike = !s->listHasWide && !s->wideAsksHandle;
    std::memset(s->table + 0xC0, wideAlike ? (s->modifiers.has(kModV) ? 1 : 0) : kAskWide, 0x40);
}

// The handle path's steps after the list lookup, asked of the handle for a
// character of more than one byte; V not applied. The character's own bytes
// serve as the held character until a fold needs the buffer.
bool wideInSetFromHandle(Utf8Set* s, const std::uint8_t* p, int length) {
    TextCursor at;
    setupCursor(s->h, &at, reinterpret_cast<const char*>(p), length);
    return memberBeyondListFromHandle(s->questions, &at, &at);
}

bool wideMember(Utf8Set* s, const std::uint8_t* p, int length) {
    const bool negated = s->modifiers.has(kModV);
    if (s->listHasWide && listHoldsChar(s->list, s->listBytes, p, length)) return !negated;
    // The fixed lists of F, N and H are ASCII: without a case or class
    // question nothing but the list can hold a wide character.
    if (!s->wideAsksHandle) return negated;
    // Set up on the first character that needs it: most rows hold few.
    if (!s->handleReady) {
        setupHandleQuestions(&s->questions, s->h, s->modifiers, s->parsed.listSet ? &s->parsed.list : nullptr);
        s->memo.clear();
        s->handleReady = true;
    }
    return s->memo.remember(charKey(p, length), [&] { return wideInSetFromHandle(s, p, length); }) != negated;
}

// Reads the call as the handle-walking path does; false when the source or
// the list is not well-formed UTF-8.
bool readCall(ArgumentFrame* frame, EncodingHandle* h, const ArgumentRoles& roles, std::int32_t kind,
              std::int64_t sourceChars, Utf8Set* s) {
    Utf8Source source;
    if (!readUtf8Call(frame, h, roles, kind, sourceChars, &s->parsed, &s->modifiers, &source)) return false;
    s->h = h;
    s->source = source.data;
    s->sourceBytes = source.bytes;
    s->sourceTotal = source.characters;
    s->list = nullptr;
    s->listBytes = 0;
    if (s->parsed.listSet) {
        s->list = reinterpret_cast<const std::uint8_t*>(s->parsed.list.text);
        s->listBytes = s->list != nullptr && s->parsed.list.length > 0 ? s->parsed.list.length : 0;
        if (s->list == nullptr) s->list = reinterpret_cast<const std::uint8_t*>("");
    }
    return true;
}

// Fills the decisions once the call's modifiers are final.
void prepare(Utf8Set* s) {
    const ModifierSet& m = s->modifiers;
    s->listHasWide = anyHighByte(s->list, s->listBytes);
    bool caseOrClass = (s->list != nullptr && m.has(kModI)) || m.has(kModU) || m.has(kModL);
    for (ModifierFlag letter : kClassLetters) {
        if (letter != kModF && letter != kModN && letter != kModH && m.has(letter)) caseOrClass = true;
    }
    s->wideAsksHandle = caseOrClass;
    s->handleReady = false;
    buildByteTable(s);
}

// Membership of the character that starts at byte offset `off`; false for a
// continuation byte, so a walk over bytes meets each character once.
inline bool memberAt(Utf8Set* s, std::int64_t off) {
    const std::uint8_t b = s->source[off];
    const std::uint8_t entry = s->table[b];
    if (entry < kUnknown) return entry != 0;
    if (entry == kUnknown) return (s->table[b] = asciiMember(*s, b)) != 0;
    return wideMember(s, s->source + off, utf8SequenceBytes(b));
}

// The trimmed source's end, in bytes.
std::int64_t sourceEnd(const Utf8Set& s) {
    const std::int64_t chars = s.parsed.sourceChars;
    return chars == s.sourceTotal ? s.sourceBytes : utf8OffsetOf(s.source, s.sourceBytes, chars);
}

}  // namespace

// KFINDC (kFirst) and KCOUNTC (kCount).
template <SearchMode Mode>
bool charSetUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                 std::int32_t* status) {
    constexpr bool finding = Mode == SearchMode::kFirst;
    ArgumentRoles roles;
    if constexpr (finding) {
        if (std::int32_t clash = findCharRoles(frame, &roles)) {
            *status = clash;
            return true;
        }
    } else {
        roles = countRoles(frame, true);
    }
    Utf8Set s;
    if (!readCall(frame, h, roles, finding ? kCallFinding : kCallCounting, sourceChars, &s)) return false;
    // K negates the set of a search like V; a count only V negates.
    if (finding && s.modifiers.has(kModK)) {
        s.modifiers.clear(kModK);
        s.modifiers.set(kModV);
    }
    *status = kStatusOk;
    *result = 0.0;
    const std::int64_t chars = s.parsed.sourceChars;
    if (chars == 0) return true;
    const std::int64_t p0 = s.parsed.start - 1;
    if (finding && ((s.parsed.start == 0 && !s.modifiers.has(kModM)) || p0 < 0 || p0 >= chars)) return true;
    prepare(&s);
    const std::int64_t end = sourceEnd(s);

    if constexpr (!finding) {
        // Either direction visits every character of the trimmed source
        // once. Decided bytes (0 or 1, continuation bytes 0) are counted
        // straight from the table, byte by byte: independent steps run
        // faster than stepping from character to character.
        std::uint64_t count = 0;
        for (std::int64_t off = 0; off < end; ++off) {
            const std::uint8_t entry = s.table[s.source[off]];
            count += entry < kUnknown ? entry : memberAt(&s, off) ? 1 : 0;
        }
        *result = static_cast<double>(count);
        return true;
    }

    // Leftwards the walk is over bytes, continuation bytes never being
    // members, and the position is the number of lead bytes before the
    // member; rightwards it steps from character to character.
    const std::int64_t off0 = p0 == 0 ? 0 : utf8OffsetOf(s.source, s.sourceBytes, p0);
    if (s.modifiers.has(kModB)) {
        for (std::int64_t off = off0;; --off) {
            if (memberAt(&s, off)) {
                *result = static_cast<double>(leadBytes(s.source, off) + 1);
                return true;
            }
            if (off == 0) return true;
        }
    }
    for (std::int64_t off = off0, position = p0 + 1; off < end; ++position) {
        if (memberAt(&s, off)) {
            *result = static_cast<double>(position);
            return true;
        }
        off += utf8SequenceBytes(s.source[off]);
    }
    return true;
}

template bool charSetUtf8<SearchMode::kFirst>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);
template bool charSetUtf8<SearchMode::kCount>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);

}  // namespace txscan
