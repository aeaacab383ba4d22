// KSCANX, function and call routine: the word-number check, the roles, and
// the returned string (R and Q trimming, cut to whole characters).
// Single-byte sessions and well-formed UTF-8 are walked on their bytes;
// everything else goes through the handle.
#include <algorithm>
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

namespace {

// Copies a word of 1 to 16 bytes that ends at least 8 bytes into its text
// to a buffer with room for 8, with no call and no branch on the length:
// the word's last eight bytes where they end, then its first eight (for a
// shorter word, the last eight shifted down) at the start. Words of mixed
// lengths sent the library copy's own branches astray row after row.
inline void copyShortWord(char* to, const char* word, std::int64_t n) {
    const std::int64_t back = 8 - std::min<std::int64_t>(n, 8);   // bytes read before a short word
    std::uint64_t tail = 0;
    std::uint64_t head = 0;
    std::memcpy(&tail, word + n - 8, 8);
    std::memcpy(&head, word - back, 8);
    head >>= 8 * back;
    std::memcpy(to + n + back - 8, &tail, 8);
    std::memcpy(to, &head, 8);
}

}  // namespace

std::int32_t storeWordText(StringValue* result, EncodingHandle* h, const char* word, std::int64_t n,
                           const ModifierSet& modifiers, const char* textStart) {
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
        if (std::endian::native == std::endian::little && n >= 1 && n <= 16 && word + n - textStart >= 8 &&
            result->capacity >= 8) {
            copyShortWord(result->data, word, n);
        } else if (n > 0) {
            std::memcpy(result->data, word, static_cast<std::size_t>(n));
        }
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
                                             const std::uint8_t* delimiters, const StringValue* source,
                                             std::int64_t count, std::int32_t* status) {
    // Backward the whole text is checked, and before the walk: behind the
    // walk's last branch, mispredicted on most rows, the check cost 1.2 ns
    // a row more.
    const bool backward = count < 0;
    SourceShape shape{SourceShape::kSingleBytes, 0};
    if (backward) shape = sourceShapeOf(h, source);
    if (shape.kind == SourceShape::kOtherMultiByte) return false;
    const auto* s = reinterpret_cast<const std::uint8_t*>(source->data);
    TableWalker w{s, delimiters, source->length, source->length};
    WordAnswer answer{0.0, backward ? words::nthWordRun<false>(w, -count) : words::nthWordRun<true>(w, count)};
    WordRange& range = answer.range;
    if (!backward) {
        const StringValue walked{0, range.found ? range.endByte : source->length, source->data, nullptr, 0};
        shape = sourceShapeOf(h, &walked);
        if (shape.kind == SourceShape::kOtherMultiByte) return false;
    }
    if (mode == kLocateWord) {
        // Characters are bytes, or lead bytes in UTF-8.
        const bool utf8 = shape.kind == SourceShape::kWellFormedUtf8;
        range.first = utf8 ? leadBytes(s, range.firstByte) : range.firstByte;
        range.end = range.first + (utf8 ? leadBytes(s + range.firstByte, range.endByte - range.firstByte)
                                        : range.endByte - range.firstByte);
    }
    *status = storeWordAnswer(frame, nullptr, result, h, ModifierSet{}, mode, answer, source->data);
    return true;
}

// The word number, read from its bits (a round trip through an integer
// stalled every call): false when it is none (a NaN, the missing value
// among them, a fraction, anything below 1 in size), else the word it names
// as the interpreter settles it. Infinities are whole: +inf, like any number
// above 2147483647, names word 1; -inf, like any far below a text's length,
// is held at -2^62 (no such word) so that the conversion stays defined.
inline bool wordNumberOf(double x, std::int64_t* count) {
    const auto bits = std::bit_cast<std::uint64_t>(x);
    const auto exponent = static_cast<std::int32_t>(bits >> 52 & 0x7FF);
    if (exponent >= 1023 && exponent < 1054) {
        // 1 to 2^31 - 1 in size, the word numbers calls give.
        *count = static_cast<std::int64_t>(x);
        return (bits << (exponent - 1011)) == 0;
    }
    const bool whole = exponent >= 1075 ? exponent < 2047 || (bits << 12) == 0
                                        : exponent >= 1023 && (bits << (exponent - 1011)) == 0;
    if (!whole) return false;   // a NaN among them, which no integer holds
    constexpr double kFloor = -4611686018427387904.0;
    *count = x > 2147483647.0 ? 1 : static_cast<std::int64_t>(x < kFloor ? kFloor : x);
    return true;
}

