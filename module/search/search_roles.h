// Which argument plays which role in a multi-byte call of KFIND, KCOUNTX,
// KFINDC and KCOUNTC, read once for the handle-walking paths and the UTF-8
// paths alike.
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

}  // namespace txscan
