// Reading a modifier text on a byte path through a function's letter table.
#include "module/charset/letter_table.h"

#include "module/frame/host_call.h"
#include "module/frame/module_state.h"

namespace txscan {

ByteModifiers readByteModifiers(const LetterTable& table, const char* text, std::int64_t length) {
    ByteModifiers out{};
    if (text == nullptr) return out;
    const std::uint8_t* upper = host().upcaseMap;
    for (std::int64_t i = 0; i < length; ++i) {
        const std::uint8_t u = upper[static_cast<unsigned char>(text[i])];
        const LetterRule rule = table.rule[u];
        switch (rule.use) {
            case LetterUse::Ignore:
                break;
            case LetterUse::ClassLetter:
                out.classLetters |= static_cast<std::uint16_t>(1u << rule.target);
                break;
            case LetterUse::Behaviour:
                out.flags.flag[rule.target] = 1;
                break;
            case LetterUse::Note:
                noteUnknownModifier(table.functionName, u);
                break;
        }
    }
    return out;
}

}  // namespace txscan
