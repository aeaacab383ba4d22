// The UTF-8 paths of KFINDC and KCOUNTC (charSetUtf8): the answers of the
// handle-walking paths, with the text walked on its bytes and each
// character's membership taken from the call's CharDecision. Malformed text
// in the source or the list is left to the handle.
#include "module/charset/argument_interpreter.h"
#include "module/charset/char_decision.h"
#include "module/charset/utf8_text.h"
#include "module/frame/workers.h"
#include "module/search/search_region.h"
#include "module/search/search_roles.h"
#include "module/search/utf8_call.h"
#include "module/search/utf8_offsets.h"

namespace txscan {

using namespace contract;

namespace {

// Membership of the character whose lead byte is source[off] and whose
// table entry is not 0 or 1.
bool undecidedMember(CharDecision& d, const std::uint8_t* source, std::int64_t off) {
    const std::uint8_t b = source[off];
    if (b < 0x80) return decideByte(d, b);
    return wideDecision(d, source + off, utf8SequenceBytes(b));
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
    CharDecision d;   // large; what is read is set by the reader or by the preparation
    d.h = h;
    d.utf8 = true;
    d.role = CharRole::kMember;
    Utf8Source text;
    if (!readUtf8Call(frame, h, roles, finding ? kCallFinding : kCallCounting, sourceChars, &d.parsed, &d.mods,
                      &text)) {
        return false;
    }
    // K negates the set of a search like V; a count only V negates.
    if (finding && d.mods.has(kModK)) {
        d.mods.clear(kModK);
        d.mods.set(kModV);
    }
    *status = kStatusOk;
    *result = 0.0;
    const std::int64_t chars = d.parsed.sourceChars;
    if (chars == 0) return true;
    const std::int64_t p0 = d.parsed.start - 1;
    if (finding && ((d.parsed.start == 0 && !d.mods.has(kModM)) || p0 < 0 || p0 >= chars)) return true;
    if (!prepareCharDecision(d)) return false;
    const std::uint8_t* source = text.data;
    const std::uint8_t* table = d.built;
    const std::int64_t end = chars == text.characters ? text.bytes : utf8OffsetOf(source, text.bytes, chars);

    if constexpr (!finding) {
        // Either direction visits every character of the trimmed source
        // once. Decided bytes (0 or 1, continuation bytes 0) are counted
        // straight from the table, byte by byte: independent steps run
        // faster than stepping from character to character.
        std::uint64_t count = 0;
        for (std::int64_t off = 0; off < end; ++off) {
            const std::uint8_t entry = table[source[off]];
            count += entry < kUnknown ? entry : undecidedMember(d, source, off) ? 1 : 0;
        }
        *result = static_cast<double>(count);
        return true;
    }

    // Leftwards the walk is over bytes, continuation bytes never being
    // members, and the position is the number of lead bytes before the
    // member; rightwards it steps from character to character.
    const std::int64_t off0 = p0 == 0 ? 0 : utf8OffsetOf(source, text.bytes, p0);
    const auto member = [&](std::int64_t off) {
        const std::uint8_t entry = table[source[off]];
        return entry < kUnknown ? entry != 0 : undecidedMember(d, source, off);
    };
    if (d.mods.has(kModB)) {
        for (std::int64_t off = off0;; --off) {
            if (member(off)) {
                *result = static_cast<double>(leadBytes(source, off) + 1);
                return true;
            }
            if (off == 0) return true;
        }
    }
    for (std::int64_t off = off0, position = p0 + 1; off < end; ++position) {
        if (member(off)) {
            *result = static_cast<double>(position);
            return true;
        }
        off += utf8SequenceBytes(source[off]);
    }
    return true;
}

template bool charSetUtf8<SearchMode::kFirst>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);
template bool charSetUtf8<SearchMode::kCount>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);

}  // namespace txscan
