// The session's encoding as the module sees it: the multi-byte tests that
// choose a path, cursor layout, and growing a character result.
#include <cstring>

#include "module/charset/utf8_text.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"

namespace txscan {

using namespace contract;

namespace {

// Whether one of n bytes (1 to 16) has its top bit set, which in UTF-8 is
// whether they hold a multi-byte character: two loads that may overlap
// cover them, with no loop to set up on the shortest rows.
bool highBitInShort(const char* p, std::int64_t n) {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    if (n >= 8) {
        std::memcpy(&first, p, 8);
        std::memcpy(&last, p + n - 8, 8);
    } else if (n >= 4) {
        std::uint32_t a, b;
        std::memcpy(&a, p, 4);
        std::memcpy(&b, p + n - 4, 4);
        first = a;
        last = b;
    } else {
        first = static_cast<unsigned char>(p[0]) | static_cast<unsigned char>(p[n / 2]) << 8;
        last = static_cast<unsigned char>(p[n - 1]);
    }
    return ((first | last) & 0x8080808080808080ull) != 0;
}

}  // namespace

SourceShape sourceShapeOf(const EncodingHandle* h, const StringValue* source) {
    if (h->encodingKind == kSingleByteEncoding || source->data == nullptr || source->length <= 0) {
        return {SourceShape::kSingleBytes, source->length};
    }
    if (h->encodingId != kEncodingIdUtf8) {
        // A multi-byte character makes fewer characters than bytes.
        std::int64_t count = 0;
        if (enc::countChars(const_cast<EncodingHandle*>(h), source->data, source->length, &count) != 0 ||
            count >= source->length) {
            return {SourceShape::kSingleBytes, source->length};
        }
        return {SourceShape::kOtherMultiByte, -1};
    }
    // One pass answers all three questions: ASCII when every byte is a
    // character. A short row is mostly ASCII, told by its high bits alone.
    if (source->length <= 16 && !highBitInShort(source->data, source->length)) {
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
