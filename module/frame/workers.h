// The byte-path workers and multi-byte paths the adapters hand calls to.
// The adapters read argument 1 once (sourceShapeOf) and hand the answer
// down: they call the byte paths only for a source known to hold no
// multi-byte character, which therefore check nothing again, and give the
// search functions' UTF-8 paths the source's character count.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/abi/argument_frame.h"
#include "module/abi/encoding.h"
#include "module/charset/utf8_text.h"
#include "module/frame/encoding_ops.h"
#include "module/search/substring_scan.h"

namespace txscan {

using contract::ArgumentFrame;
using contract::EncodingHandle;
using contract::StringValue;

// Each function has a path of each kind; the entry picks one from its one
// read of argument 1. KFIND and KFINDC take mode kFirst, KCOUNTX and KCOUNTC
// kCount.

// The byte paths: argument 1 holds no multi-byte character.
template <SearchMode Mode>
std::int32_t substringOnBytes(ArgumentFrame* frame, double* result);
template <SearchMode Mode>
std::int32_t charSetOnBytes(ArgumentFrame* frame, double* result);
std::int32_t countWordsBytes(ArgumentFrame* frame, double* result);
std::int32_t findWordBytes(ArgumentFrame* frame, double* result);
// KFINDW's search of the first whole occurrence of word[0..m) in
// source[0..n), rightwards from the start, without modifiers: its 1-based
// byte position, or 0. `set` holds the delimiters.
std::int64_t firstWholeWord(const std::uint8_t* source, std::int64_t n, const std::uint8_t* word, std::int64_t m,
                           const std::uint8_t* set);

// The UTF-8 paths (the session is UTF-8 and argument 1 holds a character of
// more than one byte) walk the text on its bytes, taking the source's
// character count (-1 when it is not well-formed). Each answers false,
// having changed nothing, when it leaves the call to the multi-byte path
// (malformed text, or a call it does not cover); otherwise *status is the
// call's status.
template <SearchMode Mode>
bool substringUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                   std::int32_t* status);
template <SearchMode Mode>
bool charSetUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                 std::int32_t* status);
bool countWordsUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                    std::int32_t* status);
bool findWordUtf8(ArgumentFrame* frame, double* result, EncodingHandle* h, std::int64_t sourceChars,
                  std::int32_t* status);

// The multi-byte paths: every character through the session handle.
template <SearchMode Mode>
std::int32_t substringMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide);
template <SearchMode Mode>
std::int32_t charSetMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide);
std::int32_t countWordsMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide);
std::int32_t findWordMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide);

// KSCANX, every path: function (result is the StringValue) and call routine
// (result null).
std::int32_t scanCommon(ArgumentFrame* frame, StringValue* result, EncodingHandle* h);
// One blank, KSCANX's answer for an absent or empty source (none for length 0).
std::int32_t storeBlank(StringValue* result);

// Shared helpers of the adapters and workers.

// What one read of argument 1 tells: no multi-byte character (in a
// single-byte session known without reading), or well-formed UTF-8 holding
// one (with the source's character count), or some other multi-byte text
// (malformed UTF-8 included; characters is then -1).
struct SourceShape {
    enum Kind : std::uint8_t { kSingleBytes, kWellFormedUtf8, kOtherMultiByte } kind;
    std::int64_t characters;
};

// Whether one of n bytes (1 to 128) has its top bit set, which in UTF-8 is
// whether they hold a multi-byte character: loads that may overlap, past 16
// bytes sixteen at a time and as many for every length, so that no loop exit
// depends on the length (mispredicted on rows of mixed lengths).
inline bool highBitInShort(const char* p, std::int64_t n) {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    if (n < 4) {
        first = static_cast<unsigned char>(p[0]) | static_cast<unsigned char>(p[n / 2]) << 8;
        last = static_cast<unsigned char>(p[n - 1]);
    } else if (n < 8) {
        std::uint32_t a, b;
        std::memcpy(&a, p, 4);
        std::memcpy(&b, p + n - 4, 4);
        first = a;
        last = b;
    } else if (n <= 16) {
        std::memcpy(&first, p, 8);
        std::memcpy(&last, p + n - 8, 8);
    } else {
        // Sixteen bytes a load, kept in one vector register: as two words
        // apiece the eight loads ran out of registers.
        using Lanes = std::uint64_t __attribute__((vector_size(16)));
        Lanes any{};
        for (std::int64_t k = 0; k < 8; ++k) {
            Lanes v;
            std::memcpy(&v, p + (16 * k < n - 16 ? 16 * k : n - 16), 16);
            any |= v;
        }
        first = any[0];
        last = any[1];
    }
    return ((first | last) & 0x8080808080808080ull) != 0;
}

// Inlined into every entry and KSCANX: on short rows its call showed.
[[gnu::always_inline]] inline SourceShape sourceShapeOf(const EncodingHandle* h, const StringValue* source) {
    if (h->encodingKind == contract::kSingleByteEncoding || source->data == nullptr || source->length <= 0) {
        return {SourceShape::kSingleBytes, source->length};
    }
    if (h->encodingId != contract::kEncodingIdUtf8) {
        // A multi-byte character makes fewer characters than bytes.
        std::int64_t count = 0;
        if (enc::countChars(const_cast<EncodingHandle*>(h), source->data, source->length, &count) != 0 ||
            count >= source->length) {
            return {SourceShape::kSingleBytes, source->length};
        }
        return {SourceShape::kOtherMultiByte, -1};
    }
    // One pass answers all three questions: ASCII when every byte is a
    // character. A short row is mostly ASCII, told by its high bits alone.
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(source->data);
    const bool shortRow = source->length <= 128;
    if (shortRow && !highBitInShort(source->data, source->length)) return {SourceShape::kSingleBytes, source->length};
    const std::int64_t characters =
        shortRow ? utf8CharsIfWellFormedWide(bytes, source->length) : utf8CharsIfWellFormed(bytes, source->length);
    if (characters == source->length) return {SourceShape::kSingleBytes, characters};
    return {characters < 0 ? SourceShape::kOtherMultiByte : SourceShape::kWellFormedUtf8, characters};
}

// Room for `needed` bytes (at most maxLength) in a character result: a
// fixed buffer has its whole length, a growable one is enlarged from its
// pool when it is too small (kStatusNoMemory when the pool refuses).
std::int32_t growResult(StringValue* result, std::int64_t needed);
inline std::int32_t ensureResultCapacity(StringValue* result, std::int64_t needed) {
    if (result->growPool == nullptr) {
        result->capacity = result->maxLength;
        return contract::kStatusOk;
    }
    return needed <= result->capacity ? contract::kStatusOk : growResult(result, needed);
}

}  // namespace txscan
