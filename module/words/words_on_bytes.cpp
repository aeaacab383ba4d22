// The word functions on the bytes of single-byte text and of well-formed
// UTF-8 in UTF-8 sessions: the call read as the interpreter reads it, with
// the source and the search word measured here, then the engine on a byte
// walker. Nothing is cached, so setCache is never touched.
#include "module/charset/argument_interpreter.h"
#include "module/charset/utf8_text.h"
#include "module/frame/workers.h"
#include "module/search/trim_blanks.h"
#include "module/words/word_engine.h"
#include "module/words/word_roles.h"
#include "module/words/word_scanner.h"
#include "module/words/word_starts.h"

namespace txscan {

using namespace contract;

namespace {

std::int64_t blankTrimmed(const std::uint8_t* p, std::int64_t n) {
    return trimTrailingBlanks(reinterpret_cast<const char*>(p), n);
}

// Under T the host's trimming decides what a trailing blank is; the byte
// walkers trim blanks (0x20) themselves, so they take a UTF-8 text only when
// what precedes its trailing blanks is a character of one byte, which is no
// blank.
bool trimsAlike(bool utf8, const std::uint8_t* p, std::int64_t n) {
    const std::int64_t end = blankTrimmed(p, n);
    return !utf8 || end == 0 || p[end - 1] < 0x80;
}

// The search word, if it is well formed; its characters in *chars.
bool readText(const StringValue* value, bool utf8, const std::uint8_t** p, std::int64_t* n, std::int64_t* chars) {
    if (value->length < 0 || (value->data == nullptr && value->length > 0)) return false;
    *p = reinterpret_cast<const std::uint8_t*>(value->data);
    *n = value->length;
    *chars = utf8 && *n > 0 ? utf8CharsIfWellFormed(*p, *n) : *n;
    return *chars >= 0;
}

// R: the search word without the delimiters (tests a to f and K, no quote
// handling) at its front and back.
template <bool Utf8>
void trimWord(ByteWalker<Utf8>& w) {
    const std::uint8_t* p = w.word;
    std::int64_t front = 0;
    std::int64_t chars = w.wordChars;
    const auto delimiterAt = [&](std::int64_t at, std::int64_t length) {
        return length == 1 ? w.d->decision[p[at]] != 0 : wideDecision(*w.d, p + at, static_cast<int>(length));
    };
    while (front < w.wordBytes && delimiterAt(front, Utf8 ? utf8SequenceBytes(p[front]) : 1)) {
        front += Utf8 ? utf8SequenceBytes(p[front]) : 1;
        --chars;
    }
    std::int64_t back = w.wordBytes;
    while (back > front) {
        std::int64_t previous = back - 1;
        while (Utf8 && (p[previous] & 0xC0) == 0x80) --previous;
        if (!delimiterAt(previous, back - previous)) break;
        back = previous;
        --chars;
    }
    w.word = p + front;
    w.wordBytes = back - front;
    w.wordChars = chars;
}

template <bool Utf8>
bool answerOnBytes(ArgumentFrame* frame, CharDecision& d, const ArgumentRoles& roles, std::int32_t mode,
                   std::int64_t sourceChars, double* numericResult, StringValue* textResult, std::int32_t* status) {
    ByteWalker<Utf8> w;   // large; each field is set below before it is read
    w.d = &d;
    w.knownChars = sourceChars;
    w.s = reinterpret_cast<const std::uint8_t*>(frame->string(1)->data);
    w.n = frame->string(1)->length;
    const ModifierSet& mods = d.mods;
    const bool trim = mods.has(kModT);
    if (trim && !trimsAlike(Utf8, w.s, w.n)) return false;
    w.bound = trim ? blankTrimmed(w.s, w.n) : w.n;
    if (const StringValue* wordValue = roles.second != 0 ? frame->string(2) : nullptr) {
        if (!readText(wordValue, Utf8, &w.word, &w.wordBytes, &w.wordChars)) return false;
        if (trim) {
            if (!trimsAlike(Utf8, w.word, w.wordBytes)) return false;
            const std::int64_t kept = blankTrimmed(w.word, w.wordBytes);
            w.wordChars -= w.wordBytes - kept;
            w.wordBytes = kept;
        }
        w.wordSet = true;
    }
    if (!prepareCharDecision(d)) return false;
    w.caseless = mods.has(kModI);
    if (w.caseless) w.pairs.clear();
    if (mode == kFindWord && mods.has(kModR) && w.wordSet) trimWord(w);

    WordCall call{mode, &mods, 0, d.parsed.count, frame, roles.start};
    WordAnswer answer;
    if (!answerWords(w, call, &answer)) return false;
    *status = storeWordAnswer(frame, numericResult, textResult, d.h, mods, mode, answer, frame->string(1)->data);
    return true;
}

// KCOUNTW(source) and KCOUNTW(source, list), the commonest calls, with
// delimiters of one byte: the runs of bytes outside them. -1 for any other
// call.
std::int64_t runsOutsideAsciiDelimiters(const ArgumentFrame* frame, const StringValue* source) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(source->data);
    const StringValue* list = frame->argCount == 2 ? frame->string(2) : nullptr;
    const bool oneByte = list != nullptr && list->length == 1 && list->data != nullptr;
    if (oneByte && static_cast<std::uint8_t>(list->data[0]) < 0x80) {
        return countWordStartsSplitBy(bytes, source->length, static_cast<std::uint8_t>(list->data[0]));
    }
    std::uint8_t table[256];
    const std::uint8_t* set = frame->argCount <= 2 ? oneByteDelimiters(list, frame->argCount == 1, true, table) : nullptr;
    return set == nullptr ? -1 : countWordStarts(bytes, source->length, set);
}

// KFINDW(source, word) and KFINDW(source, word, list) with delimiters of one
// byte and a well-formed word: matches of its bytes start and end at
// characters, and are whole words as in single-byte text. -1 for any other
// call.
std::int64_t wholeWordWithAsciiDelimiters(const ArgumentFrame* frame, const ArgumentRoles& roles,
                                          const StringValue* source) {
    if (roles.start != 0 || roles.modifiers != 0 || roles.second != 2) return -1;
    const bool defaults = frame->argCount == 2;
    if (!defaults && (frame->argCount != 3 || roles.delimiters != 3)) return -1;
    std::uint8_t table[256];
    const std::uint8_t* set = oneByteDelimiters(defaults ? nullptr : frame->string(3), defaults, true, table);
    const StringValue* word = frame->string(2);
    // An empty word is the handle's to match.
    if (set == nullptr || word == nullptr || word->length <= 0 || word->data == nullptr) return -1;
    const auto* wordBytes = reinterpret_cast<const std::uint8_t*>(word->data);
    if (utf8CharsIfWellFormed(wordBytes, word->length) < 0) return -1;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(source->data);
    const std::int64_t at = firstWholeWord(bytes, source->length, wordBytes, word->length, set);
    return at == 0 ? 0 : leadBytes(bytes, at - 1) + 1;
}

}  // namespace

