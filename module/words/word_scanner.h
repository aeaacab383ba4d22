// The word functions' reading of a call and their answers, through the word
// engine (word_engine.h): on the session's EncodingHandle for any text
// (scanWords), or on the bytes of single-byte and well-formed UTF-8 text
// (wordsOnBytes).
#pragma once

#include <cstdint>

#include "module/abi/argument_frame.h"
#include "module/abi/encoding.h"
#include "module/charset/argument_interpreter.h"
#include "module/charset/modifier_set.h"

namespace txscan {

// Also the call kind handed to interpretArguments.
enum WordMode : std::int32_t {
    kCountWords = 1,    // KCOUNTW: numericResult = number of words
    kFindWord = 2,      // KFINDW: numericResult = position, word number or 0
    kExtractWord = 3,   // KSCANX function: textResult = the word
    kLocateWord = 4,    // KSCANX call routine: arguments 3 and 4 = position and length
};

// Status 0, 0x1D804 without a handle, or the status of reserving the result
// string in kExtractWord.
std::int32_t scanWords(contract::ArgumentFrame* frame, double* numericResult, contract::EncodingHandle* h,
                       std::uint8_t textWidth, const ArgumentRoles* roles, std::int32_t mode,
                       contract::StringValue* textResult);

// The same answers walking the bytes. True when the call was answered here
// (its status in *status); false, with nothing written, when it is left to
// scanWords: other encodings, malformed UTF-8, an absent or empty source,
// and under T a wide character before the trailing blanks, which is the
// host's to trim or keep. sourceChars is the source's character count when
// the caller has read it, else -1.
bool wordsOnBytes(contract::ArgumentFrame* frame, contract::EncodingHandle* h, const ArgumentRoles& roles,
                  std::int32_t mode, std::int64_t sourceChars, double* numericResult,
                  contract::StringValue* textResult, std::int32_t* status);

// KSCANX through scanWords alone: the reference the byte walkers are
// checked against.
std::int32_t scanCommonOnScanner(contract::ArgumentFrame* frame, contract::StringValue* result,
                                 contract::EncodingHandle* h);

// The function's string from the word's bytes: R and Q trimming, the
// reservation, and the cut to whole characters. The bytes from textStart to
// the word's end may be read.
std::int32_t storeWordText(contract::StringValue* result, contract::EncodingHandle* h, const char* word,
                           std::int64_t n, const ModifierSet& modifiers, const char* textStart);

}  // namespace txscan
