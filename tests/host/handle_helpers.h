// Calls of the EncodingHandle operations as the module makes them, and
// cursors laid out the way the module lays them out, for the host's own tests.
#pragma once

#include <cstring>
#include <string>

#include "host/host.h"

namespace hosttest {

using namespace txscan::contract;

template <typename Fn>
Fn op(EncodingHandle* h, int word) {
    return reinterpret_cast<Fn>(h->at(word));
}

// A cursor over `text`, laid out and positioned as the module does it.
inline void setupCursor(EncodingHandle* h, TextCursor* c, const char* text, std::int64_t length) {
    std::memset(c, 0, sizeof *c);
    c->text = text;
    c->length = length;
    c->remaining = length;
    c->state = length == 0 ? kCursorEmpty : 0;
    if (h->encodingKind != kSingleByteEncoding) {
        c->limit = h->cursorLimit == length ? kCursorEmpty : h->cursorLimit;
        c->mark = -1;
        if (h->encodingKind != kUnpositionedCursors) op<op::SeekChars>(h, kOpSeekChars)(h, c, kSeekFromStart, 0, 0);
    }
}

struct Cursor {
    std::string text;
    TextCursor cursor{};
    Cursor(EncodingHandle* h, std::string t) : text(std::move(t)) {
        setupCursor(h, &cursor, text.data(), static_cast<std::int64_t>(text.size()));
    }
    Cursor(const Cursor&) = delete;
    TextCursor* operator->() { return &cursor; }
    TextCursor* get() { return &cursor; }
};

struct CharCursor {
    char buffer[kCharBufferBytes] = {};
    TextCursor cursor{};
    explicit CharCursor(EncodingHandle* h) { setupCursor(h, &cursor, buffer, kCharBufferBytes); }
    CharCursor(const CharCursor&) = delete;
    std::string held() const { return std::string(buffer, static_cast<std::size_t>(cursor.length)); }
    TextCursor* get() { return &cursor; }
};

inline std::int64_t charLength(EncodingHandle* h, TextCursor* c) {
    std::int64_t n = -1;
    op<op::CharLength>(h, kOpCharLength)(h, c, 0, &n);
    return n;
}
inline std::int32_t seek(EncodingHandle* h, TextCursor* c, std::int32_t whence, std::int64_t count) {
    return op<op::SeekChars>(h, kOpSeekChars)(h, c, whence, count, 0);
}
inline std::int32_t next(EncodingHandle* h, TextCursor* c) { return op<op::NextChar>(h, kOpNextChar)(h, c, 0); }
inline std::int32_t compareAt(EncodingHandle* h, TextCursor* c, TextCursor* s, std::int64_t n, std::int32_t flags) {
    return op<op::CompareAt>(h, kOpCompareAt)(h, c, s, n, flags);
}
inline std::int32_t currentChar(EncodingHandle* h, TextCursor* c, TextCursor* character) {
    std::int64_t scratch = 0;
    return op<op::CurrentChar>(h, kOpCurrentChar)(h, c, character, 1, &scratch, 0);
}
inline std::int64_t findChar(EncodingHandle* h, TextCursor* list, TextCursor* character) {
    return op<op::FindChar>(h, kOpFindChar)(h, list, character, 1, 0);
}
inline std::int32_t toUpper(EncodingHandle* h, TextCursor* character) {
    return op<op::FoldChar>(h, kOpToUpperChar)(h, character, 1, 0);
}
inline std::int32_t toLower(EncodingHandle* h, TextCursor* character) {
    return op<op::FoldChar>(h, kOpToLowerChar)(h, character, 1, 0);
}
inline std::int64_t trimmedLength(EncodingHandle* h, TextCursor* c) {
    return op<op::TrimmedLength>(h, kOpTrimmedLength)(h, c, 0, 0);
}
inline std::int64_t byteOffsetOf(EncodingHandle* h, TextCursor* c, std::int64_t index) {
    return op<op::ByteOffsetOf>(h, kOpByteOffsetOf)(h, c, index, 0);
}
inline std::int32_t countChars(EncodingHandle* h, const std::string& s, std::int64_t* n) {
    return op<op::CountChars>(h, kOpCountChars)(h, s.data(), static_cast<std::int64_t>(s.size()), 0, n);
}
inline bool skipModifierText(EncodingHandle* h, const std::string& s) {
    return op<op::SkipModifierText>(h, kOpSkipModifierText)(h, s.data(), static_cast<std::int64_t>(s.size()), 0) != 0;
}
inline std::int32_t copyWholeChars(EncodingHandle* h, const std::string& s, char* out, std::int64_t capacity,
                                   std::int64_t* copied) {
    return op<op::CopyWholeChars>(h, kOpCopyWholeChars)(h, s.data(), static_cast<std::int64_t>(s.size()), out,
                                                        capacity, copied, 1);
}
inline std::int64_t blankTrimmedBytes(EncodingHandle* h, const std::string& s) {
    return op<op::BlankTrimmedBytes>(h, kOpBlankTrimmedBytes)(h, s.data(), static_cast<std::int64_t>(s.size()), 0);
}
inline bool classTest(EncodingHandle* h, int word, TextCursor* c, std::int32_t mask, std::int32_t which = 0) {
    return op<op::ClassTest>(h, word)(h, c, which, mask) != 0;
}
inline bool caseTest(EncodingHandle* h, TextCursor* character, std::int32_t mode) {
    return op<op::CaseTest>(h, kOpCaseTest)(h, character, 1, mode) != 0;
}

}  // namespace hosttest
