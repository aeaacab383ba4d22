// The word engine: one pass over a source, through any walker of
// text_walkers.h, that counts words, finds a whole word, or locates the n-th
// word, by the mode it is given. The walk's rules (positions, words and
// empty words under M, Q's quoted parts, the whole-word check of a match) are
// written here once; the walkers on bytes add shortcuts where the mode lets
// most of the walk go unobserved.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/charset/modifier_set.h"
#include "module/charset/utf8_text.h"
#include "module/words/quote_parts.h"
#include "module/words/text_walkers.h"
#include "module/words/word_scanner.h"
#include "module/words/word_starts.h"

namespace txscan {

// A word as character indexes of the source and, on the byte walkers, as
// byte offsets (the handle path turns indexes into bytes itself).
struct WordRange {
    bool found;              // false: no such word (or the scan never started)
    std::int64_t first;      // index of the word's first character
    std::int64_t end;        // index just past its last; first == end for an empty word
    std::int64_t firstByte;
    std::int64_t endByte;
};

struct WordAnswer {
    double number;           // kCountWords, kFindWord
    WordRange range;         // kExtractWord, kLocateWord
};

// Stores the mode's answer: the number, the call routine's position and
// length, or the function's string cut from `source` by the range's bytes.
inline std::int32_t storeWordAnswer(contract::ArgumentFrame* frame, double* numericResult,
                                    contract::StringValue* textResult, contract::EncodingHandle* h,
                                    const ModifierSet& modifiers, std::int32_t mode, const WordAnswer& answer,
                                    const char* source) {
    if (mode == kCountWords || mode == kFindWord) {
        if (numericResult != nullptr) *numericResult = answer.number;
        return contract::kStatusOk;
    }
    const WordRange& range = answer.range;
    if (mode == kLocateWord) {
        // Position and length in characters; no such word reports 0 and 0.
        double* position = const_cast<double*>(frame->number(3));
        double* length = const_cast<double*>(frame->number(4));
        if (position != nullptr) *position = range.found ? static_cast<double>(range.first + 1) : 0.0;
        if (length != nullptr) *length = range.found ? static_cast<double>(range.end - range.first) : 0.0;
        return contract::kStatusOk;
    }
    // No such word: one blank, or the empty string when empty words count.
    if (!range.found) {
        const char* blank = " ";
        return storeWordText(textResult, h, blank, modifiers.has(kModM) ? 0 : 1, modifiers, blank);
    }
    return storeWordText(textResult, h, source + range.firstByte, range.endByte - range.firstByte, modifiers,
                         source);
}

// What the engine needs of a call besides its walker.
struct WordCall {
    std::int32_t mode;
    const ModifierSet* mods;
    std::int64_t start;      // 1-based character of the first step
    std::int64_t count;      // the word number of kExtractWord and kLocateWord
    // The byte walkers read the start argument once the text is counted.
    const contract::ArgumentFrame* frame;
    std::uint32_t startRole;
};

namespace words {

inline std::int64_t distance(std::int64_t a, std::int64_t b) { return a > b ? a - b : b - a; }

// How a scan for the n-th word stopped before the end of the text.
enum class WordEnd { None, EndedByDelimiter, EmptyAtEdge, EmptyBetweenDelimiters };

struct Walk {
    bool early;              // the scan never started
    bool found;              // kFindWord: the word was found at foundAt
    std::int64_t foundAt;
    std::int64_t wordCount;
    bool lastWasDelimiter;
    WordEnd wordEnd;         // kExtractWord, kLocateWord
    Spot end;                // the delimiter d of wordEnd
    Spot wordStart;          // pos -1 until the n-th word starts
};

// The delimiter decision at the walker's character, index `pos`, with Q's
// bookkeeping of quoted parts.
template <class W>
bool decide(W& w, const WordCall& c, QuoteParts& quotes, std::int64_t pos) {
    const bool delimiter = w.delimiter();
    if (!c.mods->has(kModQ)) return delimiter;
    return quotes.decide(w.quote(), pos, delimiter, c.mode == kFindWord);
}

template <class W>
Walk walk(W& w, const WordCall& c) {
    Walk out{};
    out.wordStart.pos = -1;
    const ModifierSet& m = *c.mods;
    const bool emptyWords = m.has(kModM);
    const bool locating = c.mode == kExtractWord || c.mode == kLocateWord;
    const std::int64_t step = m.has(kModB) ? -1 : 1;
    const std::int64_t sourceChars = w.sourceChars;
    const std::int64_t p = c.start - 1;
    // Every walker stands on character 0 to begin with.
    if ((c.start == 0 && !emptyWords) || (p == 0 ? sourceChars == 0 && !emptyWords : !w.standOn(p))) {
        out.early = true;
        return out;
    }

    QuoteParts quotes;
    std::int64_t wordCount = 0;
    const std::int64_t edge = step > 0 ? -2 : sourceChars + 1;
    std::int64_t lastWordChar = edge;
    std::int64_t lastDelimiter = edge;
    bool lastWasDelimiter = false;
    for (;;) {
        const std::int64_t pos = w.pos;
        if (c.mode == kFindWord && w.matchHere()) {
            // A forward search ignores matches that begin inside a quoted part.
            if (m.has(kModQ) && step > 0 && quotes.holds(pos)) {
                if (!w.next(step)) break;
                continue;
            }
            // The characters before and after the match must be delimiters
            // (or the text's edges).
            const Spot match = w.here();
            bool whole = true;
            if (w.moveBeside(false)) {
                lastWasDelimiter = whole = decide(w, c, quotes, pos - 1);
                w.back(match);
            }
            if (whole && w.moveBeside(true)) {
                lastWasDelimiter = whole = decide(w, c, quotes, pos + w.wordChars);
                w.back(match);
            }
            if (whole) {
                out.found = true;
                out.foundAt = pos;
                if (w.wordChars == 1 && step < 0) ++wordCount;
                break;
            }
            // Part of a longer word: count that word and go on after the
            // match's first character.
            if (distance(pos, lastWordChar) > 1) ++wordCount;
            lastWordChar = pos;
            if (!w.next(step)) break;
            continue;
        }

        lastWasDelimiter = decide(w, c, quotes, pos);
        if (!lastWasDelimiter) {
            if (wordCount == 0 || distance(pos, lastWordChar) > 1) {
                ++wordCount;
                if (locating && wordCount == c.count) out.wordStart = w.here();
            }
            lastWordChar = pos;
        } else {
            const bool atEdge = step > 0 ? pos == 0 : pos == sourceChars - 1;
            // Only a scan for the n-th word stops at a delimiter.
            WordEnd end = WordEnd::None;
            if (emptyWords && atEdge && ++wordCount == c.count && locating) end = WordEnd::EmptyAtEdge;
            if (end == WordEnd::None && locating && wordCount == c.count) end = WordEnd::EndedByDelimiter;
            if (end == WordEnd::None && emptyWords && distance(pos, lastDelimiter) == 1 && ++wordCount == c.count &&
                locating) {
                end = WordEnd::EmptyBetweenDelimiters;
            }
            if (end != WordEnd::None) {
                out.wordEnd = end;
                out.end = w.here();
                break;
            }
            lastDelimiter = pos;
        }
        if (!w.next(step)) break;
    }
    out.wordCount = wordCount;
    out.lastWasDelimiter = lastWasDelimiter;
    return out;
}

// The word range of a walk for the n-th word, in characters and bytes;
// offsets at the scanned text's end are the walker's bound.
template <class W>
WordRange rangeOf(const W& w, const WordCall& c, const Walk& o) {
    if (o.early) return {};
    const bool forward = !c.mods->has(kModB);
    const std::int64_t chars = w.sourceChars;
    const std::int64_t bound = w.bound;
    const Spot& d = o.end;
    const Spot& s = o.wordStart;
    switch (o.wordEnd) {
        case WordEnd::EndedByDelimiter:
            return forward ? WordRange{true, s.pos, d.pos, s.off, d.off}
                           : WordRange{true, d.pos + 1, s.pos + 1, d.off + d.bytes, s.off + s.bytes};
        case WordEnd::EmptyAtEdge:
            return forward ? WordRange{true, 0, 0, 0, 0} : WordRange{true, chars, chars, bound, bound};
        case WordEnd::EmptyBetweenDelimiters:
            return forward ? WordRange{true, d.pos, d.pos, d.off, d.off}
                           : WordRange{true, d.pos + 1, d.pos + 1, d.off + d.bytes, d.off + d.bytes};
        case WordEnd::None:
            break;
    }
    if (s.pos >= 0) {
        return forward ? WordRange{true, s.pos, chars, s.off, bound} : WordRange{true, 0, s.pos + 1, 0, s.off + s.bytes};
    }
    // The empty word just past the scanned text, whether or not a delimiter
    // ends the text.
    if (c.mods->has(kModM) && c.count == o.wordCount + 1) {
        return forward ? WordRange{true, chars, chars, bound, bound} : WordRange{true, 0, 0, 0, 0};
    }
    return {};
}

// Without M and Q a count is the number of runs of non-delimiters in the
// scanned text, whichever way the scan goes: the walk without its position
// bookkeeping.
template <bool Utf8>
std::int64_t countRuns(ByteWalker<Utf8>& w) {
    CharDecision& d = *w.d;
    if (!Utf8 || (!d.wideAsksHandle && !d.listHasWide)) {
        // Every character of more than one byte then gets the same decision
        // (a delimiter only under K), and bytes of one decision in a row make
        // one run however many characters they hold: count on the bytes, the
        // table's upper half (set for single-byte sessions and zero in the
        // constant tables, which exclude K) telling it.
        if (Utf8 && d.decision == d.built) std::memset(d.built + 0x80, d.mods.has(kModK) ? 1 : 0, 0x80);
        return countWordStarts(w.s, w.bound, d.decision);
    }
    std::int64_t words = 0;
    bool previous = true;   // the edge counts as a delimiter
    for (std::int64_t off = 0; off < w.bound; off += w.lengthAt(off)) {
        const bool delimiter = w.delimiterAt(off);
        words += previous && !delimiter;
        previous = delimiter;
    }
    return words;
}

// Whether the search word occurs as a whole word at the walker's character:
// the characters on either side are delimiters or the scanned text's ends.
template <bool Utf8>
bool wholeWordHere(ByteWalker<Utf8>& w) {
    if (!w.matchHere()) return false;
    if (w.off > 0 && !w.delimiterAt(w.startBefore(w.off))) return false;
    const std::int64_t after = w.off + w.matched;
    return after >= w.bound || w.delimiterAt(after);
}

// Without Q and E a search answers with the first position, in the scan's
// order from the start, at which the word occurs whole; nothing else of the
// walk matters. The word is not empty. -1 when there is none.
template <bool Utf8>
std::int64_t firstWholeWord(ByteWalker<Utf8>& w, const WordCall& c) {
    // Under T no match can begin in the trailing blanks, the word being
    // trimmed too; a backward scan may start on the first of them.
    if (c.start < 1 || !w.standOn(c.start - 1)) return -1;
    if (c.mods->has(kModB)) {
        if (w.pos > w.sourceChars) return -1;
        do {
            if (wholeWordHere(w)) return w.pos;
        } while (w.pos > 0 && w.next(-1));
        return -1;
    }
    if (w.off >= w.bound) return -1;
    if (!w.caseless) {
        // Candidates are the places of the word's first byte, always a lead
        // byte; characters are counted once, up to the answer.
        const std::uint8_t* s = w.s;
        const std::int64_t from = w.off;
        for (;;) {
            const void* found = std::memchr(s + w.off, w.word[0], static_cast<std::size_t>(w.bound - w.off));
            if (found == nullptr) return -1;
            w.off = static_cast<const std::uint8_t*>(found) - s;
            if (wholeWordHere(w)) return w.pos + (Utf8 ? leadBytes(s + from, w.off - from) : w.off - from);
            if (++w.off >= w.bound) return -1;
        }
    }
    do {
        if (wholeWordHere(w)) return w.pos;
    } while (w.next(1));
    return -1;
}

// Without M and Q the n-th word starts after a delimiter (or at the edge)
// and ends at the next delimiter or at the end of the scanned text: runs
// found from one end, stopping at the n-th, each character decided once, by
// any walker over the bytes [0, bound). Forward, the text is checked only as
// far as the walk goes.
template <bool Forward, class W>
[[gnu::always_inline]] inline WordRange nthWordRun(W& w, std::int64_t count) {
    // `at` is the byte boundary reached; the next character lies after it
    // forward, before it backward. `beyond` is the boundary past that character.
    const auto more = [&w](std::int64_t at) { return Forward ? at < w.bound : at > 0; };
    const auto delimiterNext = [&w](std::int64_t at, std::int64_t* beyond) {
        return Forward ? w.delimiterChecking(at, beyond) : w.delimiterAt(*beyond = w.startBefore(at));
    };
    std::int64_t at = Forward ? 0 : w.bound;
    std::int64_t beyond = 0;
    // Characters passed so far, counted on the way: on short rows a second
    // pass to turn the word's bytes into characters costs more than the walk.
    std::int64_t passed = 0;
    for (std::int64_t words = 1;; ++words) {
        while (more(at) && delimiterNext(at, &beyond)) {
            at = beyond;
            ++passed;
        }
        if (!more(at)) return {};
        const std::int64_t first = at;
        const std::int64_t passedFirst = passed;
        at = beyond;
        ++passed;
        while (more(at) && !delimiterNext(at, &beyond)) {
            at = beyond;
            ++passed;
        }
        if (words == count) {
            if constexpr (Forward) return {true, passedFirst, passed, first, at};
            return {true, w.sourceChars - passed, w.sourceChars - passedFirst, at, first};
        }
        if (!more(at)) return {};
        at = beyond;
        ++passed;
    }
}

}  // namespace words

// The walk's answer in each mode.
template <class W>
WordAnswer answerOfWalk(W& w, const WordCall& c) {
    const ModifierSet& m = *c.mods;
    const words::Walk o = words::walk(w, c);
    switch (c.mode) {
        case kCountWords: {
            const std::int64_t extra = m.has(kModM) && o.lastWasDelimiter && !m.has(kModE) ? 1 : 0;
            return {o.early ? 0.0 : static_cast<double>(o.wordCount + extra), {}};
        }
        case kFindWord: {
            if (!o.found) return {0.0, {}};
            const bool backward = m.has(kModB);
            return {static_cast<double>(m.has(kModE) ? (backward ? o.wordCount : o.wordCount + 1) : o.foundAt + 1),
                    {}};
        }
        default:
            return {0.0, words::rangeOf(w, c, o)};
    }
}

// The walk and the end rules that turn it into the mode's answer, with the
// byte walkers' shortcuts where the mode allows them. False when a byte
// walker meets malformed UTF-8 (the handle must take the call). A byte
// walker sets c.start once it has counted the text. Inlined into its one
// caller per walker: on short rows the call itself shows.
template <class W>
[[gnu::always_inline]] inline bool answerWords(W& w, const WordCall& call, WordAnswer* answer) {
    const ModifierSet& m = *call.mods;
    const bool locating = call.mode == kExtractWord || call.mode == kLocateWord;
    WordCall c = call;
    if constexpr (W::kOnBytes) {
        if (locating && !m.has(kModM) && !m.has(kModQ) && !m.has(kModB)) {
            *answer = {0.0, words::nthWordRun<true>(w, c.count)};
            return !w.malformed;
        }
        if (!w.check()) return false;
        if (c.mode == kCountWords && !m.has(kModM) && !m.has(kModQ)) {
            *answer = {static_cast<double>(words::countRuns(w)), {}};
            return true;
        }
        if (locating && !m.has(kModM) && !m.has(kModQ)) {
            *answer = {0.0, words::nthWordRun<false>(w, c.count)};
            return true;
        }
        // The paths above start at an end; the others take the start
        // argument (a negative start has set B already).
        c.start = startPosition(c.frame, c.startRole, m.has(kModB), w.sourceChars);
        // An empty word is left to the walk, which asks the handle at every
        // position it reaches.
        if (c.mode == kFindWord && !m.has(kModQ) && !m.has(kModE) && !(w.wordSet && w.wordChars == 0)) {
            const std::int64_t at = w.wordSet ? words::firstWholeWord(w, c) : -1;
            *answer = {at >= 0 ? static_cast<double>(at + 1) : 0.0, {}};
            return true;
        }
    }
    *answer = answerOfWalk(w, c);
    return true;
}

}  // namespace txscan
