// The session's encoding as the module sees it: the multi-byte tests that
// choose a path, cursor layout, and growing a character result.
#include <cstring>

#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"

namespace txscan {

using namespace contract;

std::int32_t growResult(StringValue* result, std::int64_t needed) {
    const std::int64_t n = needed < result->maxLength ? needed : result->maxLength;
    if (n <= result->capacity) return kStatusOk;
    std::int64_t capacity = (n + 1023) / 1024 * 1024;
    if (capacity > result->maxLength) capacity = result->maxLength;
    result->capacity = capacity;
    auto* pool = static_cast<MemoryPool*>(result->growPool);
    result->data = static_cast<char*>(pool->reallocate(pool, result->data, capacity, kPoolGrowResult));
    if (result->data != nullptr) return kStatusOk;
    // A refused enlargement leaves no buffer; a capacity of 0 keeps the next
    // call at this site from writing through the null address.
    result->capacity = 0;
    return kStatusNoMemory;
}

void setupCursor(EncodingHandle* h, TextCursor* cursor, const char* text, std::int64_t length) {
    std::memset(cursor, 0, sizeof *cursor);
    cursor->text = text;
    cursor->length = length;
    cursor->remaining = length;
    cursor->state = length == 0 ? kCursorEmpty : 0;
    if (h->encodingKind != kSingleByteEncoding) {
        cursor->limit = h->cursorLimit == length ? kCursorEmpty : h->cursorLimit;
        cursor->mark = -1;
        if (h->encodingKind != kUnpositionedCursors) enc::seekChars(h, cursor, kSeekFromStart, 0);
    }
}

void setupCharCursor(EncodingHandle* h, CharBufferCursor* c) {
    std::memset(c->buffer, 0, sizeof c->buffer);
    setupCursor(h, &c->cursor, c->buffer, kCharBufferBytes);
}

}  // namespace txscan
