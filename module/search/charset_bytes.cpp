// The byte paths of KFINDC (findCharOnBytes) and KCOUNTC (countCharOnBytes): the
// character list and the class letters become a 256-entry CharSet, kept per
// call site under modifier O, and the source is scanned against it. A list of
// a few bytes with no class letters, negation or caching is scanned for its
// bytes directly, with no set to build.
#include "module/charset/cached_set.h"
#include "module/charset/char_set.h"
#include "module/charset/letter_table.h"
#include "module/charset/set_scan.h"
#include "module/frame/module_state.h"
#include "module/frame/workers.h"
#include "module/search/few_bytes.h"
#include "module/search/search_region.h"
#include "module/search/trim_blanks.h"

namespace txscan {

using namespace contract;

namespace {

constexpr LetterTable kFindCharLetters = makeLetterTable("FINDC", "BIKOTV", true);
constexpr LetterTable kCountCharLetters = makeLetterTable("COUNTC", "IOTV", true);

// KCOUNTC compares sources shorter than this with a list of one byte byte by
// byte, with no table to build.
constexpr std::int64_t kShortSource = 100;

// Up to this many bytes asking each byte of the set (ByteSetTest) is
// cheaper than filling the 256 entries and scanning them.
constexpr std::int64_t kAskEachByte = 32;

// Cached records: KFINDC keeps direction and trim flag before its set,
// KCOUNTC only the trim flag.
enum FindCharFlag { kFindCharDirection, kFindCharTrim, kFindCharFlags };
enum CountCharFlag { kCountCharTrim, kCountCharFlags };
using FindCharRecord = CachedRecord<kFindCharFlags>;
using CountCharRecord = CachedRecord<kCountCharFlags>;

struct Bytes {
    const char* data;
    std::int64_t length;
};

// The byte paths read these lengths as signed 32-bit values.
Bytes bytesOf(const ArgumentFrame* frame, int k) {
    const StringValue* value = frame->string(k);
    if (value == nullptr || value->data == nullptr) return {nullptr, 0};
    const auto length = static_cast<std::int32_t>(value->length);
    return {value->data, length > 0 ? length : 0};
}

const std::uint8_t* unsignedBytes(const char* data) { return reinterpret_cast<const std::uint8_t*>(data); }

std::int32_t searchRegion(const SearchRegion& region, const std::uint8_t* set) {
    const std::int32_t i = region.leftwards ? lastInSet(region.data, region.length, set)
                                            : firstInSet(region.data, region.length, set);
    return i < 0 ? 0 : region.base + i;
}

std::int32_t searchRegion(const SearchRegion& region, const ByteSetTest& test) {
    if (region.leftwards) {
        for (std::int32_t i = region.length - 1; i >= 0; --i) {
            if (test.holds(region.data[i])) return region.base + i;
        }
        return 0;
    }
    for (std::int32_t i = 0; i < region.length; ++i) {
        if (test.holds(region.data[i])) return region.base + i;
    }
    return 0;
}

std::int32_t searchRegion(const SearchRegion& region, const FewBytes& few) {
    const std::int64_t i = region.leftwards ? lastOfFew(region.data, region.length, few)
                                            : firstOfFew(region.data, region.length, few);
    return i < 0 ? 0 : region.base + static_cast<std::int32_t>(i);
}

// The bytes of a list a set would hold, when they are few (null maps: as given).
bool fewListBytes(const Bytes& list, bool caseless, FewBytes* few) {
    const std::uint8_t* upper = caseless ? host().upcaseMap : nullptr;
    const std::uint8_t* lower = caseless ? host().lowcaseMap : nullptr;
    return fewBytesOf(list.data, list.length, upper, lower, few);
}

std::int32_t findWithTwoArguments(const Bytes& source, const Bytes& list) {
    if (list.length == 0) return 0;
    FewBytes few;
    if (fewListBytes(list, false, &few)) {
        const std::int64_t i = firstOfFew(unsignedBytes(source.data), source.length, few);
        return static_cast<std::int32_t>(i + 1);
    }
    CharSet set;
    buildByteSet(&set, 0, list.data, list.length, false, false);
    return firstInSet(unsignedBytes(source.data), static_cast<std::int32_t>(source.length), set.member) + 1;
}

}  // namespace

std::int32_t findCharOnBytes(ArgumentFrame* frame, double* result) {
    const Bytes source = bytesOf(frame, 1);
    if (source.length <= 0 || frame->argCount <= 1) {
        *result = 0.0;
        return kStatusOk;
    }
    Bytes list = bytesOf(frame, 2);
    if (frame->argCount == 2) {
        *result = findWithTwoArguments(source, list);
        return kStatusOk;
    }

    StartAndModifiers roles;
    if (std::int32_t status = startAndModifierRoles(frame, FourthArgumentRule::MustNotBeNumeric, &roles)) {
        return status;
    }
    SearchRegion region;
    std::int32_t status = kStatusOk;
    if (regionFromStart(frame, roles.start, source.data, static_cast<std::int32_t>(source.length), &region, result,
                        &status) == RegionResult::Done) {
        return status;
    }

    // A reusing call searches in the direction the record was built with:
    // its own negative start narrows the region but does not turn it round.
    if (const FindCharRecord* cached = cachedRecordOf<kFindCharFlags>(frame)) {
        region.leftwards = cached->flag[kFindCharDirection] != 0;
        if (cached->flag[kFindCharTrim]) {
            region.length = static_cast<std::int32_t>(
                trimTrailingBlanks(reinterpret_cast<const char*>(region.data), region.length));
        }
        *result = searchRegion(region, cached->set.member);
        return kStatusOk;
    }

    ByteModifiers modifiers{};
    if (roles.modifiers != 0) {
        const Bytes text = bytesOf(frame, roles.modifiers);
        modifiers = readByteModifiers(kFindCharLetters, text.data, text.length);
    }
    const ModifierSet& flags = modifiers.flags;
    if (flags.has(kModB)) region.leftwards = true;
    if (flags.has(kModT)) {
        region.length = static_cast<std::int32_t>(
            trimTrailingBlanks(reinterpret_cast<const char*>(region.data), region.length));
        list.length = trimTrailingBlanks(list.data, list.length);
    }

    const bool negated = flags.has(kModK) || flags.has(kModV);
    const bool caching = flags.has(kModO) && siteMayCache(frame);
    if (modifiers.classLetters == 0 && !negated && !caching) {
        FewBytes few;
        if (list.length == 0) {
            *result = 0.0;
            return kStatusOk;
        }
        if (fewListBytes(list, flags.has(kModI), &few)) {
            *result = searchRegion(region, few);
            return kStatusOk;
        }
    }

    ByteSetTest test;
    if (!caching && region.length <= kAskEachByte &&
        byteSetTestOf(modifiers.classLetters, list.data, list.length, flags.has(kModI), negated, &test)) {
        *result = searchRegion(region, test);
        return kStatusOk;
    }
    CharSet set;
    buildByteSet(&set, modifiers.classLetters, list.data, list.length, flags.has(kModI), negated);
    if (caching) {
        const std::uint8_t kept[kFindCharFlags] = {region.leftwards, flags.has(kModT)};
        if (keepRecord(frame, kept, set) == nullptr) return kStatusNoMemory;
    }
    *result = searchRegion(region, set.member);
    return kStatusOk;
}

std::int32_t countCharOnBytes(ArgumentFrame* frame, double* result) {
    const Bytes source = bytesOf(frame, 1);
    if (source.length <= 0) {
        *result = 0.0;
        return kStatusOk;
    }
    std::int64_t length = source.length;
    if (const CountCharRecord* cached = cachedRecordOf<kCountCharFlags>(frame)) {
        if (cached->flag[kCountCharTrim]) length = trimTrailingBlanks(source.data, length);
        *result = static_cast<double>(countInSet(unsignedBytes(source.data), length, cached->set.member));
        return kStatusOk;
    }

    Bytes list = bytesOf(frame, 2);
    ByteModifiers modifiers{};
    if (frame->argCount > 2) {
        const Bytes text = bytesOf(frame, 3);
        modifiers = readByteModifiers(kCountCharLetters, text.data, text.length);
    }
    const ModifierSet& flags = modifiers.flags;
    if (flags.has(kModT)) {
        length = trimTrailingBlanks(source.data, length);
        list.length = trimTrailingBlanks(list.data, list.length);
    }
    const bool caching = flags.has(kModO) && siteMayCache(frame);
    const bool negated = flags.has(kModV);

    if (modifiers.classLetters == 0 && list.length <= 1 && !caching) {
        if (list.length == 0) {
            *result = negated ? static_cast<double>(length) : 0.0;
            return kStatusOk;
        }
        if (length < kShortSource) {
            const std::uint8_t* upper = host().upcaseMap;
            const auto wanted = static_cast<std::uint8_t>(list.data[0]);
            const bool caseless = flags.has(kModI);
            std::int64_t equal = 0;
            for (std::int64_t i = 0; i < length; ++i) {
                const auto b = static_cast<std::uint8_t>(source.data[i]);
                equal += caseless ? upper[b] == upper[wanted] : b == wanted;
            }
            *result = static_cast<double>(negated ? length - equal : equal);
            return kStatusOk;
        }
    }

    FewBytes few;
    if (modifiers.classLetters == 0 && !caching && fewListBytes(list, flags.has(kModI), &few)) {
        const std::int64_t n = countOfFew(unsignedBytes(source.data), length, few);
        *result = static_cast<double>(negated ? length - n : n);
        return kStatusOk;
    }

    ByteSetTest test;
    if (!caching && length <= kAskEachByte &&
        byteSetTestOf(modifiers.classLetters, list.data, list.length, flags.has(kModI), negated, &test)) {
        std::int64_t n = 0;
        for (std::int64_t i = 0; i < length; ++i) n += test.holds(static_cast<std::uint8_t>(source.data[i]));
        *result = static_cast<double>(n);
        return kStatusOk;
    }
    CharSet set;
    buildByteSet(&set, modifiers.classLetters, list.data, list.length, flags.has(kModI), negated);
    if (caching) {
        const std::uint8_t kept[kCountCharFlags] = {flags.has(kModT)};
        if (keepRecord(frame, kept, set) == nullptr) return kStatusNoMemory;
    }
    *result = static_cast<double>(countInSet(unsignedBytes(source.data), length, set.member));
    return kStatusOk;
}

}  // namespace txscan
