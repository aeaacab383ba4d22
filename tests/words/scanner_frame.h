// Test support: runs the word scanner directly (modes 1 and 2) on an
// ArgumentFrame laid out by hand, in a session whose module is linked in.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/host.h"
#include "module/encoding_ops.h"
#include "module/exports.h"
#include "words/word_scanner.h"

namespace wordtest {

using txscan::contract::ArgumentFrame;
using txscan::contract::StringValue;

// The values a frame points to live here; not copyable for that reason.
struct Frame {
    ArgumentFrame frame{};
    std::array<std::string, txscan::contract::kMaxArguments> texts;
    std::array<StringValue, txscan::contract::kMaxArguments> strings{};
    std::array<double, txscan::contract::kMaxArguments> numbers{};

    explicit Frame(const std::vector<txhost::Argument>& arguments) {
        frame.argCount = static_cast<std::int32_t>(arguments.size());
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            auto& slot = frame.args[i];
            if (const auto* text = std::get_if<std::string>(&arguments[i])) {
                texts[i] = *text;
                const auto n = static_cast<std::int64_t>(text->size());
                strings[i] = {n, n, texts[i].data(), nullptr, 0};
                slot.typeFlags = txscan::contract::kTypeCharacter;
                slot.value = &strings[i];
            } else if (const auto* number = std::get_if<double>(&arguments[i])) {
                numbers[i] = *number;
                slot.typeFlags = txscan::contract::kTypeNumeric;
                slot.value = &numbers[i];
            }
        }
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;
};

// A session with the module linked into the test program, so that its
// internal routines can be called.
struct InProcess {
    txhost::Session session;
    std::unique_ptr<txhost::Module> module;

    explicit InProcess(const char* encoding) : session(options(encoding)) {
        module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
    }
    static txhost::SessionOptions options(const char* encoding) {
        txhost::SessionOptions o;
        o.encoding = encoding;
        return o;
    }

    struct Answer {
        std::int32_t status;
        double number;
    };
    // Mode 1 (count) or 2 (find) with the given roles.
    Answer scan(const std::vector<txhost::Argument>& arguments, const txscan::ArgumentRoles& roles,
                std::int32_t mode) {
        Frame f(arguments);
        double number = -12345.0;
        const std::int32_t status =
            txscan::scanWords(&f.frame, &number, session.encodingHandle(), 0, &roles, mode, nullptr);
        return {status, number};
    }
};

// KCOUNTW's roles: source 1, delimiters 2, modifiers 3 when given.
inline txscan::ArgumentRoles countRoles(std::size_t argCount) {
    txscan::ArgumentRoles r{};
    r.source = 1;
    if (argCount >= 2) r.delimiters = 2;
    if (argCount >= 3) r.modifiers = 3;
    return r;
}

// KFINDW's roles for source, word [, delimiters [, modifiers]] (no start).
inline txscan::ArgumentRoles findRoles(std::size_t argCount) {
    txscan::ArgumentRoles r{};
    r.source = 1;
    r.second = 2;
    if (argCount >= 3) r.delimiters = 3;
    if (argCount >= 4) r.modifiers = 4;
    return r;
}

}  // namespace wordtest
