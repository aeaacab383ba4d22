// Reading a modifier text on a byte path through a function's letter table.
#include "module/charset/letter_table.h"

#include "module/frame/host_call.h"

namespace txscan {

void noteUnknownLetters(const LetterTable& table, const char* text, std::int64_t length) {
    const std::uint8_t* upper = host().upcaseMap;
    for (std::int64_t i = 0; i < length; ++i) {
        const std::uint8_t folded = upper[static_cast<unsigned char>(text[i])];
        if (table.rule[folded].use == LetterUse::Note) noteUnknownModifier(table.functionName, folded);
    }
}

}  // namespace txscan
