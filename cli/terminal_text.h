// Text between the terminal (UTF-8) and the session encoding: what a person
// types is converted into the session's bytes before a call, and a string
// result back for printing, so `--encoding ISO-8859-1 'KFIND("Köln", "ö")'`
// means what it says.
#pragma once

#include <memory>
#include <string>

namespace txcli {

class TerminalText {
public:
    explicit TerminalText(const std::string& sessionEncoding);
    ~TerminalText();
    // Characters the session encoding lacks become its substitute character.
    std::string toSession(const std::string& utf8) const;
    std::string fromSession(const std::string& bytes) const;

private:
    struct Converters;
    std::unique_ptr<Converters> converters_;   // null: the session is UTF-8 already
};

}  // namespace txcli
