// Per-call-site cached sets: a byte-path worker under modifier O keeps its
// finished CharSet, preceded by its own flag bytes, in memory of the call
// context's pool and leaves the address in the frame's setCache, so that
// later calls at the same site skip reading their list and modifiers.
#pragma once

#include <cstdint>

#include "module/abi/argument_frame.h"

namespace txscan {

// Whether the host lets this call site keep a set (its siteKind).
bool siteMayCache(const contract::ArgumentFrame* frame);

// The record an earlier call at this site kept, or null when there is none
// or the site may not use one.
const std::uint8_t* cachedSetOf(const contract::ArgumentFrame* frame);

// Room for a record of `size` bytes from the call context's pool (flag word
// 0x2004), or null when the pool refuses. Never freed: it lives as long as
// the call context.
std::uint8_t* allocateCachedSet(contract::ArgumentFrame* frame, std::int64_t size);

// Makes a filled record the site's cached set.
void keepCachedSet(contract::ArgumentFrame* frame, std::uint8_t* record);

}  // namespace txscan
