// What KFIND and KFINDC share on their byte paths: telling the start position
// from the modifier string by argument types, and the SearchRegion that the
// start position leaves to search.
#pragma once

#include <cstdint>

#include "module/abi/argument_frame.h"

namespace txscan {

// Argument numbers of the start position and the modifier string, 0 when absent.
struct StartAndModifiers {
    int start;
    int modifiers;
};

// How strictly argument 4 must differ in type from a numeric argument 3:
// KFIND wants it marked character, KFINDC only refuses it marked numeric.
enum class FourthArgumentRule { MustBeCharacter, MustNotBeNumeric };

// Assigns the roles of arguments 3 and 4. With four arguments of clashing
// types it marks argument 4 and answers status 0x1D804; else 0.
std::int32_t startAndModifierRoles(contract::ArgumentFrame* frame, FourthArgumentRule rule, StartAndModifiers* roles);

struct SearchRegion {
    const std::uint8_t* data;   // first byte searched
    std::int32_t length;        // bytes; 0 or more
    std::int32_t base;          // 1-based source position of data[0]
    bool leftwards;
};

enum class RegionResult { Search, Done };

// Narrows the whole source (data[0..length), base 1, rightwards) by the start
// value at argument `startArg` (0: none). Done means the answer is already
// stored in `result` and `status` holds the call's status: the missing value
// with 0x1D801 for a missing start, 0 with status 0 for a start beyond the end.
RegionResult regionFromStart(const contract::ArgumentFrame* frame, int startArg, const char* data,
                             std::int32_t length, SearchRegion* region, double* result, std::int32_t* status);

}  // namespace txscan
