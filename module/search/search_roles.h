// Which argument plays which role in a multi-byte call of KFIND, KCOUNTX,
// KFINDC and KCOUNTC, read once for the handle-walking paths and the UTF-8
// paths alike; and how the handle-walking paths open a call.
#pragma once

#include <cstdint>

#include "module/abi/argument_frame.h"
#include "module/charset/argument_interpreter.h"
#include "module/search/search_region.h"

namespace txscan {

// KFIND: argument 4 is assigned after argument 3, so when both have one type
// it holds that role; this path reports no clash.
inline ArgumentRoles findRoles(const contract::ArgumentFrame* frame) {
    ArgumentRoles roles{};
    roles.source = 1;
    roles.second = 2;
    for (int k = 3; k <= frame->argCount && k <= 4; ++k) {
        const std::uint8_t type = frame->arg(k).typeFlags;
        if (type == 0) continue;
        if (type & contract::kTypeNumeric) {
            roles.start = static_cast<std::uint32_t>(k);
        } else {
            roles.modifiers = static_cast<std::uint32_t>(k);
        }
    }
    return roles;
}

// KCOUNTX (second = 2) and KCOUNTC (list = 2): modifiers only as argument 3.
inline ArgumentRoles countRoles(const contract::ArgumentFrame* frame, bool listSecond) {
    ArgumentRoles roles{};
    roles.source = 1;
    (listSecond ? roles.list : roles.second) = 2;
    if (frame->argCount == 3 && frame->string(3) != nullptr) roles.modifiers = 3;
    return roles;
}

// KFINDC: a start and modifiers among arguments 3 and 4; nonzero is the
// status of a clash between them.
inline std::int32_t findCharRoles(contract::ArgumentFrame* frame, ArgumentRoles* roles) {
    *roles = ArgumentRoles{};
    roles->source = 1;
    if (frame->argCount >= 2 && frame->string(2) != nullptr) roles->list = 2;
    if (frame->argCount < 3) return 0;
    StartAndModifiers found;
    if (std::int32_t clash = startAndModifierRoles(frame, FourthArgumentRule::MustNotBeNumeric, &found)) return clash;
    roles->start = static_cast<std::uint32_t>(found.start);
    roles->modifiers = static_cast<std::uint32_t>(found.modifiers);
    return 0;
}

// KFINDC's roles (Finding) or KCOUNTC's; nonzero is the status of a clash.
template <bool Finding>
inline std::int32_t charSetRoles(contract::ArgumentFrame* frame, ArgumentRoles* roles) {
    if constexpr (Finding) return findCharRoles(frame, roles);
    *roles = countRoles(frame, true);
    return 0;
}

// Every handle-walking search starts here: no handle is an invalid call; an
// absent or empty source leaves sourceChars 0 (nothing found, result 0)
// without reading the other arguments.
inline std::int32_t readMultiByteCall(contract::ArgumentFrame* frame, contract::EncodingHandle* h,
                                      const ArgumentRoles& roles, std::uint8_t wide, std::int32_t kind,
                                      double* result, ParsedArguments* parsed, ModifierSet* modifiers) {
    if (h == nullptr) return contract::kStatusInvalidArgument;
    *result = 0.0;
    const contract::StringValue* source = frame->string(1);
    if (source == nullptr || source->length < 1) {
        parsed->sourceChars = 0;
        *modifiers = ModifierSet{};
        return contract::kStatusOk;
    }
    interpretArguments(frame, h, roles, parsed, modifiers, wide, kind);
    return contract::kStatusOk;
}

}  // namespace txscan
