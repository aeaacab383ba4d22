// Q's bookkeeping of quoted parts, the same on every walker of the word
// engine: a quote opens a part or closes the part its own kind opened, and
// inside a part a delimiter stops counting as one, except in a search.
#pragma once

#include <cstdint>

namespace txscan {

enum QuoteKind : char { kNoQuote = 0, kDoubleQuoted = 'D', kApostrophed = 'S' };

// The kind of quote a character of one byte is.
constexpr QuoteKind quoteKindOf(unsigned char c) {
    return c == '"' ? kDoubleQuoted : c == '\'' ? kApostrophed : kNoQuote;
}

struct QuoteParts {
    char state = ' ';             // blank outside a part, else the kind that opened it
    std::int64_t openedAt = -1;   // index of the quote that opened the part; -1 outside

    // The decision for the character at `pos` once Q applies. A quote is
    // never a delimiter; a search (`keepInside`) keeps delimiters inside parts.
    bool decide(QuoteKind quote, std::int64_t pos, bool delimiter, bool keepInside) {
        if (quote != kNoQuote) {
            if (state == ' ') {
                state = quote;
                openedAt = pos;
            } else if (state == quote) {
                state = ' ';
                openedAt = -1;
            }
            return false;
        }
        return (state == ' ' || keepInside) && delimiter;
    }

    // A forward search ignores matches that begin inside an open part.
    bool holds(std::int64_t pos) const { return state != ' ' && openedAt >= 0 && pos > openedAt; }
};

// The byte paths of KCOUNTW and KFINDW pair quotes on their own terms:
// the index of the quote that closes the part opened by the quote at `open`,
// moving by `step` and staying within [low, high); a doubled quote stays
// inside. `high` or `low - 1` when the part does not close there.
inline std::int64_t closingQuote(const std::uint8_t* data, std::int64_t open, std::int64_t step, std::int64_t low,
                                 std::int64_t high) {
    const std::uint8_t quote = data[open];
    const auto inside = [low, high](std::int64_t k) { return k >= low && k < high; };
    std::int64_t j = open + step;
    while (inside(j)) {
        if (data[j] == quote) {
            if (inside(j + step) && data[j + step] == quote) {
                j += 2 * step;
                continue;
            }
            return j;
        }
        j += step;
    }
    return j;
}

}  // namespace txscan
