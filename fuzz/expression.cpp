// The command line's expression reader on arbitrary text: every input is
// either a call or a SyntaxError, and the text a call records as its source
// reads back as the same call.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "cli/expression.h"

namespace {

bool sameShape(const txcli::Call& a, const txcli::Call& b) {
    if (a.function != b.function || a.callRoutine != b.callRoutine || a.arguments.size() != b.arguments.size())
        return false;
    for (std::size_t i = 0; i < a.arguments.size(); ++i) {
        const auto& x = a.arguments[i];
        const auto& y = b.arguments[i];
        if (x.index() != y.index()) return false;
        if (auto* nested = std::get_if<std::unique_ptr<txcli::Call>>(&x)) {
            if (!sameShape(**nested, *std::get<std::unique_ptr<txcli::Call>>(y))) return false;
        } else if (auto* text = std::get_if<std::string>(&x)) {
            if (*text != std::get<std::string>(y)) return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        const txcli::Call call = txcli::parseCall(text);
        if (text.find(call.source) == std::string_view::npos) std::abort();
        if (!sameShape(call, txcli::parseCall(call.source))) std::abort();
    } catch (const txcli::SyntaxError&) {
    }
    return 0;
}
