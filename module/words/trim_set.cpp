// trimSetBytes: both ends of a byte string against a set.
#include "module/words/trim_set.h"

namespace txscan {

void trimSetBytes(const std::uint8_t** data, std::int32_t* length, std::uint8_t set[256], bool quotes) {
    if (quotes) {
        set[static_cast<unsigned char>('"')] = 0;
        set[static_cast<unsigned char>('\'')] = 0;
    }
    const std::uint8_t* text = *data;
    std::int32_t n = *length;
    while (n > 0 && set[*text] != 0) {
        ++text;
        --n;
    }
    while (n > 0 && set[text[n - 1]] != 0) --n;
    *data = text;
    *length = n;
}

}  // namespace txscan
