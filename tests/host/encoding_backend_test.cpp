// The encoding backend (ICU, or the Windows national-language API): the
// same properties, case mappings, conversions and names from either, so the
// host answers alike on both platforms. Every case here holds on both.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "host/encoding_backend.h"

namespace {

using namespace txhost::backend;

std::string hex(CodePoint c) {
    char text[16];
    std::snprintf(text, sizeof text, "U+%04X", static_cast<unsigned>(c));
    return text;
}

// flags, in this order: u l d s p b c a g, upper lower digit space punct
// blank control alpha graphic.
struct PropertyCase { CodePoint c; const char* flags; };

TEST(EncodingBackend, PropertiesOfCodePoints) {
    const PropertyCase cases[] = {
        {'A', "ua g"},      {'z', "la g"},   {'7', "d g"},    {'!', "p g"},
        {'~', "g"},                                              // a symbol, not punctuation
        {' ', "sb"},        {'\t', "sc"},   {0x85, "sc"},        // the tab is no blank
        {0xA0, "sb"},       {0x2003, "sb"},  {0x3000, "sb"},     // space separators
        {0xD7, "g"},        {0xF7, "g"},     {0xA4, "g"},     {0xB2, "g"},     // symbols; ² is no digit
        {0x0378, ""},       {0xAD, ""},      {0xBF, "p g"},      // unassigned, a format character
        {0x6F22, "a g"},    {0x03C2, "la g"},
        {0x20AC, "g"},      {0x3001, "p g"}, {0xFF10, "d g"}, {0x0660, "d g"},
        {0x1F600, "g"},     {0x20000, "a g"},                    // outside the BMP
        {kNoCodePoint, ""},
    };
    for (const PropertyCase& c : cases) {
        const CharacterProperties p = propertiesOf(c.c);
        const bool bits[] = {p.upper, p.lower, p.digit, p.space, p.punctuation, p.blank, p.control, p.alphabetic,
                             p.graphic};
        std::string flags, expected = c.flags;
        for (int i = 0; i < 9; ++i) flags += bits[i] ? std::string(1, "uldspbcag"[i]) : "";
        std::erase(expected, ' ');
        EXPECT_EQ(expected, flags) << hex(c.c);
    }
}

TEST(EncodingBackend, SimpleCaseMappings) {
    struct CaseCase { CodePoint c, upper, lower, fold; };
    // ÿ, long s, İ (lowers to i, no simple folding), ı, the micro sign
    // (Greek), final sigma (folds to σ), the Kelvin sign, capital sharp s,
    // ß (no one-character upper case), a titlecase digraph, fullwidth a, and
    // Deseret outside the BMP.
    const CaseCase cases[] = {
        {'A', 'A', 'a', 'a'}, {0xFF, 0x178, 0xFF, 0xFF}, {0x17F, 'S', 0x17F, 's'}, {0x130, 0x130, 'i', 0x130},
        {0xB5, 0x39C, 0xB5, 0x3BC}, {0x3C2, 0x3A3, 0x3C2, 0x3C3}, {0x212A, 0x212A, 'k', 'k'}, {0xDF, 0xDF, 0xDF, 0xDF},
        {0x1C5, 0x1C4, 0x1C6, 0x1C6}, {0x10428, 0x10400, 0x10428, 0x10428},
        {kNoCodePoint, kNoCodePoint, kNoCodePoint, kNoCodePoint},
    };
    for (const CaseCase& c : cases) {
        EXPECT_EQ((std::vector<CodePoint>{c.upper, c.lower, c.fold}),
                  (std::vector<CodePoint>{simpleUpper(c.c), simpleLower(c.c), simpleFold(c.c)}))
            << hex(c.c);
    }
}

// One character each way; a code point the encoding lacks encodes to
// nothing, never to a best-fit look-alike.
TEST(EncodingBackend, OneCharacterEachWay) {
    // No bytes: the encoding has none for c; kNoCodePoint: the bytes stand for no single character.
    struct ConversionCase { const char* encoding; std::string bytes; CodePoint c; };
    const ConversionCase cases[] = {
        {"UTF-8", "\xF0\x9F\x98\x80", 0x1F600}, {"UTF-8", "\xC3", kNoCodePoint},   // a cut sequence
        {"UTF-8", "", 0xD800},                                               // a surrogate is no character
        {"ISO-8859-1", "", 0x39C},                   // Greek Μ would best-fit to M or µ
        {"ISO-8859-15", "\xA4", 0x20AC}, {"ISO-8859-15", "", 0xA4},   // ¤ gave its place to €
        {"windows-1252", "\x80", 0x20AC}, {"windows-1252", "", 0x100},   // Ā would best-fit to A
        {"Shift_JIS", "\x88\x9F", 0x4E9C}, {"Shift_JIS", "\x82\x20", kNoCodePoint}, {"Shift_JIS", "", 0xE9},
    };
    for (const ConversionCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " " + hex(c.c) + " [" + c.bytes + "]");
        ASSERT_TRUE(converterAvailable(c.encoding));
        ConverterPtr converter = openConverter(c.encoding);
        if (!c.bytes.empty()) {
            EXPECT_EQ(c.c, decodeCharacter(*converter, c.bytes.data(), static_cast<int>(c.bytes.size())));
        }
        if (c.c != kNoCodePoint) {
            char out[4];
            const int n = encodeCodePoint(*converter, c.c, out);
            EXPECT_EQ(c.bytes, std::string(out, static_cast<std::size_t>(n > 0 ? n : 0)));
        }
    }
}

