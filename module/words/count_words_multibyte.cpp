// KCOUNTW for a source with characters of more than one byte: the word
// scanner counts.
#include "module/frame/workers.h"
#include "module/words/word_roles.h"
#include "module/words/word_scanner.h"

namespace txscan {

std::int32_t countWordsMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide) {
    const ArgumentRoles roles = countWordsRoles(frame);
    return scanWords(frame, result, h, wide, &roles, kCountWords, nullptr);
}

}  // namespace txscan
