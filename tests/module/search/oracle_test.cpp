// The byte paths' fast routines against plain scans: the substring search
// (exact and caseless, both directions, counting) on generated texts, and
// trailing-blank trimming at every alignment. Inputs live in buffers of
// exactly their length, so AddressSanitizer sees any read outside them.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "module/search/substring_scan.h"
#include "module/search/trim_blanks.h"
#include "tests/support/module_calls.h"

namespace {

using txscan::Pattern;
using txscan::searchBytes;
using txscan::SearchMode;

TEST(SubstringScan, AgreesWithPlainScan) {
    // Latin-1 folds the accented pair 0xC9/0xE9 as well as ASCII letters;
    // 0xFF has no upper case of its own there.
    txtest::InProcess latin1("ISO-8859-1");
    const std::uint8_t* upper = latin1.session.hostVector()->upcaseMap;
    const std::uint8_t alphabet[] = {'a', 'A', 'b', 'B', 0xE9, 0xC9, 0xFF, ' '};
    std::mt19937 random(7);
    for (int trial = 0; trial < 4000; ++trial) {
        const int letters = 2 + trial % 7;   // small alphabets give many near matches
        std::vector<std::uint8_t> text(random() % 160);
        for (auto& b : text) b = alphabet[random() % letters];
        std::vector<std::uint8_t> pattern(1 + random() % 18);
        // Half the patterns are cut from the text, so that matches exist.
        if (trial % 2 == 0 && text.size() > pattern.size()) {
            const std::size_t at = random() % (text.size() - pattern.size());
            std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(at), pattern.size(), pattern.begin());
            if (random() % 2) pattern[random() % pattern.size()] ^= 0x20;   // flip one case
        } else {
            for (auto& b : pattern) b = alphabet[random() % letters];
        }
        // The oracle: the standard library's plain searches, comparing bytes
        // through the session's upper-case map when caseless.
        for (bool caseless : {false, true}) {
            SCOPED_TRACE(::testing::Message() << "trial " << trial << " caseless " << caseless);
            const auto equal = [&](std::uint8_t a, std::uint8_t b) { return caseless ? upper[a] == upper[b] : a == b; };
            const auto search = [&](auto from) { return std::search(from, text.end(), pattern.begin(), pattern.end(), equal); };
            const auto position = [&](auto at) { return at == text.end() ? std::ptrdiff_t{-1} : at - text.begin(); };
            std::int64_t count = 0;
            for (auto at = search(text.begin()); at != text.end(); at = search(at + std::ssize(pattern))) ++count;
            const Pattern p{pattern.data(), static_cast<std::int64_t>(pattern.size()), caseless};
            const auto n = static_cast<std::int64_t>(text.size());
            ASSERT_EQ(position(search(text.begin())), searchBytes<SearchMode::kFirst>(text.data(), n, p));
            ASSERT_EQ(position(std::find_end(text.begin(), text.end(), pattern.begin(), pattern.end(), equal)),
                      searchBytes<SearchMode::kLast>(text.data(), n, p));
            ASSERT_EQ(count, searchBytes<SearchMode::kCount>(text.data(), n, p));
        }
    }
}

TEST(TrimTrailingBlanks, EveryAlignmentAndLength) {
    for (std::size_t offset = 0; offset < 8; ++offset) {
        for (std::size_t length = 0; length <= 48; ++length) {
            for (std::size_t blanks = 0; blanks <= length; ++blanks) {
                std::vector<char> buffer(offset + length, 'x');
                std::fill(buffer.end() - static_cast<std::ptrdiff_t>(blanks), buffer.end(), ' ');
                if (length > blanks && (length - blanks) % 3 == 0) buffer[offset] = ' ';   // a leading blank stays
                SCOPED_TRACE(::testing::Message() << offset << " " << length << " " << blanks);
                ASSERT_EQ(static_cast<std::int64_t>(length - blanks),
                          txscan::trimTrailingBlanks(buffer.data() + offset, static_cast<std::int64_t>(length)));
            }
        }
    }
}

}  // namespace
