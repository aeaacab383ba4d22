// The encoding backend on the Windows national-language API: code pages
// through MultiByteToWideChar and WideCharToMultiByte, character types
// through GetStringTypeW, simple case mappings through LCMapStringEx.
//
// Over the BMP it agrees with the ICU backend on digits, white space,
// punctuation, blanks, controls and graphic characters. It differs where NLS
// knows less: titlecase digraphs (U+01C5 ...) are both upper and lower case
// here and modifier letters (U+02B0 ...) neither, combining vowel signs are
// not alphabetic, and a few scripts (Cherokee) fold differently. Code pages are
// Microsoft's: windows-1252 maps its five unassigned bytes to the C1
// controls, and Shift_JIS is code page 932 with its NEC and IBM extensions.
#include <windows.h>

#include <array>
#include <cctype>
#include <climits>
#include <cstring>
#include <stdexcept>

#include "host/encoding_backend.h"

namespace txhost::backend {

namespace {

struct CodePageName {
    const char* encoding;   // the name in encoding.cpp's table
    UINT codePage;
    std::array<const char*, 6> aliases;   // null-padded
};

// The names people give these code pages; compared without regard to case,
// blanks, '-', '_' and '.'.
const CodePageName kCodePages[] = {
    {"UTF-8", CP_UTF8, {"utf8", "cp65001"}},
    {"ISO-8859-1", 28591, {"latin1", "l1", "cp819", "ibm819", "cp28591", "iso-ir-100"}},
    {"windows-1252", 1252, {"cp1252", "ms1252", "ibm5348"}},
    {"ISO-8859-15", 28605, {"latin9", "l9", "cp28605", "iso8859_15_fdis", "ibm923", "csisolatin9"}},
    {"Shift_JIS", 932, {"sjis", "cp932", "ms932", "mskanji", "windows31j", "csshiftjis"}},
    {"EUC-JP", 20932, {"eucjp", "ujis", "cseucpkdfmtjapanese"}},
};

std::string squeezed(const char* name) {
    std::string out;
    for (const char* p = name; *p != '\0'; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c == ' ' || c == '-' || c == '_' || c == '.') continue;
        out += static_cast<char>(std::tolower(c));
    }
    return out;
}

const CodePageName* codePageOf(const char* encoding) {
    for (const CodePageName& entry : kCodePages) {
        if (std::strcmp(entry.encoding, encoding) == 0) return &entry;
    }
    return nullptr;
}

bool isSurrogate(CodePoint c) { return c >= 0xD800 && c <= 0xDFFF; }
bool isScalar(CodePoint c) { return c >= 0 && c <= 0x10FFFF && !isSurrogate(c); }

// c as UTF-16 (1 or 2 units); 0 when c is no scalar value.
int toUnits(CodePoint c, wchar_t* units) {
    if (!isScalar(c)) return 0;
    if (c < 0x10000) {
        units[0] = static_cast<wchar_t>(c);
        return 1;
    }
    const CodePoint v = c - 0x10000;
    units[0] = static_cast<wchar_t>(0xD800 + (v >> 10));
    units[1] = static_cast<wchar_t>(0xDC00 + (v & 0x3FF));
    return 2;
}

// The one code point of `n` units, or kNoCodePoint.
CodePoint fromUnits(const wchar_t* units, int n) {
    if (n == 1 && !isSurrogate(units[0])) return units[0];
    if (n == 2 && units[0] >= 0xD800 && units[0] <= 0xDBFF && units[1] >= 0xDC00 && units[1] <= 0xDFFF) {
        return 0x10000 + ((static_cast<CodePoint>(units[0]) - 0xD800) << 10) + (static_cast<CodePoint>(units[1]) - 0xDC00);
    }
    return kNoCodePoint;
}

// LCMapStringEx maps case by the simple Unicode mappings only with
// linguistic casing; the invariant locale keeps the Turkic dotted and
// dotless i out of it.
CodePoint mapCase(CodePoint c, DWORD flags) {
    wchar_t in[2];
    const int n = toUnits(c, in);
    if (n == 0) return c;
    wchar_t out[4];
    const int m = LCMapStringEx(LOCALE_NAME_INVARIANT, flags | LCMAP_LINGUISTIC_CASING, in, n, out, 4, nullptr,
                                nullptr, 0);
    const CodePoint image = m == n ? fromUnits(out, m) : kNoCodePoint;
    return image == kNoCodePoint ? c : image;
}

// The Latin-1 block's punctuation (categories P*). The NLS character types
// mark ¡ § « ¶ · » ¿ as symbols, like × and ÷, so no type bit tells them
// apart there; the block's categories are fixed, so they are listed instead.
bool latin1Punctuation(CodePoint c) {
    static constexpr char kAscii[] = "!\"#%&'()*,-./:;?@[\\]_{}";
    if (c < 0x80) return c > 0 && std::strchr(kAscii, static_cast<int>(c)) != nullptr;
    return c == 0xA1 || c == 0xA7 || c == 0xAB || c == 0xB6 || c == 0xB7 || c == 0xBB || c == 0xBF;
}

}  // namespace

// A code page of the NLS tables; it holds no state between calls.
struct Converter {
    UINT codePage = 0;
};

void ConverterDeleter::operator()(Converter* converter) const { delete converter; }

bool converterAvailable(const char* encoding) {
    const CodePageName* entry = codePageOf(encoding);
    return entry != nullptr && IsValidCodePage(entry->codePage) != 0;
}

ConverterPtr openConverter(const char* encoding) {
    if (!converterAvailable(encoding)) {
        throw std::runtime_error(std::string("this system has no code page for ") + encoding);
    }
    ConverterPtr converter(new Converter);
    converter->codePage = codePageOf(encoding)->codePage;
    return converter;
}

