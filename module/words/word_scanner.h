// The word engine of the multi-byte paths and of KSCANX: one pass over the
// source, character by character through the session's EncodingHandle, that
// counts words, finds a whole word, or locates the n-th word.
#pragma once

#include <cstdint>

#include "module/charset/argument_interpreter.h"
#include "module/abi/argument_frame.h"
#include "module/abi/encoding.h"

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

}  // namespace txscan
