// The EncodingHandle operations on UTF-8, Shift_JIS, EUC-JP and single-byte code
// pages, and the session's byte tables.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/host/handle_helpers.h"
#include "host/encoding_backend.h"
#include "host/host.h"

namespace {

using namespace hosttest;
using txhost::Session;
namespace backend = txhost::backend;

// Texts in their session encoding.
const std::string kUtf8Mixed = "a\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80";   // a é 漢 😀
const std::string kSjisMixed = "a\x82\xA0\xB1\x8A\xBF";                    // a あ ｱ 漢

TEST(EncodingHandle, CharLengthAndCountChars) {
    // Invalid UTF-8 (a lead byte at the end, cut or overlong sequences,
    // surrogates, code points above U+10FFFF, stray continuation bytes)
    // counts each byte as a character; so does a Shift_JIS lead byte without
    // a trail byte, while its user-defined area pairs all the same.
    const struct { const char* encoding; std::string text; std::int64_t characters; } cases[] = {
        {"UTF-8", kUtf8Mixed, 4}, {"UTF-8", "a\xC3", 2}, {"UTF-8", "\xC0\xAF", 2}, {"UTF-8", "\xED\xA0\x80", 3},
        {"UTF-8", "\xF4\x90\x80\x80", 4}, {"UTF-8", "\x80\xBF", 2}, {"Shift_JIS", kSjisMixed, 4},
        {"Shift_JIS", "\x82", 1}, {"Shift_JIS", "\x82\x20", 2}, {"Shift_JIS", "\x82\x7F", 2}, {"Shift_JIS", "\xF0\x40", 1},
        {"ISO-8859-1", "\xE9\xC3\xA9", 3},
        // EUC-JP: a, 日, half-width ｱ, 丂 (JIS X 0212, three bytes); a lead
        // without its trail bytes is a character of its own.
        {"EUC-JP", "a\xC6\xFC\x8E\xB1\x8F\xB0\xA1", 4}, {"EUC-JP", "\xC6", 1}, {"EUC-JP", "\x8E\xE0", 2},
        {"EUC-JP", "\x8F\xB0\x41", 3},
    };
    EXPECT_THROW(Session({.encoding = "EBCDIC-XYZ"}), std::invalid_argument);
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " [" + c.text + "]");
        Session session({.encoding = c.encoding});
        EncodingHandle* h = session.encodingHandle();
        Cursor cursor(h, c.text);
        EXPECT_EQ(c.characters, charLength(h, cursor.get()));
        std::int64_t n = -1;
        EXPECT_EQ(0, countChars(h, c.text.data(), std::ssize(c.text), &n));
        EXPECT_EQ(c.characters, n);
    }
}

