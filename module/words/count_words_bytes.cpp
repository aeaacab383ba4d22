// KCOUNTW's byte path, for a source the adapter found to hold no character
// of more than one byte: one byte is one character. The delimiter set comes
// from the call site's cache, from the function environment's defaults, or
// is built from the delimiter list and the modifiers; counting is a table
// lookup per byte, vectorised where no quote needs pairing.
#include "module/charset/byte_classes.h"
#include "module/charset/cached_set.h"
#include "module/charset/char_set.h"
#include "module/charset/letter_table.h"
#include "module/charset/set_scan.h"
#include "module/frame/function_environment.h"
#include "module/frame/workers.h"
#include "module/search/trim_blanks.h"
#include "module/words/quote_parts.h"
#include "module/words/word_starts.h"

namespace txscan {

using namespace contract;

namespace {

// B I K M O Q T are KCOUNTW's switches; every other letter but a class
// letter or a blank draws a note naming "SCAN".
constexpr LetterTable kCountWordsLetters = makeLetterTable("SCAN", "BIKMOQT", true);

struct CountFlags {
    bool backward;     // B: quotes pair up from the right-hand end
    bool emptyWords;   // M
    bool quotes;       // Q
    bool trim;         // T
};

// The site's cached set (after K), as the first call with O left it.
enum CountWordsFlag { kCachedBackward, kCachedEmptyWords, kCachedQuotes, kCachedTrim, kCountWordsFlags };
using CountWordsCache = CachedRecord<kCountWordsFlags>;

// Counting under Q, in the direction of `step`: a quote byte outside a
// quoted part opens one that ends at the next equal byte not doubled; all
// of it belongs to the current word. An unclosed part runs to the end.
std::int64_t countQuoted(const std::uint8_t* data, std::int64_t length, const std::uint8_t* set, bool emptyWords,
                         std::int64_t step) {
    std::int64_t words = 0;
    std::int64_t delimiters = 0;
    bool inWord = false;
    const auto inside = [length](std::int64_t k) { return k >= 0 && k < length; };
    for (std::int64_t i = step > 0 ? 0 : length - 1; inside(i);) {
        const std::uint8_t c = data[i];
        if (isQuoteByte(c)) {
            if (!inWord) ++words;
            inWord = true;
            i = closingQuote(data, i, step, 0, length) + step;
            continue;
        }
        if (set[c] != 0) {
            ++delimiters;
            inWord = false;
        } else if (!inWord) {
            ++words;
            inWord = true;
        }
        i += step;
    }
    return emptyWords ? delimiters + 1 : words;
}

std::int64_t countWithSet(const std::uint8_t* data, std::int64_t length, const std::uint8_t* set,
                          const CountFlags& flags) {
    if (flags.quotes) return countQuoted(data, length, set, flags.emptyWords, flags.backward ? -1 : 1);
    // Without quotes both directions give the same count.
    if (flags.emptyWords) return countInSet(data, length, set) + 1;
    return countWordStarts(data, length, set);
}

std::int32_t storeCount(double* result, std::int64_t words) {
    *result = static_cast<double>(words);
    return kStatusOk;
}

}  // namespace

std::int32_t countWordsBytes(ArgumentFrame* frame, double* result) {
    const StringValue* sourceValue = frame->string(1);
    const auto* source = sourceValue != nullptr ? reinterpret_cast<const std::uint8_t*>(sourceValue->data) : nullptr;
    std::int64_t length = sourceValue != nullptr ? static_cast<std::int32_t>(sourceValue->length) : 0;
    if (length < 0) length = 0;

    if (frame->argCount < 2) {
        // Only the environment's table is read, and only from a complete
        // record: a call that cannot have one fails and stores nothing.
        FunctionEnvironment* environment = functionEnvironmentFor(frame);
        if (environment == nullptr) return kStatusNoMemory;
        const auto* defaults = environment->defaultDelimiters;
        return storeCount(result, countWordStarts(source, length, defaults));
    }

    if (frame->argCount >= 3) {
        if (const CountWordsCache* cache = cachedRecordOf<kCountWordsFlags>(frame)) {
            const CountFlags flags{cache->flag[kCachedBackward] != 0, cache->flag[kCachedEmptyWords] != 0,
                                   cache->flag[kCachedQuotes] != 0, cache->flag[kCachedTrim] != 0};
            if (flags.trim) length = trimTrailingBlanks(reinterpret_cast<const char*>(source), length);
            return storeCount(result, countWithSet(source, length, cache->set.member, flags));
        }
    }

    const StringValue* list = frame->string(2);
    if (list != nullptr && list->length == 1 && frame->argCount < 3) {
        return storeCount(result, countWordStartsSplitBy(source, length, static_cast<std::uint8_t>(list->data[0])));
    }

    ByteModifiers modifiers{};
    const StringValue* modifierText = frame->argCount >= 3 ? frame->string(3) : nullptr;
    if (modifierText != nullptr && modifierText->length >= 1) {
        modifiers = readByteModifiers(kCountWordsLetters, modifierText->data, modifierText->length);
    }
    const ModifierSet& m = modifiers.flags;
    const CountFlags flags{m.has(kModB), m.has(kModM), m.has(kModQ), m.has(kModT)};
    std::int64_t listLength = list != nullptr ? list->length : 0;
    if (flags.trim) {
        length = trimTrailingBlanks(reinterpret_cast<const char*>(source), length);
        if (list != nullptr) listLength = trimTrailingBlanks(list->data, listLength);
    }

    // A null list adds nothing; the default delimiters are not used then.
    CharSet set;
    buildByteSet(&set, modifiers.classLetters, list != nullptr ? list->data : nullptr, listLength, m.has(kModI),
                 m.has(kModK));
    if (m.has(kModO) && siteMayCache(frame)) {
        const std::uint8_t kept[kCountWordsFlags] = {flags.backward, flags.emptyWords, flags.quotes, flags.trim};
        if (keepRecord(frame, kept, set) == nullptr) return kStatusNoMemory;
    }
    return storeCount(result, countWithSet(source, length, set.member, flags));
}

}  // namespace txscan
