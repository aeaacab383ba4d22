// The UTF-8 paths of KFINDC and KCOUNTC (charSetUtf8): the answers of the
// handle-walking paths, with the text walked on its bytes and each
// character's membership taken from the call's CharDecision. Malformed text
// in the source or the list is left to the handle.
#include "module/charset/argument_interpreter.h"
#include "module/charset/byte_vectors.h"
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

// Bytes of the character by its lead byte's top four bits, in text known
// to be well formed: a load where comparisons would branch.
constexpr std::uint8_t kSequenceBytes[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 3, 4};

// Membership of the character whose lead byte is source[off] and whose
// table entry is not 0 or 1.
bool undecidedMember(CharDecision& d, const std::uint8_t* source, std::int64_t off) {
    const std::uint8_t b = source[off];
    if (b < 0x80) return decideByte(d, b);
    return wideDecision(d, source + off, utf8SequenceBytes(b));
}

#if defined(__x86_64__)

// A block with more bytes to look at than this is left to the byte walk,
// which takes them faster than picking them out of the block one by one
// (text of wide characters, sets of many ASCII characters).
constexpr int kDenseStops = 8;

// Whether blocks from p would stop too often: the ASCII entries are decided
// as they appear, the set is negated (most characters are members), or the
// first block has more lead bytes of wide characters than kDenseStops.
__attribute__((target("avx2,popcnt"))) bool denseStops(const CharDecision& d, const std::uint8_t* p) {
    if (d.lazy || d.negated()) return true;
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const std::uint32_t high = static_cast<std::uint32_t>(_mm256_movemask_epi8(v));
    const std::uint32_t notContinuation =
        static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(v, _mm256_set1_epi8(-65))));
    return __builtin_popcount(high & notContinuation) > kDenseStops;
}

// The rightward search 32 bytes at a time while a whole block fits before
// `end`: the bytes whose entry is not 0 stop it (continuation bytes never
// do), and a stop's position is counted from the lead bytes before it.
// Returns the member's position, 0 for none in the blocks, with *off and
// *position moved past the blocks scanned (up to the first dense block).
__attribute__((target("avx2,popcnt"))) std::int64_t firstMemberAvx2(CharDecision& d, const std::uint8_t* source,
                                                                    std::int64_t end, std::int64_t* off,
                                                                    std::int64_t* position) {
    const NibbleSet stops = nibbleSetOf(d.built);
    const __m256i beforeLead = _mm256_set1_epi8(-65);   // lead bytes and ASCII are above it, taken as signed
    for (; *off + 32 <= end; *off += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + *off));
        const std::uint32_t leads = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(v, beforeLead)));
        std::uint32_t hits = membersOf(v, stops);
        if (__builtin_popcount(hits) > kDenseStops) break;
        for (; hits != 0; hits &= hits - 1) {
            const int i = __builtin_ctz(hits);
            const std::uint8_t entry = d.built[source[*off + i]];
            if (entry == 1 || (entry != 0 && undecidedMember(d, source, *off + i))) {
                return *position + __builtin_popcount(leads & ((1u << i) - 1));
            }
        }
        *position += __builtin_popcount(leads);
    }
    return 0;
}

// The count over the whole 32-byte blocks from *off, which it moves past them
// (up to the first dense block).
__attribute__((target("avx2,popcnt"))) std::uint64_t countMembersAvx2(CharDecision& d, const std::uint8_t* source,
                                                                      std::int64_t end, std::int64_t* off) {
    const NibbleSet stops = nibbleSetOf(d.built);
    std::uint64_t count = 0;
    for (; *off + 32 <= end; *off += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + *off));
        std::uint32_t hits = membersOf(v, stops);
        if (__builtin_popcount(hits) > kDenseStops) break;
        for (; hits != 0; hits &= hits - 1) {
            const std::int64_t at = *off + __builtin_ctz(hits);
            const std::uint8_t entry = d.built[source[at]];
            count += entry == 1 || (entry != 0 && undecidedMember(d, source, at)) ? 1 : 0;
        }
    }
    return count;
}

#endif

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
        std::int64_t off = 0;
#if defined(__x86_64__)
        if (end >= 64 && haveAvx2() && !denseStops(d, source)) count = countMembersAvx2(d, source, end, &off);
#endif
        for (; off < end; ++off) {
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
        return entry != 0 && (entry == 1 || undecidedMember(d, source, off));
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
    std::int64_t off = off0;
    std::int64_t position = p0 + 1;
#if defined(__x86_64__)
    // The nibble table costs about as much as looking at 48 bytes one by one.
    if (end - off >= 64 && haveAvx2() && !denseStops(d, source + off)) {
        if (const std::int64_t found = firstMemberAvx2(d, source, end, &off, &position)) {
            *result = static_cast<double>(found);
            return true;
        }
        // The blocks end where they end: the rest of a character that
        // straddles the last edge was counted with its lead byte.
        while (off < end && (source[off] & 0xC0) == 0x80) ++off;
    }
#endif
    for (; off < end; ++position) {
        const std::uint8_t lead = source[off];
        if (member(off)) {
            *result = static_cast<double>(position);
            return true;
        }
        off += kSequenceBytes[lead >> 4];
    }
    return true;
}

template bool charSetUtf8<SearchMode::kFirst>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);
template bool charSetUtf8<SearchMode::kCount>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);

}  // namespace txscan