TEST(EncodingBackend, WholeTextsFromAndToUtf16) {
    struct TextCase { const char* encoding; std::u16string wide; std::string bytes; };
    const TextCase cases[] = {
        {"UTF-8", u"", ""}, {"UTF-8", u"a\u00E9\u6F22\U0001F600", "a\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80"},
        {"ISO-8859-1", u"a\u00E9", "a\xE9"}, {"ISO-8859-15", u"\u20AC\u0160", "\xA4\xA6"},
        {"windows-1252", u"\u20AC\u0178", "\x80\x9F"}, {"Shift_JIS", u"a\u3042\uFF71", "a\x82\xA0\xB1"},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.encoding);
        ConverterPtr converter = openConverter(c.encoding);
        std::string narrow = "junk";
        ASSERT_TRUE(fromUtf16(*converter, c.wide.data(), static_cast<std::int64_t>(c.wide.size()), narrow));
        EXPECT_EQ(c.bytes, narrow);
        const auto size = static_cast<std::int64_t>(c.wide.size());
        std::u16string wide(c.wide.size() + 2, u'#');
        std::int64_t written = -1;
        ASSERT_TRUE(toUtf16(*converter, c.bytes.data(), static_cast<std::int64_t>(c.bytes.size()), wide.data(), size,
                            &written));
        EXPECT_EQ(size, written);   // fits exactly: whole
        EXPECT_EQ(c.wide, wide.substr(0, static_cast<std::size_t>(written)));
        if (size > 0) {
            written = -1;
            EXPECT_FALSE(toUtf16(*converter, c.bytes.data(), static_cast<std::int64_t>(c.bytes.size()), wide.data(),
                                 size - 1, &written));
            EXPECT_EQ(0, written);
        }
    }
    // A character the encoding lacks becomes one substitute, not nothing and not a look-alike.
    ConverterPtr latin1 = openConverter("ISO-8859-1");
    std::string narrow;
    const std::u16string greek = u"a\u039Cb";
    ASSERT_TRUE(fromUtf16(*latin1, greek.data(), static_cast<std::int64_t>(greek.size()), narrow));
    EXPECT_TRUE(narrow.size() == 3 && narrow[0] == 'a' && narrow[1] != 'M' && narrow[1] != '\xB5' && narrow[2] == 'b')
        << narrow;
}

TEST(EncodingBackend, NamesOfEncodings) {
    struct NameCase { const char* encoding; const char* name; bool names; };
    const NameCase cases[] = {
        {"UTF-8", "UTF-8", true}, {"UTF-8", "utf8", true}, {"ISO-8859-1", "latin1", true},
        {"windows-1252", "cp1252", true}, {"Shift_JIS", "cp932", true}, {"UTF-8", "", false},
        {"ISO-8859-1", "windows-1252", false}, {"ISO-8859-1", "ISO-8859-15", false}, {"UTF-8", "UTF-16", false},
    };
    for (const NameCase& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " / " + c.name);
        EXPECT_EQ(c.names, namesEncoding(c.encoding, c.name));
    }
    EXPECT_FALSE(converterAvailable("EBCDIC-XYZ"));
    EXPECT_THROW(openConverter("EBCDIC-XYZ"), std::runtime_error);
}

}  // namespace
