// The logger's formatter: printf-style formats over UTF-16 (TKChar) text with
// the host's string conventions: "%s" and "%S" take TKChar text, "%hs" 8-bit
// text (Latin-1 taken as is), "%ls" TKChar again; numbers as printf does
// them ("%lli", "%20g", "%16llx", "%8x", "%3i", "%.*S", ...).
#pragma once

#include <cstdarg>
#include <string>

namespace txhost {

// Reads the arguments the format names from `arguments`.
std::u16string formatTk(const char16_t* format, std::va_list arguments);

std::string toUtf8(const std::u16string& text);
std::u16string fromUtf8(std::string_view text);

}  // namespace txhost
