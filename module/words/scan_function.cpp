// KSCANX, function and call routine: the word-number check, the roles, and
// the returned string (R and Q trimming, cut to whole characters).
// Single-byte sessions and well-formed UTF-8 are walked on their bytes;
// everything else goes through the handle.
#include <cmath>
#include <cstring>

#include "module/charset/byte_classes.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
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
        // From 2^52 up every double is whole, infinities too (the interpreter
        // settles them: +inf as word 1, -inf as no such word); a NaN fails
        // both tests. Truncation through an integer is cheaper than std::floor
        // on the baseline instruction set, which has no rounding instruction.
        const bool whole = std::fabs(x) < 0x1p52 ? x == static_cast<double>(static_cast<std::int64_t>(x)) : !std::isnan(x);
        if (topBitsAllOnes(x) || x == 0.0 || !whole) return kStatusInvalidArgument;
    }
    std::int32_t status = kStatusOk;
    if (bytePath && wide == 0 && wordsOnBytes(frame, h, roles, mode, -1, nullptr, result, &status)) return status;
    return scanWords(frame, nullptr, h, wide, &roles, mode, result);
}

}  // namespace

std::int32_t scanCommon(ArgumentFrame* frame, StringValue* result, EncodingHandle* h, std::uint8_t wide) {
    return scanWith(frame, result, h, wide, true);
}

std::int32_t scanCommonOnScanner(ArgumentFrame* frame, StringValue* result, EncodingHandle* h) {
    return scanWith(frame, result, h, 0, false);
}

}  // namespace txscan