// Every lead byte with every second byte, against the table of well-formed
// UTF-8 sequences: the first character is the whole sequence, or else its
// first byte alone, which has no code point and so no class.
TEST(EncodingHandle, Utf8SequencesAsTheirTableHasThem) {
    const struct { int firstLead, lastLead, low, high, length; } wellFormed[] = {
        {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
        {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
        {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
    };
    Session session({.encoding = "UTF-8"});
    EncodingHandle* h = session.encodingHandle();
    for (int lead = 0x80; lead <= 0xFF; ++lead) {
        for (int second = 0; second <= 0xFF; ++second) {
            for (const char trail : {'\x80', '\xBF', 'a'}) {
                std::int64_t expected = 1;
                for (const auto& w : wellFormed) {
                    if (lead >= w.firstLead && lead <= w.lastLead && second >= w.low && second <= w.high) {
                        expected = w.length == 2 || trail != 'a' ? w.length : 1;
                    }
                }
                Cursor text(h, std::string{static_cast<char>(lead), static_cast<char>(second), trail, trail});
                ASSERT_EQ(expected, byteOffsetOf(h, text.get(), 1)) << lead << " " << second << " " << int{trail};
                ASSERT_TRUE(expected > 1 || !classTest(h, kOpClassTestGraphic, text.get(), 0x3FF)) << lead;
            }
        }
    }
}

// seekChars against offsets from byteOffsetOf: the characters 0..n-1 are the
// positions; n and beyond, and anything before 0, answer -99 and leave the
// cursor alone. nextChar steps through the same offsets and then reports
// the end.
TEST(EncodingHandle, SeeksAndStepsAgreeWithOffsets) {
    for (const char* encoding : {"UTF-8", "Shift_JIS", "EUC-JP", "ISO-8859-1"}) {
        SCOPED_TRACE(encoding);
        Session session({.encoding = encoding});
        EncodingHandle* h = session.encodingHandle();
        // Shift_JIS: 亜 (0x88 0x9F) has a trail byte in the lead range, and
        // a lead byte before 'a' pairs with it.
        const std::string e = encoding;
        const std::string unit = e == "UTF-8"       ? kUtf8Mixed + "\xC3"
                                 : e == "Shift_JIS" ? kSjisMixed + "\x88\x9F\x88\x9F\x81" + "\x82"
                                 : e == "EUC-JP"    ? std::string("a\xC6\xFC\x8F\xB0\xA1\x8E\xB1\xC6")
                                                    : "ab\xE9";
        std::string text;
        for (int i = 0; i < 40; ++i) text += unit;
        Cursor cursor(h, text);
        const std::int64_t n = charLength(h, cursor.get());
        std::vector<std::int64_t> offsets;
        for (std::int64_t i = 0; i <= n; ++i) offsets.push_back(byteOffsetOf(h, cursor.get(), i));
        EXPECT_EQ(static_cast<std::int64_t>(text.size()), offsets.back());
        for (std::int64_t i = 1; i < n; ++i) {
            ASSERT_EQ(0, nextChar(h, cursor.get())) << i;
            ASSERT_EQ(offsets[static_cast<std::size_t>(i)], cursor->offset) << i;
        }
        EXPECT_EQ(kCursorEmpty, nextChar(h, cursor.get()));
        ASSERT_EQ(0, seekChars(h, cursor.get(), kSeekFromStart, 0));
        std::uint32_t x = 12345;
        std::int64_t at = 0;
        for (int k = 0; k < 500; ++k) {
            x = x * 1103515245u + 12345u;
            const std::int64_t target = static_cast<std::int64_t>(x >> 8) % (n + 4) - 2;
            const bool relative = (x & 1) != 0;
            const std::int32_t answer = relative ? seekChars(h, cursor.get(), kSeekFromCurrent, target - at)
                                                 : seekChars(h, cursor.get(), kSeekFromStart, target);
            if (target < 0 || target >= n) {
                ASSERT_EQ(kSeekOutside, answer);
            } else {
                ASSERT_EQ(0, answer);
                at = target;
            }
            ASSERT_EQ(at, cursor->state);
            ASSERT_EQ(offsets[static_cast<std::size_t>(at)], cursor->offset);
        }
    }
}

// The cursor at character `at` of the text.
TEST(EncodingHandle, CompareAtExactAndCaseless) {
    struct CompareCase { const char* encoding; std::string text; std::int64_t at; std::string search; std::int64_t searchLength;
                         std::int32_t flags; bool match; };
    const CompareCase cases[] = {
        {"UTF-8", "Stra\xC3\x9F" "e \xC3\x84\xC3\x96\xC3\x9C", 7, "\xC3\xA4\xC3\xB6\xC3\xBC", 3, kCompareCaseless, true},
        {"UTF-8", "Stra\xC3\x9F" "e \xC3\x84\xC3\x96\xC3\x9C", 7, "\xC3\xA4\xC3\xB6\xC3\xBC", 3, kCompareExact, false},
        {"UTF-8", "x\xCE\xA3", 1, "\xCF\x82", 1, kCompareCaseless, true},        // Σ and final ς fold alike
        {"UTF-8", "STRASSE", 0, "stra\xC3\x9F" "e", 6, kCompareCaseless, false},  // no full folding
        {"UTF-8", "ab", 1, "bc", 2, kCompareExact, false},                       // text ends first
        {"UTF-8", "abc", 0, "ab  ", 2, kCompareExact, true},                     // only searchLength characters
        {"UTF-8", "abc", 0, "", 0, kCompareExact, false},                        // empty search never matches
        {"UTF-8", "a\xC3" "b", 1, "\xC3", 1, kCompareCaseless, true},             // invalid byte against itself
        {"Shift_JIS", "x\x82\x60\x84\x44", 1, "\x82\x81\x84\x74", 2, kCompareCaseless, true},   // Ａ Д vs ａ д
        {"EUC-JP", "x\xA3\xC1", 1, "\xA3\xE1", 1, kCompareCaseless, true},                     // Ａ ａ
        {"ISO-8859-1", "x\xC4\xD6", 1, "\xE4\xF6", 2, kCompareCaseless, true},                  // ÄÖ äö
        {"ISO-8859-15", "\xA6", 0, "\xA8", 1, kCompareCaseless, true},                          // Š š
    };
    for (const CompareCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " [" + c.text + "] at " + std::to_string(c.at) + " [" + c.search + "]");
        Session session({.encoding = c.encoding});
        EncodingHandle* h = session.encodingHandle();
        Cursor text(h, c.text);
        Cursor search(h, c.search);
        if (c.at != 0) {
            ASSERT_EQ(0, seekChars(h, text.get(), kSeekFromStart, c.at));
        }
        EXPECT_EQ(c.match, compareAt(h, text.get(), search.get(), c.searchLength, c.flags) == 0);
        EXPECT_EQ(c.at, text->state);   // compareAt moves nothing
    }
}

TEST(EncodingHandle, CurrentCharFindCharAndFolding) {
    // indexInList: of the character as taken, -1 absent.
    struct CharCase { const char* encoding; std::string text; std::int64_t at; std::string character, upper, lower, list;
                      std::int64_t indexInList; };
    const CharCase cases[] = {
        {"UTF-8", kUtf8Mixed, 1, "\xC3\xA9", "\xC3\x89", "\xC3\xA9", "x\xC3\x89\xC3\xA9", 2},
        {"UTF-8", "\xC4\xB0", 0, "\xC4\xB0", "\xC4\xB0", "i", "I", -1},             // İ lowers to one byte
        {"UTF-8", "\xC5\xBF", 0, "\xC5\xBF", "S", "\xC5\xBF", "s", -1},             // ſ uppers to S
        {"UTF-8", "a\xC3", 1, "\xC3", "\xC3", "\xC3", "\xC3\xA9\xC3", 1},             // invalid byte stays
        {"Shift_JIS", "\x82\x81", 0, "\x82\x81", "\x82\x60", "\x82\x81", "\x82\x60", -1},   // ａ -> Ａ
        {"ISO-8859-1", "\xFF", 0, "\xFF", "\xFF", "\xFF", "", -1},                  // ÿ: Ÿ is not in Latin-1
        {"windows-1252", "\xFF", 0, "\xFF", "\x9F", "\xFF", "\x9F", -1},            // ÿ -> Ÿ (0x9F)
    };
    for (const CharCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " [" + c.text + "] at " + std::to_string(c.at));
        Session session({.encoding = c.encoding});
        EncodingHandle* h = session.encodingHandle();
        Cursor text(h, c.text);
        if (c.at != 0) {
            ASSERT_EQ(0, seekChars(h, text.get(), kSeekFromStart, c.at));
        }
        CharCursor ch(h);
        ASSERT_EQ(0, currentChar(h, text.get(), ch.get()));
        EXPECT_EQ(c.character, ch.held());
        Cursor list(h, c.list);
        EXPECT_EQ(c.indexInList, findChar(h, list.get(), ch.get()));
        toUpperChar(h, ch.get());
        EXPECT_EQ(c.upper, ch.held());
        CharCursor again(h);
        ASSERT_EQ(0, currentChar(h, text.get(), again.get()));
        toLowerChar(h, again.get());
        EXPECT_EQ(c.lower, again.held());
    }
}

// Class bits through the handle: the byte table's bits for characters of one
// byte (the tables agree with the handle: tests/module/charset), plus 0x100
// (alphabetic) or 0x200 (other graphic) for wider ones. The five class-test
// words share one routine; the module's class modifiers reach each of them.
TEST(EncodingHandle, ClassTestsAndCaseTests) {
    struct ClassCase { const char* encoding; std::string character; std::uint32_t bits; };   // bits among 0x3FF
    // UTF-8: É 漢 € 、 fullwidth 0, no-break space, an invalid byte. Shift_JIS:
    // Ａ 、 and ｱ (one byte, no wide class). ISO-8859-1: é ¿ and × (a
    // symbol). windows-1252: € (a symbol) and Š.
    const ClassCase cases[] = {
        {"UTF-8", "a", 0x02 | 0x80}, {"UTF-8", "\t", 0x08 | 0x40}, {"UTF-8", "\xC3\x89", 0x01 | 0x100},
        {"UTF-8", "\xE2\x82\xAC", 0x200}, {"UTF-8", "\xE3\x80\x81", 0x10 | 0x200}, {"UTF-8", "\xEF\xBC\x90", 0x04 | 0x200},
        {"UTF-8", "\xC2\xA0", 0x08 | 0x20}, {"UTF-8", "\xC3", 0x00}, {"Shift_JIS", "\x82\x60", 0x01 | 0x100},
        {"Shift_JIS", "\xB1", 0x00}, {"ISO-8859-1", "\xBF", 0x10}, {"ISO-8859-1", "\xD7", 0x00},
        {"windows-1252", "\x8A", 0x01}, {"EUC-JP", "\xA3\xC1", 0x01 | 0x100}, {"EUC-JP", "\x8E\xB1", 0x100},
        // Beyond the Basic Multilingual Plane: an ideograph of plane 2, an
        // emoji (what the ICU and Windows backends answer alike there).
        {"UTF-8", "\xF0\xA0\x80\x80", 0x100}, {"UTF-8", "\xF0\x9F\x98\x80", 0x200},
    };
    for (const ClassCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " [" + c.character + "]");
        Session session({.encoding = c.encoding});
        EncodingHandle* h = session.encodingHandle();
        Cursor text(h, "." + c.character);
        ASSERT_EQ(0, seekChars(h, text.get(), kSeekFromStart, 1));
        for (std::uint32_t bit = 1; bit <= 0x200; bit <<= 1) {
            EXPECT_EQ((c.bits & bit) != 0, classTest(h, kOpClassTestGraphic, text.get(), static_cast<std::int32_t>(bit)))
                << "bit " << bit;
        }
        CharCursor ch(h);
        ASSERT_EQ(0, currentChar(h, text.get(), ch.get()));
        EXPECT_EQ((c.bits & 0x01) != 0, caseTest(h, ch.get(), kIsUpper));
        EXPECT_EQ((c.bits & 0x02) != 0, caseTest(h, ch.get(), kIsLower));
        EXPECT_EQ((c.bits & 0x10) != 0, classTest(h, kOpClassTestAlpha, ch.get(), 0x10));   // on the held character
    }
}