// The calls the path below leaves: modifiers, a list that is absent or not
// of one-byte delimiters, and text the plain walk declined. The roles, then
// the byte paths' interpreter when allowed, else the scanner.
template <std::int32_t mode> [[gnu::noinline]]
std::int32_t scanListed(ArgumentFrame* frame, StringValue* result, EncodingHandle* h, bool bytesAllowed) {
    const int k = mode == kExtractWord ? 3 : 5;
    ArgumentRoles roles{1, 0, 0, 0, 0, 2, 0};   // source 1, count 2
    if (frame->argCount >= k && frame->string(k) != nullptr) roles.delimiters = static_cast<std::uint32_t>(k);
    if (frame->argCount == k + 1 && frame->string(k + 1) != nullptr) {
        roles.modifiers = static_cast<std::uint32_t>(k + 1);
    }
    std::int32_t status = kStatusOk;
    if (bytesAllowed && wordsOnBytes(frame, h, roles, mode, -1, nullptr, result, &status)) return status;
    return scanWords(frame, nullptr, h, 0, &roles, mode, result);
}

// The word-number check, then the commonest calls on the byte path: the
// source and the word number (with the call routine's two results), and a
// list of one-byte delimiters. Flattened: on short rows each call within
// showed; modifiers and the rest are scanListed's.
template <std::int32_t mode, bool bytePath> [[gnu::flatten]]
std::int32_t scanWith(ArgumentFrame* frame, StringValue* result, EncodingHandle* h) {
    // Word 1 when no number is given; one of the wrong type is as unusable
    // as a missing one.
    std::int64_t count = 1;
    if (frame->argCount >= 2 && frame->arg(2).value != nullptr) {
        const double* number = frame->number(2);
        if (number == nullptr || !wordNumberOf(*number, &count)) return kStatusInvalidArgument;
    }
    // The byte paths take single-byte sessions and well-formed UTF-8, as far
    // as they need it well formed.
    const StringValue* source = frame->string(1);
    const bool bytesAllowed = bytePath && h != nullptr && source != nullptr && source->length >= 1 &&
                              source->data != nullptr &&
                              (h->encodingId == kEncodingIdUtf8 || h->encodingKind == kSingleByteEncoding);
    const int k = mode == kExtractWord ? 3 : 5;   // the delimiters' argument
    std::int32_t status = kStatusOk;
    if (bytesAllowed && frame->argCount < k) {
        if (plainScan<mode>(frame, result, h, kDefaultDelimiterBytes.has, source, count, &status)) return status;
    } else if (bytesAllowed && frame->argCount == k && frame->string(k) != nullptr) {
        std::uint8_t listed[256];
        const std::uint8_t* delimiters =
            oneByteDelimiters(frame->string(k), false, h->encodingId == kEncodingIdUtf8, listed);
        if (delimiters != nullptr && plainScan<mode>(frame, result, h, delimiters, source, count, &status)) {
            return status;
        }
    }
    return scanListed<mode>(frame, result, h, bytesAllowed);
}

}  // namespace

std::int32_t scanCommon(ArgumentFrame* frame, StringValue* result, EncodingHandle* h) {
    return result != nullptr ? scanWith<kExtractWord, true>(frame, result, h)
                             : scanWith<kLocateWord, true>(frame, result, h);
}

std::int32_t scanCommonOnScanner(ArgumentFrame* frame, StringValue* result, EncodingHandle* h) {
    return result != nullptr ? scanWith<kExtractWord, false>(frame, result, h)
                             : scanWith<kLocateWord, false>(frame, result, h);
}

}  // namespace txscan
