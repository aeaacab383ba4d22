// Reads the left side of an assignment and hands the right side to the call
// reader of `eval`.
#include "cli/apply/assignment.h"

#include <cctype>

namespace txcli {

namespace {

bool isNameStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_'; }
bool isNamePart(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

class LeftSide {
public:
    explicit LeftSide(std::string_view text) : text_(text) {}

    std::vector<std::string> read() {
        std::vector<std::string> targets;
        skipBlanks();
        if (peek('(')) {
            ++pos_;
            targets.push_back(name());
            skipBlanks();
            if (!peek(',')) fail("expected ',' between the two names of a call routine's results");
            ++pos_;
            targets.push_back(name());
            skipBlanks();
            if (!peek(')')) fail("expected ')'");
            ++pos_;
        } else {
            targets.push_back(name());
        }
        skipBlanks();
        if (!peek('=')) fail("expected '=': write NAME = CALL");
        ++pos_;
        return targets;
    }
    std::size_t end() const { return pos_; }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw SyntaxError(what + " at column " + std::to_string(pos_ + 1) + " of: " + std::string(text_));
    }
    void skipBlanks() {
        while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    }
    bool peek(char c) const { return pos_ < text_.size() && text_[pos_] == c; }
    std::string name() {
        skipBlanks();
        if (peek('`')) {
            std::optional<std::string> quoted = readQuotedName(text_, pos_);
            if (!quoted) fail("a name in backticks left open or empty");
            return *quoted;
        }
        if (pos_ >= text_.size() || !isNameStart(text_[pos_])) fail("expected a column name");
        const std::size_t begin = pos_;
        while (pos_ < text_.size() && isNamePart(text_[pos_])) ++pos_;
        return std::string(text_.substr(begin, pos_ - begin));
    }

    std::string_view text_;
    std::size_t pos_ = 0;
};

}  // namespace

Assignment parseAssignment(std::string_view text) {
    LeftSide left(text);
    Assignment assignment;
    assignment.targets = left.read();
    assignment.source = std::string(text);
    try {
        assignment.call = parseCall(text.substr(left.end()));
    } catch (const SyntaxError& e) {
        // The call reader counts columns from the right side; count them from
        // the start of the assignment the person wrote.
        const std::string message = e.what();
        const std::string marker = " at column ";
        const std::size_t at = message.find(marker);
        if (at == std::string::npos) throw SyntaxError(message + " in: " + assignment.source);
        const std::size_t column = std::stoul(message.substr(at + marker.size())) + left.end();
        throw SyntaxError(message.substr(0, at) + marker + std::to_string(column) + " of: " + assignment.source);
    }
    const bool pair = assignment.targets.size() == 2;
    if (pair && !assignment.call.callRoutine) {
        throw SyntaxError("two names take the results of a call routine: (" + assignment.targets[0] + ", " +
                          assignment.targets[1] + ") = CALL " + assignment.call.function + "(...) in: " +
                          assignment.source);
    }
    if (!pair && assignment.call.callRoutine) {
        throw SyntaxError("a call routine gives two columns: write (POSITION, LENGTH) = CALL " +
                          assignment.call.function + "(...) in: " + assignment.source);
    }
    return assignment;
}

}  // namespace txcli
