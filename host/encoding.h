// The host's session encodings: a Codec that splits bytes into characters and
// maps them to Unicode (through the platform's encoding backend, ICU or the
// Windows national-language API), and the HandleObject that carries the
// contract's EncodingHandle with every numbered operation.
//
// Character model, the same for every operation:
//   - single-byte code pages (ISO-8859-1, windows-1252, ISO-8859-15): one byte
//     is one character; a byte the code page leaves undefined is a character
//     without a code point (class 0, no case);
//   - UTF-8: a well-formed sequence (no overlongs, no surrogates, nothing above
//     U+10FFFF) is one character; every other byte is one character of its
//     own without a code point;
//   - Shift_JIS: a lead byte (0x81-0x9F, 0xE0-0xFC) followed by a trail byte
//     (0x40-0x7E, 0x80-0xFC) is one two-byte character, mapped by the backend or not
//     (unmapped pairs have no code point); every other byte is one character.
//   - EUC-JP: 0xA1-0xFE twice, 0x8E then 0xA1-0xDF, or 0x8F then 0xA1-0xFE
//     twice is one character of two or three bytes; every other byte is one.
// No operation reads outside [text, text + length).
//
// Cursor model (contract::TextCursor): `offset` is the byte offset of the
// current character and `state` its character index; both are 0 at the start
// (the module's layout), and `remaining` is kept at length - offset. The
// positions a cursor can take are the characters 0..n-1: a move to index n
// (one past the last character) or beyond, or before 0, answers kSeekOutside
// (-99) and leaves the cursor where it was, so the module's walk loops end
// when they step off either end. An empty text has no position at all.
//
// The host's own answers where the module leaves a choice to its host:
//   - seekChars: 0 when moved, -99 outside, -1 for a whence other than 0 and
//     -999; nextChar: 0 when moved, kCursorEmpty (-9) at the last character
//     or on an empty text (the cursor stays);
//   - compareAt: the search text is read from the search cursor's position;
//     flags bit 2 compares by simple case folding (backend::simpleFold) character by
//     character, characters without a code point only byte for byte; 1 on a
//     mismatch or when the text ends first, 2 when the search text has fewer
//     than searchLength characters; an empty search (length <= 0) never
//     matches;
//   - a one-character cursor holds the first character of its text; currentChar
//     sets its length (and remaining) to that character's bytes, offset and
//     state to 0, and *scratch to the byte count; toUpperChar/toLowerChar
//     replace it by its simple case mapping when the session encoding has the
//     image (the length may change in UTF-8), else leave it (answer 1);
//   - findChar compares whole characters byte for byte over the whole list;
//   - byteOffsetOf(index) of the character count is the text length (the end),
//     -1 outside 0..count; it moves nothing;
//   - countChars: status 0 for any bytes (invalid ones count one each), 1
//     for a negative length or null pointers;
//   - skipModifierText: always false (modifier texts are always interpreted);
//   - copyWholeChars: status 0 when all was copied, 1 when cut, 2 for bad
//     arguments; blankTrimmedBytes and trimmedLength drop trailing 0x20 bytes;
//   - the five classTest words are alike and ignore `which`; caseTest reads
//     the held character's upper (mode 1) and lower (mode 2) bits;
//   - the transcoder (word 117): status 0, or 1 when the destination was too
//     small (whole characters kept), 2 on bad arguments; characters the
//     session encoding lacks become its substitution character.
// Every operation adds 1 to HostCounters::handleOperations[word].
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "host/encoding_backend.h"
#include "host/session_impl.h"
#include "module/abi/encoding.h"

namespace txhost {

using CodePoint = backend::CodePoint;

// Splits the session encoding's bytes into characters (encoding.cpp).
class Codec;

// What the handle reports and how the module treats it.
struct EncodingTraits {
    const char* name;             // canonical name (availableEncodings)
    std::uint32_t encodingId;     // contract::kEncodingIdUtf8 for UTF-8
    std::int32_t encodingKind;    // contract::EncodingKind
    bool multiByte;               // byte 72 of the session-encoding record
};

inline constexpr std::int32_t kNoCursorLimit = 0x7FFFFFFF;

struct TranscoderObject {
    contract::Transcoder record;   // must stay first
    HandleObject* owner = nullptr;
};

struct HandleObject {
    contract::EncodingHandle handle{};   // must stay first: the module holds &handle
    Session::Impl* session = nullptr;
    EncodingTraits traits{};
    std::shared_ptr<const Codec> codec;
    TranscoderObject transcoder{};
    backend::ConverterPtr converter;     // the transcoder's (UTF-16 -> session encoding)
    std::mutex converterMutex;           // converter, shared by every task of the session

    HandleObject();
    ~HandleObject();
    HandleObject(const HandleObject&) = delete;
    HandleObject& operator=(const HandleObject&) = delete;

    static HandleObject& from(contract::EncodingHandle* h) { return *reinterpret_cast<HandleObject*>(h); }
};

// Class bits (contract::ClassBit) of code point c held in `bytes` bytes; -1 gives 0.
//   upper 0x01: Unicode Uppercase property; lower 0x02: Lowercase property;
//   digit 0x04: decimal digits (Nd); white space 0x08: White_Space property;
//   punctuation 0x10: the punctuation categories P* only, so the ASCII symbols
//     $ + < = > ^ ` | ~ (categories Sc, Sm, Sk) carry no punctuation bit;
//   blank 0x20: space separators (Zs: the space, the no-break space U+00A0,
//     the ideographic space U+3000 ...); control 0x40: category Cc;
//   hex digit 0x80: 0-9 A-F a-f only;
//   characters of more than one byte add 0x100 when alphabetic (Alphabetic
//     property) and else 0x200 when graphic (not Cc, Cn, Cs or Z*).
// The properties are the backend's (backend::propertiesOf).
std::uint32_t classBitsOf(CodePoint c, int bytes);

// The traits of a supported encoding name (the backend's alias matching)
// that the platform can convert, or null.
const EncodingTraits* findEncoding(const std::string& name);

}  // namespace txhost
