// The byte paths of KFINDC and KCOUNTC (charSetOnBytes): the
// character list and the class letters become a 256-entry CharSet, kept per
// call site under modifier O, and the source is scanned against it. A list of
// a few bytes with no class letters, or the class D alone, without caching
// or a negated search, is scanned for its bytes directly, with no set to
// build.
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

// How a call answers from whatever form its set took: a search gives the
// region's position of the first member in its direction, a count the
// region's members.
template <SearchMode Mode>
double answerOf(const SearchRegion& region, const std::uint8_t* set) {
    if constexpr (Mode == SearchMode::kCount) return static_cast<double>(countInSet(region.data, region.length, set));
    return searchRegion(region, set);
}

template <SearchMode Mode>
double answerOf(const SearchRegion& region, const ByteSetTest& test) {
    if constexpr (Mode == SearchMode::kCount) {
        std::int64_t n = 0;
        for (std::int32_t i = 0; i < region.length; ++i) n += test.holds(region.data[i]);
        return static_cast<double>(n);
    }
    return searchRegion(region, test);
}

// Cached records: KFINDC keeps direction and trim flag before its set,
// KCOUNTC only the trim flag.
template <SearchMode Mode>
constexpr std::size_t kRecordFlags = Mode == SearchMode::kFirst ? 2 : 1;

}  // namespace

// KFINDC (kFirst) and KCOUNTC (kCount). A search reads a start position and
// may go leftwards; a count takes the whole source and reads its modifiers
// only from argument 3.
template <SearchMode Mode>
std::int32_t charSetOnBytes(ArgumentFrame* frame, double* result) {
    constexpr bool finding = Mode == SearchMode::kFirst;
    constexpr std::size_t kFlags = kRecordFlags<Mode>;
    const Bytes source = bytesOf(frame, 1);
    if (source.length <= 0 || (finding && frame->argCount <= 1)) {
        *result = 0.0;
        return kStatusOk;
    }
    Bytes list = bytesOf(frame, 2);
    SearchRegion region{unsignedBytes(source.data), static_cast<std::int32_t>(source.length), 1, false};
    int modifierArg = frame->argCount > 2 ? 3 : 0;
    if constexpr (finding) {
        if (frame->argCount == 2) {
            *result = findWithTwoArguments(source, list);
            return kStatusOk;
        }
        StartAndModifiers roles;
        if (std::int32_t status = startAndModifierRoles(frame, FourthArgumentRule::MustNotBeNumeric, &roles)) {
            return status;
        }
        std::int32_t status = kStatusOk;
        if (regionFromStart(frame, roles.start, source.data, region.length, &region, result, &status) ==
            RegionResult::Done) {
            return status;
        }
        modifierArg = roles.modifiers;
    }
    const auto trimRegion = [&region] {
        region.length = static_cast<std::int32_t>(
            trimTrailingBlanks(reinterpret_cast<const char*>(region.data), region.length));
    };

    // A reusing call searches in the direction the record was built with:
    // its own negative start narrows the region but does not turn it round.
    if (const CachedRecord<kFlags>* cached = cachedRecordOf<kFlags>(frame)) {
        if constexpr (finding) region.leftwards = cached->flag[0] != 0;
        if (cached->flag[kFlags - 1]) trimRegion();
        *result = answerOf<Mode>(region, cached->set.member);
        return kStatusOk;
    }

    ByteModifiers modifiers{};
    if (modifierArg != 0) {
        const Bytes text = bytesOf(frame, modifierArg);
        modifiers = readByteModifiers(finding ? kFindCharLetters : kCountCharLetters, text.data, text.length);
    }
    const ModifierSet& flags = modifiers.flags;
    if (flags.has(kModB)) region.leftwards = true;
    if (flags.has(kModT)) {
        trimRegion();
        list.length = trimTrailingBlanks(list.data, list.length);
    }
    const bool negated = flags.has(kModK) || flags.has(kModV);
    const bool caching = flags.has(kModO) && siteMayCache(frame);
    const bool caseless = flags.has(kModI);

    // Sets of a few list bytes and no class, or of the digits alone: a search
    // for the first non-member cannot use them, a count takes the rest.
    const bool digitsAlone = modifiers.classLetters == kClassLetterD && list.length == 0;
    if ((modifiers.classLetters == 0 || digitsAlone) && !caching && (!finding || !negated)) {
        const std::int64_t length = region.length;
        if (list.length == 0 && !digitsAlone) {
            *result = negated ? static_cast<double>(length) : 0.0;
            return kStatusOk;
        }
        if (!finding && list.length == 1 && length < kShortSource) {
            const std::uint8_t* upper = host().upcaseMap;
            const auto wanted = static_cast<std::uint8_t>(list.data[0]);
            std::int64_t equal = 0;
            for (std::int64_t i = 0; i < length; ++i) {
                const std::uint8_t b = region.data[i];
                equal += caseless ? upper[b] == upper[wanted] : b == wanted;
            }
            *result = static_cast<double>(negated ? length - equal : equal);
            return kStatusOk;
        }
        const auto answerOfFew = [&](const FewBytes& few) {
            if constexpr (finding) {
                *result = searchRegion(region, few);
            } else {
                const std::int64_t n = countOfFew(region.data, length, few);
                *result = static_cast<double>(negated ? length - n : n);
            }
            return kStatusOk;
        };
        // The digits as a constant: their test folds into the scan.
        if (digitsAlone) return answerOfFew(kDigitBytes);
        if (FewBytes few; fewListBytes(list, caseless, &few)) return answerOfFew(few);
    }

    ByteSetTest test;
    if (!caching && region.length <= kAskEachByte &&
        byteSetTestOf(modifiers.classLetters, list.data, list.length, caseless, negated, &test)) {
        *result = answerOf<Mode>(region, test);
        return kStatusOk;
    }
    CharSet set;
    buildByteSet(&set, modifiers.classLetters, list.data, list.length, caseless, negated);
    if (caching) {
        std::uint8_t kept[kFlags] = {flags.has(kModT)};
        if constexpr (finding) kept[0] = region.leftwards, kept[1] = flags.has(kModT);
        if (keepRecord(frame, kept, set) == nullptr) return kStatusNoMemory;
    }
    *result = answerOf<Mode>(region, set.member);
    return kStatusOk;
}

template std::int32_t charSetOnBytes<SearchMode::kFirst>(ArgumentFrame*, double*);
template std::int32_t charSetOnBytes<SearchMode::kCount>(ArgumentFrame*, double*);

}  // namespace txscan
