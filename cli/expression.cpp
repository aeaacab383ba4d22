// A small recursive-descent reader for the calls of `txscan eval`.
#include "cli/expression.h"

#include <cctype>
#include <charconv>
#include <cstdlib>

namespace txcli {

namespace {

class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    Call wholeCall() {
        Call call = readCall();
        skipBlanks();
        if (pos_ != text_.size()) fail("unexpected text after the call");
        return call;
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        // Long texts (deep nesting, say) are shown by their start only.
        constexpr std::size_t kShown = 80;
        const std::string shown =
            text_.size() <= kShown ? std::string(text_) : std::string(text_.substr(0, kShown - 3)) + "...";
        throw SyntaxError(what + " at column " + std::to_string(pos_ + 1) + " of: " + shown);
    }
    void skipBlanks() {
        while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    }
    bool atNameStart() const {
        return pos_ < text_.size() && (std::isalpha(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_');
    }
    std::string readName() {
        std::string name;
        while (pos_ < text_.size() &&
               (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_')) {
            name += text_[pos_++];
        }
        return name;
    }
    static std::string upper(std::string s) {
        for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return s;
    }

    Call readCall() {
        skipBlanks();
        const std::size_t begin = pos_;
        if (++depth_ > kMaxNesting) fail("calls nest deeper than " + std::to_string(kMaxNesting) + " levels");
        if (!atNameStart()) fail("expected a function name");
        Call call;
        call.function = upper(readName());
        if (call.function == "CALL") {
            skipBlanks();
            if (!atNameStart()) fail("expected a routine name after CALL");
            call.callRoutine = true;
            call.function = upper(readName());
        }
        skipBlanks();
        if (pos_ >= text_.size() || text_[pos_] != '(') fail("expected '('");
        ++pos_;
        skipBlanks();
        if (pos_ < text_.size() && text_[pos_] == ')') {
            ++pos_;
        } else {
            for (;;) {
                call.arguments.push_back(readArgument());
                skipBlanks();
                if (pos_ < text_.size() && text_[pos_] == ',') {
                    ++pos_;
                    continue;
                }
                if (pos_ < text_.size() && text_[pos_] == ')') {
                    ++pos_;
                    break;
                }
                fail("expected ',' or ')'");
            }
        }
        call.source = std::string(text_.substr(begin, pos_ - begin));
        --depth_;
        return call;
    }

    Expression readArgument() {
        skipBlanks();
        if (pos_ >= text_.size()) fail("expected an argument");
        const char c = text_[pos_];
        if (c == '"' || c == '\'') return readString(c);
        if (c == '.' && (pos_ + 1 >= text_.size() || !std::isdigit(static_cast<unsigned char>(text_[pos_ + 1])))) {
            ++pos_;
            return Missing{};
        }
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '+' || c == '.') return readNumber();
        if (c == '`') {
            std::optional<std::string> name = readQuotedName(text_, pos_);
            if (!name) fail("a name in backticks left open or empty");
            return Name{*name};
        }
        if (atNameStart()) {
            const std::size_t save = pos_;
            std::string name = readName();
            skipBlanks();
            if ((pos_ < text_.size() && text_[pos_] == '(') || upper(name) == "CALL") {
                pos_ = save;
                auto nested = std::make_unique<Call>(readCall());
                if (nested->callRoutine) fail("a call routine cannot be an argument");
                return nested;
            }
            return Name{name};
        }
        fail("unexpected character");
    }

    std::string readString(char quote) {
        ++pos_;
        std::string value;
        for (;;) {
            if (pos_ >= text_.size()) fail("unterminated string");
            if (text_[pos_] == quote) {
                if (pos_ + 1 < text_.size() && text_[pos_ + 1] == quote) {
                    value += quote;
                    pos_ += 2;
                    continue;
                }
                ++pos_;
                return value;
            }
            value += text_[pos_++];
        }
    }

    double readNumber() {
        const std::size_t begin = pos_;
        if (text_[pos_] == '-' || text_[pos_] == '+') ++pos_;
        while (pos_ < text_.size() &&
               (std::isdigit(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '.' || text_[pos_] == 'e' ||
                text_[pos_] == 'E' ||
                ((text_[pos_] == '-' || text_[pos_] == '+') && (text_[pos_ - 1] == 'e' || text_[pos_ - 1] == 'E')))) {
            ++pos_;
        }
        std::string literal(text_.substr(begin, pos_ - begin));
        if (!literal.empty() && literal[0] == '+') literal.erase(0, 1);
        double value = 0;
        auto [end, error] = std::from_chars(literal.data(), literal.data() + literal.size(), value);
        if (error != std::errc() || end != literal.data() + literal.size() || literal.empty()) {
            pos_ = begin;
            fail("bad number '" + literal + "'");
        }
        return value;
    }

    std::string_view text_;
    std::size_t pos_ = 0;
    int depth_ = 0;
};

}  // namespace

Call parseCall(std::string_view text) { return Reader(text).wholeCall(); }

std::optional<std::string> readQuotedName(std::string_view text, std::size_t& pos) {
    std::string name;
    for (std::size_t at = pos + 1; at < text.size(); ++at) {
        if (text[at] != '`') {
            name += text[at];
        } else if (at + 1 < text.size() && text[at + 1] == '`') {
            name += text[++at];
        } else {
            if (name.empty()) return std::nullopt;
            pos = at + 1;
            return name;
        }
    }
    return std::nullopt;
}

}  // namespace txcli
