// Reading a modifier text on a byte path through a function's letter table.
#include "module/charset/letter_table.h"

#include "module/frame/host_call.h"

namespace txscan {

void noteUnknownLetter(const LetterTable& table, std::uint8_t folded) {
    noteUnknownModifier(table.functionName, folded);
}

}  // namespace txscan
