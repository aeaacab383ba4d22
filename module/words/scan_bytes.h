// KSCANX without cursor moves: single-byte sessions and well-formed UTF-8,
// giving the word scanner's answers.
#pragma once

#include <cstdint>

#include "module/abi/argument_frame.h"
#include "module/abi/encoding.h"
#include "module/charset/argument_interpreter.h"

namespace txscan {

// Modes kExtractWord and kLocateWord with KSCANX's roles. True when the call
// was answered here (its status in *status); false, with nothing written,
// when the word scanner must take it (other encodings, malformed UTF-8, an
// absent or empty source).
bool scanWordsOnBytes(contract::ArgumentFrame* frame, contract::EncodingHandle* h, const ArgumentRoles& roles,
                      std::int32_t mode, contract::StringValue* textResult, std::int32_t* status);

// KSCANX through the word scanner alone: the reference the byte path is
// checked against.
std::int32_t scanCommonOnScanner(contract::ArgumentFrame* frame, contract::StringValue* result,
                                 contract::EncodingHandle* h);

}  // namespace txscan
