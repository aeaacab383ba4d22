// The UTF-8 paths of KCOUNTW (countWordsUtf8) and KFINDW (findWordUtf8):
// the word scanner's count and find modes, step for step (the same
// positions, word and empty-word rules, quote bookkeeping and match checks),
// walking well-formed UTF-8 on its bytes instead of moving cursors. The
// delimiter decisions come from the shared byte-walking decision table;
// comparisons of the search word are byte compares, with the handle asked
// (and remembered) only when a caseless compare meets a character of more
// than one byte. Malformed UTF-8 in the source, the word or the delimiter
// list, and KFINDW argument types that form no signature, are left to the
// scanner. Neither mode caches anything, so setCache is never touched.
#include <cstring>

#include "module/charset/argument_interpreter.h"
#include "module/charset/char_decision.h"
#include "module/charset/utf8_text.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/module_state.h"
#include "module/frame/workers.h"
#include "module/words/delimiter_decision.h"
#include "module/words/quote_parts.h"
#include "module/words/word_roles.h"
#include "module/words/word_scanner.h"

namespace txscan {

using namespace contract;

namespace {

// Length of the character whose lead byte is b, in text known to be well formed.
inline int charBytes(std::uint8_t b) { return b < 0xC0 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4; }

std::int64_t blankTrimmed(const std::uint8_t* p, std::int64_t n) {
    while (n > 0 && p[n - 1] == ' ') --n;
    return n;
}

// Under T the host's trimming decides what a trailing blank is; these paths
// trim blanks (0x20) themselves, so they take a text only when what precedes
// its trailing blanks is a character of one byte, which is no blank.
bool trimsAlike(const std::uint8_t* p, std::int64_t n) {
    const std::int64_t end = blankTrimmed(p, n);
    return end == 0 || p[end - 1] < 0x80;
}

struct Text {
    const std::uint8_t* p;
    std::int64_t n;
};

// A text argument as the interpreter reads it, if it is well formed.
bool readText(const StringValue* value, Text* text) {
    if (value->length < 0 || (value->data == nullptr && value->length > 0)) return false;
    *text = {reinterpret_cast<const std::uint8_t*>(value->data), value->length};
    return text->n == 0 || wellFormedUtf8(text->p, text->n);
}

// One call's reading and its walk state; lives on the call's stack.
struct WordWalk {
    DelimiterDecision d;
    std::int32_t mode;
    Text source;               // the whole source; comparisons may run into trimmed blanks
    std::int64_t sourceChars;  // without trailing blanks under T
    Text word;                 // the search word's compared bytes (after T and R)
    std::int64_t wordChars;
    bool wordSet;
    bool caseless;
    QuoteParts quotes;
    CaselessPairs pairs;        // caseless compares involving a wide character
};

// The scanner's delimiter test of the character at `pos` (byte `off`),
// quote bookkeeping included.
bool examine(WordWalk& w, std::int64_t pos, std::int64_t off) {
    const std::uint8_t* p = w.source.p + off;
    const int length = charBytes(*p);
    const bool delimiter = delimiterAt(w.d, p, length);
    if (!w.d.mods.has(kModQ)) return delimiter;
    const QuoteKind quote = length == 1 ? quoteKindOf(*p) : kNoQuote;
    return w.quotes.decide(quote, pos, delimiter, w.mode == kFindWord);
}

// Whether two characters are the same ignoring case, as the handle's
// caseless compare decides: characters of one byte by the session's case
// table, any pair with a wider character by the handle (a Kelvin sign
// matches k).
bool sameIgnoringCase(WordWalk& w, const std::uint8_t* a, int la, const std::uint8_t* b, int lb) {
    if (la == 1 && lb == 1) return host().upcaseMap[*a] == host().upcaseMap[*b];
    return w.pairs.sameChar(w.d.h, a, la, b, lb);
}

// What the handle's compare over no characters answers at character `pos`
// is the host's to say, so it is asked as the scanner asks it.
bool emptyWordMatches(WordWalk& w, std::int64_t pos) {
    EncodingHandle* h = w.d.h;
    TextCursor source;
    TextCursor word;
    setupCursor(h, &source, reinterpret_cast<const char*>(w.source.p), w.source.n);
    if (pos > 0) enc::seekChars(h, &source, kSeekFromStart, pos);
    setupCursor(h, &word, reinterpret_cast<const char*>(w.word.p), 0);
    return enc::compareAt(h, &source, &word, 0, w.caseless ? kCompareCaseless : kCompareExact) == 0;
}

// The handle's compare of the search word at character `pos` (byte `off`)
// of the source: the source bytes the match covers, or -1 for no match.
std::int64_t matchAt(WordWalk& w, std::int64_t pos, std::int64_t off) {
    if (!w.wordSet) return -1;
    if (w.wordChars == 0) return emptyWordMatches(w, pos) ? 0 : -1;
    const std::uint8_t* s = w.source.p;
    if (!w.caseless) {
        if (w.word.n > w.source.n - off || s[off] != w.word.p[0]) return -1;
        return std::memcmp(s + off, w.word.p, static_cast<std::size_t>(w.word.n)) == 0 ? w.word.n : -1;
    }
    std::int64_t to = off;
    for (std::int64_t so = 0; so < w.word.n;) {
        if (to >= w.source.n) return -1;
        const int lt = charBytes(s[to]);
        const int ls = charBytes(w.word.p[so]);
        if (!sameIgnoringCase(w, s + to, lt, w.word.p + so, ls)) return -1;
        to += lt;
        so += ls;
    }
    return to - off;
}

// R: the search word without the delimiters (tests a to f and K, no quote
// handling) at its front and back.
void trimWord(WordWalk& w) {
    const std::uint8_t* p = w.word.p;
    std::int64_t front = 0, frontChars = 0;
    while (front < w.word.n && delimiterAt(w.d, p + front, charBytes(p[front]))) {
        front += charBytes(p[front]);
        ++frontChars;
    }
    std::int64_t back = w.word.n, backChars = w.wordChars;
    while (back > front) {
        std::int64_t previous = back - 1;
        while ((p[previous] & 0xC0) == 0x80) --previous;
        if (!delimiterAt(w.d, p + previous, static_cast<int>(back - previous))) break;
        back = previous;
        --backChars;
    }
    w.word = {p + front, back - front};
    w.wordChars = backChars - frontChars;
}

struct Outcome {
    bool early;       // the scan never started
    bool found;
    std::int64_t foundAt;
    std::int64_t wordCount;
    bool lastWasDelimiter;
    std::int64_t step;
};

// The scanner's walk in count or find mode.
Outcome walk(WordWalk& w, std::int64_t start) {
    Outcome out{};
    const bool emptyWords = w.d.mods.has(kModM);
    const bool trimmed = w.d.mods.has(kModT);
    const bool finding = w.mode == kFindWord;
    const std::int64_t sourceChars = w.sourceChars;
    const std::uint8_t* s = w.source.p;
    const std::int64_t n = w.source.n;
    const std::int64_t step = w.d.mods.has(kModB) ? -1 : 1;
    out.step = step;

    const std::int64_t p = start - 1;
    std::int64_t pos = p;
    std::int64_t off = 0;
    if (start == 0 && !emptyWords) {
        out.early = true;
        return out;
    }
    if (p == 0) {
        if (sourceChars == 0 && !emptyWords) {
            out.early = true;
            return out;
        }
    } else {
        // The first position is sought in the whole text, trimmed or not.
        if (p < 0) {
            out.early = true;
            return out;
        }
        for (std::int64_t i = 0; i < p && off < n; ++i) off += charBytes(s[off]);
        if (off >= n) {
            out.early = true;
            return out;
        }
    }

    // Moves (pos, off) one character along; false when that leaves the
    // scanned text.
    const auto advance = [&]() {
        const std::int64_t next = pos + step;
        if (trimmed && (next < 0 || next >= sourceChars)) return false;
        if (step > 0) {
            const std::int64_t nextOff = off + charBytes(s[off]);
            if (nextOff >= n) return false;
            off = nextOff;
        } else {
            if (next < 0) return false;
            do {
                --off;
            } while ((s[off] & 0xC0) == 0x80);
        }
        pos = next;
        return true;
    };
    const auto distance = [](std::int64_t a, std::int64_t b) { return a > b ? a - b : b - a; };

    std::int64_t wordCount = 0;
    const std::int64_t edge = step > 0 ? -2 : sourceChars + 1;
    std::int64_t lastWordChar = edge;
    std::int64_t lastDelimiter = edge;
    bool lastWasDelimiter = false;

    for (;;) {
        if (finding) {
            const std::int64_t matched = matchAt(w, pos, off);
            if (matched >= 0) {
                if (w.d.mods.has(kModQ) && step > 0 && w.quotes.holds(pos)) {
                    if (!advance()) break;
                    continue;
                }
                // The character before the match, then the one after it,
                // must be delimiters (or the text's ends).
                bool whole = true;
                if (pos > 0) {
                    std::int64_t before = off - 1;
                    while ((s[before] & 0xC0) == 0x80) --before;
                    lastWasDelimiter = examine(w, pos - 1, before);
                    whole = lastWasDelimiter;
                }
                const std::int64_t matchEnd = pos + w.wordChars;
                if (whole && matchEnd < sourceChars) {
                    lastWasDelimiter = examine(w, matchEnd, off + matched);
                    whole = lastWasDelimiter;
                }
                if (whole) {
                    out.found = true;
                    out.foundAt = pos;
                    if (w.wordChars == 1 && step < 0) ++wordCount;
                    break;
                }
                // Part of a longer word: count that word and go on after
                // the match's first character.
                if (distance(pos, lastWordChar) > 1) ++wordCount;
                lastWordChar = pos;
                if (!advance()) break;
                continue;
            }
        }

        lastWasDelimiter = examine(w, pos, off);
        if (!lastWasDelimiter) {
            if (wordCount == 0 || distance(pos, lastWordChar) > 1) ++wordCount;
            lastWordChar = pos;
        } else {
            const bool atEdge = step > 0 ? pos == 0 : pos == sourceChars - 1;
            if (emptyWords && atEdge) ++wordCount;
            if (emptyWords && distance(pos, lastDelimiter) == 1) ++wordCount;
            lastDelimiter = pos;
        }
        if (!advance()) break;
    }
    out.wordCount = wordCount;
    out.lastWasDelimiter = lastWasDelimiter;
    return out;
}

// Without M and Q a count is the number of runs of non-delimiters in the
// scanned text, whichever way the scan goes: the walk above without its
// position bookkeeping.
std::int64_t countRuns(WordWalk& w) {
    const std::uint8_t* s = w.source.p;
    const std::uint8_t* decision = w.d.decision;
    const std::int64_t bound = w.d.mods.has(kModT) ? blankTrimmed(s, w.source.n) : w.source.n;
    std::int64_t words = 0;
    bool previous = true;   // the edge counts as a delimiter
    if (!w.d.wideAsksHandle && !w.d.listHasWide) {
        // Every character of more than one byte then gets the same decision
        // (a delimiter only under K), and bytes of one decision in a row make
        // one run however many characters they hold: count on the bytes.
        const bool wide = w.d.mods.has(kModK);
        for (std::int64_t off = 0; off < bound; ++off) {
            const std::uint8_t c = s[off];
            const bool delimiter = c < 0x80 ? decision[c] != 0 : wide;
            words += previous && !delimiter;
            previous = delimiter;
        }
        return words;
    }
    for (std::int64_t off = 0; off < bound;) {
        const std::uint8_t c = s[off];
        bool delimiter;
        if (c < 0x80) {
            delimiter = decision[c] != 0;
            ++off;
        } else {
            const int length = charBytes(c);
            delimiter = wideDelimiter(w.d, s + off, length);
            off += length;
        }
        words += previous && !delimiter;
        previous = delimiter;
    }
    return words;
}

// Whether the search word occurs as a whole word at byte `off` (character
// `pos`): the characters on either side are delimiters or the ends of the
// scanned text.
bool wholeWordAt(WordWalk& w, std::int64_t pos, std::int64_t off, std::int64_t bound) {
    const std::int64_t matched = matchAt(w, pos, off);
    if (matched < 0) return false;
    const std::uint8_t* s = w.source.p;
    if (pos > 0) {
        std::int64_t before = off - 1;
        while ((s[before] & 0xC0) == 0x80) --before;
        if (!delimiterAt(w.d, s + before, static_cast<int>(off - before))) return false;
    }
    const std::int64_t after = off + matched;
    return after >= bound || delimiterAt(w.d, s + after, charBytes(s[after]));
}

// Without Q and E a search answers with the first position, in the scan's
// order from the start, at which the word occurs whole; nothing else of the
// walk matters. `start` is at least 1 and the word is not empty.
std::int64_t firstWholeWord(WordWalk& w, std::int64_t start) {
    const std::uint8_t* s = w.source.p;
    const std::int64_t n = w.source.n;
    // Under T the scan never moves past the trimmed text, and no match can
    // begin in the trailing blanks, since the word is trimmed too.
    const std::int64_t bound = w.d.mods.has(kModT) ? blankTrimmed(s, n) : n;
    std::int64_t pos = 0;
    std::int64_t off = 0;
    for (; pos < start - 1 && off < n; ++pos) off += charBytes(s[off]);
    if (w.d.mods.has(kModB)) {
        // A backward scan may start on the first trimmed blank and go on
        // into the text; one that starts further out stops at once.
        if (off >= n || pos > w.sourceChars) return -1;
        for (;;) {
            if (wholeWordAt(w, pos, off, bound)) return pos;
            if (pos == 0) return -1;
            --pos;
            do {
                --off;
            } while ((s[off] & 0xC0) == 0x80);
        }
    }
    if (off >= bound) return -1;
    if (!w.caseless) {
        // Candidates are the places of the word's first byte, always a lead byte.
        const std::uint8_t first = w.word.p[0];
        for (;;) {
            const void* found = std::memchr(s + off, first, static_cast<std::size_t>(bound - off));
            if (found == nullptr) return -1;
            const std::int64_t at = static_cast<const std::uint8_t*>(found) - s;
            pos += leadBytes(s + off, at - off);
            off = at;
            if (wholeWordAt(w, pos, off, bound)) return pos;
            off += charBytes(s[off]);
            ++pos;
            if (off >= bound) return -1;
        }
    }
    for (; off < bound; off += charBytes(s[off]), ++pos) {
        if (wholeWordAt(w, pos, off, bound)) return pos;
    }
    return -1;
}

// Reads the call as the interpreter would, walking the source and the word
// here; false when the call is left to the scanner.
bool readCall(ArgumentFrame* frame, EncodingHandle* h, const ArgumentRoles& roles, std::int32_t mode,
              WordWalk* w, std::int64_t* start) {
    if (h->encodingId != kEncodingIdUtf8) return false;
    const StringValue* sourceValue = frame->string(1);
    if (sourceValue == nullptr || sourceValue->length < 1 || !readText(sourceValue, &w->source)) return false;

    // The interpreter reads the modifiers, the delimiters and the start;
    // the source and word counts, and so the start's bounds, come from here.
    ArgumentRoles others = roles;
    others.source = 0;
    others.second = 0;
    w->d.h = h;
    w->d.utf8 = true;
    interpretArguments(frame, h, others, &w->d.parsed, &w->d.mods, 0, mode);
    const ModifierSet& mods = w->d.mods;
    const bool trim = mods.has(kModT);
    if (trim && !trimsAlike(w->source.p, w->source.n)) return false;

    w->sourceChars = leadBytes(w->source.p, trim ? blankTrimmed(w->source.p, w->source.n) : w->source.n);
    w->wordSet = false;
    w->wordChars = 0;
    w->word = {nullptr, 0};
    if (const StringValue* wordValue = roles.second != 0 ? frame->string(2) : nullptr) {
        Text word{};
        if (!readText(wordValue, &word) || (trim && !trimsAlike(word.p, word.n))) return false;
        if (trim) word.n = blankTrimmed(word.p, word.n);
        w->word = word;
        w->wordChars = leadBytes(word.p, word.n);
        w->wordSet = true;
    }

    // A negative start has set B already.
    *start = startPosition(frame, roles.start, mods.has(kModB), w->sourceChars);

    if (!prepareDelimiterDecision(w->d)) return false;
    w->mode = mode;
    w->caseless = mods.has(kModI);
    w->quotes = QuoteParts{};
    if (w->caseless) w->pairs.clear();   // read by caseless compares only
    if (mode == kFindWord && mods.has(kModR) && w->wordSet) trimWord(*w);
    return true;
}

}  // namespace

bool countWordsUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int32_t* status) {
    WordWalk w;
    std::int64_t start = 0;
    if (!readCall(frame, h, countWordsRoles(frame), kCountWords, &w, &start)) return false;
    if (!w.d.mods.has(kModM) && !w.d.mods.has(kModQ)) {
        *result = static_cast<double>(countRuns(w));
        *status = kStatusOk;
        return true;
    }
    const Outcome o = walk(w, start);
    std::int64_t words = o.wordCount;
    if (w.d.mods.has(kModM) && o.lastWasDelimiter && !w.d.mods.has(kModE)) ++words;
    *result = o.early ? 0.0 : static_cast<double>(words);
    *status = kStatusOk;
    return true;
}

bool findWordUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int32_t* status) {
    ArgumentRoles roles{};
    if (!findWordRoles(frame, &roles)) return false;
    WordWalk w;
    std::int64_t start = 0;
    if (!readCall(frame, h, roles, kFindWord, &w, &start)) return false;
    if (!w.d.mods.has(kModQ) && !w.d.mods.has(kModE)) {
        // An empty word is left to the walk, which asks the handle at every
        // position it reaches.
        const bool emptyWord = w.wordSet && w.wordChars == 0;
        if (!emptyWord) {
            const std::int64_t at = start >= 1 && w.wordSet ? firstWholeWord(w, start) : -1;
            *result = at >= 0 ? static_cast<double>(at + 1) : 0.0;
            *status = kStatusOk;
            return true;
        }
    }
    const Outcome o = walk(w, start);
    double answer = 0.0;
    if (o.found) {
        if (w.d.mods.has(kModE)) {
            answer = static_cast<double>(o.step < 0 ? o.wordCount : o.wordCount + 1);
        } else {
            answer = static_cast<double>(o.foundAt + 1);
        }
    }
    *result = answer;
    *status = kStatusOk;
    return true;
}

}  // namespace txscan
