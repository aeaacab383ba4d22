// The session encodings: codecs, byte tables, and the numbered operations of
// the EncodingHandle (see host/encoding.h for the character and cursor model
// every operation follows). What needs Unicode data or a code-page table
// comes from the platform's encoding backend (host/encoding_backend.h).
#include "host/encoding.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/encoding_backend.h"

namespace txhost {

using namespace contract;
using backend::CodePoint;
using backend::kNoCodePoint;

// ---------------------------------------------------------------- codecs

namespace {

// The well-formed UTF-8 sequence at p (no overlongs, no surrogates, nothing
// above U+10FFFF) with its code point; a byte that starts none is a
// character of one byte without a code point.
struct Utf8Char {
    int length;
    CodePoint c;
};

inline Utf8Char utf8Read(const std::uint8_t* p, std::int64_t n) {
    const unsigned b = p[0];
    constexpr Utf8Char kLone{1, kNoCodePoint};
    if (b < 0x80) return {1, static_cast<CodePoint>(b)};
    auto trail = [p](int i) { return (p[i] & 0xC0) == 0x80; };
    if (b >= 0xC2 && b <= 0xDF) {
        if (n < 2 || !trail(1)) return kLone;
        return {2, static_cast<CodePoint>((b & 0x1F) << 6 | (p[1] & 0x3F))};
    }
    if (b >= 0xE0 && b <= 0xEF) {
        if (n < 3 || !trail(1) || !trail(2)) return kLone;
        const auto c = static_cast<CodePoint>((b & 0x0F) << 12 | (p[1] & 0x3F) << 6 | (p[2] & 0x3F));
        return c < 0x800 || (c >= 0xD800 && c <= 0xDFFF) ? kLone : Utf8Char{3, c};
    }
    if (b >= 0xF0 && b <= 0xF4) {
        if (n < 4 || !trail(1) || !trail(2) || !trail(3)) return kLone;
        const auto c =
            static_cast<CodePoint>((b & 0x07) << 18 | (p[1] & 0x3F) << 12 | (p[2] & 0x3F) << 6 | (p[3] & 0x3F));
        return c < 0x10000 || c > 0x10FFFF ? kLone : Utf8Char{4, c};
    }
    return kLone;
}

}  // namespace

// UTF-8, the encoding of nearly every multi-byte session, is read in line:
// a virtual call per character was a third of a class question's cost.
class Codec {
public:
    virtual ~Codec() = default;
    // Bytes (1..4) of the character that starts at p; n >= 1 bytes are readable.
    int charBytes(const std::uint8_t* p, std::int64_t n) const { return utf8_ ? utf8Read(p, n).length : readBytes(p, n); }
    // Code point of the character [p, p + length), or -1 when it has none.
    CodePoint decode(const std::uint8_t* p, int length) const {
        return utf8_ ? utf8Read(p, length).c : readCodePoint(p, length);
    }
    // Bytes of c in this encoding (at most 4), or 0 when c has no encoding.
    virtual int encode(CodePoint c, char* out) const = 0;
    // Start of the character that ends at `end` (> 0), or -1 when the encoding
    // cannot be read backwards (the caller then walks from the start).
    virtual std::int64_t previousStart(const std::uint8_t* text, std::int64_t end) const {
        (void)text;
        (void)end;
        return -1;
    }
    virtual bool singleByte() const { return false; }
    bool utf8() const { return utf8_; }

protected:
    explicit Codec(bool utf8 = false) : utf8_(utf8) {}
    virtual int readBytes(const std::uint8_t* p, std::int64_t n) const = 0;
    virtual CodePoint readCodePoint(const std::uint8_t* p, int length) const = 0;

private:
    bool utf8_;
};

namespace {

// The class bits of c as a character of more than one byte.
std::uint32_t wideClassBitsOf(CodePoint c) {
    const backend::CharacterProperties p = backend::propertiesOf(c);
    std::uint32_t bits = 0;
    if (p.upper) bits |= kClassUpper;
    if (p.lower) bits |= kClassLower;
    if (p.digit) bits |= kClassDigit;
    if (p.space) bits |= kClassSpace;
    if (p.punctuation) bits |= kClassPunct;
    if (p.blank) bits |= kClassBlank;
    if (p.control) bits |= kClassControl;
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f')) bits |= kClassHexDigit;
    if (p.alphabetic) {
        bits |= kClassWideAlpha;
    } else if (p.graphic) {
        bits |= kClassWideGraphic;
    }
    return bits;
}

// Nearly every class question of a session is about a character of the
// Basic Multilingual Plane; asking the backend's nine properties each time
// made the class answer the larger part of a character-set walk over CJK
// text. The plane's bits are worked out once per process (a few
// milliseconds) and read from then on; the rest of Unicode still asks.
constexpr CodePoint kTabledCodePoints = 0x10000;

const std::uint16_t* tabledClassBits() {
    static const std::vector<std::uint16_t> table = [] {
        std::vector<std::uint16_t> bits(kTabledCodePoints);
        for (CodePoint c = 0; c < kTabledCodePoints; ++c) bits[c] = static_cast<std::uint16_t>(wideClassBitsOf(c));
        return bits;
    }();
    return table.data();
}

// classBitsOf, in line for the handle's class and case questions.
inline std::uint32_t classBits(CodePoint c, int bytes) {
    if (c < 0) return 0;
    const std::uint32_t bits = c < kTabledCodePoints ? tabledClassBits()[c] : wideClassBitsOf(c);
    return bytes > 1 ? bits : bits & ~std::uint32_t{kClassWideAlpha | kClassWideGraphic};
}

}  // namespace

std::uint32_t classBitsOf(CodePoint c, int bytes) { return classBits(c, bytes); }

namespace {

// Each byte value decoded on its own; kNoCodePoint where the encoding reads
// the byte only as the start of a longer character.
void decodeSingleBytes(backend::Converter& converter, CodePoint (&single)[256], bool (*startsLonger)(std::uint8_t)) {
    for (int b = 0; b < 256; ++b) {
        const char byte = static_cast<char>(b);
        single[b] = startsLonger(static_cast<std::uint8_t>(b)) ? kNoCodePoint
                                                                : backend::decodeCharacter(converter, &byte, 1);
    }
}

class SingleByteCodec final : public Codec {
public:
    explicit SingleByteCodec(const char* name) {
        decodeSingleBytes(*backend::openConverter(name), toUnicode_, [](std::uint8_t) { return false; });
        for (int b = 0; b < 256; ++b) {
            if (toUnicode_[b] >= 0) fromUnicode_.emplace(toUnicode_[b], static_cast<std::uint8_t>(b));
        }
    }
    int readBytes(const std::uint8_t*, std::int64_t) const override { return 1; }
    CodePoint readCodePoint(const std::uint8_t* p, int) const override { return toUnicode_[*p]; }
    int encode(CodePoint c, char* out) const override {
        const auto found = fromUnicode_.find(c);
        if (found == fromUnicode_.end()) return 0;
        out[0] = static_cast<char>(found->second);
        return 1;
    }
    std::int64_t previousStart(const std::uint8_t*, std::int64_t end) const override { return end - 1; }
    bool singleByte() const override { return true; }

private:
    CodePoint toUnicode_[256];
    std::unordered_map<CodePoint, std::uint8_t> fromUnicode_;
};

class Utf8Codec final : public Codec {
public:
    Utf8Codec() : Codec(true) {}
    int readBytes(const std::uint8_t* p, std::int64_t n) const override { return utf8Read(p, n).length; }
    CodePoint readCodePoint(const std::uint8_t* p, int length) const override { return utf8Read(p, length).c; }
    int encode(CodePoint c, char* out) const override {
        if (c < 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
        if (c < 0x80) {
            out[0] = static_cast<char>(c);
            return 1;
        }
        if (c < 0x800) {
            out[0] = static_cast<char>(0xC0 | (c >> 6));
            out[1] = static_cast<char>(0x80 | (c & 0x3F));
            return 2;
        }
        if (c < 0x10000) {
            out[0] = static_cast<char>(0xE0 | (c >> 12));
            out[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out[2] = static_cast<char>(0x80 | (c & 0x3F));
            return 3;
        }
        out[0] = static_cast<char>(0xF0 | (c >> 18));
        out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out[3] = static_cast<char>(0x80 | (c & 0x3F));
        return 4;
    }
    // A lead byte never occurs inside a well-formed sequence, so a sequence
    // ending at `end` that is well formed is also what a forward walk finds;
    // otherwise the byte before `end` is a character of its own.
    std::int64_t previousStart(const std::uint8_t* text, std::int64_t end) const override {
        for (int length = 2; length <= 4; ++length) {
            if (end - length < 0) break;
            if (charBytes(text + end - length, length) == length) return end - length;
        }
        return end - 1;
    }
};

bool sjisLead(std::uint8_t b) { return (b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC); }
bool sjisTrail(std::uint8_t b) { return (b >= 0x40 && b <= 0x7E) || (b >= 0x80 && b <= 0xFC); }

class ShiftJisCodec final : public Codec {
public:
    explicit ShiftJisCodec(const char* name) : name_(name) {
        backend::ConverterPtr converter = backend::openConverter(name);
        decodeSingleBytes(*converter, single_, sjisLead);
        double_.assign(65536, -1);
        for (int lead = 0x81; lead <= 0xFC; ++lead) {
            if (!sjisLead(static_cast<std::uint8_t>(lead))) continue;
            for (int trail = 0x40; trail <= 0xFC; ++trail) {
                if (!sjisTrail(static_cast<std::uint8_t>(trail))) continue;
                const char pair[2] = {static_cast<char>(lead), static_cast<char>(trail)};
                double_[(lead << 8) | trail] = backend::decodeCharacter(*converter, pair, 2);
            }
        }
        for (int b = 255; b >= 0; --b) {
            if (single_[b] >= 0) fromUnicode_[single_[b]] = static_cast<std::uint16_t>(b);
        }
        // Where several pairs decode to one code point, prefer the pair the
        // converter itself writes (its round-trip mapping).
        for (std::size_t i = 0; i < double_.size(); ++i) {
            const CodePoint c = double_[i];
            if (c < 0 || fromUnicode_.count(c) != 0) continue;
            char out[4];
            if (backend::encodeCodePoint(*converter, c, out) == 2) {
                fromUnicode_[c] = static_cast<std::uint16_t>((static_cast<std::uint8_t>(out[0]) << 8) |
                                                             static_cast<std::uint8_t>(out[1]));
            }
        }
    }
    int readBytes(const std::uint8_t* p, std::int64_t n) const override {
        return n >= 2 && sjisLead(p[0]) && sjisTrail(p[1]) ? 2 : 1;
    }
    // A byte outside the lead range cannot begin a pair, so a character ends
    // with it: the walk to `end` can start right after the last such byte
    // instead of at the start of the text.
    std::int64_t previousStart(const std::uint8_t* text, std::int64_t end) const override {
        std::int64_t boundary = end - 1;
        while (boundary > 0 && sjisLead(text[boundary - 1])) --boundary;
        std::int64_t start = boundary;
        for (std::int64_t pos = boundary; pos < end;) {
            start = pos;
            pos += charBytes(text + pos, end - pos);
        }
        return start;
    }
    CodePoint readCodePoint(const std::uint8_t* p, int length) const override {
        return length == 2 ? double_[(p[0] << 8) | p[1]] : single_[p[0]];
    }
    int encode(CodePoint c, char* out) const override {
        const auto found = fromUnicode_.find(c);
        if (found == fromUnicode_.end()) return 0;
        if (found->second < 0x100) {
            out[0] = static_cast<char>(found->second);
            return 1;
        }
        out[0] = static_cast<char>(found->second >> 8);
        out[1] = static_cast<char>(found->second & 0xFF);
        return 2;
    }

private:
    std::string name_;
    CodePoint single_[256];
    std::vector<CodePoint> double_;
    std::unordered_map<CodePoint, std::uint16_t> fromUnicode_;
};

bool eucJapanese(std::uint8_t b) { return b >= 0xA1 && b <= 0xFE; }

// EUC-JP: JIS X 0208 as two bytes 0xA1-0xFE, half-width katakana as 0x8E and
// one byte 0xA1-0xDF, JIS X 0212 as 0x8F and two bytes 0xA1-0xFE; every
// other byte is one character (ASCII, or a byte that starts no sequence).
class EucJpCodec final : public Codec {
public:
    explicit EucJpCodec(const char* name) {
        backend::ConverterPtr converter = backend::openConverter(name);
        decodeSingleBytes(*converter, single_, [](std::uint8_t b) { return b >= 0x80; });
        for (int b = 0; b < 0x80; ++b) {
            if (single_[b] >= 0) remember(single_[b], static_cast<std::uint32_t>(b), 1);
        }
        double_.assign(65536, kNoCodePoint);
        triple_.assign(65536, kNoCodePoint);
        for (int lead = 0x8E; lead <= 0xFE; ++lead) {
            if (lead != 0x8E && !eucJapanese(static_cast<std::uint8_t>(lead))) continue;
            for (int trail = 0xA1; trail <= (lead == 0x8E ? 0xDF : 0xFE); ++trail) {
                const char pair[2] = {static_cast<char>(lead), static_cast<char>(trail)};
                const CodePoint c = backend::decodeCharacter(*converter, pair, 2);
                double_[(lead << 8) | trail] = c;
                if (c >= 0) remember(c, static_cast<std::uint32_t>((lead << 8) | trail), 2);
            }
        }
        for (int first = 0xA1; first <= 0xFE; ++first) {
            for (int second = 0xA1; second <= 0xFE; ++second) {
                const char bytes[3] = {static_cast<char>(0x8F), static_cast<char>(first), static_cast<char>(second)};
                const CodePoint c = backend::decodeCharacter(*converter, bytes, 3);
                triple_[(first << 8) | second] = c;
                if (c >= 0) remember(c, static_cast<std::uint32_t>(0x8F0000 | (first << 8) | second), 3);
            }
        }
    }
    int readBytes(const std::uint8_t* p, std::int64_t n) const override {
        const std::uint8_t b = p[0];
        if (b == 0x8E) return n >= 2 && p[1] >= 0xA1 && p[1] <= 0xDF ? 2 : 1;
        if (b == 0x8F) return n >= 3 && eucJapanese(p[1]) && eucJapanese(p[2]) ? 3 : 1;
        return eucJapanese(b) && n >= 2 && eucJapanese(p[1]) ? 2 : 1;
    }
    CodePoint readCodePoint(const std::uint8_t* p, int length) const override {
        switch (length) {
        case 1: return single_[p[0]];
        case 2: return double_[(p[0] << 8) | p[1]];
        case 3: return triple_[(p[1] << 8) | p[2]];
        default: return kNoCodePoint;
        }
    }
    int encode(CodePoint c, char* out) const override {
        const auto found = fromUnicode_.find(c);
        if (found == fromUnicode_.end()) return 0;
        const int length = found->second.length;
        for (int i = 0; i < length; ++i) out[i] = static_cast<char>(found->second.bytes >> (8 * (length - 1 - i)));
        return length;
    }
    // Every byte of a wide character has its top bit set, so a byte below
    // 0x80 ends a character: the walk to `end` starts right after the last one.
    std::int64_t previousStart(const std::uint8_t* text, std::int64_t end) const override {
        std::int64_t boundary = end - 1;
        while (boundary > 0 && text[boundary - 1] >= 0x80) --boundary;
        std::int64_t start = boundary;
        for (std::int64_t pos = boundary; pos < end;) {
            start = pos;
            pos += charBytes(text + pos, end - pos);
        }
        return start;
    }

private:
    struct Encoded {
        std::uint32_t bytes;
        int length;
    };
    // The first (shortest) bytes found for a code point are the ones written.
    void remember(CodePoint c, std::uint32_t bytes, int length) { fromUnicode_.emplace(c, Encoded{bytes, length}); }

    CodePoint single_[256];
    std::vector<CodePoint> double_;   // by (lead << 8) | trail, lead 0x8E or 0xA1-0xFE
    std::vector<CodePoint> triple_;   // 0x8F sequences, by (second << 8) | third
    std::unordered_map<CodePoint, Encoded> fromUnicode_;
};

const EncodingTraits kEncodings[] = {
    {"UTF-8", kEncodingIdUtf8, kUnpositionedCursors, true},
    {"ISO-8859-1", 1, kSingleByteEncoding, false},
    {"windows-1252", 2, kSingleByteEncoding, false},
    {"ISO-8859-15", 3, kSingleByteEncoding, false},
    // Any kind other than 0 and 3: the module positions every new cursor.
    {"Shift_JIS", 30, 2, true},
    {"EUC-JP", 31, 2, true},
};

// Codecs are immutable once built; sessions of one encoding share them.
std::shared_ptr<const Codec> codecFor(const EncodingTraits& traits) {
    static std::mutex mutex;
    static std::map<std::string, std::shared_ptr<const Codec>> codecs;
    std::lock_guard<std::mutex> lock(mutex);
    auto& codec = codecs[traits.name];
    if (!codec) {
        if (traits.encodingId == kEncodingIdUtf8) {
            codec = std::make_shared<Utf8Codec>();
        } else if (traits.encodingKind == kSingleByteEncoding) {
            codec = std::make_shared<SingleByteCodec>(traits.name);
        } else if (std::string_view(traits.name) == "EUC-JP") {
            codec = std::make_shared<EucJpCodec>(traits.name);
        } else {
            codec = std::make_shared<ShiftJisCodec>(traits.name);
        }
    }
    return codec;
}

// ---------------------------------------------------------------- cursors

struct Bytes {
    const std::uint8_t* p;
    std::int64_t n;
};

Bytes textOf(const TextCursor* c) {
    if (c == nullptr || c->text == nullptr || c->length <= 0) return {nullptr, 0};
    return {reinterpret_cast<const std::uint8_t*>(c->text), c->length};
}

struct Position {
    std::int64_t offset;
    std::int64_t index;
};

// The cursor's position; a cursor whose fields cannot describe a character
// of its text counts as being at the start.
Position positionOf(const TextCursor* c, std::int64_t n) {
    if (n <= 0 || c->state < 0 || c->offset < 0 || c->offset >= n || c->state > c->offset) return {0, 0};
    return {c->offset, c->state};
}

void place(TextCursor* c, Position p, std::int64_t n) {
    c->offset = static_cast<std::int32_t>(p.offset);
    c->state = static_cast<std::int32_t>(p.index);
    c->remaining = n - p.offset;
}

HandleObject& handleOf(EncodingHandle* h) { return HandleObject::from(h); }

// Out of line: the lock of a counting session would otherwise cost every
// operation its register saves, counting or not.
[[gnu::noinline]] void countOperation(Session::Impl& session, int word) {
    session.count([word](HostCounters& c) { ++c.handleOperations[word]; });
}

void count(EncodingHandle* h, int word) {
    Session::Impl& session = *handleOf(h).session;
    if (session.counting.load(std::memory_order_relaxed)) countOperation(session, word);
}

const Codec& codecOf(EncodingHandle* h) { return *handleOf(h).codec; }

std::int64_t countCharacters(const Codec& codec, Bytes t) {
    if (codec.singleByte()) return t.n;
    std::int64_t characters = 0;
    for (std::int64_t off = 0; off < t.n; ++characters) off += codec.charBytes(t.p + off, t.n - off);
    return characters;
}

// Moves c to character `target`; false (cursor unchanged) when there is none.
bool moveTo(const Codec& codec, TextCursor* c, std::int64_t target) {
    const Bytes t = textOf(c);
    if (t.n <= 0 || target < 0) return false;
    if (codec.singleByte()) {
        if (target >= t.n) return false;
        place(c, {target, target}, t.n);
        return true;
    }
    const Position current = positionOf(c, t.n);
    Position p{0, 0};
    if (target >= current.index) {
        p = current;
    } else if (current.index - target <= target) {
        // Closer to the cursor than to the start: step back when the encoding can.
        Position back = current;
        bool ok = true;
        while (back.index > target) {
            const std::int64_t start = codec.previousStart(t.p, back.offset);
            if (start < 0) {
                ok = false;
                break;
            }
            back = {start, back.index - 1};
        }
        if (ok) p = back;
    }
    while (p.index < target) {
        if (p.offset >= t.n) return false;
        p.offset += codec.charBytes(t.p + p.offset, t.n - p.offset);
        ++p.index;
    }
    if (p.offset >= t.n) return false;
    place(c, p, t.n);
    return true;
}

// The character a one-character cursor holds: the first character of its text.
struct Held {
    const std::uint8_t* p;
    int length;   // 0: none
};

Held heldOf(const Codec& codec, const TextCursor* c) {
    const Bytes t = textOf(c);
    if (t.n <= 0) return {nullptr, 0};
    return {t.p, codec.charBytes(t.p, t.n)};
}

struct At {
    const std::uint8_t* p;
    int length;   // 0: the cursor has no character
};

At characterAt(const Codec& codec, const TextCursor* c) {
    const Bytes t = textOf(c);
    if (t.n <= 0) return {nullptr, 0};
    const Position pos = positionOf(c, t.n);
    return {t.p + pos.offset, codec.charBytes(t.p + pos.offset, t.n - pos.offset)};
}

// The class bits of the character that starts at p, n bytes readable; 0
// without one. UTF-8 reads the character and its code point in one pass.
std::uint32_t classBitsAt(const Codec& codec, const std::uint8_t* p, std::int64_t n) {
    if (n <= 0) return 0;
    if (codec.utf8()) {
        const Utf8Char u = utf8Read(p, n);
        return classBits(u.c, u.length);
    }
    const int length = codec.charBytes(p, n);
    return classBits(codec.decode(p, length), length);
}

// ---------------------------------------------------------------- operations

std::int32_t opCharLength(EncodingHandle* h, TextCursor* c, std::int32_t, std::int64_t* length) {
    count(h, kOpCharLength);
    const std::int64_t characters = countCharacters(codecOf(h), textOf(c));
    if (length != nullptr) *length = characters;
    return 0;
}

std::int64_t opFindChar(EncodingHandle* h, TextCursor* list, TextCursor* character, std::int32_t, std::int32_t) {
    count(h, kOpFindChar);
    const Codec& codec = codecOf(h);
    const Held held = heldOf(codec, character);
    if (held.length == 0) return -1;
    const Bytes t = textOf(list);
    std::int64_t index = 0;
    for (std::int64_t off = 0; off < t.n; ++index) {
        const int length = codec.charBytes(t.p + off, t.n - off);
        if (length == held.length && std::memcmp(t.p + off, held.p, static_cast<std::size_t>(length)) == 0) {
            return index;
        }
        off += length;
    }
    return -1;
}

// Folds the held character in place; 0 when done (or nothing to change), 1
// when it has no code point or its image has no encoding (left unchanged).
std::int32_t foldHeld(EncodingHandle* h, TextCursor* character, bool upper) {
    const Codec& codec = codecOf(h);
    const Held held = heldOf(codec, character);
    if (held.length == 0) return 1;
    const CodePoint c = codec.decode(held.p, held.length);
    if (c < 0) return 1;
    const CodePoint image = upper ? backend::simpleUpper(c) : backend::simpleLower(c);
    if (image == c) return 0;
    char bytes[4];
    const int length = codec.encode(image, bytes);
    if (length == 0 || length > kCharBufferBytes) return 1;
    char* buffer = const_cast<char*>(character->text);
    std::memcpy(buffer, bytes, static_cast<std::size_t>(length));
    character->length = length;
    character->remaining = length;
    character->offset = 0;
    character->state = 0;
    return 0;
}

std::int32_t opToLowerChar(EncodingHandle* h, TextCursor* character, std::int32_t, std::int32_t) {
    count(h, kOpToLowerChar);
    return foldHeld(h, character, false);
}

std::int32_t opToUpperChar(EncodingHandle* h, TextCursor* character, std::int32_t, std::int32_t) {
    count(h, kOpToUpperChar);
    return foldHeld(h, character, true);
}

inline constexpr std::int32_t kBadWhence = -1;

std::int32_t opSeekChars(EncodingHandle* h, TextCursor* c, std::int32_t whence, std::int64_t amount, std::int32_t) {
    count(h, kOpSeekChars);
    const Bytes t = textOf(c);
    std::int64_t target = 0;
    if (whence == kSeekFromStart) {
        target = amount;
    } else if (whence == kSeekFromCurrent) {
        target = positionOf(c, t.n).index + amount;
    } else {
        return kBadWhence;
    }
    return moveTo(codecOf(h), c, target) ? 0 : kSeekOutside;
}

std::int32_t opNextChar(EncodingHandle* h, TextCursor* c, std::int32_t) {
    count(h, kOpNextChar);
    const Bytes t = textOf(c);
    if (t.n <= 0) return kCursorEmpty;
    Position p = positionOf(c, t.n);
    p.offset += codecOf(h).charBytes(t.p + p.offset, t.n - p.offset);
    if (p.offset >= t.n) return kCursorEmpty;
    ++p.index;
    place(c, p, t.n);
    return 0;
}

bool sameCharacter(const Codec& codec, const std::uint8_t* a, int la, const std::uint8_t* b, int lb, bool caseless) {
    if (la == lb && std::memcmp(a, b, static_cast<std::size_t>(la)) == 0) return true;
    if (!caseless) return false;
    const CodePoint ca = codec.decode(a, la);
    const CodePoint cb = codec.decode(b, lb);
    return ca >= 0 && cb >= 0 && backend::simpleFold(ca) == backend::simpleFold(cb);
}

// 0 when the searchLength characters of the search cursor's text, from its
// position, match the text at the cursor; 1 on a mismatch or when the text
// ends first; 2 when the search text has fewer characters than searchLength.
// An empty search (searchLength <= 0) never matches.
std::int32_t opCompareAt(EncodingHandle* h, TextCursor* c, TextCursor* search, std::int64_t searchLength,
                         std::int32_t flags) {
    count(h, kOpCompareAt);
    if (searchLength <= 0) return 1;
    const Codec& codec = codecOf(h);
    const bool caseless = (flags & kCompareCaseless) != 0;
    const Bytes t = textOf(c);
    const Bytes s = textOf(search);
    std::int64_t to = t.n > 0 ? positionOf(c, t.n).offset : 0;
    std::int64_t so = s.n > 0 ? positionOf(search, s.n).offset : 0;
    for (std::int64_t k = 0; k < searchLength; ++k) {
        if (so >= s.n) return 2;
        if (to >= t.n) return 1;
        const int lt = codec.charBytes(t.p + to, t.n - to);
        const int ls = codec.charBytes(s.p + so, s.n - so);
        if (!sameCharacter(codec, t.p + to, lt, s.p + so, ls, caseless)) return 1;
        to += lt;
        so += ls;
    }
    return 0;
}

std::int32_t opCurrentChar(EncodingHandle* h, TextCursor* c, TextCursor* character, std::int32_t,
                           std::int64_t* scratch, std::int32_t) {
    count(h, kOpCurrentChar);
    if (character == nullptr || character->text == nullptr) return kBadWhence;
    const At at = characterAt(codecOf(h), c);
    char* buffer = const_cast<char*>(character->text);
    character->offset = 0;
    character->state = 0;
    if (at.length == 0) {
        character->length = 0;
        character->remaining = 0;
        character->state = kCursorEmpty;
        return kCursorEmpty;
    }
    std::memcpy(buffer, at.p, static_cast<std::size_t>(at.length));
    character->length = at.length;
    character->remaining = at.length;
    if (scratch != nullptr) *scratch = at.length;
    return 0;
}

std::int64_t blankTrimmed(const char* data, std::int64_t length) {
    if (data == nullptr || length <= 0) return 0;
    while (length > 0 && data[length - 1] == ' ') --length;
    return length;
}

std::int64_t opTrimmedLength(EncodingHandle* h, TextCursor* c, std::int32_t, std::int32_t) {
    count(h, kOpTrimmedLength);
    Bytes t = textOf(c);
    t.n = blankTrimmed(reinterpret_cast<const char*>(t.p), t.n);
    return countCharacters(codecOf(h), t);
}

// Byte offset of character charIndex; the character count itself gives the
// length (the end of the text); -1 for an index outside 0..count.
std::int64_t opByteOffsetOf(EncodingHandle* h, TextCursor* c, std::int64_t charIndex, std::int32_t) {
    count(h, kOpByteOffsetOf);
    if (charIndex < 0) return -1;
    const Codec& codec = codecOf(h);
    const Bytes t = textOf(c);
    if (codec.singleByte()) return charIndex <= t.n ? charIndex : -1;
    std::int64_t off = 0;
    for (std::int64_t i = 0; i < charIndex; ++i) {
        if (off >= t.n) return -1;
        off += codec.charBytes(t.p + off, t.n - off);
    }
    return off;
}

// Status 0 for any text (an invalid byte counts as one character); 1 for a
// negative length, a null text of positive length or a null count.
std::int32_t opCountChars(EncodingHandle* h, const char* data, std::int64_t length, std::int32_t,
                          std::int64_t* result) {
    count(h, kOpCountChars);
    if (result == nullptr || length < 0 || (data == nullptr && length > 0)) {
        if (result != nullptr) *result = 0;
        return 1;
    }
    *result = countCharacters(codecOf(h), {reinterpret_cast<const std::uint8_t*>(data), length});
    return 0;
}

// The host always lets the module interpret modifier texts.
std::int32_t opSkipModifierText(EncodingHandle* h, const char*, std::int64_t, std::int32_t) {
    count(h, kOpSkipModifierText);
    return 0;
}

// Status 0 when the whole source was copied, 1 when it was cut at a
// character boundary, 2 for unusable arguments (nothing copied).
std::int32_t opCopyWholeChars(EncodingHandle* h, const char* source, std::int64_t sourceBytes, char* destination,
                              std::int64_t capacity, std::int64_t* copiedBytes, std::int32_t) {
    count(h, kOpCopyWholeChars);
    if (copiedBytes != nullptr) *copiedBytes = 0;
    if (sourceBytes <= 0) return sourceBytes == 0 ? 0 : 2;
    if (source == nullptr || (destination == nullptr && capacity > 0)) return 2;
    const Codec& codec = codecOf(h);
    const auto* p = reinterpret_cast<const std::uint8_t*>(source);
    std::int64_t off = 0;
    while (off < sourceBytes) {
        const int length = codec.charBytes(p + off, sourceBytes - off);
        if (off + length > capacity) break;
        off += length;
    }
    if (off > 0) std::memcpy(destination, source, static_cast<std::size_t>(off));
    if (copiedBytes != nullptr) *copiedBytes = off;
    return off == sourceBytes ? 0 : 1;
}

std::int64_t opBlankTrimmedBytes(EncodingHandle* h, const char* data, std::int64_t length, std::int32_t) {
    count(h, kOpBlankTrimmedBytes);
    return blankTrimmed(data, length);
}

// The five class-test words behave alike; `which` is not needed.
template <int Word>
std::int32_t opClassTest(EncodingHandle* h, TextCursor* c, std::int32_t, std::int32_t mask) {
    count(h, Word);
    const Bytes t = textOf(c);
    const std::int64_t off = t.n > 0 ? positionOf(c, t.n).offset : 0;
    return (classBitsAt(codecOf(h), t.p + off, t.n - off) & static_cast<std::uint32_t>(mask)) != 0 ? 1 : 0;
}

std::int32_t opCaseTest(EncodingHandle* h, TextCursor* character, std::int32_t, std::int32_t mode) {
    count(h, kOpCaseTest);
    const Bytes t = textOf(character);
    const std::uint32_t bits = classBitsAt(codecOf(h), t.p, t.n);
    if (mode == kIsUpper) return (bits & kClassUpper) != 0 ? 1 : 0;
    if (mode == kIsLower) return (bits & kClassLower) != 0 ? 1 : 0;
    return 0;
}

// UTF-16 -> session encoding. Status 0 when everything fit; 1 when the
// destination was too small (the whole characters that fit are written and
// counted); 2 on bad arguments or a conversion failure. Characters the
// session encoding lacks become its substitution character.
std::int32_t opTranscode(void* transcoder, const char16_t* source, std::int64_t sourceBytes, char* destination,
                         std::int64_t destinationCapacity, std::int64_t* destinationLength, std::int32_t) {
    auto* object = static_cast<TranscoderObject*>(transcoder);
    HandleObject& owner = *object->owner;
    owner.session->count([](HostCounters& c) { ++c.handleOperations[kHandleTranscoderWord]; });
    if (destinationLength != nullptr) *destinationLength = 0;
    if (sourceBytes < 0 || destinationCapacity < 0 || (source == nullptr && sourceBytes > 0) ||
        (destination == nullptr && destinationCapacity > 0) || sourceBytes / 2 > INT32_MAX) {
        return 2;
    }
    // Convert all of it, then keep whole characters: a converter may stop
    // a too-small target in the middle of a character.
    std::string converted;
    {
        // A converter keeps state between calls: one task at a time.
        std::lock_guard<std::mutex> lock(owner.converterMutex);
        if (!backend::fromUtf16(*owner.converter, source, sourceBytes / 2, converted)) return 2;
    }
    const Codec& codec = *owner.codec;
    const auto* p = reinterpret_cast<const std::uint8_t*>(converted.data());
    const auto total = static_cast<std::int64_t>(converted.size());
    std::int64_t kept = 0;
    while (kept < total) {
        const int length = codec.charBytes(p + kept, total - kept);
        if (kept + length > destinationCapacity) break;
        kept += length;
    }
    if (kept > 0) std::memcpy(destination, converted.data(), static_cast<std::size_t>(kept));
    if (destinationLength != nullptr) *destinationLength = kept;
    return kept == total ? 0 : 1;
}

template <typename Fn>
void setWord(EncodingHandle& handle, int word, Fn fn) {
    handle.word[word - kOpCharLength] = reinterpret_cast<void*>(fn);
}

}  // namespace

const EncodingTraits* findEncoding(const std::string& name) {
    for (const EncodingTraits& traits : kEncodings) {
        if (backend::namesEncoding(traits.name, name) && backend::converterAvailable(traits.name)) return &traits;
    }
    return nullptr;
}

// The platform may lack a code page (then the host does not offer it).
std::vector<std::string> availableEncodings() {
    std::vector<std::string> names;
    for (const EncodingTraits& traits : kEncodings) {
        if (backend::converterAvailable(traits.name)) names.emplace_back(traits.name);
    }
    return names;
}

bool widenSessionText(const std::string& encoding, const char* source, std::int64_t sourceBytes, char16_t* destination,
                      std::int64_t capacityUnits, std::int64_t* units) {
    *units = 0;
    const EncodingTraits* traits = findEncoding(encoding);
    if (traits == nullptr) return false;
    backend::ConverterPtr converter = backend::openConverter(traits->name);
    return backend::toUtf16(*converter, source, sourceBytes, destination, capacityUnits, units);
}

HandleObject::HandleObject() = default;
HandleObject::~HandleObject() = default;

std::unique_ptr<HandleObject> makeEncodingHandle(Session::Impl& session, const std::string& encoding) {
    const EncodingTraits* traits = findEncoding(encoding);
    if (traits == nullptr) throw std::invalid_argument("unknown session encoding: " + encoding);
    auto object = std::make_unique<HandleObject>();
    object->session = &session;
    object->traits = *traits;
    object->codec = codecFor(*traits);
    object->converter = backend::openConverter(traits->name);
    object->transcoder.owner = object.get();
    object->transcoder.record.transcode = &opTranscode;

    EncodingHandle& h = object->handle;
    h.hostPrivate[0] = reinterpret_cast<std::uintptr_t>(object.get());
    h.encodingId = traits->encodingId;
    h.cursorLimit = kNoCursorLimit;
    h.encodingKind = traits->encodingKind;
    setWord(h, kOpCharLength, &opCharLength);
    setWord(h, kOpFindChar, &opFindChar);
    setWord(h, kOpToLowerChar, &opToLowerChar);
    setWord(h, kOpToUpperChar, &opToUpperChar);
    setWord(h, kOpSeekChars, &opSeekChars);
    setWord(h, kOpNextChar, &opNextChar);
    setWord(h, kOpCompareAt, &opCompareAt);
    setWord(h, kOpCurrentChar, &opCurrentChar);
    setWord(h, kOpTrimmedLength, &opTrimmedLength);
    setWord(h, kOpByteOffsetOf, &opByteOffsetOf);
    setWord(h, kOpCountChars, &opCountChars);
    setWord(h, kOpSkipModifierText, &opSkipModifierText);
    setWord(h, kOpCopyWholeChars, &opCopyWholeChars);
    setWord(h, kOpBlankTrimmedBytes, &opBlankTrimmedBytes);
    setWord(h, kOpClassTestAlpha, &opClassTest<kOpClassTestAlpha>);
    setWord(h, kOpCaseTest, &opCaseTest);
    setWord(h, kOpClassTestCtlDigit, &opClassTest<kOpClassTestCtlDigit>);
    setWord(h, kOpClassTestSpace, &opClassTest<kOpClassTestSpace>);
    setWord(h, kOpClassTestHex, &opClassTest<kOpClassTestHex>);
    setWord(h, kOpClassTestGraphic, &opClassTest<kOpClassTestGraphic>);
    h.word[kHandleTranscoderWord - kOpCharLength] = &object->transcoder.record;
    return object;
}

// Single-byte sessions: every byte value from its code page character.
// Multi-byte sessions: the ASCII range only; bytes from 0x80 have class 0 and
// map to themselves, since they are parts of characters, not characters.
void fillByteTables(const HandleObject& handle, std::uint8_t* upcase, std::uint8_t* lowcase, std::uint8_t* classes) {
    const Codec& codec = *handle.codec;
    const bool singleByte = codec.singleByte();
    for (int b = 0; b < 256; ++b) {
        const auto byte = static_cast<std::uint8_t>(b);
        upcase[b] = byte;
        lowcase[b] = byte;
        classes[b] = 0;
        if (!singleByte && b >= 0x80) continue;
        const CodePoint c = codec.decode(&byte, 1);
        if (c < 0) continue;
        classes[b] = static_cast<std::uint8_t>(classBitsOf(c, 1));
        char out[4];
        if (codec.encode(backend::simpleUpper(c), out) == 1 && (singleByte || static_cast<std::uint8_t>(out[0]) < 0x80)) {
            upcase[b] = static_cast<std::uint8_t>(out[0]);
        }
        if (codec.encode(backend::simpleLower(c), out) == 1 && (singleByte || static_cast<std::uint8_t>(out[0]) < 0x80)) {
            lowcase[b] = static_cast<std::uint8_t>(out[0]);
        }
    }
}

bool handleIsMultiByte(const HandleObject& handle) { return handle.traits.multiByte; }

EncodingHandle* contractHandle(HandleObject& handle) { return &handle.handle; }

}  // namespace txhost