// Every class bit of every code point, as the handle answers it, against
// the backend's properties asked afresh (the plane the host keeps in a
// table in full, the rest of Unicode sampled).
TEST(EncodingHandle, ClassAnswersAgreeWithTheBackend) {
    Session session({.encoding = "UTF-8"});
    EncodingHandle* h = session.encodingHandle();
    backend::ConverterPtr utf8 = backend::openConverter("UTF-8");
    std::string mismatches;
    for (backend::CodePoint c = 0; c <= 0x10FFFF; c += c < 0x10000 ? 1 : 61) {
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        const backend::CharacterProperties p = backend::propertiesOf(c);
        const bool hex = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
        const bool wide = c >= 0x80;
        const bool expected[10] = {p.upper, p.lower, p.digit, p.space, p.punctuation, p.blank, p.control, hex,
                                   wide && p.alphabetic, wide && !p.alphabetic && p.graphic};
        char bytes[4];
        Cursor text(h, std::string(bytes, static_cast<std::size_t>(backend::encodeCodePoint(*utf8, c, bytes))));
        for (int bit = 0; bit < 10; ++bit) {
            if (expected[bit] != classTest(h, kOpClassTestGraphic, text.get(), 1 << bit) && mismatches.size() < 200) {
                mismatches += " U+" + std::to_string(c) + "/" + std::to_string(bit);
            }
        }
    }
    EXPECT_EQ("", mismatches);
}