bool wordsOnBytes(ArgumentFrame* frame, EncodingHandle* h, const ArgumentRoles& roles, std::int32_t mode,
                  std::int64_t sourceChars, double* numericResult, StringValue* textResult, std::int32_t* status) {
    if (h == nullptr) return false;
    const bool utf8 = h->encodingId == kEncodingIdUtf8;
    if (!utf8 && h->encodingKind != kSingleByteEncoding) return false;
    const StringValue* sourceValue = frame->string(1);
    if (sourceValue == nullptr || sourceValue->length < 1 || sourceValue->data == nullptr) return false;

    CharDecision d;   // large; what is read is set here or by the preparation
    d.h = h;
    d.utf8 = utf8;
    // The interpreter reads the modifiers, the delimiters and the numbers;
    // the source and the word are measured here.
    ArgumentRoles others = roles;
    others.source = 0;
    others.second = 0;
    interpretArguments(frame, h, others, &d.parsed, &d.mods, 0, mode);
    return utf8 ? answerOnBytes<true>(frame, d, roles, mode, sourceChars, numericResult, textResult, status)
                : answerOnBytes<false>(frame, d, roles, mode, sourceChars, numericResult, textResult, status);
}

bool countWordsUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                    std::int32_t* status) {
    const StringValue* source = frame->string(1);
    if (sourceChars >= 0 && source != nullptr && source->data != nullptr) {
        if (const std::int64_t words = runsOutsideAsciiDelimiters(frame, source); words >= 0) {
            *result = static_cast<double>(words);
            *status = kStatusOk;
            return true;
        }
    }
    return wordsOnBytes(frame, h, countWordsRoles(frame), kCountWords, sourceChars, result, nullptr, status);
}

bool findWordUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                  std::int32_t* status) {
    ArgumentRoles roles{};
    if (!findWordRoles(frame, &roles)) return false;
    const StringValue* source = frame->string(1);
    if (sourceChars >= 0 && source != nullptr && source->data != nullptr) {
        if (const std::int64_t at = wholeWordWithAsciiDelimiters(frame, roles, source); at >= 0) {
            *result = static_cast<double>(at);
            *status = kStatusOk;
            return true;
        }
    }
    return wordsOnBytes(frame, h, roles, kFindWord, sourceChars, result, nullptr, status);
}

}  // namespace txscan
