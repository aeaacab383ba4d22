// Tallying host messages per kind; see message_tally.h.
#include "engine/message_tally.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "host/binder.h"

namespace txengine {

namespace {

bool sameKind(const MessageCount& c, bool error, std::int32_t code, const char* functionName, std::int32_t character) {
    return c.error == error && c.code == code && c.character == character && c.functionName == functionName;
}

bool sameKind(const MessageCount& a, const MessageCount& b) {
    return sameKind(a, b.error, b.code, b.functionName.c_str(), b.character);
}

}  // namespace

void MessageTally::receive(void* context, const txhost::MessageEvent& event) {
    auto& tally = *static_cast<MessageTally*>(context);
    const bool error = event.source == txhost::Message::Source::Error;
    const char* name = event.functionName != nullptr ? event.functionName : "";
    for (MessageCount& c : tally.counts) {
        if (sameKind(c, error, event.code, name, event.character)) {
            ++c.count;
            return;
        }
    }
    MessageCount c;
    c.error = error;
    c.code = event.code;
    c.functionName = name;
    c.character = event.character;
    c.text = txhost::messageText(event);
    c.count = 1;
    c.firstRow = tally.currentRow;
    tally.counts.push_back(std::move(c));
}

void mergeTallies(std::vector<MessageCount>& into, const std::vector<MessageCount>& from) {
    for (const MessageCount& c : from) {
        auto found = std::find_if(into.begin(), into.end(), [&](const MessageCount& m) { return sameKind(m, c); });
        if (found == into.end()) {
            into.push_back(c);
            continue;
        }
        found->count += c.count;
        if (c.firstRow < found->firstRow) {
            found->firstRow = c.firstRow;
            found->text = c.text;
        }
    }
}

void orderByFirstRow(std::vector<MessageCount>& counts) {
    std::sort(counts.begin(), counts.end(), [](const MessageCount& a, const MessageCount& b) {
        return std::tie(a.firstRow, a.error, a.code, a.functionName, a.character) <
               std::tie(b.firstRow, b.error, b.code, b.functionName, b.character);
    });
}

}  // namespace txengine
