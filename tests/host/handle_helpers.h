// Cursors laid out the way the module lays them out, for the host's own
// tests; the handle's operations are called through the module's wrappers.
#pragma once

#include <string>

#include "host/host.h"
#include "module/frame/encoding_ops.h"

namespace hosttest {

using namespace txscan::contract;
using namespace txscan::enc;
using txscan::setupCursor;

struct Cursor {
    std::string text;
    TextCursor cursor{};
    Cursor(EncodingHandle* h, std::string t) : text(std::move(t)) {
        setupCursor(h, &cursor, text.data(), static_cast<std::int64_t>(text.size()));
    }
    Cursor(const Cursor&) = delete;
    TextCursor* operator->() { return &cursor; }
    TextCursor* get() { return &cursor; }
};

struct CharCursor {
    char buffer[kCharBufferBytes] = {};
    TextCursor cursor{};
    explicit CharCursor(EncodingHandle* h) { setupCursor(h, &cursor, buffer, kCharBufferBytes); }
    CharCursor(const CharCursor&) = delete;
    std::string held() const { return std::string(buffer, static_cast<std::size_t>(cursor.length)); }
    TextCursor* get() { return &cursor; }
};

}  // namespace hosttest
