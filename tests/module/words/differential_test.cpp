// The vector word counts against their byte-by-byte forms.
#include "module/words/word_starts.h"
#include "tests/support/generated_calls.h"

namespace {

using namespace txtest;

TEST(WordsDifferential, VectorWordStartsMatchByteByByte) {
    Generator g{std::mt19937(20261123)};
    for (int i = 0; i < 400; ++i) {
        const std::string text = g.text({"a", "b", " ", ",", "\xE9", "\x80"}, 700);
        const auto* data = reinterpret_cast<const std::uint8_t*>(text.data());
        const auto length = static_cast<std::int64_t>(text.size());
        std::uint8_t set[256] = {};
        for (char c : g.text({" ", ",", "\xE9"}, 3)) set[static_cast<unsigned char>(c)] = 1;
        ASSERT_EQ(txscan::countWordStarts(data, length, set), txscan::countWordStartsScalar(data, length, set));
        const auto delimiter = static_cast<std::uint8_t>(g.oneIn(2) ? ' ' : 0x80);
        ASSERT_EQ(txscan::countWordStartsSplitBy(data, length, delimiter),
                  txscan::countWordStartsSplitByScalar(data, length, delimiter));
    }
}

}  // namespace
