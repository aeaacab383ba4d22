// The platform's share of the session encodings: one character converted
// between an encoding and Unicode, whole texts converted from and to UTF-16,
// the Unicode properties and simple case mappings of a code point, and the
// names an encoding answers to. host/encoding_icu.cpp serves it from ICU,
// host/encoding_win32.cpp from the Windows national-language API; the codecs
// and handle operations of host/encoding.cpp are built on it alone, so both
// hosts walk text, count and cut characters the same way.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace txhost::backend {

// A Unicode scalar value, or kNoCodePoint.
using CodePoint = std::int32_t;
inline constexpr CodePoint kNoCodePoint = -1;

// What the class bits of a code point are made of (encoding.h says how).
struct CharacterProperties {
    bool upper = false;         // Uppercase
    bool lower = false;         // Lowercase
    bool digit = false;         // decimal digit (Nd)
    bool space = false;         // White_Space
    bool punctuation = false;   // the punctuation categories P*, no symbols
    bool blank = false;         // space separator (Zs)
    bool control = false;       // control character (Cc)
    bool alphabetic = false;    // Alphabetic
    bool graphic = false;       // neither control, unassigned, surrogate nor separator
};

// The converter of one encoding, named as in encoding.cpp's table. Not safe
// for use by two threads at once.
struct Converter;
struct ConverterDeleter {
    void operator()(Converter* converter) const;
};
using ConverterPtr = std::unique_ptr<Converter, ConverterDeleter>;

// Whether the platform can convert `encoding` at all.
bool converterAvailable(const char* encoding);
// Throws std::runtime_error when the platform lacks the encoding.
ConverterPtr openConverter(const char* encoding);

// The one code point that `length` bytes stand for; kNoCodePoint when the
// encoding maps them to none, to more than one, or only by a substitute.
CodePoint decodeCharacter(Converter& converter, const char* bytes, int length);
// The bytes (at most 4, into out) that stand for c alone, without best-fit
// or substitute characters; 0 when the encoding has none.
int encodeCodePoint(Converter& converter, CodePoint c, char* out);

// UTF-16 -> the encoding; characters the encoding lacks become its
// substitution character. False when the platform fails the conversion.
bool fromUtf16(Converter& converter, const char16_t* units, std::int64_t unitCount, std::string& out);
// The encoding -> UTF-16 into `capacity` units; bytes that stand for no
// character become U+FFFD or the encoding's substitute. False (nothing
// counted) when the result does not fit or the conversion fails.
bool toUtf16(Converter& converter, const char* bytes, std::int64_t byteCount, char16_t* destination,
             std::int64_t capacity, std::int64_t* written);

CharacterProperties propertiesOf(CodePoint c);
// Simple (one code point to one code point) mappings; c itself when it has none.
CodePoint simpleUpper(CodePoint c);
CodePoint simpleLower(CodePoint c);
CodePoint simpleFold(CodePoint c);

// Whether `name` is another name of `encoding` ("latin1" for "ISO-8859-1").
bool namesEncoding(const char* encoding, const std::string& name);

}  // namespace txhost::backend
