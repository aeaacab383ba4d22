// The word functions through the session's EncodingHandle: the call read by
// the interpreter, R on the search word, the engine on the handle walker,
// and the answer stored.
#include "module/words/word_scanner.h"

#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/words/word_engine.h"

namespace txscan {

using namespace contract;

namespace {

// Byte offset of character `index` of a cursor's text whose length in
// characters is `chars` (trailing blanks left out when `trimmed`). The
// cursor must stand at character 0. Indexes at or past `chars` map to the
// end of the (trimmed) bytes, so the host is never asked about the position
// one past the last character. A range may reach into the trimmed blanks
// (a scan that starts at index 0 of a source that T left empty): those are
// one byte each.
std::int64_t byteOffsetAt(EncodingHandle* h, TextCursor* cursor, std::int64_t index, std::int64_t chars,
                          bool trimmed) {
    if (index <= 0) return 0;
    if (index < chars) return enc::byteOffsetOf(h, cursor, index);
    if (!trimmed) return cursor->length;
    const std::int64_t offset = enc::blankTrimmedBytes(h, cursor->text, cursor->length) + (index - chars);
    return offset < cursor->length ? offset : cursor->length;
}

// R on the search word: drop delimiters (by tests a to f and K, no quote
// handling) from the front, then from the back.
void trimSearchWord(HandleWalker& w, ParsedArguments& parsed) {
    EncodingHandle* h = w.h;
    TextCursor* word = &parsed.second;
    const std::int64_t chars = parsed.secondChars;
    const auto trimmable = [&](std::int64_t index) {
        if (enc::seekChars(h, word, kSeekFromStart, index) == kSeekOutside) return false;
        return w.delimiterOf(word);
    };
    std::int64_t front = 0;
    while (front < chars && trimmable(front)) ++front;
    std::int64_t back = chars;
    while (back > front && trimmable(back - 1)) --back;
    enc::seekChars(h, word, kSeekFromStart, 0);
    if (front == 0 && back == chars) return;
    const bool trimmed = w.mods->has(kModT);
    const std::int64_t byteStart = byteOffsetAt(h, word, front, chars, trimmed);
    const std::int64_t byteEnd = byteOffsetAt(h, word, back, chars, trimmed);
    setupCursor(h, word, word->text + byteStart, byteEnd - byteStart);
    parsed.secondChars = w.wordChars = back - front;
}

void detachCursors(ParsedArguments* parsed) {
    if (parsed->sourceSet) parsed->source.text = nullptr;
    if (parsed->secondSet) parsed->second.text = nullptr;
    if (parsed->listSet) parsed->list.text = nullptr;
    if (parsed->delimitersSet) parsed->delimiters.text = nullptr;
}

}  // namespace

std::int32_t storeBlank(StringValue* result) {
    const std::int32_t status = ensureResultCapacity(result, 1);
    if (status != kStatusOk) return status;
    result->length = 0;
    if (result->maxLength >= 1 && result->capacity >= 1 && result->data != nullptr) {
        result->data[0] = ' ';
        result->length = 1;
    }
    return kStatusOk;
}

std::int32_t scanWords(ArgumentFrame* frame, double* numericResult, EncodingHandle* h, std::uint8_t textWidth,
                       const ArgumentRoles* roles, std::int32_t mode, StringValue* textResult) {
    if (h == nullptr) return kStatusInvalidArgument;
    const StringValue* sourceValue = frame->string(1);
    // An absent or empty source: no words, one blank for the function,
    // nothing found for the call routine.
    if (sourceValue == nullptr || sourceValue->length < 1) {
        if (mode == kExtractWord) return storeBlank(textResult);
        return storeWordAnswer(frame, numericResult, textResult, nullptr, ModifierSet{}, mode, WordAnswer{}, nullptr);
    }

    ParsedArguments parsed{};
    ModifierSet mods{};
    interpretArguments(frame, h, *roles, &parsed, &mods, textWidth, mode);
    HandleWalker w(h, parsed, mods);
    if (mode == kFindWord && mods.has(kModR) && parsed.secondSet) trimSearchWord(w, parsed);

    WordCall call{mode, &mods, parsed.start, parsed.count, frame, 0};
    WordAnswer answer;
    answerWords(w, call, &answer);
    WordRange& range = answer.range;
    if (mode == kExtractWord && range.found) {
        // The range is turned into bytes from character 0.
        TextCursor* source = &parsed.source;
        const bool trimmed = mods.has(kModT);
        enc::seekChars(h, source, kSeekFromStart, 0);
        range.firstByte = byteOffsetAt(h, source, range.first, parsed.sourceChars, trimmed);
        range.endByte = range.end == range.first ? range.firstByte
                                                 : byteOffsetAt(h, source, range.end, parsed.sourceChars, trimmed);
    }
    const std::int32_t status =
        storeWordAnswer(frame, numericResult, textResult, h, mods, mode, answer, parsed.source.text);
    detachCursors(&parsed);
    return status;
}

}  // namespace txscan
