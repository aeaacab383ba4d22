// KSCANX on the bytes: single-byte sessions and well-formed UTF-8 in UTF-8
// sessions. The scanner's steps are kept one for one (the same positions,
// the same word and empty-word rules), but the delimiter decision of a
// character below 0x80 (every character in a single-byte session) comes from
// a table built once per call from the session's byte tables, and the text is
// walked on its bytes instead of through cursor moves. Characters of more
// than one byte still ask the handle whenever a case or class question is
// involved. Anything else (other encodings, malformed UTF-8) is left to the
// scanner.
#include "module/words/scan_bytes.h"

#include <cstring>

#include "module/charset/argument_interpreter.h"
#include "module/charset/utf8_text.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/words/delimiter_decision.h"
#include "module/words/quote_parts.h"
#include "module/words/word_range.h"
#include "module/words/word_scanner.h"

namespace txscan {

using namespace contract;

namespace {

// A call without modifiers, read as the interpreter reads it: the word
// number (truncated; negative counts from the right; unusable as word 1),
// the delimiter list as given, or the default delimiters when the call has
// too few arguments for a list. Nothing else is set up: without modifiers
// no character ever needs the handle.
void readPlainCall(const ArgumentFrame* frame, const ArgumentRoles& roles, std::int32_t mode, DelimiterDecision* s) {
    std::memset(&s->mods, 0, sizeof s->mods);
    s->parsed.count = 1;
    s->parsed.delimitersSet = 0;
    if (usableNumber(frame, roles.count, &s->parsed.count) && s->parsed.count < 0) {
        s->mods.set(kModB);
        s->parsed.count = -s->parsed.count;
    }
    if (roles.delimiters != 0) {
        const StringValue* list = frame->string(static_cast<int>(roles.delimiters));
        s->parsed.delimiters.text = list->data;
        s->parsed.delimiters.length = list->length;
        s->parsed.delimitersSet = 1;
    } else if (frame->argCount < (mode == kExtractWord ? 3 : 5)) {
        s->mods.set(kModDefaultDelimiters);
    }
}

enum class WordEnd { None, EndedByDelimiter, EmptyAtEdge, EmptyBetweenDelimiters };

// Where the scan stopped, with the byte offsets the result needs.
struct Outcome {
    bool early;
    WordEnd wordEnd;
    std::int64_t endIndex, endOffset, endBytes;            // the delimiter d of wordEnd
    std::int64_t wordStart, wordStartOffset, wordStartBytes;
    std::int64_t wordCount;
    std::int64_t sourceChars;   // known once the scan met the end, or backward
};

// One character of the text: its byte offset and length, and where the walk
// goes next. Returns false when the text is malformed there.
struct Walker {
    const std::uint8_t* data;
    std::int64_t bytes;
    bool utf8;

