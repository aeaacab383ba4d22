// CPython's three str layouts (one, two or four bytes a character) written
// as UTF-8, for the rows that cannot be read in place.
#pragma once

#include <cstddef>
#include <cstdint>

namespace txpython {

// Bytes the writers may store past the end of what they report written
// (a vector of packed characters is stored whole before the cursor moves
// by the bytes that count, and a row's last part vector is written with up
// to a vector's worth of padding taken back off the count).
constexpr std::size_t kUtf8Slack = 64;

// Most UTF-8 bytes `length` characters of `unitBytes`-byte units can take.
constexpr std::size_t utf8Bound(int unitBytes, std::int64_t length) {
    return static_cast<std::size_t>(length) * (unitBytes == 1 ? 2u : unitBytes == 2 ? 3u : 4u);
}

// Each writes the UTF-8 form of `length` characters at `out`, which has
// room for utf8Bound(...) + kUtf8Slack bytes, and returns the bytes
// written, or -1 when the text holds a lone surrogate (no UTF-8 form).
// The writers, slowest first; the best one the CPU has runs by default.
enum : int { kUtf8Plain = 0, kUtf8Avx2 = 1, kUtf8Avx512 = 2 };
// Chooses a writer (one the CPU lacks falls to the best it has), so each can
// be checked against the others on one machine; returns the one in use before.
int setUtf8Writer(int writer);
int bestUtf8Writer();

std::int64_t writeUtf8(const std::uint8_t* text, std::int64_t length, unsigned char* out);
std::int64_t writeUtf8(const std::uint16_t* text, std::int64_t length, unsigned char* out);
std::int64_t writeUtf8(const std::uint32_t* text, std::int64_t length, unsigned char* out);

}  // namespace txpython
