// Walkers over a source text, one per kind of text: through the session's
// EncodingHandle (any encoding), on the bytes of well-formed UTF-8, and on
// single bytes. The word engine moves a walker one character at a time and
// asks it the character's delimiter decision (K applied) and quote kind; in
// KFINDW's mode also whether the search word matches there.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/abi/encoding.h"
#include "module/charset/argument_interpreter.h"
#include "module/charset/char_decision.h"
#include "module/frame/encoding_ops.h"
#include "module/charset/utf8_text.h"
#include "module/frame/module_state.h"
#include "module/words/quote_parts.h"

namespace txscan {

// A character the engine came back to or reports: its index, and on the
// byte walkers its byte offset and length (-1 through the handle).
struct Spot {
    std::int64_t pos;
    std::int64_t off;
    std::int64_t bytes;
};

// Every question through the handle: what every encoding can take.
struct HandleWalker {
    static constexpr bool kOnBytes = false;

    contract::EncodingHandle* h;
    contract::TextCursor* source;
    contract::TextCursor* word;    // null without a search word
    const ModifierSet* mods;
    HandleQuestions q;
    contract::TextCursor doubleQuote;
    contract::TextCursor apostrophe;
    std::int64_t sourceChars;      // without trailing blanks under T
    std::int64_t wordChars;
    std::int64_t bound = -1;       // byte offsets are the handle's to give
    std::int64_t pos = 0;

    HandleWalker(contract::EncodingHandle* handle, ParsedArguments& parsed, const ModifierSet& modifiers)
        : h(handle), source(&parsed.source), word(parsed.secondSet ? &parsed.second : nullptr), mods(&modifiers),
          sourceChars(parsed.sourceChars), wordChars(parsed.secondChars) {
        setupHandleQuestions(&q, h, CharRole::kDelimiter, modifiers,
                             parsed.delimitersSet ? &parsed.delimiters : nullptr);
        if (modifiers.has(kModQ)) {
            setupCursor(h, &doubleQuote, "\"", 1);
            setupCursor(h, &apostrophe, "'", 1);
        }
    }

    // The decision for the character at `at`, K applied.
    bool delimiterOf(contract::TextCursor* at) {
        const bool delimiter = decideFromHandle(q, at);
        return mods->has(kModK) ? !delimiter : delimiter;
    }
    bool delimiter() { return delimiterOf(source); }
    // Asked right after delimiter(), of the character it copied.
    QuoteKind quote() {
        contract::TextCursor* held = &q.held.cursor;
        return enc::compareAt(h, held, &doubleQuote, 1, contract::kCompareExact) == 0  ? kDoubleQuoted
               : enc::compareAt(h, held, &apostrophe, 1, contract::kCompareExact) == 0 ? kApostrophed
                                                                                       : kNoQuote;
    }

    bool standOn(std::int64_t p) {
        pos = p;
        return enc::seekChars(h, source, contract::kSeekFromStart, p) != contract::kSeekOutside;
    }
    bool next(std::int64_t step) {
        pos += step;
        if (mods->has(kModT) && (pos < 0 || pos >= sourceChars)) return false;
        return enc::seekChars(h, source, contract::kSeekFromStart, pos) != contract::kSeekOutside;
    }
    Spot here() const { return {pos, -1, -1}; }
    void back(const Spot& spot) { pos = spot.pos; }

    bool matchHere() {
        const std::int32_t flags = mods->has(kModI) ? contract::kCompareCaseless : contract::kCompareExact;
        return word != nullptr && enc::compareAt(h, source, word, wordChars, flags) == 0;
    }
    // Onto the character before (or after) the match at pos; false at the
    // text's edge.
    bool moveBeside(bool after) {
        const std::int64_t to = after ? pos + wordChars : pos - 1;
        if (after ? to >= sourceChars : to < 0) return false;
        return standOn(to);
    }
};

// Well-formed UTF-8 (Utf8) or a single-byte encoding, walked on its bytes:
// characters of one byte take their decision from the byte table, wider ones
// from the handle through `d`'s memo.
template <bool Utf8>
struct ByteWalker {
    static constexpr bool kOnBytes = true;

    CharDecision* d;
    const std::uint8_t* s;
    std::int64_t n;
    std::int64_t bound;          // end of the scanned bytes (trailing blanks left out under T)
    std::int64_t sourceChars;    // characters before `bound`, once check() has counted them
    std::int64_t knownChars;     // the whole text's characters when the caller counted them, else -1
    bool wordSet = false;
    const std::uint8_t* word;    // with wordSet: the search word's compared bytes (after T and R)
    std::int64_t wordBytes;
    std::int64_t wordChars;
    bool caseless;
    std::int64_t pos = 0;
    std::int64_t off = 0;
    std::int64_t matched;        // bytes of the source the last match covered
    bool malformed = false;      // a walk of unchecked text met a malformed sequence
    CaselessPairs pairs;         // read by caseless compares only

