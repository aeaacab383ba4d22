// The word scanner: the delimiter test of one character, the plain step that
// counts words (and empty words under M), the find step that checks a match
// for whole-word boundaries, and the end rules that turn a scan into a
// count, a position or a word range.
#include "module/words/word_scanner.h"

#include "module/charset/char_decision.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/words/quote_parts.h"
#include "module/words/word_range.h"

namespace txscan {

using namespace contract;

namespace {

constexpr char kDoubleQuoteText[] = "\"";
constexpr char kApostropheText[] = "'";

// Everything one run needs besides its counters; lives on the run's stack.
struct ScanContext {
    EncodingHandle* h;
    std::int32_t mode;
    ParsedArguments parsed;
    ModifierSet mods;
    HandleQuestions q;
    TextCursor doubleQuote;
    TextCursor apostrophe;
    QuoteParts quotes;
};

template <std::size_t N>
void setupFixed(EncodingHandle* h, TextCursor* cursor, const char (&text)[N]) {
    setupCursor(h, cursor, text, N - 1);
}

// The delimiter decision for the character at `at` (whose index is `pos`),
// K applied; with `quotes`, the Q bookkeeping of quoted parts too.
bool isDelimiter(ScanContext& s, TextCursor* at, std::int64_t pos, bool quotes) {
    enc::currentChar(s.h, at, &s.q.held.cursor);
    bool delimiter = delimiterFromHandle(s.q, at);
    if (s.mods.has(kModK)) delimiter = !delimiter;
    if (!quotes || !s.mods.has(kModQ)) return delimiter;

    const QuoteKind quote =
        enc::compareAt(s.h, &s.q.held.cursor, &s.doubleQuote, 1, kCompareExact) == 0   ? kDoubleQuoted
        : enc::compareAt(s.h, &s.q.held.cursor, &s.apostrophe, 1, kCompareExact) == 0 ? kApostrophed
                                                                                        : kNoQuote;
    return s.quotes.decide(quote, pos, delimiter, s.mode == kFindWord);
}

// R on the search word: drop delimiters (by tests a to f and K, no quote
// handling) from the front, then from the back.
void trimSearchWord(ScanContext& s) {
    EncodingHandle* h = s.h;
    TextCursor* word = &s.parsed.second;
    const std::int64_t chars = s.parsed.secondChars;
    const auto trimmable = [&](std::int64_t index) {
        if (enc::seekChars(h, word, kSeekFromStart, index) == kSeekOutside) return false;
        return isDelimiter(s, word, index, false);
    };
    std::int64_t front = 0;
    while (front < chars && trimmable(front)) ++front;
    std::int64_t back = chars;
    while (back > front && trimmable(back - 1)) --back;
    if (front == 0 && back == chars) {
        enc::seekChars(h, word, kSeekFromStart, 0);
        return;
    }
    enc::seekChars(h, word, kSeekFromStart, 0);
    const bool trimmed = s.mods.has(kModT);
    const std::int64_t byteStart = byteOffsetAt(h, word, front, chars, trimmed);
    const std::int64_t byteEnd = byteOffsetAt(h, word, back, chars, trimmed);
    setupCursor(h, word, word->text + byteStart, byteEnd - byteStart);
    s.parsed.secondChars = back - front;
}

// How a scan for the n-th word stopped before the end of the text.
enum class WordEnd { None, EndedByDelimiter, EmptyAtEdge, EmptyBetweenDelimiters };

struct ScanOutcome {
    bool early;            // the scan never started
    bool found;            // kFindWord: the word was found at foundAt
    std::int64_t foundAt;
    std::int64_t wordCount;
    bool lastWasDelimiter;
    WordEnd wordEnd;       // kExtractWord, kLocateWord
    std::int64_t endIndex; // the delimiter index d of wordEnd
    std::int64_t wordStart;
    std::int64_t step;
};

// Moves the source cursor to character `pos`; false when that leaves the
// scanned text.
bool moveTo(ScanContext& s, std::int64_t pos) {
    if (s.mods.has(kModT) && (pos < 0 || pos >= s.parsed.sourceChars)) return false;
    return enc::seekChars(s.h, &s.parsed.source, kSeekFromStart, pos) != kSeekOutside;
}

ScanOutcome runScan(ScanContext& s) {
    ScanOutcome out{};
    out.wordStart = -1;
    const bool emptyWords = s.mods.has(kModM);
    const std::int64_t sourceChars = s.parsed.sourceChars;
    const std::int64_t count = s.parsed.count;
    const bool locating = s.mode == kExtractWord || s.mode == kLocateWord;
    TextCursor* source = &s.parsed.source;

    const std::int64_t start = s.parsed.start;
    const std::int64_t p = start - 1;
    const std::int64_t step = s.mods.has(kModB) ? -1 : 1;
    out.step = step;
    if (start == 0 && !emptyWords) {
        out.early = true;
        return out;
    }
    if (p == 0) {
        if (sourceChars == 0 && !emptyWords) {
            out.early = true;
            return out;
        }
    } else if (enc::seekChars(s.h, source, kSeekFromStart, p) == kSeekOutside) {
        out.early = true;
        return out;
    }

    std::int64_t wordCount = 0;
    const std::int64_t edge = step > 0 ? -2 : sourceChars + 1;
    std::int64_t lastWordChar = edge;
    std::int64_t lastDelimiter = edge;
    bool lastWasDelimiter = false;
    int findState = 1;
    std::int64_t matchBefore = 0;
    std::int64_t matchEnd = 0;
    const std::int32_t compareFlags = s.mods.has(kModI) ? kCompareCaseless : kCompareExact;
    const std::int64_t secondChars = s.parsed.secondChars;
    const auto distance = [](std::int64_t a, std::int64_t b) { return a > b ? a - b : b - a; };

    std::int64_t pos = p;
    // A candidate match turned out to be part of a longer word: count that
    // word and go on after the match's first character.
    const auto giveUpMatch = [&]() {
        findState = 1;
        const std::int64_t q = matchBefore + 1;
        if (distance(q, lastWordChar) > 1) ++wordCount;
        lastWordChar = q;
        pos = q + step;
        return moveTo(s, pos);
    };

    for (;;) {
        if (s.mode == kFindWord) {
            if (findState == 1) {
                const bool match = s.parsed.secondSet != 0 &&
                                   enc::compareAt(s.h, source, &s.parsed.second, secondChars, compareFlags) == 0;
                if (match) {
                    if (s.mods.has(kModQ) && step > 0 && s.quotes.holds(pos)) {
                        pos += step;
                        if (!moveTo(s, pos)) break;
                        continue;
                    }
                    matchBefore = pos - 1;
                    matchEnd = pos + secondChars;
                    findState = 2;
                    if (matchBefore < 0 ||
                        enc::seekChars(s.h, source, kSeekFromStart, matchBefore) == kSeekOutside) {
                        findState = 3;
                    }
                    continue;
                }
            } else if (findState == 2) {
                lastWasDelimiter = isDelimiter(s, source, matchBefore, true);
                if (lastWasDelimiter) {
                    findState = 3;
                } else if (!giveUpMatch()) {
                    break;
                }
                continue;
            } else if (findState == 3) {
                if (matchEnd >= sourceChars ||
                    enc::seekChars(s.h, source, kSeekFromStart, matchEnd) == kSeekOutside) {
                    findState = 4;
                    continue;
                }
                lastWasDelimiter = isDelimiter(s, source, matchEnd, true);
                if (lastWasDelimiter) {
                    findState = 4;
                } else if (!giveUpMatch()) {
                    break;
                }
                continue;
            } else {
                out.found = true;
                out.foundAt = matchBefore + 1;
                if (secondChars == 1 && step < 0) ++wordCount;
                break;
            }
        }

        lastWasDelimiter = isDelimiter(s, source, pos, true);
        if (!lastWasDelimiter) {
            if (wordCount == 0 || distance(pos, lastWordChar) > 1) {
                ++wordCount;
                if (locating && wordCount == count) out.wordStart = pos;
            }
            lastWordChar = pos;
        } else {
            const bool atEdge = step > 0 ? pos == 0 : pos == sourceChars - 1;
            if (emptyWords && atEdge) {
                ++wordCount;
                if (locating && wordCount == count) {
                    out.wordEnd = WordEnd::EmptyAtEdge;
                    break;
                }
            }
            if (locating && wordCount == count) {
                out.wordEnd = WordEnd::EndedByDelimiter;
                out.endIndex = pos;
                break;
            }
            if (emptyWords && distance(pos, lastDelimiter) == 1) {
                ++wordCount;
                if (locating && wordCount == count) {
                    out.wordEnd = WordEnd::EmptyBetweenDelimiters;
                    out.endIndex = pos;
                    break;
                }
            }
            lastDelimiter = pos;
        }
        pos += step;
        if (!moveTo(s, pos)) break;
    }
    out.wordCount = wordCount;
    out.lastWasDelimiter = lastWasDelimiter;
    return out;
}

// The word range of a scan for the n-th word.
WordRange wordRangeOf(const ScanContext& s, const ScanOutcome& o) {
    const std::int64_t sourceChars = s.parsed.sourceChars;
    const bool forward = o.step > 0;
    if (o.early) return {false, 0, 0};
    switch (o.wordEnd) {
        case WordEnd::EndedByDelimiter:
            return forward ? WordRange{true, o.wordStart, o.endIndex} : WordRange{true, o.endIndex + 1, o.wordStart + 1};
        case WordEnd::EmptyAtEdge:
            return forward ? WordRange{true, 0, 0} : WordRange{true, sourceChars, sourceChars};
        case WordEnd::EmptyBetweenDelimiters:
            return forward ? WordRange{true, o.endIndex, o.endIndex} : WordRange{true, o.endIndex + 1, o.endIndex + 1};
        case WordEnd::None:
            break;
    }
    if (o.wordStart >= 0) {
        return forward ? WordRange{true, o.wordStart, sourceChars} : WordRange{true, 0, o.wordStart + 1};
    }
    // The empty word just past the scanned text, whether or not a delimiter
    // ends the text.
    if (s.mods.has(kModM) && s.parsed.count == o.wordCount + 1) {
        const std::int64_t at = forward ? sourceChars : 0;
        return {true, at, at};
    }
    return {false, 0, 0};
}

void detachCursors(ParsedArguments* parsed) {
    if (parsed->sourceSet) parsed->source.text = nullptr;
    if (parsed->secondSet) parsed->second.text = nullptr;
    if (parsed->listSet) parsed->list.text = nullptr;
    if (parsed->delimitersSet) parsed->delimiters.text = nullptr;
}

// An absent or empty source: no words, one blank for the function, nothing
// found for the call routine.
std::int32_t emptySourceAnswer(ArgumentFrame* frame, double* numericResult, std::int32_t mode,
                               StringValue* textResult) {
    switch (mode) {
        case kCountWords:
        case kFindWord:
            if (numericResult != nullptr) *numericResult = 0.0;
            return kStatusOk;
        case kExtractWord: {
            const std::int32_t status = ensureResultCapacity(textResult, 1);
            if (status != kStatusOk) return status;
            // A receiving variable of length 0 cannot take the blank.
            textResult->length = 0;
            if (textResult->maxLength >= 1 && textResult->capacity >= 1 && textResult->data != nullptr) {
                textResult->data[0] = ' ';
                textResult->length = 1;
            }
            return kStatusOk;
        }
        default: {
            // The call routine has no usable word: report it like no such word.
            double* position = const_cast<double*>(frame->number(3));
            double* length = const_cast<double*>(frame->number(4));
            if (position != nullptr) *position = 0.0;
            if (length != nullptr) *length = 0.0;
            return kStatusOk;
        }
    }
}

}  // namespace

std::int32_t scanWords(ArgumentFrame* frame, double* numericResult, EncodingHandle* h, std::uint8_t textWidth,
                       const ArgumentRoles* roles, std::int32_t mode, StringValue* textResult) {
    if (h == nullptr) return kStatusInvalidArgument;
    const StringValue* sourceValue = frame->string(1);
    if (sourceValue == nullptr || sourceValue->length < 1) {
        return emptySourceAnswer(frame, numericResult, mode, textResult);
    }

    ScanContext s{};
    s.h = h;
    s.mode = mode;
    interpretArguments(frame, h, *roles, &s.parsed, &s.mods, textWidth, mode);
    setupHandleQuestions(&s.q, h, s.mods, s.parsed.delimitersSet ? &s.parsed.delimiters : nullptr);
    if (s.mods.has(kModQ)) {
        setupFixed(h, &s.doubleQuote, kDoubleQuoteText);
        setupFixed(h, &s.apostrophe, kApostropheText);
    }

    if (mode == kFindWord && s.mods.has(kModR) && s.parsed.secondSet) trimSearchWord(s);

    const ScanOutcome outcome = runScan(s);
    std::int32_t status = kStatusOk;
    switch (mode) {
        case kCountWords: {
            std::int64_t words = outcome.wordCount;
            if (!outcome.early && s.mods.has(kModM) && outcome.lastWasDelimiter && !s.mods.has(kModE)) ++words;
            *numericResult = outcome.early ? 0.0 : static_cast<double>(words);
            break;
        }
        case kFindWord: {
            double answer = 0.0;
            if (outcome.found) {
                if (s.mods.has(kModE)) {
                    answer = static_cast<double>(outcome.step < 0 ? outcome.wordCount : outcome.wordCount + 1);
                } else {
                    answer = static_cast<double>(outcome.foundAt + 1);
                }
            }
            *numericResult = answer;
            break;
        }
        default:
            // The range is turned into bytes from character 0.
            enc::seekChars(h, &s.parsed.source, kSeekFromStart, 0);
            status = storeWordResult(frame, textResult, h, &s.parsed, s.mods, wordRangeOf(s, outcome));
            break;
    }
    detachCursors(&s.parsed);
    return status;
}

}  // namespace txscan
