// Entry routines: each takes the session handle and sends the call to the
// byte path, or, when argument 1 holds a character of more than one byte, to
// the UTF-8 path in UTF-8 sessions and to the multi-byte path otherwise or
// when the UTF-8 path declines the call. Only argument 1 decides, read once
// (sourceShapeOf, here so that the entries inline it): the search functions'
// paths take the answer and do not read it again to decide.
#include "module/frame/entries.h"

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

// sourceShapeOf, inlined into every entry: on short rows its call showed.
[[gnu::always_inline]] inline SourceShape shapeOf(const EncodingHandle* h, const StringValue* source) {
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

constexpr SearchMode kFirst = SearchMode::kFirst;
constexpr SearchMode kCount = SearchMode::kCount;

using NumericByteWorker = std::int32_t (*)(ArgumentFrame*, double*);
// The UTF-8 paths take the source's character count from the one read.
using Utf8Worker = bool (*)(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);
using MultiByteWorker = std::int32_t (*)(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);

// A null argument 1 counts as nothing found, although the host always
// passes given arguments.
template <NumericByteWorker bytes, Utf8Worker utf8, MultiByteWorker multiByte>
std::int32_t numericEntry(ArgumentFrame* frame, void* result) {
    EncodingHandle* h = sessionHandle();
    auto* number = static_cast<double*>(result);
    const StringValue* source = frame->string(1);
    if (source == nullptr) {
        *number = 0.0;
        return kStatusOk;
    }
    const SourceShape shape = shapeOf(h, source);
    if (shape.kind == SourceShape::kSingleBytes) return bytes(frame, number);
    std::int32_t status = kStatusOk;
    if (h->encodingId == kEncodingIdUtf8 && utf8(frame, number, h, shape.characters, &status)) return status;
    return multiByte(frame, number, h, 0);
}

// KFIND and KCOUNTX, KFINDC and KCOUNTC: one mode each.
template <SearchMode Mode>
std::int32_t substringEntry(ArgumentFrame* frame, void* result) {
    return numericEntry<substringOnBytes<Mode>, substringUtf8<Mode>, substringMultiByte<Mode>>(frame, result);
}
template <SearchMode Mode>
std::int32_t charSetEntry(ArgumentFrame* frame, void* result) {
    return numericEntry<charSetOnBytes<Mode>, charSetUtf8<Mode>, charSetMultiByte<Mode>>(frame, result);
}

}  // namespace

SourceShape sourceShapeOf(const EncodingHandle* h, const StringValue* source) { return shapeOf(h, source); }

std::int32_t kcountxEntry(ArgumentFrame* frame, void* result) { return substringEntry<kCount>(frame, result); }
std::int32_t kfindEntry(ArgumentFrame* frame, void* result) { return substringEntry<kFirst>(frame, result); }
std::int32_t kcountcEntry(ArgumentFrame* frame, void* result) { return charSetEntry<kCount>(frame, result); }
std::int32_t kfindcEntry(ArgumentFrame* frame, void* result) { return charSetEntry<kFirst>(frame, result); }
std::int32_t kcountwEntry(ArgumentFrame* frame, void* result) {
    return numericEntry<countWordsBytes, countWordsUtf8, countWordsMultiByte>(frame, result);
}
std::int32_t kfindwEntry(ArgumentFrame* frame, void* result) {
    return numericEntry<findWordBytes, findWordUtf8, findWordMultiByte>(frame, result);
}

std::int32_t kscanxFunctionEntry(ArgumentFrame* frame, void* result) {
    EncodingHandle* h = sessionHandle();
    auto* text = static_cast<StringValue*>(result);
    if (frame->string(1) != nullptr) return scanCommon(frame, text, h, 0);
    // One blank, the answer for an absent string.
    // A receiving variable too short for it gets the blank cut away.
    std::int32_t status = ensureResultCapacity(text, 1);
    if (status != kStatusOk) return status;
    text->length = 0;
    if (text->capacity >= 1 && text->data != nullptr) {
        text->data[0] = ' ';
        text->length = 1;
    }
    return kStatusOk;
}
std::int32_t kscanxCallEntry(ArgumentFrame* frame, void*) {
    return scanCommon(frame, nullptr, sessionHandle(), 0);
}

}  // namespace txscan