    // Checks the whole text (unless the caller has) and counts the characters
    // before `bound`: false for malformed UTF-8. All walks but forward ones need it.
    bool check() {
        std::int64_t chars = n;
        if constexpr (Utf8) chars = knownChars >= 0 ? knownChars : utf8CharsIfWellFormed(s, n);
        sourceChars = chars - (n - bound);
        return chars >= 0;
    }
    // The decision at `at` in text not checked yet, and the offset past the
    // character; a malformed sequence ends the walk there.
    bool delimiterChecking(std::int64_t at, std::int64_t* beyond) {
        const int length = !Utf8 || s[at] < 0x80 ? 1 : utf8Length(s + at, n - at);
        malformed = malformed || length == 0;
        *beyond = length == 0 ? n : at + length;
        return length == 0 || (length == 1 ? d->decision[s[at]] != 0 : wideDecision(*d, s + at, length));
    }

    int lengthAt(std::int64_t at) const { return Utf8 ? utf8SequenceBytes(s[at]) : 1; }
    std::int64_t startBefore(std::int64_t at) const { return Utf8 ? utf8PreviousStart(s, at) : at - 1; }

    bool delimiterAt(std::int64_t at) {
        const std::uint8_t c = s[at];
        if (!Utf8 || c < 0x80) return d->decision[c] != 0;
        return wideDecision(*d, s + at, utf8SequenceBytes(c));
    }
    bool delimiter() { return delimiterAt(off); }
    QuoteKind quote() const { return lengthAt(off) == 1 ? quoteKindOf(s[off]) : kNoQuote; }

    // Character p of the whole text, trailing blanks included (one byte
    // each), found from whichever end of the scanned bytes is nearer.
    bool standOn(std::int64_t p) {
        if (p < 0) return false;
        std::int64_t at = p;
        if constexpr (Utf8) {
            if (p >= sourceChars) {
                at = bound + (p - sourceChars);
            } else if (p <= sourceChars - p) {
                at = 0;
                for (std::int64_t i = 0; i < p; ++i) at += lengthAt(at);
            } else {
                at = bound;
                for (std::int64_t i = sourceChars; i > p; --i) at = startBefore(at);
            }
        }
        if (at >= n) return false;
        pos = p;
        off = at;
        return true;
    }
    bool next(std::int64_t step) {
        if (step > 0) {
            const std::int64_t to = off + lengthAt(off);
            if (to >= bound) return false;
            off = to;
            ++pos;
            return true;
        }
        // A backward scan that starts in the trimmed blanks stops after one.
        if (pos == 0 || pos - 1 >= sourceChars) return false;
        off = startBefore(off);
        --pos;
        return true;
    }
    Spot here() const { return {pos, off, lengthAt(off)}; }
    void back(const Spot& spot) {
        pos = spot.pos;
        off = spot.off;
    }

    // What the handle's compare over no characters answers is the host's to
    // say, so it is asked as the handle walker asks it.
    bool emptyWordMatches() {
        contract::EncodingHandle* h = d->h;
        contract::TextCursor source;
        contract::TextCursor none;
        setupCursor(h, &source, reinterpret_cast<const char*>(s), n);
        if (pos > 0) enc::seekChars(h, &source, contract::kSeekFromStart, pos);
        setupCursor(h, &none, reinterpret_cast<const char*>(word), 0);
        return enc::compareAt(h, &source, &none, 0, caseless ? contract::kCompareCaseless : contract::kCompareExact) ==
               0;
    }
    // Characters of one byte compare by the session's case table, any pair
    // with a wider character by the handle (a Kelvin sign matches k).
    bool sameIgnoringCase(const std::uint8_t* a, int la, const std::uint8_t* b, int lb) {
        if (la == 1 && lb == 1) return host().upcaseMap[*a] == host().upcaseMap[*b];
        return pairs.sameChar(d->h, a, la, b, lb);
    }
    bool matchHere() {
        if (!wordSet) return false;
        if (wordChars == 0) {
            matched = 0;
            return emptyWordMatches();
        }
        if (!caseless) {
            if (wordBytes > n - off || s[off] != word[0]) return false;
            matched = wordBytes;
            return std::memcmp(s + off, word, static_cast<std::size_t>(wordBytes)) == 0;
        }
        std::int64_t to = off;
        for (std::int64_t from = 0; from < wordBytes;) {
            if (to >= n) return false;
            const int lt = lengthAt(to);
            const int lw = Utf8 ? utf8SequenceBytes(word[from]) : 1;
            if (!sameIgnoringCase(s + to, lt, word + from, lw)) return false;
            to += lt;
            from += lw;
        }
        matched = to - off;
        return true;
    }
    bool moveBeside(bool after) {
        if (after) {
            if (pos + wordChars >= sourceChars) return false;
            off += matched;
            pos += wordChars;
            return true;
        }
        if (pos == 0) return false;
        off = startBefore(off);
        --pos;
        return true;
    }
};

}  // namespace txscan
