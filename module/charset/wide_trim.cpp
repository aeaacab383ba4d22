// Trailing-blank trimming of UTF-16 text.
#include "module/charset/wide_trim.h"

namespace txscan {

std::int64_t wideTrimmedLength(const char16_t* text, std::int64_t units) {
    while (units > 0 && text[units - 1] == u' ') --units;
    return units;
}

}  // namespace txscan
