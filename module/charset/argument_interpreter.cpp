// interpretArguments: modifiers first (they decide trimming and direction),
// then lists, delimiters, count, source, second string and start, in that
// order, because each step may use what an earlier one settled.
//
// In UTF-8 sessions, well-formed text is counted on its bytes and ASCII
// modifier letters are read through the session's byte tables: a character
// is a well-formed sequence whatever the host, and the byte tables hold the
// same case mapping as the handle below 0x80. Malformed text, a modifier text
// with a wide character, and a wide character just before trailing blanks
// (only the host knows whether it is a blank) still ask the handle.
#include "module/charset/argument_interpreter.h"

#include <cstring>

#include "module/charset/utf8_text.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/module_state.h"

namespace txscan {

using namespace contract;

namespace {

// The transcoded alphabet: 24 letters and the converted terminator.
constexpr std::int64_t kAlphabetBytes = kModifierLetters + 1;

const StringValue* presentString(const ArgumentFrame* frame, std::uint32_t k) {
    return k == 0 ? nullptr : frame->string(static_cast<int>(k));
}

bool utf8Session(const EncodingHandle* h) { return h->encodingId == kEncodingIdUtf8; }

const std::uint8_t* bytesOf(const StringValue* text) { return reinterpret_cast<const std::uint8_t*>(text->data); }

// Upper-cases each letter by the byte table and looks it up in the alphabet,
// which a UTF-8 session holds as the same ASCII letters.
void readAsciiModifierText(const StringValue* text, ModifierSet* modifiers) {
    const std::uint8_t* upper = host().upcaseMap;
    modifiers->set(kModInterpreted);
    for (std::int64_t i = 0; i < text->length; ++i) {
        const int flag = modifierFlagOf(upper[bytesOf(text)[i]]);
        if (flag >= 0) modifiers->set(static_cast<ModifierFlag>(flag));
    }
}

}  // namespace

void readModifierText(EncodingHandle* h, const StringValue* text, ModifierSet* modifiers) {
    if (enc::skipModifierText(h, text->data, text->length)) return;
    Transcoder* transcoder = h->transcoder();
    if (transcoder == nullptr) return;
    if (utf8Session(h) && !anyHighByte(bytesOf(text), text->length)) {
        readAsciiModifierText(text, modifiers);
        return;
    }

    char alphabet[kAlphabetBytes] = {};
    std::int64_t converted = 0;
    transcoder->transcode(transcoder, kModifierAlphabet, sizeof kModifierAlphabet, alphabet, kAlphabetBytes,
                          &converted, 0);
    TextCursor alphabetCursor;
    setupCursor(h, &alphabetCursor, alphabet, kAlphabetBytes);

    TextCursor textCursor;
    setupCursor(h, &textCursor, text->data, text->length);
    CharBufferCursor character;
    setupCharCursor(h, &character);
    modifiers->set(kModInterpreted);

    for (std::int64_t seen = 0;;) {
        enc::currentChar(h, &textCursor, &character.cursor);
        enc::toUpperChar(h, &character.cursor);
        const std::int64_t index = enc::findChar(h, &alphabetCursor, &character.cursor);
        if (index >= 0 && index < kModifierLetters) modifiers->set(kAlphabetFlag[index]);
        if (++seen >= text->length) break;
        if (enc::nextChar(h, &textCursor) < 0) break;
    }
}

namespace {

// The list and delimiter roles: the whole text, or without trailing blanks under T.
bool setupList(EncodingHandle* h, const StringValue* text, bool trim, TextCursor* cursor) {
    if (text == nullptr) return false;
    const std::int64_t length = trim ? enc::blankTrimmedBytes(h, text->data, text->length) : text->length;
    setupCursor(h, cursor, text->data, length);
    return true;
}

// The characters of well-formed UTF-8 text (without trailing blanks under
// T), or -1 when the handle has to count them.
std::int64_t utf8Characters(const StringValue* text, bool trim) {
    const std::uint8_t* p = bytesOf(text);
    const std::int64_t n = text->length;
    if (n < 0 || (p == nullptr && n > 0)) return -1;
    const std::int64_t characters = utf8CharsIfWellFormed(p, n);
    if (characters < 0 || !trim) return characters;
    std::int64_t end = n;
    while (end > 0 && p[end - 1] == ' ') --end;
    return end == 0 || p[end - 1] < 0x80 ? characters - (n - end) : -1;
}

std::int64_t setupString(EncodingHandle* h, const StringValue* text, bool trim, TextCursor* cursor) {
    setupCursor(h, cursor, text->data, text->length);
    if (utf8Session(h)) {
        const std::int64_t characters = utf8Characters(text, trim);
        if (characters >= 0) return characters;
    }
    return trim ? enc::trimmedLength(h, cursor) : enc::charLength(h, cursor);
}

bool usesDefaultDelimiters(std::int32_t kind, std::int32_t argCount, bool delimiterRole) {
    switch (kind) {
        case kCallScanFunction: return !delimiterRole && argCount < 3;
        case kCallScanRoutine: return !delimiterRole && argCount < 5;
        case kCallFinding: return argCount == 2 || (argCount == 3 && !delimiterRole);
        case kCallCounting: return argCount == 1;
        default: return false;
    }
}

}  // namespace

void interpretArguments(ArgumentFrame* frame, EncodingHandle* h, const ArgumentRoles& roles, ParsedArguments* out,
                        ModifierSet* modifiers, std::uint8_t /*wide: always the session encoding here*/,
                        std::int32_t kind) {
    std::memset(out, 0, sizeof *out);
    std::memset(modifiers, 0, sizeof *modifiers);

    const StringValue* modifierText = presentString(frame, roles.modifiers);
    if (modifierText != nullptr && modifierText->data != nullptr && modifierText->length >= 1) {
        readModifierText(h, modifierText, modifiers);
    }
    const bool trim = modifiers->has(kModT);

    out->listSet = setupList(h, presentString(frame, roles.list), trim, &out->list);

    const StringValue* delimiters = presentString(frame, roles.delimiters);
    if (delimiters != nullptr) {
        out->delimitersSet = setupList(h, delimiters, trim, &out->delimiters);
    } else if (usesDefaultDelimiters(kind, frame->argCount, roles.delimiters != 0)) {
        modifiers->set(kModDefaultDelimiters);
    }

    if (roles.count != 0) {
        out->count = 1;
        if (usableNumber(frame, roles.count, &out->count) && out->count < 0) {
            modifiers->set(kModB);
            out->count = -out->count;
        }
    }

    if (const StringValue* source = presentString(frame, roles.source)) {
        out->sourceChars = setupString(h, source, trim, &out->source);
        out->sourceSet = 1;
    }
    if (const StringValue* second = presentString(frame, roles.second)) {
        out->secondChars = setupString(h, second, trim, &out->second);
        out->secondSet = 1;
    }

    bool negative = false;
    out->start = startPosition(frame, roles.start, modifiers->has(kModB), out->sourceChars, &negative);
    if (negative) modifiers->set(kModB);
}

std::int64_t startPosition(const ArgumentFrame* frame, std::uint32_t k, bool backward, std::int64_t sourceChars,
                           bool* negative) {
    std::int64_t start = backward && sourceChars != 0 ? sourceChars : 1;
    usableNumber(frame, k, &start);
    if (start >= 0) return start;
    if (negative != nullptr) *negative = true;
    return -start < sourceChars ? -start : sourceChars;
}

}  // namespace txscan
