// State dumps: a generator's working state as numbered 64-bit or 32-bit
// words, four to a line, through the host logger at level 0.
#include <cstring>

#include "module/rng/generator_kit.h"
#include "module/rng/host_access.h"

namespace txscan::rng {
namespace {

struct DumpFormats {
    const TKChar* lines[4];   // one to four items
};
constexpr DumpFormats kFormats64{{u"   %3i: %16llx", u"   %3i: %16llx  %3i: %16llx",
                                  u"   %3i: %16llx  %3i: %16llx  %3i: %16llx",
                                  u"   %3i: %16llx  %3i: %16llx  %3i: %16llx  %3i: %16llx"}};
constexpr DumpFormats kFormats32{{u"   %3i: %8x", u"   %3i: %8x  %3i: %8x", u"   %3i: %8x  %3i: %8x  %3i: %8x",
                                  u"   %3i: %8x  %3i: %8x  %3i: %8x  %3i: %8x"}};

// Word types as the formats read them: "%16llx" an unsigned long long, "%8x" an unsigned int.
template <typename Word>
using Printed = std::conditional_t<sizeof(Word) == 8, unsigned long long, unsigned int>;

template <typename Word>
Printed<Word> wordAt(const void* state, std::int32_t index) {
    Word word;
    std::memcpy(&word, static_cast<const char*>(state) + index * sizeof(Word), sizeof word);
    return word;
}

template <typename Word>
void dumpWords(const void* state, std::uint64_t words, std::int32_t maxItems, const DumpFormats& formats) {
    contract::Logger* logger = hostLogger();
    if (logger == nullptr) return;
    std::int32_t n = maxItems < 0 ? 0 : static_cast<std::int32_t>(words < std::uint64_t(maxItems) ? words : maxItems);
    for (std::int32_t i = 0; i < n; i += 4) {
        auto w = [&](std::int32_t k) { return wordAt<Word>(state, i + k); };
        switch (n - i < 4 ? n - i : 4) {
        case 1: logger->logLine(logger, contract::kLevelDump, formats.lines[0], 0, i, w(0)); break;
        case 2: logger->logLine(logger, contract::kLevelDump, formats.lines[1], 0, i, w(0), i + 1, w(1)); break;
        case 3:
            logger->logLine(logger, contract::kLevelDump, formats.lines[2], 0, i, w(0), i + 1, w(1), i + 2, w(2));
            break;
        default:
            logger->logLine(logger, contract::kLevelDump, formats.lines[3], 0, i, w(0), i + 1, w(1), i + 2, w(2),
                            i + 3, w(3));
        }
    }
    if (std::uint64_t(maxItems < 0 ? 0 : maxItems) < words)
        logger->logLine(logger, contract::kLevelDump, u"        Further elements omitted.", 0);
}

}  // namespace

void dumpWords64(const void* state, std::uint64_t words, std::int32_t maxItems) {
    dumpWords<std::uint64_t>(state, words, maxItems, kFormats64);
}

void dumpWords32(const void* state, std::uint64_t words, std::int32_t maxItems) {
    dumpWords<std::uint32_t>(state, words, maxItems, kFormats32);
}

}  // namespace txscan::rng
