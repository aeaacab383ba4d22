// The encoding backend on ICU: converters, Unicode properties and case
// mappings of the session encodings wherever ICU is at hand.
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>
#include <unicode/utf16.h>

#include <cstring>
#include <stdexcept>

#include "host/encoding_backend.h"

namespace txhost::backend {

namespace {

struct UConverterCloser {
    void operator()(UConverter* c) const { ucnv_close(c); }
};
using UConverterPtr = std::unique_ptr<UConverter, UConverterCloser>;

UConverterPtr openUConverter(const char* name) {
    UErrorCode error = U_ZERO_ERROR;
    UConverterPtr converter(ucnv_open(name, &error));
    if (U_FAILURE(error) || !converter) throw std::runtime_error(std::string("ICU cannot open converter ") + name);
    return converter;
}

}  // namespace

// Two converters of one encoding: single characters go through one that
// stops at the first unmappable or illegal input, so a failure reads as "no
// code point" instead of a substitute; whole texts through one with ICU's
// substituting callbacks.
struct Converter {
    UConverterPtr strict;
    UConverterPtr lenient;
};

void ConverterDeleter::operator()(Converter* converter) const { delete converter; }

bool converterAvailable(const char* encoding) {
    UErrorCode error = U_ZERO_ERROR;
    UConverterPtr converter(ucnv_open(encoding, &error));
    return U_SUCCESS(error) && converter != nullptr;
}

ConverterPtr openConverter(const char* encoding) {
    ConverterPtr converter(new Converter);
    converter->strict = openUConverter(encoding);
    UErrorCode error = U_ZERO_ERROR;
    ucnv_setToUCallBack(converter->strict.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    error = U_ZERO_ERROR;
    ucnv_setFromUCallBack(converter->strict.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    converter->lenient = openUConverter(encoding);
    return converter;
}

CodePoint decodeCharacter(Converter& converter, const char* bytes, int length) {
    UChar units[8];
    UErrorCode error = U_ZERO_ERROR;
    ucnv_resetToUnicode(converter.strict.get());
    const int32_t n = ucnv_toUChars(converter.strict.get(), units, 8, bytes, length, &error);
    if (U_FAILURE(error) || n <= 0) return kNoCodePoint;
    UChar32 c = 0;
    int32_t i = 0;
    U16_NEXT(units, i, n, c);
    return i == n ? c : kNoCodePoint;
}

int encodeCodePoint(Converter& converter, CodePoint c, char* out) {
    if (c < 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
    UChar units[2];
    int32_t n = 0;
    U16_APPEND_UNSAFE(units, n, c);
    UErrorCode error = U_ZERO_ERROR;
    ucnv_resetFromUnicode(converter.strict.get());
    const int32_t written = ucnv_fromUChars(converter.strict.get(), out, 4, units, n, &error);
    if (U_FAILURE(error) || written <= 0 || written > 4) return 0;
    return written;
}

bool fromUtf16(Converter& converter, const char16_t* units, std::int64_t unitCount, std::string& out) {
    if (unitCount < 0 || unitCount > INT32_MAX) return false;
    UConverter* c = converter.lenient.get();
    const UChar* in = reinterpret_cast<const UChar*>(units);
    const auto n = static_cast<int32_t>(unitCount);
    UErrorCode error = U_ZERO_ERROR;
    ucnv_resetFromUnicode(c);
    const int32_t needed = ucnv_fromUChars(c, nullptr, 0, in, n, &error);
    if (error != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(error)) return false;
    out.assign(static_cast<std::size_t>(needed), '\0');
    error = U_ZERO_ERROR;
    ucnv_resetFromUnicode(c);
    ucnv_fromUChars(c, out.data(), needed, in, n, &error);
    return U_SUCCESS(error) || error == U_STRING_NOT_TERMINATED_WARNING;
}

bool toUtf16(Converter& converter, const char* bytes, std::int64_t byteCount, char16_t* destination,
             std::int64_t capacity, std::int64_t* written) {
    *written = 0;
    if (byteCount < 0 || byteCount > INT32_MAX || capacity < 0) return false;
    const auto room = static_cast<int32_t>(capacity > INT32_MAX ? INT32_MAX : capacity);
    UErrorCode error = U_ZERO_ERROR;
    ucnv_resetToUnicode(converter.lenient.get());
    const int32_t units = ucnv_toUChars(converter.lenient.get(), reinterpret_cast<UChar*>(destination), room, bytes,
                                        static_cast<int32_t>(byteCount), &error);
    // A text that fills the destination exactly is whole (only the terminator is missing).
    if (U_FAILURE(error)) return false;
    *written = units;
    return true;
}

CharacterProperties propertiesOf(CodePoint c) {
    CharacterProperties p;
    if (c < 0) return p;
    const std::int8_t type = u_charType(c);
    p.upper = u_isUUppercase(c) != 0;
    p.lower = u_isULowercase(c) != 0;
    p.digit = u_isdigit(c) != 0;
    p.space = u_isUWhiteSpace(c) != 0;
    p.punctuation = u_ispunct(c) != 0;
    p.blank = type == U_SPACE_SEPARATOR;
    p.control = type == U_CONTROL_CHAR;
    p.alphabetic = u_isUAlphabetic(c) != 0;
    p.graphic = u_isgraph(c) != 0;
    return p;
}

CodePoint simpleUpper(CodePoint c) { return c < 0 ? c : u_toupper(c); }
CodePoint simpleLower(CodePoint c) { return c < 0 ? c : u_tolower(c); }
CodePoint simpleFold(CodePoint c) { return c < 0 ? c : u_foldCase(c, U_FOLD_CASE_DEFAULT); }

// ICU's alias table: "latin1", "SJIS", "cp1252" ... lead to the same
// converters, whose own name is the first alias of every name of theirs.
bool namesEncoding(const char* encoding, const std::string& name) {
    if (ucnv_compareNames(encoding, name.c_str()) == 0) return true;
    UErrorCode error = U_ZERO_ERROR;
    const char* converter = ucnv_getAlias(name.c_str(), 0, &error);
    if (U_FAILURE(error) || converter == nullptr) return false;
    error = U_ZERO_ERROR;
    const char* mine = ucnv_getAlias(encoding, 0, &error);
    return U_SUCCESS(error) && mine != nullptr && std::strcmp(mine, converter) == 0;
}

}  // namespace txhost::backend
