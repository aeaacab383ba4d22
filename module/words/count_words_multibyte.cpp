// KCOUNTW for a source with characters of more than one byte: the word
// scanner counts.
#include "module/frame/workers.h"
#include "module/words/word_scanner.h"

namespace txscan {

std::int32_t countWordsMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide,
                                 PerCallRecord* /*record: not read*/) {
    ArgumentRoles roles{};
    roles.source = 1;
    if (frame->argCount >= 2 && frame->string(2) != nullptr) roles.delimiters = 2;
    if (frame->argCount >= 3 && frame->string(3) != nullptr) roles.modifiers = 3;
    return scanWords(frame, result, h, wide, &roles, kCountWords, nullptr);
}

}  // namespace txscan
