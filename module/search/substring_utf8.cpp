// The UTF-8 paths of KFIND and KCOUNTX (substringUtf8): the answers of
// the handle-walking paths (same starts, directions, trimming and steps),
// found on the bytes. An exact search is a byte search, since well-formed
// UTF-8 matches only at character boundaries. A caseless one compares
// character by character: two ASCII characters through lowcaseMap, any pair
// with a wider character through the handle's compareAt, remembered per pair
// on the call's stack, because a wide character may fold onto an ASCII one.
// Malformed text in the source or the search text is left to the handle.
#include <cstring>

#include "module/charset/char_decision.h"
#include "module/charset/utf8_text.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/search/substring_scan.h"
#include "module/search/utf8_call.h"
#include "module/search/search_roles.h"

namespace txscan {

using namespace contract;

namespace {

struct Text {
    const std::uint8_t* data;
    std::int64_t bytes;
};

// Everything one call needs; lives on the call's stack.
struct Utf8Search {
    EncodingHandle* h;
    ParsedArguments parsed;
    ModifierSet modifiers;
    Utf8Source source;
    Text needle;   // the secondChars characters that are searched for
    CaselessPairs pairs;   // caseless compares involving a wide character
};

// Reads the call as the handle-walking path does; false when its text is not
// well-formed UTF-8.
bool readCall(ArgumentFrame* frame, EncodingHandle* h, const ArgumentRoles& roles, std::int32_t kind,
              std::int64_t sourceChars, Utf8Search* s) {
    if (!readUtf8Call(frame, h, roles, kind, sourceChars, &s->parsed, &s->modifiers, &s->source)) return false;
    s->h = h;
    s->needle = {nullptr, 0};
    if (s->parsed.secondSet && s->parsed.secondChars > 0) {
        const auto* data = reinterpret_cast<const std::uint8_t*>(s->parsed.second.text);
        s->needle = {data, utf8OffsetOf(data, s->parsed.second.length, s->parsed.secondChars)};
    }
    if (s->modifiers.has(kModI)) s->pairs.clear();
    return true;
}

// Byte offset of source character `index`: the end for the character count,
// -1 beyond it.
std::int64_t sourceOffset(const Utf8Search& s, std::int64_t index) {
    if (index == s.source.characters) return s.source.bytes;
    return index == 0 ? 0 : utf8OffsetOf(s.source.data, s.source.bytes, index);
}

bool sameCaseless(Utf8Search* s, const std::uint8_t* a, const std::uint8_t* b) {
    if ((a[0] | b[0]) < 0x80) return host().lowcaseMap[a[0]] == host().lowcaseMap[b[0]];
    return s->pairs.sameChar(s->h, a, utf8SequenceBytes(a[0]), b, utf8SequenceBytes(b[0]));
}

// The byte offset just past a caseless match at byte offset `off` (the text
// matched may be longer or shorter than the search text), or -1. The caller
// has made sure that the search text's characters fit before the source ends.
std::int64_t caselessMatchAt(Utf8Search* s, std::int64_t off) {
    const std::uint8_t* n = s->needle.data;
    const std::uint8_t* end = s->needle.data + s->needle.bytes;
    while (n < end) {
        if (!sameCaseless(s, s->source.data + off, n)) return -1;
        off += utf8SequenceBytes(s->source.data[off]);
        n += utf8SequenceBytes(n[0]);
    }
    return off;
}

// The quick refusal of most alignments: both first characters ASCII and
// different under lowcaseMap.
inline bool mayMatchAt(const Utf8Search& s, std::int64_t off) {
    const std::uint8_t t = s.source.data[off];
    const std::uint8_t n = s.needle.data[0];
    return (t | n) >= 0x80 || host().lowcaseMap[t] == host().lowcaseMap[n];
}

bool caseless(const Utf8Search& s) { return s.modifiers.has(kModI); }

Pattern exactPattern(const Utf8Search& s) { return {s.needle.data, s.needle.bytes, false}; }

// Matches from character p0 (at byte off0) rightwards, ending by character
// `limit`: the lowest one's position (-1 if none), or how many do not
// overlap.
template <SearchMode Mode>
std::int64_t forwardMatches(Utf8Search* s, std::int64_t p0, std::int64_t off0, std::int64_t limit) {
    if (!caseless(*s)) {
        const std::int64_t end = sourceOffset(*s, limit);
        const std::int64_t a = searchBytes<Mode>(s->source.data + off0, end - off0, exactPattern(*s));
        if constexpr (Mode == SearchMode::kCount) return a;
        return a < 0 ? -1 : p0 + leadBytes(s->source.data + off0, a);
    }
    const std::int64_t chars = s->parsed.secondChars;
    std::int64_t count = 0;
    std::int64_t off = off0;
    for (std::int64_t p = p0; p + chars <= limit;) {
        const std::int64_t matchEnd = mayMatchAt(*s, off) ? caselessMatchAt(s, off) : -1;
        if (matchEnd >= 0) {
            if constexpr (Mode == SearchMode::kFirst) return p;
            ++count;
            off = matchEnd;
            p += chars;
            continue;
        }
        off += utf8SequenceBytes(s->source.data[off]);
        ++p;
    }
    return Mode == SearchMode::kFirst ? -1 : count;
}

// Highest match ending by character `limit`; -1 if none.
std::int64_t lastMatch(Utf8Search* s, std::int64_t limit) {
    const std::int64_t end = sourceOffset(*s, limit);
    if (!caseless(*s)) {
        const std::int64_t a = searchBytes<SearchMode::kLast>(s->source.data, end, exactPattern(*s));
        return a < 0 ? -1 : leadBytes(s->source.data, a);
    }
    std::int64_t p = limit - s->parsed.secondChars;
    if (p < 0) return -1;
    std::int64_t off = sourceOffset(*s, p);
    for (;; --p) {
        if (mayMatchAt(*s, off) && caselessMatchAt(s, off) >= 0) return p;
        if (p == 0) return -1;
        off = utf8PreviousStart(s->source.data, off);
    }
}

// With two arguments the search is exact over the whole source, which on
// well-formed text is a byte search: a well-formed search text matches only
// where characters begin and end. False when the search text is malformed
// (the call is left to the handle); an absent or empty one gives no bytes.
bool twoArgumentNeedle(const ArgumentFrame* frame, Text* needle) {
    *needle = {nullptr, 0};
    const StringValue* value = frame->string(2);
    if (value == nullptr || value->data == nullptr || value->length <= 0) return true;
    const auto* data = reinterpret_cast<const std::uint8_t*>(value->data);
    if (utf8CharsIfWellFormed(data, value->length) < 0) return false;
    *needle = {data, value->length};
    return true;
}

Text wholeSource(const ArgumentFrame* frame) {
    const StringValue* source = frame->string(1);
    return {reinterpret_cast<const std::uint8_t*>(source->data), source->length};
}

}  // namespace

template <SearchMode Mode>
bool substringUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                   std::int32_t* status) {
    Text needle;
    if (frame->argCount == 2 && sourceChars > 0 && twoArgumentNeedle(frame, &needle)) {
        const Text source = wholeSource(frame);
        *status = kStatusOk;
        *result = 0.0;
        if (needle.bytes == 0) return true;
        const std::int64_t found = searchBytes<Mode>(source.data, source.bytes, {needle.data, needle.bytes, false});
        if constexpr (Mode == SearchMode::kCount) {
            *result = static_cast<double>(found);
        } else if (found >= 0) {
            *result = static_cast<double>(leadBytes(source.data, found) + 1);
        }
        return true;
    }
    Utf8Search s;
    constexpr bool counting = Mode == SearchMode::kCount;
    if (!readCall(frame, h, counting ? countRoles(frame, false) : findRoles(frame),
                  counting ? kCallCounting : kCallFinding, sourceChars, &s)) {
        return false;
    }
    *status = kStatusOk;
    *result = 0.0;
    const ParsedArguments& parsed = s.parsed;
    // An absent search string has no characters either.
    if (parsed.sourceChars == 0 || parsed.secondChars == 0) return true;
    if constexpr (Mode == SearchMode::kCount) {
        // Taken from the right, non-overlapping matches are as many as from
        // the left: both greedy walks pick a largest set of disjoint matches
        // of one length. So either direction walks the whole trimmed source.
        *result = static_cast<double>(forwardMatches<Mode>(&s, 0, 0, parsed.sourceChars));
        return true;
    }
    if (parsed.start == 0 && !s.modifiers.has(kModM)) return true;
    const std::int64_t p0 = parsed.start - 1;
    const std::int64_t off0 = sourceOffset(s, p0);
    if (off0 < 0 || off0 == s.source.bytes) return true;   // no character p0 to start at
    // A leftward match must end at or before the start position.
    const std::int64_t p = s.modifiers.has(kModB) ? lastMatch(&s, parsed.start)
                                                   : forwardMatches<Mode>(&s, p0, off0, parsed.sourceChars);
    if (p >= 0) *result = static_cast<double>(p + 1);
    return true;
}

template bool substringUtf8<SearchMode::kFirst>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t,
                                                std::int32_t*);
template bool substringUtf8<SearchMode::kCount>(ArgumentFrame*, double*, EncodingHandle*, std::int64_t,
                                                std::int32_t*);

}  // namespace txscan
