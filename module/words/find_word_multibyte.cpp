// KFINDW for a source with characters of more than one byte: the argument
// types after the word must form one of the accepted signatures, which
// assign the delimiter, modifier and start roles; the word scanner searches.
#include <cstring>

#include "module/frame/workers.h"
#include "module/words/word_scanner.h"

namespace txscan {

using namespace contract;

namespace {

// One digit per argument from the third on: 2 character, 1 numeric.
// Each signature names the argument of each role (0: absent).
struct FindSignature {
    const char* types;
    std::uint32_t delimiters;
    std::uint32_t modifiers;
    std::uint32_t start;
};
constexpr FindSignature kSignatures[] = {
    {"", 0, 0, 0},     {"2", 3, 0, 0},    {"22", 3, 4, 0},   {"221", 3, 4, 5}, {"21", 3, 0, 4},
    {"212", 3, 5, 4},  {"1", 0, 0, 3},    {"12", 4, 0, 3},   {"122", 4, 5, 3},
};

// The role of argument k, given only when its type byte is nonzero.
std::uint32_t roleIf(const ArgumentFrame* frame, std::uint32_t k) {
    return k != 0 && frame->arg(static_cast<int>(k)).typeFlags != 0 ? k : 0;
}

}  // namespace

std::int32_t findWordMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide,
                               PerCallRecord* /*record: not read*/) {
    char types[4] = {};
    int given = 0;
    for (int k = 3; k <= frame->argCount && k <= 5; ++k) {
        types[given++] = (frame->arg(k).typeFlags & kTypeNumeric) ? '1' : '2';
    }
    if (frame->argCount > 5) return kStatusInvalidArgument;
    const FindSignature* signature = nullptr;
    for (const FindSignature& candidate : kSignatures) {
        if (std::strcmp(candidate.types, types) == 0) {
            signature = &candidate;
            break;
        }
    }
    if (signature == nullptr) return kStatusInvalidArgument;

    ArgumentRoles roles{};
    roles.source = 1;
    roles.second = 2;
    roles.delimiters = roleIf(frame, signature->delimiters);
    roles.modifiers = roleIf(frame, signature->modifiers);
    roles.start = roleIf(frame, signature->start);
    return scanWords(frame, result, h, wide, &roles, kFindWord, nullptr);
}

}  // namespace txscan
