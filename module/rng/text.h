// UTF-16 text helpers of the random library: lengths of terminated names and
// the simple upper-case mapping used to compare setting words and method names.
#pragma once

#include <cstdint>

#include "module/abi/rng_host.h"

namespace txscan::rng {

using contract::TKChar;

constexpr std::int32_t textLength(const TKChar* text) {
    std::int32_t n = 0;
    if (text != nullptr)
        while (text[n] != 0) ++n;
    return n;
}

constexpr std::int32_t textLength(const char* text) {
    std::int32_t n = 0;
    if (text != nullptr)
        while (text[n] != 0) ++n;
    return n;
}

// A (pointer, length) name whose length below 1 means "up to the terminator".
constexpr std::int32_t nameLength(const TKChar* name, std::int32_t length) {
    return length >= 1 ? length : textLength(name);
}

// Unicode simple upper-case mapping of one UTF-16 unit. Surrogates stay as
// they are: a unit-by-unit mapping cannot reach supplementary characters, and
// no setting word or method name contains one.
TKChar upperCase(TKChar unit);

}  // namespace txscan::rng
