// The UTF-8 paths of KFINDC and KCOUNTC (charSetUtf8): the answers of the
// handle-walking paths, with the text walked on its bytes and each
// character's membership taken from the call's CharDecision. Malformed text
// in the source or the list is left to the handle.
#include "module/charset/argument_interpreter.h"
#include "module/charset/byte_vectors.h"
#include "module/charset/char_decision.h"
#include "module/charset/utf8_text.h"
#include "module/charset/wide_classes.h"
#include "module/frame/module_state.h"
#include "module/frame/workers.h"
#include "module/search/search_region.h"
#include "module/search/search_roles.h"
#include "module/search/utf8_call.h"

namespace txscan {

using namespace contract;

namespace {

// Membership of the character that starts at byte `off`; false for a
// continuation byte, so a walk over bytes meets each character once.
inline bool memberAt(CharDecision& d, const std::uint8_t* source, std::int64_t off) {
    const std::uint8_t b = source[off];
    const std::uint8_t entry = d.built[b];
    if (entry < kUnknown) return entry != 0;
    return b < 0x80 ? decideByte(d, b) : wideDecision(d, source + off, utf8SequenceBytes(b));
}

// A rightward search: the byte offset of the character at `position`.
struct Walk {
    const std::uint8_t* source;
    std::int64_t end;
    std::int64_t off;
    std::int64_t position;
};

#if defined(__x86_64__)

// The nibble table costs about as much as looking at 48 bytes one by one.
constexpr std::int64_t kBlockWalkMinimum = 48;

// The walk 32 bytes at a time: the bytes whose entry is not 0 stop it
// (continuation bytes never do), and wide characters cost less picked out
// of a block than walked byte by byte, however many there are. Positions are
// counted from lead bytes and ASCII, the bytes above -65 taken as signed. The
// ragged end is the text's last 32 bytes, with the lanes already walked
// masked off. True at the first member. A count gains nothing here: its byte
// walk has no step to take from character to character, and blocks full of
// members stopped it more than they saved.
__attribute__((target("avx2,popcnt"))) bool blocksAvx2(CharDecision& d, Walk& w) {
    const NibbleSet stops = nibbleSetOf(d.built);
    while (w.off < w.end) {
        std::int64_t at = w.off;
        std::uint32_t lanes = ~0u;
        if (at + 32 > w.end) {
            at = w.end - 32;
            lanes <<= w.off - at;
        }
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(w.source + at));
        const auto leads = lanes & static_cast<std::uint32_t>(
                                       _mm256_movemask_epi8(_mm256_cmpgt_epi8(v, _mm256_set1_epi8(-65))));
        for (std::uint32_t hits = lanes & membersOf(v, stops); hits != 0; hits &= hits - 1) {
            const int i = __builtin_ctz(hits);
            if (memberAt(d, w.source, at + i)) {
                w.position += __builtin_popcount(leads & ((1u << i) - 1));
                return true;
            }
        }
        w.position += __builtin_popcount(leads);
        w.off = at + 32;
    }
    return false;
}

#endif

// KFINDC(source, "", "d"), the commonest call, searched without a set: the
// walk stops only at the bytes '0' to '9' and at the lead bytes of wide
// characters, and the handle decides each wide character once a call. It
// holds only while the session's byte tables give the class D to exactly
// those ten bytes below 0x80, as the byte paths take them; otherwise the
// set is built as for any other call.
bool asciiDigitsAreTheTen() {
    const std::uint8_t* classes = host().classTable;
#if defined(__SSE2__)
    const __m128i bit = _mm_set1_epi8(kClassDigit);
    const __m128i ten = _mm_setr_epi8(4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 0, 0, 0, 0, 0, 0);
    static_assert(kClassDigit == 4);
    __m128i differ = _mm_setzero_si128();
    for (int row = 0; row < 8; ++row) {
        const __m128i got = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(classes + 16 * row)), bit);
        differ = _mm_or_si128(differ, _mm_xor_si128(got, row == 3 ? ten : _mm_setzero_si128()));
    }
    return _mm_movemask_epi8(_mm_cmpeq_epi8(differ, _mm_setzero_si128())) == 0xFFFF;
#else
    for (int c = 0; c < 0x80; ++c) {
        if (((classes[c] & kClassDigit) != 0) != (c >= '0' && c <= '9')) return false;
    }
    return true;
#endif
}

bool wideDigit(EncodingHandle* h, CharMemo& memo, const std::uint8_t* p) {
    const int length = utf8SequenceBytes(*p);
    const std::uint32_t key = charKey(p, length);
    if (const int known = memo.find(key); known >= 0) return known != 0;
    TextCursor at;
    setupCursor(h, &at, reinterpret_cast<const char*>(p), length);
    const bool answer = wideClassHolds(h, kModD, nullptr, &at, &at);   // D reads no fixed list
    memo.enter(key, answer);
    return answer;
}

