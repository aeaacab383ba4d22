// The host's character-encoding object: the EncodingService of the session,
// the EncodingHandle with its fields and numbered operations, and the
// TextCursor the module lays out for the handle to move and read.
#pragma once

#include <cstddef>
#include <cstdint>

namespace txscan::contract {

struct EncodingHandle;

// Laid out by the module; fields from byte 32 on belong to the handle.
struct TextCursor {
    const char* text;             // first byte
    std::int64_t length;          // bytes
    std::int64_t remaining;       // bytes (module sets it to length)
    std::int32_t offset;          // module sets 0
    std::int32_t state;           // 0, or kCursorEmpty when length is 0
    std::int32_t limit;           // handle's cursorLimit, or kCursorEmpty when it equals length
    std::int32_t mark;            // -1
    std::uint8_t hostState[12];   // zero
    std::uint8_t reserved52[4];
    std::int64_t word56;          // 0
    std::uint8_t reserved64[4];
    std::uint8_t byte68;          // 0
    std::uint8_t reserved69[3];
};
static_assert(sizeof(TextCursor) == 72);
static_assert(offsetof(TextCursor, length) == 8);
static_assert(offsetof(TextCursor, remaining) == 16);
static_assert(offsetof(TextCursor, offset) == 24);
static_assert(offsetof(TextCursor, state) == 28);
static_assert(offsetof(TextCursor, limit) == 32);
static_assert(offsetof(TextCursor, mark) == 36);
static_assert(offsetof(TextCursor, hostState) == 40);
static_assert(offsetof(TextCursor, word56) == 56);
static_assert(offsetof(TextCursor, byte68) == 68);

inline constexpr std::int32_t kCursorEmpty = -9;
inline constexpr std::int64_t kCharBufferBytes = 32;  // one-character cursors

enum EncodingKind : std::int32_t {
    kSingleByteEncoding = 0,
    kUnpositionedCursors = 3,  // any other value: seekChars after setup
};
inline constexpr std::uint32_t kEncodingIdUtf8 = 20;

enum SeekWhence : std::int32_t {
    kSeekFromStart = 0,
    kSeekFromCurrent = -999,
};
inline constexpr std::int32_t kSeekOutside = -99;

enum CompareFlags : std::int32_t {
    kCompareExact = 0,
    kCompareCaseless = 2,
};
enum CaseTestMode : std::int32_t {
    kIsUpper = 1,
    kIsLower = 2,
};

// Transcoder object: word 4 converts UTF-16 into the session encoding.
using TranscodeFn = std::int32_t (*)(void* transcoder, const char16_t* source, std::int64_t sourceBytes,
                                     char* destination, std::int64_t destinationCapacity,
                                     std::int64_t* destinationLength, std::int32_t zero);
struct Transcoder {
    void* reserved0[4];
    TranscodeFn transcode;
};
static_assert(offsetof(Transcoder, transcode) == 4 * 8);

// Signatures of the handle operations; every one takes the handle first.
namespace op {
using CharLength = std::int32_t (*)(EncodingHandle*, TextCursor*, std::int32_t, std::int64_t* length);
using FindChar = std::int64_t (*)(EncodingHandle*, TextCursor* list, TextCursor* character, std::int32_t one, std::int32_t zero);
using FoldChar = std::int32_t (*)(EncodingHandle*, TextCursor* character, std::int32_t one, std::int32_t zero);
using SeekChars = std::int32_t (*)(EncodingHandle*, TextCursor*, std::int32_t whence, std::int64_t count, std::int32_t zero);
using NextChar = std::int32_t (*)(EncodingHandle*, TextCursor*, std::int32_t zero);
using CompareAt = std::int32_t (*)(EncodingHandle*, TextCursor*, TextCursor* search, std::int64_t searchLength, std::int32_t flags);
using CurrentChar = std::int32_t (*)(EncodingHandle*, TextCursor*, TextCursor* character, std::int32_t one, std::int64_t* scratch, std::int32_t zero);
using TrimmedLength = std::int64_t (*)(EncodingHandle*, TextCursor*, std::int32_t zero, std::int32_t zero2);
using ByteOffsetOf = std::int64_t (*)(EncodingHandle*, TextCursor*, std::int64_t charIndex, std::int32_t zero);
using CountChars = std::int32_t (*)(EncodingHandle*, const char* data, std::int64_t length, std::int32_t zero, std::int64_t* count);
using SkipModifierText = std::int32_t (*)(EncodingHandle*, const char* data, std::int64_t length, std::int32_t zero);
using CopyWholeChars = std::int32_t (*)(EncodingHandle*, const char* source, std::int64_t sourceBytes, char* destination,
                                        std::int64_t destinationCapacity, std::int64_t* copiedBytes, std::int32_t one);
using BlankTrimmedBytes = std::int64_t (*)(EncodingHandle*, const char* data, std::int64_t length, std::int32_t zero);
using ClassTest = std::int32_t (*)(EncodingHandle*, TextCursor*, std::int32_t which, std::int32_t mask);
using CaseTest = std::int32_t (*)(EncodingHandle*, TextCursor* character, std::int32_t one, std::int32_t mode);
}  // namespace op

// Word indices of the handle's operations.
enum HandleWord : int {
    kOpCharLength = 6,
    kOpFindChar = 9,
    kOpToLowerChar = 11,
    kOpToUpperChar = 12,
    kOpSeekChars = 19,
    kOpNextChar = 20,
    kOpCompareAt = 24,
    kOpCurrentChar = 38,
    kOpTrimmedLength = 39,
    kOpByteOffsetOf = 40,
    kOpCountChars = 48,
    kOpSkipModifierText = 50,
    kOpCopyWholeChars = 63,
    kOpBlankTrimmedBytes = 64,
    kOpClassTestAlpha = 73,     // masks 0x103 (which 1), 0x10, 0x337
    kOpCaseTest = 74,
    kOpClassTestCtlDigit = 75,  // masks 0x40, 0x04
    kOpClassTestSpace = 76,     // mask 0x28
    kOpClassTestHex = 77,       // mask 0x80
    kOpClassTestGraphic = 78,   // mask 0x317
    kHandleTranscoderWord = 117,
};
inline constexpr int kHandleWords = 120;

// One per session encoding; the module only reads it.
struct EncodingHandle {
    std::uint64_t hostPrivate[4];
    std::uint32_t encodingId;     // byte 32: kEncodingIdUtf8 for UTF-8
    std::int32_t cursorLimit;     // byte 36: copied into every new cursor
    std::int32_t encodingKind;    // byte 40: EncodingKind
    std::uint32_t hostPrivate44;
    void* word[kHandleWords - 6]; // word[w - 6] is handle word w