TEST(EncodingHandle, CopyWholeCharsNeverSplitsACharacter) {
    struct CopyCase { const char* encoding; std::string source; std::int64_t capacity, copied; };
    const CopyCase cases[] = {   // invalid bytes copy one by one
        {"UTF-8", kUtf8Mixed, 100, 10}, {"UTF-8", kUtf8Mixed, 5, 3}, {"UTF-8", kUtf8Mixed, 6, 6},
        {"UTF-8", kUtf8Mixed, 9, 6},    {"UTF-8", "a\xE2\x82", 2, 2}, {"Shift_JIS", kSjisMixed, 2, 1},
        {"Shift_JIS", kSjisMixed, 5, 4}, {"ISO-8859-1", "\xE9\xE9\xE9", 2, 2},
    };
    for (const CopyCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " cap " + std::to_string(c.capacity));
        Session session({.encoding = c.encoding});
        EncodingHandle* h = session.encodingHandle();
        std::vector<char> out(static_cast<std::size_t>(c.capacity) + 1, '#');
        std::int64_t copied = -1;
        const std::int32_t status =
            copyWholeChars(h, c.source.data(), std::ssize(c.source), out.data(), c.capacity, &copied);
        EXPECT_EQ(c.copied, copied);
        EXPECT_EQ(c.copied == static_cast<std::int64_t>(c.source.size()) ? 0 : 1, status);
        EXPECT_EQ(c.source.substr(0, static_cast<std::size_t>(c.copied)),
                  std::string(out.data(), static_cast<std::size_t>(copied)));
        EXPECT_EQ('#', out[static_cast<std::size_t>(copied)]);
    }
}

