// Cached sets over the frame's setCache slot and siteKind.
#include "module/charset/cached_set.h"

#include "module/abi/host_vector.h"
#include "module/frame/host_call.h"
#include "module/frame/module_state.h"

namespace txscan {

using namespace contract;

bool siteMayCache(const ArgumentFrame* frame) { return siteAllowsCaching(frame->siteKind); }

const std::uint8_t* cachedSetOf(const ArgumentFrame* frame) {
    if (!siteMayCache(frame)) return nullptr;
    return static_cast<const std::uint8_t*>(frame->setCache);
}

std::uint8_t* allocateCachedSet(ArgumentFrame* frame, std::int64_t size) {
    // A frame without a call context takes the task's, as the word functions
    // do; the search functions leave the frame's field as the host gave it.
    void* context = frame->callContext;
    if (context == nullptr && host().taskRecord != nullptr) {
        context = static_cast<void* const*>(host().taskRecord)[kTaskCallContextWord];
    }
    if (context == nullptr) return nullptr;
    MemoryPool* pool = static_cast<CallContext*>(context)->pool;
    if (pool == nullptr) return nullptr;
    return static_cast<std::uint8_t*>(poolAllocate(pool, size, kPoolSiteCache));
}

void keepCachedSet(ArgumentFrame* frame, std::uint8_t* record) { frame->setCache = record; }

}  // namespace txscan
