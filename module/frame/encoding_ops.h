// Typed calls of the session EncodingHandle's numbered operations, the
// session-handle lookup and the cursor layout every multi-byte path uses.
#pragma once

#include <cstdint>

#include "module/abi/encoding.h"
#include "module/frame/module_state.h"

namespace txscan {

using contract::EncodingHandle;
using contract::TextCursor;

// The session's handle: the service's cached one, else a fresh openHandle.
// Never stored here: caching is the host's business. Inline: every call of
// every entry asks it first.
inline EncodingHandle* cachedSessionHandle() {
    return static_cast<contract::EncodingService*>(kernelWord(contract::kKernelEncodingService))->cachedSessionHandle;
}
inline EncodingHandle* sessionHandle() {
    auto* service = static_cast<contract::EncodingService*>(kernelWord(contract::kKernelEncodingService));
    if (service->cachedSessionHandle != nullptr) return service->cachedSessionHandle;
    std::int64_t status = 0;
    return service->openHandle(service, contract::kSessionHandleName, contract::kSessionHandleNameLength, &status);
}

template <typename Fn>
inline Fn handleOp(const EncodingHandle* h, int word) {
    return reinterpret_cast<Fn>(h->at(word));
}

namespace enc {
using namespace contract;

inline std::int64_t charLength(EncodingHandle* h, TextCursor* c) {
    std::int64_t length = 0;
    handleOp<op::CharLength>(h, kOpCharLength)(h, c, 0, &length);
    return length;
}
inline std::int64_t findChar(EncodingHandle* h, TextCursor* list, TextCursor* character) {
    return handleOp<op::FindChar>(h, kOpFindChar)(h, list, character, 1, 0);
}
inline void toLowerChar(EncodingHandle* h, TextCursor* character) {
    handleOp<op::FoldChar>(h, kOpToLowerChar)(h, character, 1, 0);
}
inline void toUpperChar(EncodingHandle* h, TextCursor* character) {
    handleOp<op::FoldChar>(h, kOpToUpperChar)(h, character, 1, 0);
}
inline std::int32_t seekChars(EncodingHandle* h, TextCursor* c, std::int32_t whence, std::int64_t count) {
    return handleOp<op::SeekChars>(h, kOpSeekChars)(h, c, whence, count, 0);
}
inline std::int32_t nextChar(EncodingHandle* h, TextCursor* c) {
    return handleOp<op::NextChar>(h, kOpNextChar)(h, c, 0);
}
inline std::int32_t compareAt(EncodingHandle* h, TextCursor* c, TextCursor* search, std::int64_t searchLength,
                              std::int32_t flags) {
    return handleOp<op::CompareAt>(h, kOpCompareAt)(h, c, search, searchLength, flags);
}
inline std::int32_t currentChar(EncodingHandle* h, TextCursor* c, TextCursor* character) {
    std::int64_t scratch = 0;
    return handleOp<op::CurrentChar>(h, kOpCurrentChar)(h, c, character, 1, &scratch, 0);
}
inline std::int64_t trimmedLength(EncodingHandle* h, TextCursor* c) {
    return handleOp<op::TrimmedLength>(h, kOpTrimmedLength)(h, c, 0, 0);
}
inline std::int64_t byteOffsetOf(EncodingHandle* h, TextCursor* c, std::int64_t charIndex) {
    return handleOp<op::ByteOffsetOf>(h, kOpByteOffsetOf)(h, c, charIndex, 0);
}
inline std::int32_t countChars(EncodingHandle* h, const char* data, std::int64_t length, std::int64_t* count) {
    return handleOp<op::CountChars>(h, kOpCountChars)(h, data, length, 0, count);
}
inline bool skipModifierText(EncodingHandle* h, const char* data, std::int64_t length) {
    return handleOp<op::SkipModifierText>(h, kOpSkipModifierText)(h, data, length, 0) != 0;
}
inline std::int32_t copyWholeChars(EncodingHandle* h, const char* source, std::int64_t sourceBytes, char* destination,
                                   std::int64_t capacity, std::int64_t* copied) {
    return handleOp<op::CopyWholeChars>(h, kOpCopyWholeChars)(h, source, sourceBytes, destination, capacity, copied, 1);
}
inline std::int64_t blankTrimmedBytes(EncodingHandle* h, const char* data, std::int64_t length) {
    return handleOp<op::BlankTrimmedBytes>(h, kOpBlankTrimmedBytes)(h, data, length, 0);
}
inline bool classTest(EncodingHandle* h, int word, TextCursor* c, std::int32_t mask, std::int32_t which = 0) {
    return handleOp<op::ClassTest>(h, word)(h, c, which, mask) != 0;
}
inline bool caseTest(EncodingHandle* h, TextCursor* character, std::int32_t mode) {
    return handleOp<op::CaseTest>(h, kOpCaseTest)(h, character, 1, mode) != 0;
}
}  // namespace enc

// Lays out a cursor over text[0..length) and positions it at the start when
// the encoding needs that.
void setupCursor(EncodingHandle* h, TextCursor* cursor, const char* text, std::int64_t length);

// A cursor over a one-character buffer of kCharBufferBytes.
struct CharBufferCursor {
    char buffer[contract::kCharBufferBytes];
    TextCursor cursor;
};
void setupCharCursor(EncodingHandle* h, CharBufferCursor* c);

}  // namespace txscan
