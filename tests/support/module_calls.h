// Test support shared by the module's tests: frames laid out by hand for
// calling internal routines in-process, and tables of calls run through the
// host and the module's exports, each checked for result, status and notes.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/guarded_memory.h"
#include "host/host.h"
#include "module/abi/argument_frame.h"
#include "module/charset/argument_interpreter.h"
#include "module/frame/exports.h"
#include "module/words/word_scanner.h"

namespace txtest {

using txhost::Absent;
using txhost::Argument;
using txscan::contract::ArgumentFrame;
using txscan::contract::StringValue;

inline std::string s(const char* text) { return text; }

// The arguments of a call, readably, for failure traces.
inline std::string describe(const std::vector<Argument>& arguments) {
    std::string out;
    for (const Argument& a : arguments) {
        if (const auto* text = std::get_if<std::string>(&a)) out += "'" + *text + "' ";
        if (const auto* number = std::get_if<double>(&a)) out += std::to_string(*number) + " ";
        if (std::holds_alternative<Absent>(a)) out += ". ";
    }
    return out;
}

// Everything a call answers, messages included, for comparing two calls.
inline std::string outcome(const txhost::CallResult& r) {
    std::string text = std::to_string(r.status) + " " + std::to_string(r.number.value_or(-1)) + " " +
                       r.text.value_or("-") + " " + std::to_string(r.position.value_or(-1)) + " " +
                       std::to_string(r.length.value_or(-1));
    for (const txhost::Message& m : r.messages) text += " [" + m.text + "]";
    return text;
}

// Owns the values the frame points to; not copyable, since the frame holds
// addresses into it.
struct FrameBuilder {
    ArgumentFrame frame{};
    // Every argument's bytes end where an unreadable page begins, so a
    // routine that reads past an argument faults at once.
    std::array<txhost::GuardedBuffer, txscan::contract::kMaxArguments> bytes;
    std::array<StringValue, txscan::contract::kMaxArguments> strings{};

    explicit FrameBuilder(const std::vector<Argument>& arguments) {
        frame.argCount = static_cast<std::int32_t>(arguments.size());
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            auto& slot = frame.args[i];
            if (const auto* text = std::get_if<std::string>(&arguments[i])) {
                const auto length = static_cast<std::int64_t>(text->size());
                strings[i] = {length, length, static_cast<char*>(bytes[i].place(text->data(), text->size())),
                              nullptr, 0};
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

// A session with the module linked into the test program, so that its
// internal routines can be called.
struct InProcess {
    txhost::Session session;
    std::unique_ptr<txhost::Module> module;

    explicit InProcess(const char* encoding = "UTF-8")
        : session({.encoding = encoding}), module(txhost::Module::attach(session, &mcn_main, &tkvercn1)) {}

    struct Answer { std::int32_t status; double number; };
    // The word scanner's count or find mode with the given roles.
    Answer scan(const std::vector<Argument>& arguments, const txscan::ArgumentRoles& roles, std::int32_t mode) {
        FrameBuilder f(arguments);
        double number = -12345.0;
        const std::int32_t status =
            txscan::scanWords(&f.frame, &number, session.encodingHandle(), 0, &roles, mode, nullptr);
        return {status, number};
    }
};

// KCOUNTW's roles (source, delimiters, modifiers) and KFINDW's without a
// start (source, word, delimiters, modifiers), for as many as are given.
inline txscan::ArgumentRoles countRoles(std::size_t argCount) {
    return {1, 0, 0, argCount >= 3 ? 3u : 0u, 0, 0, argCount >= 2 ? 2u : 0u};
}
inline txscan::ArgumentRoles findRoles(std::size_t argCount) {
    return {1, 2, 0, argCount >= 4 ? 4u : 0u, 0, 0, argCount >= 3 ? 3u : 0u};
}

struct Case {
    const char* function;
    std::vector<Argument> arguments;
    double expected;
    std::string notes = {};   // the noted letters, in order
    std::int32_t status = 0;
};

// The short name a function's notes carry.
inline std::string noteName(const std::string& function) {
    if (function == "KFIND") return "FIND";
    if (function == "KCOUNTX") return "COUNT";
    if (function == "KCOUNTW") return "SCAN";
    if (function == "KFINDW") return "FINDC";
    return function.substr(1);   // KFINDC, KCOUNTC
}

inline void runCases(const char* encoding, const std::vector<Case>& cases) {
    txhost::Session session({.encoding = encoding});
    auto module = txhost::Module::load(session);
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << encoding << " " << c.function << "(" << describe(c.arguments) << ")");
        const txhost::CallResult r = module->call(c.function, c.arguments);
        EXPECT_EQ(c.status, r.status);
        std::string notes;
        for (const auto& m : r.messages) {
            EXPECT_EQ(744, m.code);
            EXPECT_EQ(6, m.kind);
            EXPECT_EQ(noteName(c.function), m.functionName);
            notes += static_cast<char>(m.character);
        }
        EXPECT_EQ(c.notes, notes);
        if (c.status == txscan::contract::kStatusInvalidArgument) {
            EXPECT_FALSE(r.numberStored());
        } else if (c.status == txscan::contract::kStatusMissingStart) {
            ASSERT_TRUE(r.numberStored());
            EXPECT_EQ(txscan::contract::kMissingValueBits, std::bit_cast<std::uint64_t>(*r.number));
        } else {
            ASSERT_TRUE(r.numberStored());
            EXPECT_EQ(c.expected, *r.number);
        }
    }
}

}  // namespace txtest
