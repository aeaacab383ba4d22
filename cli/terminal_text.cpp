// Conversions through the host's encoding backend, by way of UTF-16.
#include "cli/terminal_text.h"

#include <stdexcept>
#include <vector>

#include "host/encoding.h"
#include "host/encoding_backend.h"

namespace txcli {

namespace backend = txhost::backend;

struct TerminalText::Converters {
    backend::ConverterPtr terminal = backend::openConverter("UTF-8");
    backend::ConverterPtr session;
};

namespace {

std::string convert(backend::Converter& from, backend::Converter& to, const std::string& text) {
    // No encoding the host offers takes more UTF-16 units than bytes.
    std::vector<char16_t> units(text.size() + 1);
    std::int64_t written = 0;
    if (!backend::toUtf16(from, text.data(), static_cast<std::int64_t>(text.size()), units.data(),
                          static_cast<std::int64_t>(units.size()), &written)) {
        throw std::runtime_error("cannot convert the text \"" + text + "\"");
    }
    std::string out;
    if (!backend::fromUtf16(to, units.data(), written, out)) {
        throw std::runtime_error("cannot convert the text \"" + text + "\"");
    }
    return out;
}

}  // namespace

TerminalText::TerminalText(const std::string& sessionEncoding) {
    const txhost::EncodingTraits* traits = txhost::findEncoding(sessionEncoding);
    if (traits == nullptr || traits->encodingId == txscan::contract::kEncodingIdUtf8) return;
    converters_ = std::make_unique<Converters>();
    converters_->session = backend::openConverter(traits->name);
}

TerminalText::~TerminalText() = default;

std::string TerminalText::toSession(const std::string& utf8) const {
    return converters_ ? convert(*converters_->terminal, *converters_->session, utf8) : utf8;
}

std::string TerminalText::fromSession(const std::string& bytes) const {
    return converters_ ? convert(*converters_->session, *converters_->terminal, bytes) : bytes;
}

}  // namespace txcli
