// The random library's settings and messages: typed reads and writes of the
// host's name-value store (with trace lines when the debug setting is set),
// count-down limits, word settings and the emitter that filters catalogued
// messages by severity and limit. Names are (pointer, length) UTF-16 texts; a
// length below 1 means the name runs to its terminator.
#pragma once

#include <cstdint>

#include "module/abi/rng_host.h"

namespace txscan::rng {

using contract::TKChar;

// Settings keys.
inline constexpr TKChar kKeyMethod[] = u"OSENV.QIX_RNG_METHOD";
inline constexpr TKChar kKeySeverity[] = u"OSENV.QIX_RNG_SEVERITY";
inline constexpr TKChar kKeyMessages[] = u"OSENV.QIX_RNG_MESSAGES";
inline constexpr TKChar kKeyNoteLimit[] = u"OSENV.QIX_RNG_NOTE_LIMIT";
inline constexpr TKChar kKeyErrorLimit[] = u"OSENV.QIX_RNG_ERROR_LIMIT";
inline constexpr TKChar kKeyDebug[] = u"OSENV.QIX_TKNR_DEBUG";
inline constexpr TKChar kKeySeed[] = u"tkbug.RNGSEED";

// What tknrlget answers when no usable integer exists.
inline constexpr std::int64_t kNoInteger = -666;
inline constexpr std::int64_t kDefaultLimit = 100;

// Text into `buffer` (capacity in units, terminator included); the length read.
std::int32_t tknrtget(const TKChar* name, std::int32_t length, TKChar* buffer, std::int32_t capacity);
// The same narrowed to 8 bits (units above 0xFF become '?').
std::int32_t tknrcget(const TKChar* name, std::int32_t length, char* buffer, std::int32_t capacity);
double tknrdget(const TKChar* name, std::int32_t length, double defaultValue);
std::int64_t tknrlget(const TKChar* name, std::int32_t length);
void tknrlset(const TKChar* name, std::int32_t length, std::int64_t value);
void tknrtset(const TKChar* name, std::int32_t length, const TKChar* text);
void tknrdset(const TKChar* name, std::int32_t length, double value);
// One use of the count-down stored under `name`; the value after this use.
std::int32_t tknrlimit(const TKChar* name, std::int32_t length, std::int64_t defaultValue);
// The value paired with the setting's word: (word, int value) pairs, ended
// by a null word. An unknown word is reported and the setting cleared.
std::int32_t tknrlook(const TKChar* name, std::int32_t length, std::int32_t defaultValue, ...);

// Issues catalogued message `code` when its severity passes the threshold and
// its count-down is not used up. Arguments as the message's catalogue text reads them.
std::int32_t issueRngMessage(std::int32_t severity, std::int32_t code, ...);

// The integer a limit setting holds as text: blanks, a sign, digits (above
// 2^53 a positive value becomes 2^53), then "." and zeros only, then blanks.
bool parseIntegerText(const TKChar* text, std::int32_t length, std::int64_t* value);

}  // namespace txscan::rng
