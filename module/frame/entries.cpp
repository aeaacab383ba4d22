// Entry routines: each takes the session handle and sends the call to the
// byte path, or, when argument 1 holds a character of more than one byte, to
// the UTF-8 path in UTF-8 sessions and to the multi-byte path otherwise or
// when the UTF-8 path declines the call. Only argument 1 decides, read once
// (sourceShapeOf): the paths take the answer and do not read it again to
// decide.
#include "module/frame/entries.h"

#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"

namespace txscan {

using namespace contract;

namespace {

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
    const SourceShape shape = sourceShapeOf(h, source);
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
    auto* text = static_cast<StringValue*>(result);
    return frame->string(1) != nullptr ? scanCommon(frame, text, sessionHandle(), 0) : storeBlank(text);
}
std::int32_t kscanxCallEntry(ArgumentFrame* frame, void*) { return scanCommon(frame, nullptr, sessionHandle(), 0); }

}  // namespace txscan
