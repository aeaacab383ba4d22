// The byte-path workers and multi-byte paths the adapters hand calls to.
// The adapters read argument 1 once (sourceShapeOf) and hand the answer
// down: they call the byte paths only for a source known to hold no
// multi-byte character, which therefore check nothing again, and give the
// search functions' UTF-8 paths the source's character count.
#pragma once

#include <cstdint>

#include "module/abi/argument_frame.h"
#include "module/abi/encoding.h"
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
std::int32_t scanCommon(ArgumentFrame* frame, StringValue* result, EncodingHandle* h, std::uint8_t wide);

// Shared helpers of the adapters and workers.

// What one read of argument 1 tells: no multi-byte character (in a
// single-byte session known without reading), or well-formed UTF-8 holding
// one (with the source's character count), or some other multi-byte text
// (malformed UTF-8 included; characters is then -1).
struct SourceShape {
    enum Kind : std::uint8_t { kSingleBytes, kWellFormedUtf8, kOtherMultiByte } kind;
    std::int64_t characters;
};
SourceShape sourceShapeOf(const EncodingHandle* h, const StringValue* source);
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
