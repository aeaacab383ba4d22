// The logger's printf-style formatter over UTF-16 formats.
#include "host/rng_format.h"

#include <cstdint>
#include <cstdio>

namespace txhost {
namespace {

struct Directive {
    std::string flags;
    int width = -1;
    int precision = -1;
    std::string length;   // "", "h", "hh", "l", "ll", "z", "j"
    char conversion = 0;
};

void pad(std::u16string& out, const std::u16string& body, const Directive& directive) {
    std::size_t width = directive.width < 0 ? 0 : static_cast<std::size_t>(directive.width);
    bool left = directive.flags.find('-') != std::string::npos;
    std::size_t fill = body.size() < width ? width - body.size() : 0;
    if (!left) out.append(fill, u' ');
    out += body;
    if (left) out.append(fill, u' ');
}

std::string printfDirective(const Directive& directive, const char* length) {
    std::string format = "%";
    format.append(directive.flags);
    if (directive.width >= 0) format.append(std::to_string(directive.width));
    if (directive.precision >= 0) format.append(".").append(std::to_string(directive.precision));
    format.append(length);
    format.push_back(directive.conversion);
    return format;
}

std::u16string ascii(const char* text) {
    std::u16string out;
    for (; *text != 0; ++text) out += static_cast<char16_t>(static_cast<unsigned char>(*text));
    return out;
}

}  // namespace

std::u16string formatTk(const char16_t* format, std::va_list arguments) {
    std::u16string out;
    if (format == nullptr) return out;
    for (const char16_t* p = format; *p != 0; ++p) {
        if (*p != u'%') {
            out += *p;
            continue;
        }
        ++p;
        if (*p == u'%') {
            out += u'%';
            continue;
        }
        Directive directive;
        while (*p == u'-' || *p == u'+' || *p == u' ' || *p == u'0' || *p == u'#') directive.flags += static_cast<char>(*p++);
        if (*p == u'*') {
            directive.width = va_arg(arguments, int);
            if (directive.width < 0) {
                directive.flags += '-';
                directive.width = -directive.width;
            }
            ++p;
        } else {
            for (; *p >= u'0' && *p <= u'9'; ++p) directive.width = (directive.width < 0 ? 0 : directive.width * 10) + (*p - u'0');
        }
        if (*p == u'.') {
            ++p;
            directive.precision = 0;
            if (*p == u'*') {
                directive.precision = va_arg(arguments, int);
                ++p;
            } else {
                for (; *p >= u'0' && *p <= u'9'; ++p) directive.precision = directive.precision * 10 + (*p - u'0');
            }
        }
        while (*p == u'h' || *p == u'l' || *p == u'z' || *p == u'j' || *p == u'L')
            directive.length += static_cast<char>(*p++);
        if (*p == 0) break;
        directive.conversion = static_cast<char>(*p);
        char buffer[512];
        switch (directive.conversion) {
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o': {
            bool isSigned = directive.conversion == 'd' || directive.conversion == 'i';
            if (directive.length == "ll" || directive.length == "l" || directive.length == "j" || directive.length == "z") {
                if (isSigned)
                    std::snprintf(buffer, sizeof buffer, printfDirective(directive, "ll").c_str(), va_arg(arguments, long long));
                else
                    std::snprintf(buffer, sizeof buffer, printfDirective(directive, "ll").c_str(),
                                  va_arg(arguments, unsigned long long));
            } else if (isSigned) {
                std::snprintf(buffer, sizeof buffer, printfDirective(directive, directive.length.c_str()).c_str(),
                              va_arg(arguments, int));
            } else {
                std::snprintf(buffer, sizeof buffer, printfDirective(directive, directive.length.c_str()).c_str(),
                              va_arg(arguments, unsigned int));
            }
            out += ascii(buffer);
            break;
        }
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            std::snprintf(buffer, sizeof buffer, printfDirective(directive, "").c_str(), va_arg(arguments, double));
            out += ascii(buffer);
            break;
        case 'c':
            pad(out, std::u16string(1, static_cast<char16_t>(va_arg(arguments, int))), directive);
            break;
        case 'p':
            std::snprintf(buffer, sizeof buffer, "%p", va_arg(arguments, void*));
            out += ascii(buffer);
            break;
        case 's':
        case 'S': {
            std::u16string body;
            std::size_t limit = directive.precision < 0 ? SIZE_MAX : static_cast<std::size_t>(directive.precision);
            if (directive.length == "h") {
                const char* text = va_arg(arguments, const char*);
                if (text == nullptr) text = "(null)";
                for (std::size_t i = 0; i < limit && text[i] != 0; ++i)
                    body += static_cast<char16_t>(static_cast<unsigned char>(text[i]));
            } else {
                const char16_t* text = va_arg(arguments, const char16_t*);
                if (text == nullptr) text = u"(null)";
                for (std::size_t i = 0; i < limit && text[i] != 0; ++i) body += text[i];
            }
            pad(out, body, directive);
            break;
        }
        default:
            // An unknown conversion is shown as written; no argument is read.
            out += u'%';
            out += *p;
        }
    }
    return out;
}

std::string toUtf8(const std::u16string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t c = text[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000)
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        else if (c >= 0xD800 && c < 0xE000)
            c = 0xFFFD;
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | c >> 6);
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | c >> 12);
            out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | c >> 18);
            out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
            out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::u16string fromUtf8(std::string_view text) {
    std::u16string out;
    for (std::size_t i = 0; i < text.size();) {
        auto byte = static_cast<unsigned char>(text[i]);
        std::size_t extra = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
        std::uint32_t c = 0xFFFD;
        if (byte < 0x80) {
            c = byte;
            i += 1;
        } else if (extra > 0 && i + extra < text.size()) {
            c = byte & (0x3F >> extra);
            for (std::size_t k = 1; k <= extra; ++k) c = c << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3F);
            i += extra + 1;
        } else {
            i += 1;
        }
        if (c >= 0x10000) {
            out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

}  // namespace txhost
