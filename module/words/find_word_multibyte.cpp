// KFINDW for a source with characters of more than one byte: the argument
// types after the word must form one of the accepted signatures, which
// assign the delimiter, modifier and start roles; the word scanner searches.
#include "module/frame/workers.h"
#include "module/words/word_roles.h"
#include "module/words/word_scanner.h"

namespace txscan {

using namespace contract;

std::int32_t findWordMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide) {
    ArgumentRoles roles{};
    if (!findWordRoles(frame, &roles)) return kStatusInvalidArgument;
    return scanWords(frame, result, h, wide, &roles, kFindWord, nullptr);
}

}  // namespace txscan
