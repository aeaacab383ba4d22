// The byte paths of KFIND and KCOUNTX (substringOnBytes): one byte is one
// character, and case folding goes through the session's upcaseMap. KCOUNTX
// has no start and no direction: it always searches the whole source.
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

    const std::uint8_t* bytes() const { return reinterpret_cast<const std::uint8_t*>(data); }
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

template <SearchMode Mode>
std::int32_t substringOnBytes(ArgumentFrame* frame, double* result) {
    constexpr bool finding = Mode == SearchMode::kFirst;
    const Bytes source = bytesOf(frame, 1);
    const Bytes search = bytesOf(frame, 2);
    // KFIND reads both lengths as 32-bit values.
    std::int64_t length = finding ? static_cast<std::int32_t>(source.length) : source.length;
    std::int64_t m = finding ? static_cast<std::int32_t>(search.length) : search.length;
    // Two arguments: the whole source rightwards, and no roles, start or
    // modifiers to read, which on short rows cost more than the search; a
    // row shorter than the search text is not even searched. A position of
    // -1 (not found) stores 0.
    if (frame->argCount <= 2) {
        std::int64_t found = finding ? -1 : 0;
        if (m > 0 && length >= m) found = searchBytes<Mode>(source.bytes(), length, {search.bytes(), m, false});
        *result = static_cast<double>(finding ? found + 1 : found);
        return kStatusOk;
    }
    SearchRegion region{source.bytes(), 0, 1, false};
    int modifierArg = 3;
    if constexpr (finding) {
        StartAndModifiers roles;
        if (std::int32_t status = startAndModifierRoles(frame, FourthArgumentRule::MustBeCharacter, &roles)) {
            return status;
        }
        std::int32_t status = kStatusOk;
        if (regionFromStart(frame, roles.start, source.data, static_cast<std::int32_t>(length), &region, result,
                            &status) == RegionResult::Done) {
            return status;
        }
        modifierArg = roles.modifiers;
        length = region.length;
    }

    const ByteModifiers modifiers = modifiersOf(frame, modifierArg, finding ? kFindLetters : kCountLetters);
    if (modifiers.flags.has(kModT)) {
        length = trimTrailingBlanks(reinterpret_cast<const char*>(region.data), length);
        m = trimTrailingBlanks(search.data, m);
    }
    *result = 0.0;
    if (m <= 0 || length <= 0) return kStatusOk;
    const Pattern pattern{search.bytes(), m, modifiers.flags.has(kModI)};
    if constexpr (!finding) {
        *result = static_cast<double>(searchBytes<Mode>(region.data, length, pattern));
    } else {
        const std::int64_t at = region.leftwards ? searchBytes<SearchMode::kLast>(region.data, length, pattern)
                                                 : searchBytes<SearchMode::kFirst>(region.data, length, pattern);
        if (at >= 0) *result = static_cast<double>(static_cast<std::int32_t>(region.base + at));
    }
    return kStatusOk;
}

template std::int32_t substringOnBytes<SearchMode::kFirst>(ArgumentFrame*, double*);
template std::int32_t substringOnBytes<SearchMode::kCount>(ArgumentFrame*, double*);

}  // namespace txscan
