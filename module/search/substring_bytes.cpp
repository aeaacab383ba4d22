// The byte paths of KFIND (findOnBytes) and KCOUNTX (countOnBytes): one byte is
// one character, and case folding goes through the session's upcaseMap.
#include <cstring>

#include "module/charset/letter_table.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/search/search_region.h"
#include "module/search/substring_scan.h"
#include "module/search/trim_blanks.h"

namespace txscan {

using namespace contract;

namespace {

// FIND knows I and T, COUNT also O (which does nothing here); class letters
// mean nothing to a substring search and draw the note like any other.
constexpr LetterTable kFindLetters = makeLetterTable("FIND", "IT", false);
constexpr LetterTable kCountLetters = makeLetterTable("COUNT", "IOT", false);

struct Bytes {
    const char* data;
    std::int64_t length;
};

Bytes bytesOf(const ArgumentFrame* frame, int k) {
    const StringValue* value = frame->string(k);
    if (value == nullptr || value->data == nullptr || value->length <= 0) return {nullptr, 0};
    return {value->data, value->length};
}

ByteModifiers modifiersOf(const ArgumentFrame* frame, int k, const LetterTable& letters) {
    if (k == 0) return {};
    const Bytes text = bytesOf(frame, k);
    return readByteModifiers(letters, text.data, text.length);
}

}  // namespace

std::int32_t findOnBytes(ArgumentFrame* frame, double* result) {
    // Two arguments: the whole source rightwards, and no roles, start or
    // modifiers to read, which on short rows cost more than the search.
    if (frame->argCount <= 2) {
        const Bytes source = bytesOf(frame, 1);
        const Bytes search = bytesOf(frame, 2);
        const auto length = static_cast<std::int32_t>(source.length);
        const auto m = static_cast<std::int32_t>(search.length);
        *result = 0.0;
        if (m <= 0 || length < m) return kStatusOk;
        const Pattern pattern{reinterpret_cast<const std::uint8_t*>(search.data), m, false};
        const std::int64_t at = findFirstOccurrence(reinterpret_cast<const std::uint8_t*>(source.data), length, pattern);
        if (at >= 0) *result = static_cast<double>(at + 1);
        return kStatusOk;
    }
    StartAndModifiers roles;
    if (std::int32_t status = startAndModifierRoles(frame, FourthArgumentRule::MustBeCharacter, &roles)) {
        return status;
    }
    // Both lengths are read as 32-bit values on this path.
    const Bytes source = bytesOf(frame, 1);
    SearchRegion region;
    std::int32_t status = kStatusOk;
    if (regionFromStart(frame, roles.start, source.data, static_cast<std::int32_t>(source.length), &region, result,
                        &status) == RegionResult::Done) {
        return status;
    }

    const ByteModifiers modifiers = modifiersOf(frame, roles.modifiers, kFindLetters);
    const Bytes search = bytesOf(frame, 2);
    std::int32_t m = static_cast<std::int32_t>(search.length);
    if (modifiers.flags.has(kModT)) {
        region.length = static_cast<std::int32_t>(
            trimTrailingBlanks(reinterpret_cast<const char*>(region.data), region.length));
        m = static_cast<std::int32_t>(trimTrailingBlanks(search.data, m));
    }

    *result = 0.0;
    if (m <= 0 || region.length <= 0) return kStatusOk;
    const Pattern pattern{reinterpret_cast<const std::uint8_t*>(search.data), m, modifiers.flags.has(kModI)};
    const std::int64_t at = region.leftwards ? findLastOccurrence(region.data, region.length, pattern)
                                             : findFirstOccurrence(region.data, region.length, pattern);
    if (at >= 0) *result = static_cast<double>(static_cast<std::int32_t>(region.base + at));
    return kStatusOk;
}

std::int32_t countOnBytes(ArgumentFrame* frame, double* result) {
    const ByteModifiers modifiers = modifiersOf(frame, frame->argCount > 2 ? 3 : 0, kCountLetters);
    const Bytes source = bytesOf(frame, 1);
    const Bytes search = bytesOf(frame, 2);
    std::int64_t length = source.length;
    std::int64_t m = search.length;
    if (modifiers.flags.has(kModT)) {
        length = trimTrailingBlanks(source.data, length);
        m = trimTrailingBlanks(search.data, m);
    }

    std::int64_t count = 0;
    if (m > 0) {
        const Pattern pattern{reinterpret_cast<const std::uint8_t*>(search.data), m, modifiers.flags.has(kModI)};
        count = countOccurrences(reinterpret_cast<const std::uint8_t*>(source.data), length, pattern);
    }
    *result = static_cast<double>(count);
    return kStatusOk;
}

}  // namespace txscan