TEST(EncodingHandle, TrimmingOffsetsAndModifiers) {
    Session session({.encoding = "UTF-8"});
    EncodingHandle* h = session.encodingHandle();
    Cursor text(h, "\xC3\xA9t\xC3\xA9  ");
    Cursor blanks(h, "   ");
    // Offsets from 0 to the end of the text (5 characters); -1 outside.
    EXPECT_EQ((std::vector<std::int64_t>{3, 0, 0, 2, 3, 7, -1, -1, 5, 0, 0}),
              (std::vector<std::int64_t>{trimmedLength(h, text.get()), trimmedLength(h, blanks.get()),
                                         byteOffsetOf(h, text.get(), 0), byteOffsetOf(h, text.get(), 1),
                                         byteOffsetOf(h, text.get(), 2), byteOffsetOf(h, text.get(), 5),
                                         byteOffsetOf(h, text.get(), 6), byteOffsetOf(h, text.get(), -1),
                                         blankTrimmedBytes(h, "\xC3\xA9t\xC3\xA9  ", 7), blankTrimmedBytes(h, "   ", 3),
                                         blankTrimmedBytes(h, "", 0)}));
    EXPECT_FALSE(skipModifierText(h, "it", 2));
}

TEST(EncodingHandle, TranscoderWritesTheSessionEncoding) {
    struct TranscodeCase { const char* encoding; std::u16string source; std::int64_t capacity; std::string expected; std::int32_t status; };
    const TranscodeCase cases[] = {
        {"UTF-8", u"\u00E9\u6F22", 10, "\xC3\xA9\xE6\xBC\xA2", 0},
        {"UTF-8", u"\u00E9\u6F22", 4, "\xC3\xA9", 1},   // cut before the character that does not fit
        {"Shift_JIS", u"a\u3042", 10, "a\x82\xA0", 0}, {"Shift_JIS", u"a\u3042", 2, "a", 1},
    };
    for (const TranscodeCase& c : cases) {
        SCOPED_TRACE(c.encoding);
        Session session({.encoding = c.encoding});
        Transcoder* t = session.encodingHandle()->transcoder();
        std::vector<char> out(static_cast<std::size_t>(c.capacity));
        std::int64_t length = -1;
        const std::int32_t status = t->transcode(t, c.source.data(), static_cast<std::int64_t>(c.source.size() * 2),
                                                 out.data(), c.capacity, &length, 0);
        EXPECT_EQ(c.status, status);
        EXPECT_EQ(c.expected, std::string(out.data(), static_cast<std::size_t>(length)));
    }
}

}  // namespace