    void* at(int w) const { return word[w - 6]; }
    Transcoder* transcoder() const { return static_cast<Transcoder*>(at(kHandleTranscoderWord)); }
};
static_assert(offsetof(EncodingHandle, encodingId) == 32);
static_assert(offsetof(EncodingHandle, cursorLimit) == 36);
static_assert(offsetof(EncodingHandle, encodingKind) == 40);
static_assert(offsetof(EncodingHandle, word) == kOpCharLength * 8);
static_assert(offsetof(EncodingHandle, word) + (kHandleTranscoderWord - 6) * 8 == 117 * 8);

// EncodingService (kernel word 27): word 120 the cached session handle,
// word 123 openHandle.
using OpenHandleFn = EncodingHandle* (*)(void* service, const char16_t* name, std::int32_t three, std::int64_t* status);
struct EncodingService {
    void* reserved0[120];
    EncodingHandle* cachedSessionHandle;
    void* reserved121[2];
    OpenHandleFn openHandle;
};
static_assert(offsetof(EncodingService, cachedSessionHandle) == 120 * 8);
static_assert(offsetof(EncodingService, openHandle) == 123 * 8);

inline constexpr char16_t kSessionHandleName[] = u"RKO";
inline constexpr std::int32_t kSessionHandleNameLength = 3;

}  // namespace txscan::contract