    int lengthAt(std::int64_t off) const {
        if (!utf8 || data[off] < 0x80) return 1;
        return utf8Length(data + off, bytes - off);
    }
    std::int64_t previousStart(std::int64_t off) const {
        --off;
        if (utf8) {
            while (off > 0 && (data[off] & 0xC0) == 0x80) --off;
        }
        return off;
    }
};

// The scanner's plain step over every character, modes 3 and 4. Returns
// false when a malformed UTF-8 sequence is met (the scanner takes over).
bool runScan(DelimiterDecision& s, const Walker& w, std::int64_t bound, Outcome* out) {
    const bool emptyWords = s.mods.has(kModM);
    const bool quotes = s.mods.has(kModQ);
    const bool backward = s.mods.has(kModB);
    const std::int64_t count = s.parsed.count;
    *out = Outcome{};
    out->wordStart = -1;
    out->sourceChars = -1;

    std::int64_t pos = 0;
    std::int64_t off = 0;
    std::int64_t sourceChars = -1;
    if (backward) {
        sourceChars = s.utf8 ? leadBytes(w.data, bound) : bound;
        out->sourceChars = sourceChars;
        if (sourceChars == 0 && !emptyWords) {
            out->early = true;
            return true;
        }
        pos = sourceChars != 0 ? sourceChars - 1 : 0;
        off = sourceChars != 0 ? w.previousStart(bound) : 0;
    } else if (bound == 0 && !emptyWords) {
        out->early = true;
        return true;
    }

    const std::int64_t step = backward ? -1 : 1;
    const std::int64_t edge = backward ? sourceChars + 1 : -2;
    std::int64_t lastWordChar = edge;
    std::int64_t lastDelimiter = edge;
    std::int64_t wordCount = 0;
    QuoteParts quoteParts;
    const auto distance = [](std::int64_t a, std::int64_t b) { return a > b ? a - b : b - a; };

    for (;;) {
        const int length = w.lengthAt(off);
        if (length == 0) return false;
        const std::uint8_t c = w.data[off];
        bool delimiter = length == 1 ? s.decision[c] != 0 : wideDelimiter(s, w.data + off, length);
        if (quotes) delimiter = quoteParts.decide(length == 1 ? quoteKindOf(c) : kNoQuote, pos, delimiter, false);

        if (!delimiter) {
            if (wordCount == 0 || distance(pos, lastWordChar) > 1) {
                ++wordCount;
                if (wordCount == count) {
                    out->wordStart = pos;
                    out->wordStartOffset = off;
                    out->wordStartBytes = length;
                }
            }
            lastWordChar = pos;
        } else {
            const bool atEdge = backward ? pos == sourceChars - 1 : pos == 0;
            WordEnd end = WordEnd::None;
            if (emptyWords && atEdge) {
                ++wordCount;
                if (wordCount == count) end = WordEnd::EmptyAtEdge;
            }
            if (end == WordEnd::None && wordCount == count) end = WordEnd::EndedByDelimiter;
            if (end == WordEnd::None && emptyWords && distance(pos, lastDelimiter) == 1) {
                ++wordCount;
                if (wordCount == count) end = WordEnd::EmptyBetweenDelimiters;
            }
            if (end != WordEnd::None) {
                out->wordEnd = end;
                out->endIndex = pos;
                out->endOffset = off;
                out->endBytes = length;
                out->wordCount = wordCount;
                return true;
            }
            lastDelimiter = pos;
        }

        pos += step;
        if (backward) {
            if (pos < 0) break;
            off = w.previousStart(off);
        } else {
            off += length;
            if (off >= bound) break;
        }
    }
    if (!backward) sourceChars = bound == 0 ? 0 : pos;
    out->sourceChars = sourceChars;
    out->wordCount = wordCount;
    return true;
}

struct ByteRange {
    bool found;
    std::int64_t first, end;         // characters
    std::int64_t firstByte, endByte;
};

// The scanner's word-range table, in characters and in bytes. Offsets at
// the scanned text's end are `bound`, the end of the (trimmed) bytes.
ByteRange rangeOf(const DelimiterDecision& s, const Outcome& o, std::int64_t bound) {
    const bool forward = !s.mods.has(kModB);
    if (o.early) return {false, 0, 0, 0, 0};
    const std::int64_t d = o.endIndex;
    const std::int64_t dAfter = o.endOffset + o.endBytes;
    switch (o.wordEnd) {
        case WordEnd::EndedByDelimiter:
            return forward ? ByteRange{true, o.wordStart, d, o.wordStartOffset, o.endOffset}
                           : ByteRange{true, d + 1, o.wordStart + 1, dAfter, o.wordStartOffset + o.wordStartBytes};
        case WordEnd::EmptyAtEdge:
            return forward ? ByteRange{true, 0, 0, 0, 0}
                           : ByteRange{true, o.sourceChars, o.sourceChars, bound, bound};
        case WordEnd::EmptyBetweenDelimiters:
            return forward ? ByteRange{true, d, d, o.endOffset, o.endOffset}
                           : ByteRange{true, d + 1, d + 1, dAfter, dAfter};
        case WordEnd::None:
            break;
    }
    if (o.wordStart >= 0) {
        return forward ? ByteRange{true, o.wordStart, o.sourceChars, o.wordStartOffset, bound}
                       : ByteRange{true, 0, o.wordStart + 1, 0, o.wordStartOffset + o.wordStartBytes};
    }
    if (s.mods.has(kModM) && s.parsed.count == o.wordCount + 1) {
        return forward ? ByteRange{true, o.sourceChars, o.sourceChars, bound, bound} : ByteRange{true, 0, 0, 0, 0};
    }
    return {false, 0, 0, 0, 0};
}


// The delimiter decision (K applied) of the character at `off`, and its
// length; -1 for a malformed UTF-8 sequence.
int classify(DelimiterDecision& s, const Walker& w, std::int64_t off, int* length) {
    const std::uint8_t c = w.data[off];
    if (!w.utf8 || c < 0x80) {
        *length = 1;
        return s.decision[c];
    }
    *length = utf8Length(w.data + off, w.bytes - off);
    if (*length == 0) return -1;
    return wideDelimiter(s, w.data + off, *length) ? 1 : 0;
}

// Without M and Q the plain step comes down to runs: a word starts after a
// delimiter (or at the edge) and the n-th word ends at the next delimiter
// or at the end of the scanned text. Byte offsets only; false on malformed
// UTF-8.
bool runsForward(DelimiterDecision& s, const Walker& w, std::int64_t bound, ByteRange* r) {
    const std::int64_t count = s.parsed.count;
    *r = ByteRange{};
    std::int64_t words = 0;
    std::int64_t off = 0;
    int length = 1;
    for (;;) {
        for (;;) {
            if (off >= bound) return true;
            const int d = classify(s, w, off, &length);
            if (d < 0) return false;
            if (d == 0) break;
            off += length;
        }
        ++words;
        const std::int64_t start = off;
        for (;;) {
            off += length;
            if (off >= bound) {
                if (words == count) *r = ByteRange{true, 0, 0, start, bound};
                return true;
            }
            const int d = classify(s, w, off, &length);
            if (d < 0) return false;
            if (d != 0) break;
        }
        if (words == count) {
            *r = ByteRange{true, 0, 0, start, off};
            return true;
        }
        off += length;
    }
}

// The same from the right-hand end; the text is known to be well formed.
bool runsBackward(DelimiterDecision& s, const Walker& w, std::int64_t bound, ByteRange* r) {
    const std::int64_t count = s.parsed.count;
    *r = ByteRange{};
    std::int64_t words = 0;
    std::int64_t off = bound;   // just past the character to examine next
    std::int64_t previous = 0;
    int length = 1;
    for (;;) {
        for (;;) {
            if (off <= 0) return true;
            previous = w.previousStart(off);
            const int d = classify(s, w, previous, &length);
            if (d < 0) return false;
            if (d == 0) break;
            off = previous;
        }
        ++words;
        const std::int64_t end = off;
        for (;;) {
            off = previous;
            if (off <= 0) {
                if (words == count) *r = ByteRange{true, 0, 0, 0, end};
                return true;
            }
            previous = w.previousStart(off);
            const int d = classify(s, w, previous, &length);
            if (d < 0) return false;
            if (d != 0) break;
        }
        if (words == count) {
            *r = ByteRange{true, 0, 0, off, end};
            return true;
        }
        off = previous;
    }
}

}  // namespace

bool scanWordsOnBytes(ArgumentFrame* frame, EncodingHandle* h, const ArgumentRoles& roles, std::int32_t mode,
                      StringValue* textResult, std::int32_t* status) {
    if (h == nullptr) return false;
    const bool utf8 = h->encodingId == kEncodingIdUtf8;
    if (!utf8 && h->encodingKind != kSingleByteEncoding) return false;
    const StringValue* sourceValue = frame->string(1);
    if (sourceValue == nullptr || sourceValue->length < 1 || sourceValue->data == nullptr) return false;

    DelimiterDecision s;
    s.h = h;
    s.utf8 = utf8;
    if (roles.modifiers == 0) {
        readPlainCall(frame, roles, mode, &s);
    } else {
        // The source is walked here; the interpreter reads everything else.
        ArgumentRoles others = roles;
        others.source = 0;
        interpretArguments(frame, h, others, &s.parsed, &s.mods, 0, mode);
    }
    if (!prepareDelimiterDecision(s)) return false;

    const auto* data = reinterpret_cast<const std::uint8_t*>(sourceValue->data);
    const std::int64_t bytes = sourceValue->length;
    std::int64_t bound = bytes;
    if (s.mods.has(kModT)) {
        while (bound > 0 && data[bound - 1] == ' ') --bound;
    }
    const Walker walker{data, bytes, utf8};
    if (s.mods.has(kModB) && utf8 && !wellFormedUtf8(data, bound)) return false;

    ByteRange range;
    if (s.mods.has(kModM) || s.mods.has(kModQ)) {
        Outcome outcome;
        if (!runScan(s, walker, bound, &outcome)) return false;
        range = rangeOf(s, outcome, bound);
    } else {
        if (bound == 0) {
            range = ByteRange{};   // T left nothing to scan
        } else if (!(s.mods.has(kModB) ? runsBackward(s, walker, bound, &range)
                                        : runsForward(s, walker, bound, &range))) {
            return false;
        }
        if (range.found && mode == kLocateWord) {
            range.first = utf8 ? leadBytes(data, range.firstByte) : range.firstByte;
            range.end = range.first + (utf8 ? leadBytes(data + range.firstByte, range.endByte - range.firstByte)
                                             : range.endByte - range.firstByte);
        }
    }

    if (mode == kLocateWord) {
        double* position = const_cast<double*>(frame->number(3));
        double* length = const_cast<double*>(frame->number(4));
        if (position != nullptr) *position = range.found ? static_cast<double>(range.first + 1) : 0.0;
        if (length != nullptr) *length = range.found ? static_cast<double>(range.end - range.first) : 0.0;
        *status = kStatusOk;
        return true;
    }
    if (!range.found) {
        *status = storeWordText(textResult, h, " ", s.mods.has(kModM) ? 0 : 1, s.mods);
    } else {
        *status = storeWordText(textResult, h, sourceValue->data + range.firstByte, range.endByte - range.firstByte,
                                s.mods);
    }
    return true;
}

}  // namespace txscan
