// The multi-byte paths of KFINDC and KCOUNTC (charSetMultiByte): each source
// character is tested against the list and the class letters through the
// session's EncodingHandle.
#include "module/charset/argument_interpreter.h"
#include "module/charset/char_decision.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/search/search_region.h"
#include "module/search/search_roles.h"

namespace txscan {

using namespace contract;

template <SearchMode Mode>
std::int32_t charSetMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide) {
    ArgumentRoles roles;
    if (std::int32_t clash = charSetRoles<Mode == SearchMode::kFirst>(frame, &roles)) return clash;
    constexpr bool finding = Mode == SearchMode::kFirst;
    ParsedArguments parsed;
    ModifierSet modifiers;
    if (std::int32_t status = readMultiByteCall(frame, h, roles, wide, finding ? kCallFinding : kCallCounting, result,
                                                &parsed, &modifiers)) {
        return status;
    }
    // K negates the set of a search like V; a count only V negates.
    if (finding && modifiers.has(kModK)) {
        modifiers.clear(kModK);
        modifiers.set(kModV);
    }
    if (parsed.sourceChars == 0) return kStatusOk;
    if (parsed.start == 0 && !modifiers.has(kModM)) return kStatusOk;

    const std::int64_t step = modifiers.has(kModB) ? -1 : 1;
    std::int64_t p = parsed.start - 1;
    if (p < 0) return kStatusOk;
    if (p != 0 && enc::seekChars(h, &parsed.source, kSeekFromStart, p) == kSeekOutside) return kStatusOk;

    HandleQuestions questions;
    setupHandleQuestions(&questions, h, CharRole::kMember, modifiers, parsed.listSet ? &parsed.list : nullptr);
    const bool negated = modifiers.has(kModV);
    std::uint64_t count = 0;
    while (p >= 0 && p < parsed.sourceChars) {
        if (decideFromHandle(questions, &parsed.source) != negated) {
            if constexpr (finding) {
                *result = static_cast<double>(p + 1);
                return kStatusOk;
            }
            ++count;
        }
        p += step;
        if (p < 0 || p >= parsed.sourceChars) break;
        if (enc::seekChars(h, &parsed.source, kSeekFromCurrent, step) == kSeekOutside) break;
    }
    if constexpr (!finding) *result = static_cast<double>(count);
    return kStatusOk;
}

template std::int32_t charSetMultiByte<SearchMode::kFirst>(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);
template std::int32_t charSetMultiByte<SearchMode::kCount>(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);

}  // namespace txscan
