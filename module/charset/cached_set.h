// Per-call-site cached sets: a byte-path worker under modifier O keeps its
// finished CharSet, preceded by its own flag bytes, in memory of the call
// context's pool and leaves the address in the frame's setCache, so that
// later calls at the same site skip reading their list and modifiers.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/abi/argument_frame.h"
#include "module/charset/char_set.h"

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

// The record a worker keeps: its own flag bytes (each 0 or 1, in an order the
// worker names), then its finished set.
template <std::size_t Flags>
struct CachedRecord {
    std::uint8_t flag[Flags];
    CharSet set;
};

// The record an earlier call at this site kept, or null. An empty slot,
// the common case, is told without a call.
template <std::size_t Flags>
const CachedRecord<Flags>* cachedRecordOf(const contract::ArgumentFrame* frame) {
    if (frame->setCache == nullptr) return nullptr;
    return reinterpret_cast<const CachedRecord<Flags>*>(cachedSetOf(frame));
}

// Copies the flags and the set into a new record and makes it the site's;
// null when the pool refuses (nothing is kept then).
template <std::size_t Flags>
const CachedRecord<Flags>* keepRecord(contract::ArgumentFrame* frame, const std::uint8_t (&flags)[Flags],
                                      const CharSet& set) {
    static_assert(sizeof(CachedRecord<Flags>) == Flags + sizeof(CharSet));
    auto* record = reinterpret_cast<CachedRecord<Flags>*>(allocateCachedSet(frame, sizeof(CachedRecord<Flags>)));
    if (record == nullptr) return nullptr;
    std::memcpy(record->flag, flags, Flags);
    std::memcpy(&record->set, &set, sizeof set);
    keepCachedSet(frame, reinterpret_cast<std::uint8_t*>(record));
    return record;
}

}  // namespace txscan
