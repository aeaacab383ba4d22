// The argument roles of KCOUNTW and KFINDW calls. KFINDW tells its optional
// arguments apart by their types: the types after the word must form one of
// the accepted signatures.
#include "module/words/word_roles.h"

#include <cstring>

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

ArgumentRoles countWordsRoles(const ArgumentFrame* frame) {
    ArgumentRoles roles{};
    roles.source = 1;
    if (frame->argCount >= 2 && frame->string(2) != nullptr) roles.delimiters = 2;
    if (frame->argCount >= 3 && frame->string(3) != nullptr) roles.modifiers = 3;
    return roles;
}

bool findWordRoles(const ArgumentFrame* frame, ArgumentRoles* roles) {
    if (frame->argCount > 5) return false;
    char types[4] = {};
    int given = 0;
    for (int k = 3; k <= frame->argCount; ++k) {
        types[given++] = (frame->arg(k).typeFlags & kTypeNumeric) ? '1' : '2';
    }
    for (const FindSignature& candidate : kSignatures) {
        if (std::strcmp(candidate.types, types) != 0) continue;
        *roles = ArgumentRoles{};
        roles->source = 1;
        roles->second = 2;
        roles->delimiters = roleIf(frame, candidate.delimiters);
        roles->modifiers = roleIf(frame, candidate.modifiers);
        roles->start = roleIf(frame, candidate.start);
        return true;
    }
    return false;
}

}  // namespace txscan