// The byte offset of the first member in well-formed text, or -1.
std::int64_t firstDigitUtf8(EncodingHandle* h, const std::uint8_t* s, std::int64_t n) {
    CharMemo memo;
    memo.clear();
    std::int64_t off = 0;
#if defined(__SSE2__)
    // 16 bytes at a time; the ragged end is the text's last 16 bytes with the
    // lanes already walked masked off. A digit b has b + 80 in -128..-119 as
    // a signed byte; a lead byte of a wide character is in -64..-1.
    while (n >= 16 && off < n) {
        std::int64_t at = off;
        std::uint32_t lanes = 0xFFFF;
        if (at + 16 > n) {
            at = n - 16;
            lanes = (lanes << (off - at)) & 0xFFFF;
        }
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + at));
        const __m128i digits = _mm_cmplt_epi8(_mm_add_epi8(v, _mm_set1_epi8(80)), _mm_set1_epi8(-118));
        const __m128i leads = _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(-65)), _mm_cmplt_epi8(v, _mm_setzero_si128()));
        for (auto hits = lanes & static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_or_si128(digits, leads)));
             hits != 0; hits &= hits - 1) {
            const std::int64_t i = at + __builtin_ctz(hits);
            if (s[i] < 0x80 || wideDigit(h, memo, s + i)) return i;
        }
        off = at + 16;
    }
#endif
    for (; off < n; ++off) {
        const std::uint8_t b = s[off];
        if (b < 0x80 ? static_cast<std::uint8_t>(b - '0') < 10 : b >= 0xC0 && wideDigit(h, memo, s + off)) return off;
    }
    return -1;
}

// True when the call is KFINDC(source, "", modifiers) whose modifiers are
// the letter D alone, in either case, as the handle reads them.
bool loneDigitSearch(ArgumentFrame* frame, EncodingHandle* h, const ArgumentRoles& roles) {
    if (frame->argCount != 3 || roles.list != 2 || roles.modifiers != 3 || roles.start != 0) return false;
    const StringValue* list = frame->string(2);
    const StringValue* modifiers = frame->string(3);
    if (list->length != 0 || modifiers == nullptr || modifiers->data == nullptr || modifiers->length < 1) return false;
    // Only texts of the letter D are tried, so that other calls do not read
    // their modifiers twice; others that read the same ("d z") take the
    // set's path, to the same answer.
    for (std::int64_t i = 0; i < modifiers->length; ++i) {
        if ((modifiers->data[i] | 0x20) != 'd') return false;
    }
    ModifierSet read{};
    readModifierText(h, modifiers, &read);
    ModifierSet loneD{};
    loneD.set(kModD);
    loneD.set(kModInterpreted);
    return std::memcmp(read.flag, loneD.flag, sizeof read.flag) == 0 && asciiDigitsAreTheTen();
}

}  // namespace

// KFINDC (kFirst) and KCOUNTC (kCount).
template <SearchMode Mode>
bool charSetUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                 std::int32_t* status) {
    constexpr bool finding = Mode == SearchMode::kFirst;
    ArgumentRoles roles;
    if (std::int32_t clash = charSetRoles<finding>(frame, &roles)) {
        *status = clash;
        return true;
    }
    if (finding && sourceChars >= 0 && loneDigitSearch(frame, h, roles)) {
        const StringValue* text = frame->string(1);
        const auto* source = reinterpret_cast<const std::uint8_t*>(text->data);
        const std::int64_t at = firstDigitUtf8(h, source, text->length);
        *result = at < 0 ? 0.0 : static_cast<double>(leadBytes(source, at) + 1);
        *status = kStatusOk;
        return true;
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
    const std::int64_t end = chars == text.characters ? text.bytes : utf8OffsetOf(source, text.bytes, chars);
    // A count visits every character of the trimmed source in either
    // direction; leftwards a search walks over bytes, and the position is
    // the number of lead bytes before the member.
    const std::int64_t off0 = p0 <= 0 || !finding ? 0 : utf8OffsetOf(source, text.bytes, p0);
    if (finding && d.mods.has(kModB)) {
        for (std::int64_t off = off0;; --off) {
            if (memberAt(d, source, off)) {
                *result = static_cast<double>(leadBytes(source, off) + 1);
                return true;
            }
            if (off == 0) return true;
        }
    }
    if constexpr (!finding) {
        // Decided bytes (0 or 1, continuation bytes 0) are counted straight
        // from the table: independent steps run faster than stepping from
        // character to character.
        std::uint64_t count = 0;
        for (std::int64_t off = 0; off < end; ++off) {
            const std::uint8_t entry = d.built[source[off]];
            count += entry < kUnknown ? entry : memberAt(d, source, off) ? 1 : 0;
        }
        *result = static_cast<double>(count);
        return true;
    }
    Walk w{source, end, off0, p0 + 1};
#if defined(__x86_64__)
    // Blocks need a text of 32 bytes at least; they would stop too often where
    // ASCII entries are decided as they appear or the set is negated (most
    // characters are members).
    if (end - off0 >= kBlockWalkMinimum && end >= 32 && !d.lazy && !d.negated() && haveAvx2()) {
        if (blocksAvx2(d, w)) *result = static_cast<double>(w.position);
        return true;
    }
#endif
    // Continuation bytes are never members, so the walk goes byte by byte and
    // counts lead bytes only once it has found one.
    for (std::int64_t off = w.off; off < end; ++off) {
        if (d.built[source[off]] != 0 && memberAt(d, source, off)) {
            *result = static_cast<double>(w.position + leadBytes(source + w.off, off - w.off));
            return true;
        }
    }
    return true;
}

template bool charSetUtf8<SearchMode::kFirst>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);
template bool charSetUtf8<SearchMode::kCount>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);

}  // namespace txscan
