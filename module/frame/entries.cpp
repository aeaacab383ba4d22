// Entry routines: each takes the session handle and sends the call to the
// byte path, or, when argument 1 holds a character of more than one byte, to
// the UTF-8 path in UTF-8 sessions and to the multi-byte path otherwise or
// when the UTF-8 path declines the call. Only argument 1 decides, read once
// (in UTF-8 a glance at its high bits, then for a row holding one its check
// and count; sourceShapeOf for the rest): the paths take the answer and do
// not read it again to decide.
#include "module/frame/entries.h"

#include "module/charset/byte_vectors.h"
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

// A source holding a multi-byte character, with its character count from
// the one read (-1: not well-formed UTF-8).
template <Utf8Worker utf8, MultiByteWorker multiByte>
std::int32_t multiByteSource(ArgumentFrame* frame, double* number, EncodingHandle* h, std::int64_t characters) {
    std::int32_t status = kStatusOk;
    if (h->encodingId == kEncodingIdUtf8 && utf8(frame, number, h, characters, &status)) return status;
    return multiByte(frame, number, h, 0);
}

// A UTF-8 row of up to 128 bytes known to hold a byte above 0x7F.
template <Utf8Worker utf8, MultiByteWorker multiByte> [[gnu::noinline]]
std::int32_t shortUtf8Source(ArgumentFrame* frame, double* number, EncodingHandle* h, const StringValue* source) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(source->data);
    return multiByteSource<utf8, multiByte>(frame, number, h, utf8CharsIfWellFormedWide(data, source->length));
}

// Sources of more than 128 bytes, and those of other multi-byte sessions:
// read once, then the path.
template <NumericByteWorker bytes, Utf8Worker utf8, MultiByteWorker multiByte> [[gnu::noinline]]
std::int32_t longOrOtherSource(ArgumentFrame* frame, double* number, EncodingHandle* h, const StringValue* source) {
    const SourceShape shape = sourceShapeOf(h, source);
    if (shape.kind == SourceShape::kSingleBytes) return bytes(frame, number);
    return multiByteSource<utf8, multiByte>(frame, number, h, shape.characters);
}

// Each of the three below tells an ASCII row of UTF-8 and sends it on with
// nothing saved on the way: the paths that call anything are out of line.

// Rows of 17 to 128 bytes in UTF-8 where the processor has masked loads.
#if defined(__x86_64__)
template <NumericByteWorker bytes, Utf8Worker utf8, MultiByteWorker multiByte>
[[gnu::noinline, gnu::target("avx512bw,bmi2")]] std::int32_t maskedSource(ArgumentFrame* frame, double* number,
                                                                     EncodingHandle* h, const StringValue* source) {
    if (!highBitUpTo128(source->data, source->length)) return bytes(frame, number);
    return shortUtf8Source<utf8, multiByte>(frame, number, h, source);
}
#endif

// Rows of 17 bytes and more otherwise.
template <NumericByteWorker bytes, Utf8Worker utf8, MultiByteWorker multiByte> [[gnu::noinline]]
std::int32_t longerSource(ArgumentFrame* frame, double* number, EncodingHandle* h, const StringValue* source) {
    if (h->encodingId == kEncodingIdUtf8 && source->length <= 128) {
        if (!highBitInShort(source->data, source->length)) return bytes(frame, number);
        return shortUtf8Source<utf8, multiByte>(frame, number, h, source);
    }
    return longOrOtherSource<bytes, utf8, multiByte>(frame, number, h, source);
}

// A null argument 1 counts as nothing found, although the host always
// passes given arguments. Single-byte sessions and rows of up to 16 bytes
// are told here.
template <NumericByteWorker bytes, Utf8Worker utf8, MultiByteWorker multiByte>
std::int32_t numericEntryWith(ArgumentFrame* frame, double* number, EncodingHandle* h);

// A session whose handle is not cached: opened here, out of line, so that
// the entries save nothing on the way when it is.
template <NumericByteWorker bytes, Utf8Worker utf8, MultiByteWorker multiByte> [[gnu::noinline]]
std::int32_t numericEntryOpening(ArgumentFrame* frame, double* number) {
    return numericEntryWith<bytes, utf8, multiByte>(frame, number, sessionHandle());
}

template <NumericByteWorker bytes, Utf8Worker utf8, MultiByteWorker multiByte>
std::int32_t numericEntry(ArgumentFrame* frame, void* result) {
    auto* number = static_cast<double*>(result);
    EncodingHandle* h = cachedSessionHandle();
    if (h == nullptr) return numericEntryOpening<bytes, utf8, multiByte>(frame, number);
    return numericEntryWith<bytes, utf8, multiByte>(frame, number, h);
}

template <NumericByteWorker bytes, Utf8Worker utf8, MultiByteWorker multiByte>
[[gnu::always_inline]] inline std::int32_t numericEntryWith(ArgumentFrame* frame, double* number, EncodingHandle* h) {
    const StringValue* source = frame->string(1);
    if (source == nullptr) {
        *number = 0.0;
        return kStatusOk;
    }
    if (h->encodingKind == kSingleByteEncoding || source->data == nullptr || source->length <= 0) {
        return bytes(frame, number);
    }
    if (h->encodingId == kEncodingIdUtf8 && source->length <= 16) {
        if (!highBitInShort(source->data, source->length)) return bytes(frame, number);
        return shortUtf8Source<utf8, multiByte>(frame, number, h, source);
    }
#if defined(__x86_64__)
    if (h->encodingId == kEncodingIdUtf8 && source->length <= 128 && haveAvx512Bytes()) {
        return maskedSource<bytes, utf8, multiByte>(frame, number, h, source);
    }
#endif
    return longerSource<bytes, utf8, multiByte>(frame, number, h, source);
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

namespace {

// KSCANX when the session's handle is not cached (see numericEntryOpening).
[[gnu::noinline]] std::int32_t scanOpening(ArgumentFrame* frame, StringValue* result) {
    return scanCommon(frame, result, sessionHandle());
}

}  // namespace

std::int32_t kscanxFunctionEntry(ArgumentFrame* frame, void* result) {
    auto* text = static_cast<StringValue*>(result);
    if (frame->string(1) == nullptr) return storeBlank(text);
    EncodingHandle* h = cachedSessionHandle();
    return h != nullptr ? scanCommon(frame, text, h) : scanOpening(frame, text);
}
std::int32_t kscanxCallEntry(ArgumentFrame* frame, void*) {
    EncodingHandle* h = cachedSessionHandle();
    return h != nullptr ? scanCommon(frame, nullptr, h) : scanOpening(frame, nullptr);
}

}  // namespace txscan
