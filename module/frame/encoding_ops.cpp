// The session's encoding as the module sees it: the handle lookup, the
// multi-byte tests that choose a path, cursor layout, and growing a
// character result.
#include <cstring>

#include "module/charset/utf8_text.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/host_call.h"
#include "module/frame/workers.h"

namespace txscan {

using namespace contract;

EncodingHandle* sessionHandle() {
    auto* service = static_cast<EncodingService*>(kernelWord(kKernelEncodingService));
    if (service->cachedSessionHandle != nullptr) return service->cachedSessionHandle;
    std::int64_t status = 0;
    return service->openHandle(service, kSessionHandleName, kSessionHandleNameLength, &status);
}

namespace {

// A UTF-8 text holds a multi-byte character exactly when a byte has its top
// bit set. Eight bytes per test: the adapter and the byte worker's re-check
// both ask this of the whole source, so it must cost far less than a search.
bool anyHighBit(const char* data, std::int64_t length) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080ull;
    std::int64_t i = 0;
    std::uint64_t seen = 0;
    for (; i + 32 <= length; i += 32) {
        std::uint64_t w[4];
        std::memcpy(w, data + i, sizeof w);
        seen |= w[0] | w[1] | w[2] | w[3];
        if (seen & kHighBits) return true;
    }
    for (; i + 8 <= length; i += 8) {
        std::uint64_t w;
        std::memcpy(&w, data + i, sizeof w);
        seen |= w;
    }
    for (; i < length; ++i) seen |= static_cast<unsigned char>(data[i]);
    return (seen & kHighBits) != 0;
}

// Whether a text of a multi-byte encoding holds a multi-byte character.
bool holdsWideCharacter(const EncodingHandle* h, const char* data, std::int64_t length) {
    if (data == nullptr || length <= 0) return false;
    if (h->encodingId == kEncodingIdUtf8) return anyHighBit(data, length);
    std::int64_t count = 0;
    if (enc::countChars(const_cast<EncodingHandle*>(h), data, length, &count) != 0) return false;
    return count < length;
}

}  // namespace

SourceShape sourceShapeOf(const EncodingHandle* h, const StringValue* source) {
    if (h->encodingKind == kSingleByteEncoding || source->data == nullptr || source->length <= 0) {
        return {SourceShape::kSingleBytes, source->length};
    }
    if (h->encodingId != kEncodingIdUtf8) {
        if (!holdsWideCharacter(h, source->data, source->length)) return {SourceShape::kSingleBytes, source->length};
        return {SourceShape::kOtherMultiByte, -1};
    }
    // One pass answers all three questions: ASCII when every byte is a
    // character. A short row is mostly ASCII, told by its high bits alone.
    if (source->length <= 16 && !anyHighBit(source->data, source->length)) {
        return {SourceShape::kSingleBytes, source->length};
    }
    const std::int64_t characters =
        utf8CharsIfWellFormed(reinterpret_cast<const std::uint8_t*>(source->data), source->length);
    if (characters == source->length) return {SourceShape::kSingleBytes, characters};
    return {characters < 0 ? SourceShape::kOtherMultiByte : SourceShape::kWellFormedUtf8, characters};
}

std::int32_t ensureResultCapacity(StringValue* result, std::int64_t needed) {
    if (result->growPool == nullptr) {
        result->capacity = result->maxLength;
        return kStatusOk;
    }
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
