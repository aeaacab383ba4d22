// Trailing-blank trimming, eight bytes at a time where that pays: short
// strings go byte by byte; longer ones byte by byte down to an 8-byte address
// boundary, then by aligned words while a word is all blanks, then byte by
// byte again.
#include "module/search/trim_blanks.h"

#include <cstring>

namespace txscan {

namespace {
constexpr std::uint64_t kEightBlanks = 0x2020202020202020ull;
constexpr std::int64_t kBytewiseLimit = 16;
}  // namespace

std::int64_t trimTrailingBlanks(const char* data, std::int64_t length) {
    if (length <= kBytewiseLimit) {
        while (length > 0 && data[length - 1] == ' ') --length;
        return length;
    }
    while (length > 0 && (reinterpret_cast<std::uintptr_t>(data + length) & 7) != 0) {
        if (data[length - 1] != ' ') return length;
        --length;
    }
    while (length >= 8) {
        std::uint64_t word;
        std::memcpy(&word, data + length - 8, sizeof word);
        if (word != kEightBlanks) break;
        length -= 8;
    }
    while (length > 0 && data[length - 1] == ' ') --length;
    return length;
}

}  // namespace txscan