CodePoint decodeCharacter(Converter& converter, const char* bytes, int length) {
    if (length <= 0) return kNoCodePoint;
    wchar_t units[8];
    const int n = MultiByteToWideChar(converter.codePage, MB_ERR_INVALID_CHARS, bytes, length, units, 8);
    return n > 0 ? fromUnits(units, n) : kNoCodePoint;
}

int encodeCodePoint(Converter& converter, CodePoint c, char* out) {
    wchar_t units[2];
    const int n = toUnits(c, units);
    if (n == 0) return 0;
    if (converter.codePage == CP_UTF8) {
        // UTF-8 takes neither best-fit flags nor a default-character report.
        const int written = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, units, n, out, 4, nullptr, nullptr);
        return written > 0 ? written : 0;
    }
    BOOL usedDefault = FALSE;
    const int written =
        WideCharToMultiByte(converter.codePage, WC_NO_BEST_FIT_CHARS, units, n, out, 4, nullptr, &usedDefault);
    return written > 0 && usedDefault == FALSE ? written : 0;
}

bool fromUtf16(Converter& converter, const char16_t* units, std::int64_t unitCount, std::string& out) {
    out.clear();
    if (unitCount < 0 || unitCount > INT_MAX) return false;
    if (unitCount == 0) return true;
    const auto* in = reinterpret_cast<const wchar_t*>(units);
    const auto n = static_cast<int>(unitCount);
    const int needed = WideCharToMultiByte(converter.codePage, 0, in, n, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return false;
    out.assign(static_cast<std::size_t>(needed), '\0');
    return WideCharToMultiByte(converter.codePage, 0, in, n, out.data(), needed, nullptr, nullptr) == needed;
}

bool toUtf16(Converter& converter, const char* bytes, std::int64_t byteCount, char16_t* destination,
             std::int64_t capacity, std::int64_t* written) {
    *written = 0;
    if (byteCount < 0 || byteCount > INT_MAX || capacity < 0) return false;
    if (byteCount == 0) return true;
    const auto n = static_cast<int>(byteCount);
    const int needed = MultiByteToWideChar(converter.codePage, 0, bytes, n, nullptr, 0);
    if (needed <= 0 || needed > capacity) return false;
    if (MultiByteToWideChar(converter.codePage, 0, bytes, n, reinterpret_cast<wchar_t*>(destination), needed) !=
        needed) {
        return false;
    }
    *written = needed;
    return true;
}

// Cc is exactly U+0000-001F and U+007F-009F, which NLS widens by the format
// characters; the rest comes from the CT_CTYPE1 and CT_CTYPE3 types, with the
// corrections their comments give. Outside the BMP the types say nothing
// about a character: the ideographic planes count as alphabetic, everything
// else as graphic.
CharacterProperties propertiesOf(CodePoint c) {
    CharacterProperties p;
    if (!isScalar(c)) return p;
    p.control = c < 0x20 || (c >= 0x7F && c <= 0x9F);
    if (c >= 0x10000) {
        p.alphabetic = c >= 0x20000 && c <= 0x3FFFF;
        p.graphic = true;
        return p;
    }
    const auto unit = static_cast<wchar_t>(c);
    WORD type1 = 0;
    WORD type3 = 0;
    if (GetStringTypeW(CT_CTYPE1, &unit, 1, &type1) == 0) type1 = 0;
    if (GetStringTypeW(CT_CTYPE3, &unit, 1, &type3) == 0) type3 = 0;
    p.upper = (type1 & C1_UPPER) != 0;
    p.lower = (type1 & C1_LOWER) != 0;
    // Superscript and other digit-like signs carry C1_PUNCT beside C1_DIGIT;
    // decimal digits never do.
    p.digit = (type1 & C1_DIGIT) != 0 && (type1 & C1_PUNCT) == 0;
    p.space = (type1 & C1_SPACE) != 0;
    // C1_BLANK takes the tab and misses most typographic spaces; the space
    // separators are the white space that is neither a control character
    // nor the line or paragraph separator.
    p.blank = p.space && !p.control && c != 0x2028 && c != 0x2029;
    p.punctuation = c < 0x100 ? latin1Punctuation(c) : (type1 & C1_PUNCT) != 0 && (type3 & C3_SYMBOL) == 0;
    // Combining vowel signs (Unicode's Other_Alphabetic) have no C1_ALPHA and
    // no type bit that sets them apart from other marks: here they are
    // graphic, not alphabetic.
    p.alphabetic = (type1 & C1_ALPHA) != 0;
    // C1_CNTRL covers the format characters besides Cc; neither is graphic.
    p.graphic = (type1 & C1_DEFINED) != 0 && (type1 & C1_CNTRL) == 0 && !p.space;
    return p;
}

CodePoint simpleUpper(CodePoint c) { return mapCase(c, LCMAP_UPPERCASE); }
CodePoint simpleLower(CodePoint c) { return mapCase(c, LCMAP_LOWERCASE); }

// NLS has no case folding: the lower case of the upper case is the simple
// folding for all but the Turkic i's, which fold to nothing else.
CodePoint simpleFold(CodePoint c) {
    if (c == 0x130 || c == 0x131) return c;
    const CodePoint lower = simpleLower(c);
    return lower != c ? lower : simpleLower(simpleUpper(c));
}

bool namesEncoding(const char* encoding, const std::string& name) {
    const CodePageName* entry = codePageOf(encoding);
    if (entry == nullptr) return false;
    const std::string wanted = squeezed(name.c_str());
    if (wanted == squeezed(entry->encoding)) return true;
    for (const char* alias : entry->aliases) {
        if (alias != nullptr && wanted == squeezed(alias)) return true;
    }
    return false;
}

}  // namespace txhost::backend
