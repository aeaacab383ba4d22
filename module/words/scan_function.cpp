// KSCANX, function and call routine: the word-number check, the roles, and
// the result step that turns the scanner's word range into the returned
// string (R and Q trimming, cut to whole characters) or into a position and
// a length. Single-byte sessions and UTF-8 text take the byte path
// (scan_bytes.cpp); everything else goes through the scanner.
#include <cmath>
#include <cstring>

#include "module/charset/byte_classes.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/words/scan_bytes.h"
#include "module/words/word_range.h"
#include "module/words/word_scanner.h"

namespace txscan {

using namespace contract;

std::int32_t storeWordText(StringValue* result, EncodingHandle* h, const char* word, std::int64_t n,
                           const ModifierSet& modifiers) {
    if (modifiers.has(kModR)) {
        while (n > 0 && *word == ' ') {
            ++word;
            --n;
        }
        if (n > 0) n = enc::blankTrimmedBytes(h, word, n);
        if (modifiers.has(kModQ)) {
            // The two ends need not carry the same kind of quote.
            if (n > 0 && isQuoteByte(static_cast<unsigned char>(word[0]))) {
                ++word;
                --n;
            }
            if (n > 0 && isQuoteByte(static_cast<unsigned char>(word[n - 1]))) --n;
        }
    }
    const std::int32_t status = ensureResultCapacity(result, n);
    if (status != kStatusOk) return status;
    if (n <= result->maxLength) {
        if (n > 0) std::memcpy(result->data, word, static_cast<std::size_t>(n));
        result->length = n;
        return kStatusOk;
    }
    std::int64_t copied = 0;
    enc::copyWholeChars(h, word, n, result->data, result->maxLength, &copied);
    result->length = copied;
    return kStatusOk;
}

std::int32_t storeWordResult(ArgumentFrame* frame, StringValue* textResult, EncodingHandle* h,
                             ParsedArguments* parsed, const ModifierSet& modifiers, const WordRange& range) {
    if (textResult == nullptr) {
        // Position and length in characters; no such word reports 0 and 0.
        double* position = const_cast<double*>(frame->number(3));
        double* length = const_cast<double*>(frame->number(4));
        if (position != nullptr) *position = range.found ? static_cast<double>(range.first + 1) : 0.0;
        if (length != nullptr) *length = range.found ? static_cast<double>(range.end - range.first) : 0.0;
        return kStatusOk;
    }
    if (!range.found) {
        // No such word: one blank, or the empty string when empty words count.
        return storeWordText(textResult, h, " ", modifiers.has(kModM) ? 0 : 1, modifiers);
    }
    TextCursor* source = &parsed->source;
    const bool trimmed = modifiers.has(kModT);
    const std::int64_t byteStart = byteOffsetAt(h, source, range.first, parsed->sourceChars, trimmed);
    const std::int64_t byteEnd =
        range.end == range.first ? byteStart : byteOffsetAt(h, source, range.end, parsed->sourceChars, trimmed);
    return storeWordText(textResult, h, source->text + byteStart, byteEnd - byteStart, modifiers);
}

namespace {

// The word-number check and the roles, then the byte path when allowed and
// able, else the scanner.
std::int32_t scanWith(ArgumentFrame* frame, StringValue* result, EncodingHandle* h, std::uint8_t wide,
                      bool bytePath) {
    const std::int32_t mode = result != nullptr ? kExtractWord : kLocateWord;
    const int k = mode == kExtractWord ? 3 : 5;

    ArgumentRoles roles{};
    roles.source = 1;
    roles.count = 2;
    if (frame->argCount >= k && frame->string(k) != nullptr) roles.delimiters = static_cast<std::uint32_t>(k);
    if (frame->argCount == k + 1 && frame->string(k + 1) != nullptr) {
        roles.modifiers = static_cast<std::uint32_t>(k + 1);
    }

    // A word number of the wrong type is as unusable as a missing one.
    if (frame->argCount >= 2 && frame->arg(2).value != nullptr && frame->number(2) == nullptr) {
        return kStatusInvalidArgument;
    }
    if (const double* number = frame->number(2)) {
        const double x = *number;
        // A NaN is never equal to its floor; infinities pass and are settled
        // by the interpreter (+inf as word 1, -inf as no such word).
        if (topBitsAllOnes(x) || x == 0.0 || x != std::floor(x)) return kStatusInvalidArgument;
    }
    std::int32_t status = kStatusOk;
    if (bytePath && wide == 0 && scanWordsOnBytes(frame, h, roles, mode, result, &status)) return status;
    return scanWords(frame, nullptr, h, wide, &roles, mode, result);
}

}  // namespace

std::int32_t scanCommon(ArgumentFrame* frame, StringValue* result, EncodingHandle* h, std::uint8_t wide,
                        PerCallRecord* /*record: not needed, the handle comes separately*/) {
    return scanWith(frame, result, h, wide, true);
}

std::int32_t scanCommonOnScanner(ArgumentFrame* frame, StringValue* result, EncodingHandle* h) {
    return scanWith(frame, result, h, 0, false);
}

}  // namespace txscan
