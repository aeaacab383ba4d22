// How deep calls may nest in what txscan eval reads, and the numbers its
// options take.
#include <gtest/gtest.h>

#include <cstdint>

#include "cli/expression.h"
#include "cli/number_option.h"

namespace {

using namespace txcli;

std::string nested(int depth) {
    std::string text = "'a'";
    for (int i = 0; i < depth; ++i) text = "KSCANX(" + text + ", 1)";
    return text;
}

TEST(Nesting, DepthLimit) {
    const struct {
        int depth;
        bool accepted;
    } cases[] = {{1, true}, {kMaxNesting, true}, {kMaxNesting + 1, false}, {1000, false}};
    for (const auto& c : cases) {
        if (c.accepted) {
            EXPECT_NO_THROW(parseCall(nested(c.depth))) << c.depth;
        } else {
            EXPECT_THROW(parseCall(nested(c.depth)), SyntaxError) << c.depth;
        }
    }
}

TEST(NumberOption, ExactReadings) {
    const struct {
        const char* text;
        std::uint64_t value;   // 0: refused
    } cases[] = {{"18446744073709551615", ~0ull}, {"0xFFFFFFFFFFFFFFFF", ~0ull}, {"+7", 7},
                 {"18446744073709551616", 0},     {"-1", 0},                    {"1e3", 0},
                 {"", 0},                         {"0x", 0},                    {"5 ", 0}};
    for (const auto& c : cases) {
        if (c.value != 0) {
            EXPECT_EQ(parseNumberOption<std::uint64_t>("--key", c.text, 0, ~0ull), c.value) << c.text;
        } else {
            EXPECT_THROW(parseNumberOption<std::uint64_t>("--key", c.text, 0, ~0ull), CLI::ValidationError) << c.text;
        }
    }
    EXPECT_EQ(parseNumberOption<double>("--stream", "1.8446744073709552e19", -1e308, 1e308), 0x1p64);
    for (const char* bad : {"nan", "inf", "1e999", "1.5x"})
        EXPECT_THROW(parseNumberOption<double>("--stream", bad, -1e308, 1e308), CLI::ValidationError) << bad;
}

}  // namespace
