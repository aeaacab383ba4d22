// The multi-byte paths of KFIND and KCOUNTX (substringMultiByte):
// positions are in characters, and the source is walked one character at a
// time through the session's EncodingHandle. Modifier letters come from the
// argument interpreter, which knows the whole alphabet, so B turns the search
// leftwards here and no letter draws a note.
#include "module/charset/argument_interpreter.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"
#include "module/search/search_roles.h"

namespace txscan {

using namespace contract;

template <SearchMode Mode>
std::int32_t substringMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide) {
    constexpr bool finding = Mode == SearchMode::kFirst;
    ParsedArguments parsed;
    ModifierSet modifiers;
    if (std::int32_t status = readMultiByteCall(frame, h, finding ? findRoles(frame) : countRoles(frame, false), wide,
                                                finding ? kCallFinding : kCallCounting, result, &parsed, &modifiers)) {
        return status;
    }
    // An absent search string has no characters either.
    if (parsed.sourceChars == 0 || parsed.secondChars == 0) return kStatusOk;
    if (finding && parsed.start == 0 && !modifiers.has(kModM)) return kStatusOk;

    const std::int64_t step = modifiers.has(kModB) ? -1 : 1;
    // A leftward match must end at or before the start position.
    const std::int64_t limit = step > 0 ? parsed.sourceChars : parsed.start;
    std::int64_t p = parsed.start - 1;
    if (enc::seekChars(h, &parsed.source, kSeekFromStart, p) == kSeekOutside) return kStatusOk;
    TextCursor cursor = parsed.source;
    const std::int32_t flags = modifiers.has(kModI) ? kCompareCaseless : kCompareExact;
    std::uint64_t count = 0;
    for (;;) {
        std::int64_t move = step;
        if (p + parsed.secondChars <= limit) {
            if (enc::compareAt(h, &cursor, &parsed.second, parsed.secondChars, flags) == 0) {
                if constexpr (finding) {
                    *result = static_cast<double>(p + 1);
                    return kStatusOk;
                }
                ++count;
                move = step * parsed.secondChars;   // occurrences do not overlap
            }
        } else if (step > 0) {
            break;   // every later alignment passes the end as well
        }
        p += move;
        if (enc::seekChars(h, &cursor, kSeekFromCurrent, move) == kSeekOutside) break;
    }
    if constexpr (!finding) *result = static_cast<double>(count);
    return kStatusOk;
}

template std::int32_t substringMultiByte<SearchMode::kFirst>(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);
template std::int32_t substringMultiByte<SearchMode::kCount>(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);

}  // namespace txscan
