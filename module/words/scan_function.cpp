// KSCANX, function and call routine: the word-number check, the roles, and
// the returned string (R and Q trimming, cut to whole characters).
// Single-byte sessions and well-formed UTF-8 are walked on their bytes;
// everything else goes through the handle.
#include <bit>
#include <cstring>

#include "module/charset/byte_classes.h"
#include "module/charset/utf8_text.h"
#include "module/charset/wide_classes.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/words/word_engine.h"
#include "module/words/word_roles.h"
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

namespace {

// Bytes outside a delimiter table, one a character: all nthWordRun asks.
struct TableWalker {
    const std::uint8_t *s, *delimiters;
    std::int64_t bound, sourceChars;
    static std::int64_t startBefore(std::int64_t at) { return at - 1; }
    bool delimiterAt(std::int64_t at) const { return delimiters[s[at]] != 0; }
    bool delimiterChecking(std::int64_t at, std::int64_t* beyond) const {
        *beyond = at + 1;
        return delimiterAt(at);
    }
};

// The commonest call: no modifiers, and delimiters of one byte each (the
// default list, or a list of them). A wider character is then never a
// delimiter, so the words are the runs of bytes outside the table; the text
// must be well formed as far as the walk went (to the word's end forward).
// False, with nothing written, when the list holds a wider character or is
// given without a value, or when that part of the text is not well formed.
template <std::int32_t mode>
[[gnu::always_inline]] inline bool plainScan(ArgumentFrame* frame, StringValue* result, EncodingHandle* h,
                                             const ArgumentRoles& roles, const StringValue* source,
                                             const double* number, std::int32_t* status) {
    if (roles.delimiters == 0 && frame->argCount >= (mode == kExtractWord ? 3 : 5)) return false;
    std::uint8_t listed[256];
    const StringValue* list = roles.delimiters != 0 ? frame->string(static_cast<int>(roles.delimiters)) : nullptr;
    const std::uint8_t* delimiters =
        oneByteDelimiters(list, roles.delimiters == 0, h->encodingId == kEncodingIdUtf8, listed);
    if (delimiters == nullptr) return false;
    std::int64_t count = 1;
    const bool backward = usableValue(number, &count) && count < 0;
    const auto* s = reinterpret_cast<const std::uint8_t*>(source->data);
    TableWalker w{s, delimiters, source->length, source->length};
    WordAnswer answer{0.0, backward ? words::nthWordRun<false>(w, -count) : words::nthWordRun<true>(w, count)};
    WordRange& range = answer.range;
    const StringValue walked{0, !backward && range.found ? range.endByte : source->length, source->data, nullptr, 0};
    const SourceShape shape = sourceShapeOf(h, &walked);
    if (shape.kind == SourceShape::kOtherMultiByte) return false;
    if (mode == kLocateWord && shape.kind == SourceShape::kWellFormedUtf8) {
        range.first = leadBytes(s, range.firstByte);
        range.end = range.first + leadBytes(s + range.firstByte, range.endByte - range.firstByte);
    }
    *status = storeWordAnswer(frame, nullptr, result, h, ModifierSet{}, mode, answer, source->data);
    return true;
}

// The word-number check and the roles, then the byte paths when allowed and
// able, else the scanner. Flattened: on short rows each call within showed.
template <std::int32_t mode, bool bytePath> [[gnu::flatten]]
std::int32_t scanWith(ArgumentFrame* frame, StringValue* result, EncodingHandle* h, std::uint8_t wide) {
    const int k = mode == kExtractWord ? 3 : 5;

    ArgumentRoles roles{1, 0, 0, 0, 0, 2, 0};   // source 1, count 2
    if (frame->argCount >= k && frame->string(k) != nullptr) roles.delimiters = static_cast<std::uint32_t>(k);
    if (frame->argCount == k + 1 && frame->string(k + 1) != nullptr) {
        roles.modifiers = static_cast<std::uint32_t>(k + 1);
    }

    // A word number of the wrong type is as unusable as a missing one.
    if (frame->argCount >= 2 && frame->arg(2).value != nullptr && frame->number(2) == nullptr) {
        return kStatusInvalidArgument;
    }
    const double* number = frame->number(2);
    if (number != nullptr) {
        // Whole when no bit of the mantissa lies below the binary point, read
        // from the bits: a round trip through an integer stalled every call.
        // Infinities are whole (the interpreter settles them: +inf as word 1,
        // -inf as no such word); a NaN is not, nor is anything below 1.
        const auto bits = std::bit_cast<std::uint64_t>(*number);
        const auto exponent = static_cast<std::int32_t>(bits >> 52 & 0x7FF);
        const bool whole = exponent >= 1075 ? exponent < 2047 || (bits << 12) == 0
                                            : exponent >= 1023 && (bits << (exponent - 1011)) == 0;
        if (topBitsAllOnes(*number) || !whole) return kStatusInvalidArgument;
    }
    // The byte paths take single-byte sessions and well-formed UTF-8, as far
    // as they need it well formed.
    const StringValue* source = frame->string(1);
    if (bytePath && wide == 0 && h != nullptr && source != nullptr && source->length >= 1 &&
        source->data != nullptr && (h->encodingId == kEncodingIdUtf8 || h->encodingKind == kSingleByteEncoding)) {
        std::int32_t status = kStatusOk;
        if ((roles.modifiers == 0 && plainScan<mode>(frame, result, h, roles, source, number, &status)) ||
            wordsOnBytes(frame, h, roles, mode, -1, nullptr, result, &status)) {
            return status;
        }
    }
    return scanWords(frame, nullptr, h, wide, &roles, mode, result);
}

}  // namespace

std::int32_t scanCommon(ArgumentFrame* frame, StringValue* result, EncodingHandle* h, std::uint8_t wide) {
    return result != nullptr ? scanWith<kExtractWord, true>(frame, result, h, wide)
                             : scanWith<kLocateWord, true>(frame, result, h, wide);
}

std::int32_t scanCommonOnScanner(ArgumentFrame* frame, StringValue* result, EncodingHandle* h) {
    return result != nullptr ? scanWith<kExtractWord, false>(frame, result, h, 0)
                             : scanWith<kLocateWord, false>(frame, result, h, 0);
}

}  // namespace txscan
