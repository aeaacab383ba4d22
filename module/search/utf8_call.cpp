// readUtf8Call: the argument interpreter for everything but the source, and
// the source's trimmed count and start position from the count it is given.
#include "module/search/utf8_call.h"

#include "module/charset/utf8_text.h"
#include "module/frame/encoding_ops.h"

namespace txscan {

using namespace contract;

namespace {

bool wellFormedArgument(const ArgumentFrame* frame, std::uint32_t k) {
    const StringValue* value = k == 0 ? nullptr : frame->string(static_cast<int>(k));
    if (value == nullptr || value->length <= 0) return true;
    return value->data != nullptr &&
           utf8CharsIfWellFormed(reinterpret_cast<const std::uint8_t*>(value->data), value->length) >= 0;
}

// Characters without trailing blanks. Whether a wide character just before
// the blanks is a blank as well only the handle knows.
std::int64_t trimmedCharacters(EncodingHandle* h, const Utf8Source& s) {
    std::int64_t end = s.bytes;
    while (end > 0 && s.data[end - 1] == ' ') --end;
    if (end == 0 || s.data[end - 1] < 0x80) return s.characters - (s.bytes - end);
    TextCursor cursor;
    setupCursor(h, &cursor, reinterpret_cast<const char*>(s.data), s.bytes);
    return enc::trimmedLength(h, &cursor);
}

}  // namespace

bool readUtf8Call(ArgumentFrame* frame, EncodingHandle* h, const ArgumentRoles& roles, std::int32_t kind,
                  std::int64_t sourceChars, ParsedArguments* parsed, ModifierSet* modifiers, Utf8Source* source) {
    const StringValue* text = frame->string(1);
    if (text == nullptr || text->length < 1 || text->data == nullptr) return false;
    source->data = reinterpret_cast<const std::uint8_t*>(text->data);
    source->bytes = text->length;
    source->characters = sourceChars;
    if (source->characters < 0 || !wellFormedArgument(frame, roles.second) || !wellFormedArgument(frame, roles.list)) {
        return false;
    }
    ArgumentRoles others = roles;
    others.source = 0;
    interpretArguments(frame, h, others, parsed, modifiers, 0, kind);
    parsed->sourceChars = modifiers->has(kModT) ? trimmedCharacters(h, *source) : source->characters;

    // The interpreter's start rule on this count (a negative start has set B).
    parsed->start = startPosition(frame, roles.start, modifiers->has(kModB), parsed->sourceChars);
    return true;
}

}  // namespace txscan
