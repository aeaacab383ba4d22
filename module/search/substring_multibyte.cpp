// The multi-byte paths of KFIND (findMultiByte) and KCOUNTX (countMultiByte):
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

namespace {

// A character argument of this path: absent or empty counts as nothing.
bool hasCharacters(const ArgumentFrame* frame, int k) {
    const StringValue* value = frame->string(k);
    return value != nullptr && value->length >= 1;
}

std::int32_t compareFlags(const ModifierSet& modifiers) {
    return modifiers.has(kModI) ? kCompareCaseless : kCompareExact;
}

}  // namespace

std::int32_t findMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide) {
    const ArgumentRoles roles = findRoles(frame);
    if (h == nullptr) return kStatusInvalidArgument;
    *result = 0.0;
    if (!hasCharacters(frame, 1)) return kStatusOk;

    ParsedArguments parsed;
    ModifierSet modifiers;
    interpretArguments(frame, h, roles, &parsed, &modifiers, wide, kCallFinding);
    if (parsed.sourceChars == 0 || parsed.secondChars == 0 || !parsed.secondSet) return kStatusOk;
    if (parsed.start == 0 && !modifiers.has(kModM)) return kStatusOk;

    const std::int64_t step = modifiers.has(kModB) ? -1 : 1;
    // A leftward match must end at or before the start position.
    const std::int64_t limit = step > 0 ? parsed.sourceChars : parsed.start;
    std::int64_t p = parsed.start - 1;
    if (enc::seekChars(h, &parsed.source, kSeekFromStart, p) == kSeekOutside) return kStatusOk;
    TextCursor cursor = parsed.source;
    const std::int32_t flags = compareFlags(modifiers);
    for (;;) {
        if (p + parsed.secondChars <= limit) {
            if (enc::compareAt(h, &cursor, &parsed.second, parsed.secondChars, flags) == 0) {
                *result = static_cast<double>(p + 1);
                return kStatusOk;
            }
        } else if (step > 0) {
            return kStatusOk;   // every later alignment passes the end as well
        }
        p += step;
        if (enc::seekChars(h, &cursor, kSeekFromCurrent, step) == kSeekOutside) return kStatusOk;
    }
}

std::int32_t countMultiByte(ArgumentFrame* frame, double* result, EncodingHandle* h, std::uint8_t wide) {
    const ArgumentRoles roles = countRoles(frame, false);
    if (h == nullptr) return kStatusInvalidArgument;
    *result = 0.0;
    if (!hasCharacters(frame, 1)) return kStatusOk;

    ParsedArguments parsed;
    ModifierSet modifiers;
    interpretArguments(frame, h, roles, &parsed, &modifiers, wide, kCallCounting);
    if (parsed.sourceChars == 0 || parsed.secondChars == 0) return kStatusOk;

    const std::int64_t step = modifiers.has(kModB) ? -1 : 1;
    const std::int64_t limit = step > 0 ? parsed.sourceChars : parsed.start;
    std::int64_t p = parsed.start - 1;
    std::uint64_t count = 0;
    if (enc::seekChars(h, &parsed.source, kSeekFromStart, p) != kSeekOutside) {
        TextCursor cursor = parsed.source;
        const std::int32_t flags = compareFlags(modifiers);
        for (;;) {
            std::int64_t move = step;
            if (p + parsed.secondChars <= limit &&
                enc::compareAt(h, &cursor, &parsed.second, parsed.secondChars, flags) == 0) {
                ++count;
                move = step * parsed.secondChars;
            } else if (step > 0 && p + parsed.secondChars > limit) {
                break;   // no later alignment fits before the end
            }
            p += move;
            if (enc::seekChars(h, &cursor, kSeekFromCurrent, move) == kSeekOutside) break;
        }
    }
    *result = static_cast<double>(count);
    return kStatusOk;
}

}  // namespace txscan
