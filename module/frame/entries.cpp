// Entry routines and their adapters: each entry builds the per-call record
// with the session handle; its adapter sends the call to the byte path, or,
// when argument 1 holds a character of more than one byte, to the UTF-8 path
// in UTF-8 sessions and to the multi-byte path otherwise or when the UTF-8
// path declines the call. Only argument 1 decides, read once: the search
// functions' paths take the answer and do not read it again to decide.
#include "module/frame/entries.h"

#include "module/frame/encoding_ops.h"
#include "module/frame/workers.h"

namespace txscan {

using namespace contract;

namespace {

using Adapter = std::int32_t (*)(ArgumentFrame*, void*, PerCallRecord*);
constexpr SearchMode kFirst = SearchMode::kFirst;
constexpr SearchMode kCount = SearchMode::kCount;

template <Adapter adapter>
std::int32_t entry(ArgumentFrame* frame, void* result) {
    PerCallRecord record{};
    record.word[kPerCallHandleWord] = sessionHandle();
    return adapter(frame, result, &record);
}

EncodingHandle* handleOf(PerCallRecord* record) {
    return static_cast<EncodingHandle*>(record->word[kPerCallHandleWord]);
}

using NumericByteWorker = std::int32_t (*)(ArgumentFrame*, double*);
using NumericMultiByteWorker = std::int32_t (*)(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);
using WordMultiByteWorker = std::int32_t (*)(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t, PerCallRecord*);
// The UTF-8 paths take the source's character count from the one read.
using Utf8Worker = bool (*)(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);

// The word workers' multi-byte paths also take the call's record.
std::int32_t runMultiByte(NumericMultiByteWorker worker, ArgumentFrame* frame, double* number, EncodingHandle* h,
                          PerCallRecord*) {
    return worker(frame, number, h, 0);
}
std::int32_t runMultiByte(WordMultiByteWorker worker, ArgumentFrame* frame, double* number, EncodingHandle* h,
                          PerCallRecord* record) {
    return worker(frame, number, h, 0, record);
}

// A null argument 1 counts as nothing found, although the host always
// passes given arguments.
template <NumericByteWorker bytes, Utf8Worker utf8, auto multiByte>
std::int32_t numericAdapter(ArgumentFrame* frame, void* result, PerCallRecord* record) {
    auto* number = static_cast<double*>(result);
    const StringValue* source = frame->string(1);
    if (source == nullptr) {
        *number = 0.0;
        return kStatusOk;
    }
    EncodingHandle* h = handleOf(record);
    const SourceShape shape = sourceShapeOf(h, source);
    if (shape.kind == SourceShape::kSingleBytes) return bytes(frame, number);
    std::int32_t status = kStatusOk;
    if (h->encodingId == kEncodingIdUtf8 && utf8(frame, number, h, shape.characters, &status)) return status;
    return runMultiByte(multiByte, frame, number, h, record);
}

std::int32_t scanFunctionAdapter(ArgumentFrame* frame, void* result, PerCallRecord* record) {
    auto* text = static_cast<StringValue*>(result);
    if (frame->string(1) == nullptr) {
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
    return scanCommon(frame, text, handleOf(record), 0, record);
}

std::int32_t scanCallAdapter(ArgumentFrame* frame, void*, PerCallRecord* record) {
    return scanCommon(frame, nullptr, handleOf(record), 0, record);
}

}  // namespace

std::int32_t kcountxEntry(ArgumentFrame* frame, void* result) {
    return entry<numericAdapter<substringOnBytes<kCount>, substringUtf8<kCount>, substringMultiByte<kCount>>>(
        frame, result);
}
std::int32_t kcountcEntry(ArgumentFrame* frame, void* result) {
    return entry<numericAdapter<charSetOnBytes<kCount>, charSetUtf8<kCount>, charSetMultiByte<kCount>>>(frame, result);
}
std::int32_t kcountwEntry(ArgumentFrame* frame, void* result) {
    return entry<numericAdapter<countWordsBytes, countWordsUtf8, countWordsMultiByte>>(frame, result);
}
std::int32_t kfindEntry(ArgumentFrame* frame, void* result) {
    return entry<numericAdapter<substringOnBytes<kFirst>, substringUtf8<kFirst>, substringMultiByte<kFirst>>>(
        frame, result);
}
std::int32_t kfindcEntry(ArgumentFrame* frame, void* result) {
    return entry<numericAdapter<charSetOnBytes<kFirst>, charSetUtf8<kFirst>, charSetMultiByte<kFirst>>>(frame, result);
}
std::int32_t kfindwEntry(ArgumentFrame* frame, void* result) {
    return entry<numericAdapter<findWordBytes, findWordUtf8, findWordMultiByte>>(frame, result);
}
std::int32_t kscanxFunctionEntry(ArgumentFrame* frame, void* result) {
    return entry<scanFunctionAdapter>(frame, result);
}
std::int32_t kscanxCallEntry(ArgumentFrame* frame, void* result) {
    return entry<scanCallAdapter>(frame, result);
}

}  // namespace txscan
