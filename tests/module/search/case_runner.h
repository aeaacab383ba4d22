// Test support: tables of calls run through the host and the module's
// exports, each checked for its result, status and the letters of the notes
// it drew.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <vector>

#include "tests/module/charset/frame_builder.h"
#include "host/host.h"

namespace txtest {

inline constexpr std::int32_t kMissingStart = 0x1D801;
inline constexpr std::int32_t kInvalid = 0x1D804;

struct Case {
    const char* function;
    std::vector<txhost::Argument> arguments;
    double expected;
    std::string notes = {};   // the noted letters, in order
    std::int32_t status = 0;
};

// The short name a function's notes carry.
inline std::string noteName(const std::string& function) {
    if (function == "KFIND") return "FIND";
    if (function == "KCOUNTX") return "COUNT";
    return function.substr(1);   // KFINDC, KCOUNTC
}

// The arguments of a call, readably, for failure traces.
inline std::string describe(const std::vector<txhost::Argument>& arguments) {
    std::string out;
    for (const txhost::Argument& a : arguments) {
        if (const auto* text = std::get_if<std::string>(&a)) out += "'" + *text + "' ";
        if (const auto* number = std::get_if<double>(&a)) out += std::to_string(*number) + " ";
        if (std::holds_alternative<txhost::Absent>(a)) out += ". ";
    }
    return out;
}

inline void runCases(const char* encoding, const std::vector<Case>& cases) {
    txhost::Session session(sessionOptions(encoding));
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
        if (c.status == kInvalid) {
            EXPECT_FALSE(r.numberStored());
        } else if (c.status == kMissingStart) {
            ASSERT_TRUE(r.numberStored());
            EXPECT_EQ(0xFFFFD10000000000ull, std::bit_cast<std::uint64_t>(*r.number));
        } else {
            ASSERT_TRUE(r.numberStored());
            EXPECT_EQ(c.expected, *r.number);
        }
    }
}

}  // namespace txtest
