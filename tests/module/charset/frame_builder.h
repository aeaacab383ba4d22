// Test support: an ArgumentFrame laid out by hand, for calling the module's
// internal routines (argument interpreter, path functions) directly. Every
// argument's bytes end where an unreadable page begins, so a routine that
// reads past an argument faults at once.
#pragma once

#include <array>
#include <string>
#include <variant>
#include <vector>

#include "module/charset/argument_interpreter.h"
#include "host/guarded_memory.h"
#include "host/host.h"
#include "module/abi/argument_frame.h"

namespace txtest {

using txscan::contract::ArgumentFrame;
using txscan::contract::StringValue;

// Owns the values the frame points to; not copyable, since the frame holds
// addresses into it.
struct FrameBuilder {
    ArgumentFrame frame{};
    std::array<txhost::GuardedBuffer, txscan::contract::kMaxArguments> bytes;
    std::array<StringValue, txscan::contract::kMaxArguments> strings{};

    explicit FrameBuilder(const std::vector<txhost::Argument>& arguments) {
        frame.argCount = static_cast<std::int32_t>(arguments.size());
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            auto& slot = frame.args[i];
            if (const auto* text = std::get_if<std::string>(&arguments[i])) {
                strings[i] = {static_cast<std::int64_t>(text->size()), static_cast<std::int64_t>(text->size()),
                              static_cast<char*>(bytes[i].place(text->data(), text->size())), nullptr, 0};
                slot.typeFlags = txscan::contract::kTypeCharacter | txscan::contract::kTypeRecheck;
                slot.value = &strings[i];
            } else if (const auto* number = std::get_if<double>(&arguments[i])) {
                slot.typeFlags = txscan::contract::kTypeNumeric;
                slot.value = bytes[i].place(number, sizeof *number);
            }
        }
    }
    FrameBuilder(const FrameBuilder&) = delete;
    FrameBuilder& operator=(const FrameBuilder&) = delete;
};

}  // namespace txtest

namespace txtest {

// Session options naming only the encoding.
inline txhost::SessionOptions sessionOptions(const char* encoding) {
    txhost::SessionOptions options;
    options.encoding = encoding;
    return options;
}

// ArgumentRoles in their declared order: source, second, list, modifiers,
// start, count, delimiters.
inline txscan::ArgumentRoles roles(std::uint32_t source, std::uint32_t second, std::uint32_t list,
                                   std::uint32_t modifiers, std::uint32_t start, std::uint32_t count,
                                   std::uint32_t delimiters) {
    return {source, second, list, modifiers, start, count, delimiters};
}

}  // namespace txtest
