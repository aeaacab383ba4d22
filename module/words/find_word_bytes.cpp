// KFINDW's byte path, for a source the adapter found to hold no character
// of more than one byte: one byte is one character. Arguments after the word
// are told apart by type; the delimiter set comes from the call site's
// cache, the function environment's defaults, or the list and modifiers.
// The search jumps from word to word in either direction.
#include <cstring>
#include <string_view>

#include "module/charset/byte_classes.h"
#include "module/charset/cached_set.h"
#include "module/charset/char_set.h"
#include "module/charset/letter_table.h"
#include "module/charset/set_scan.h"
#include "module/frame/function_environment.h"
#include "module/frame/module_state.h"
#include "module/frame/workers.h"
#include "module/search/trim_blanks.h"
#include "module/words/quote_parts.h"

namespace txscan {

using namespace contract;

namespace {

// KFINDW's switches; V turns the set round like K. Other letters draw a
// note naming "FINDC".
constexpr LetterTable kFindWordLetters = makeLetterTable("FINDC", "BEIKMOQRTV", true);

// The site's cached set (after K), as the first call with O left it.
enum FindWordsFlag {
    kCachedBackward, kCachedWordNumber, kCachedCaseless, kCachedQuotes, kCachedTrimWord, kCachedTrim, kFindWordsFlags
};
using FindWordsCache = CachedRecord<kFindWordsFlags>;

struct Bytes {
    const std::uint8_t* data;
    std::int64_t length;
};

struct FindFlags {
    bool backward;     // B
    bool wordNumber;   // E
    bool caseless;     // I
    bool emptyWords;   // M
    bool quotes;       // Q
};


// Under Q a match may not hold a quote that it does not close itself.
bool quotesClosedWithin(const std::uint8_t* data, std::int64_t from, std::int64_t to) {
    for (std::int64_t i = from; i < to; ++i) {
        if (!isQuoteByte(data[i])) continue;
        i = closingQuote(data, i, 1, from, to);
        if (i >= to) return false;
    }
    return true;
}

bool sameBytes(const std::uint8_t* a, const std::uint8_t* b, std::int64_t n, bool caseless) {
    if (!caseless) return n == 0 || std::memcmp(a, b, static_cast<std::size_t>(n)) == 0;
    const std::uint8_t* upper = host().upcaseMap;
    for (std::int64_t i = 0; i < n; ++i) {
        if (upper[a[i]] != upper[b[i]]) return false;
    }
    return true;
}

// Rightwards: the index just past the next delimiter at or after `p`,
// quoted parts skipped under Q; -1 when the text ends first (also inside
// an unclosed quoted part).
std::int64_t pastNextDelimiter(const Bytes& source, const std::uint8_t* set, bool quotes, std::int64_t p) {
    if (!quotes) {
        const std::int64_t rest = source.length - p;
        const std::int32_t hit = firstInSet(source.data + p, static_cast<std::int32_t>(rest), set);
        return hit < 0 ? -1 : p + hit + 1;
    }
    for (std::int64_t i = p; i < source.length; ++i) {
        const std::uint8_t c = source.data[i];
        if (isQuoteByte(c)) {
            i = closingQuote(source.data, i, 1, 0, source.length);
            if (i >= source.length) return -1;
        } else if (set[c] != 0) {
            return i + 1;
        }
    }
    return -1;
}

// Leftwards: the index just before the next delimiter at or before `e`;
// -2 when the text begins first (also inside an unclosed quoted part).
std::int64_t beforePreviousDelimiter(const Bytes& source, const std::uint8_t* set, bool quotes, std::int64_t e) {
    if (!quotes) {
        const std::int32_t hit = lastInSet(source.data, static_cast<std::int32_t>(e + 1), set);
        return hit < 0 ? -2 : hit - 1;
    }
    for (std::int64_t i = e; i >= 0; --i) {
        const std::uint8_t c = source.data[i];
        if (isQuoteByte(c)) {
            i = closingQuote(source.data, i, -1, 0, source.length);
            if (i < 0) return -2;
        } else if (set[c] != 0) {
            return i - 1;
        }
    }
    return -2;
}

// Exact rightward search without quotes or word numbers: every occurrence
// of the word is a candidate, so the text is searched for the word itself
// and only the hits are checked for whole-word boundaries. The candidates
// and the answer are those of the word-by-word walk.
std::int64_t findRightByOccurrence(const Bytes& source, const Bytes& word, const std::uint8_t* set,
                                   std::int64_t p) {
    const std::string_view text(reinterpret_cast<const char*>(source.data), static_cast<std::size_t>(source.length));
    const std::string_view wanted(reinterpret_cast<const char*>(word.data), static_cast<std::size_t>(word.length));
    const std::int64_t first = p;
    const std::int64_t last = source.length - word.length;
    for (;;) {
        const std::size_t hit = text.find(wanted, static_cast<std::size_t>(p));
        if (hit == std::string_view::npos) return 0;
        const auto at = static_cast<std::int64_t>(hit);
        const bool startsWord = at == first || set[source.data[at - 1]] != 0;
        const bool endsWord = at == last || set[source.data[at + word.length]] != 0;
        if (startsWord && endsWord) return at + 1;
        p = at + 1;
    }
}

std::int64_t findRight(const Bytes& source, const Bytes& word, const std::uint8_t* set, const FindFlags& f,
                       std::int64_t s) {
    const std::int64_t last = source.length - word.length;
    std::int64_t p = s == 0 ? 0 : s - 1;
    if (p > last) return 0;
    // A word that the start position cuts is passed over.
    if (p != 0 && set[source.data[p - 1]] == 0) {
        p = pastNextDelimiter(source, set, f.quotes, p);
        if (p < 0 || p > last) return 0;
    }
    if (!f.wordNumber && !f.quotes && !f.caseless && word.length > 0) {
        return findRightByOccurrence(source, word, set, p);
    }
    std::int64_t words = 0;
    for (;;) {
        if (f.wordNumber) {
            if (!f.emptyWords) {
                while (p <= last && set[source.data[p]] != 0) ++p;
                if (p > last) return 0;
            }
            ++words;
        }
        const std::int64_t end = p + word.length;
        if (sameBytes(source.data + p, word.data, word.length, f.caseless) &&
            (p == last || set[source.data[end]] != 0) && (!f.quotes || quotesClosedWithin(source.data, p, end))) {
            return f.wordNumber ? words : p + 1;
        }
        p = pastNextDelimiter(source, set, f.quotes, p);
        if (p < 0 || p > last) return 0;
    }
}

std::int64_t findLeft(const Bytes& source, const Bytes& word, const std::uint8_t* set, const FindFlags& f,
                      std::int64_t s) {
    const std::int64_t lastByte = source.length - 1;
    // The start was settled on the untrimmed source; trailing blanks that T
    // took away are not searched, so a start among them begins at the end.
    std::int64_t e = s == 0 || s - 1 > lastByte ? lastByte : s - 1;
    if (e < word.length - 1) return 0;
    // A word that the start position cuts is passed over. Without M the
    // previous word ends before the whole run of delimiters; under M each
    // delimiter ends a word of its own, possibly empty.
    if (e != lastByte && set[source.data[e + 1]] == 0) {
        e = beforePreviousDelimiter(source, set, f.quotes, e);
        if (!f.emptyWords) {
            while (e >= 0 && set[source.data[e]] != 0) --e;
        }
        if (e < word.length - 1) return 0;
    }
    std::int64_t words = 0;
    for (;;) {
        if (f.wordNumber) {
            if (!f.emptyWords) {
                while (e >= word.length - 1 && e >= 0 && set[source.data[e]] != 0) --e;
                if (e < word.length - 1 || e < 0) return 0;
            }
            ++words;
        }
        const std::int64_t begin = e - word.length + 1;
        if (sameBytes(source.data + begin, word.data, word.length, f.caseless) &&
            (begin == 0 || set[source.data[begin - 1]] != 0) &&
            (!f.quotes || quotesClosedWithin(source.data, begin, e + 1))) {
            return f.wordNumber ? words : begin + 1;
        }
        e = beforePreviousDelimiter(source, set, f.quotes, e);
        if (e < word.length - 1) return 0;
    }
}

Bytes bytesOf(const StringValue* value) {
    if (value == nullptr || value->length <= 0) return {reinterpret_cast<const std::uint8_t*>(""), 0};
    return {reinterpret_cast<const std::uint8_t*>(value->data), static_cast<std::int32_t>(value->length)};
}

void trimBlanks(Bytes* text) {
    text->length = trimTrailingBlanks(reinterpret_cast<const char*>(text->data), text->length);
}

// R: the word without the set's bytes at either end. Under Q the quotes'
// entries are cleared first (and stay cleared): quotes are never trimmed.
void trimWordBySet(Bytes* word, std::uint8_t* set, bool quotes) {
    if (quotes) {
        set[static_cast<unsigned char>('"')] = 0;
        set[static_cast<unsigned char>('\'')] = 0;
    }
    while (word->length > 0 && set[word->data[0]] != 0) {
        ++word->data;
        --word->length;
    }
    while (word->length > 0 && set[word->data[word->length - 1]] != 0) --word->length;
}

}  // namespace

std::int64_t firstWholeWord(const std::uint8_t* source, std::int64_t n, const std::uint8_t* word, std::int64_t m,
                           const std::uint8_t* set) {
    if (n < m || m == 0) return 0;
    return findRightByOccurrence({source, n}, {word, m}, set, 0);
}

std::int32_t findWordBytes(ArgumentFrame* frame, double* result) {
    Bytes source = bytesOf(frame->string(1));
    Bytes word = bytesOf(frame->string(2));

    // Arguments after the word: the numeric one is the start, the first
    // character one the delimiter list, the second the modifiers.
    int startArg = 0;
    int listArg = 0;
    int modifierArg = 0;
    for (int k = 3; k <= frame->argCount; ++k) {
        int* role = nullptr;
        if (frame->arg(k).typeFlags & kTypeNumeric) {
            role = startArg == 0 ? &startArg : nullptr;
        } else {
            role = listArg == 0 ? &listArg : (modifierArg == 0 ? &modifierArg : nullptr);
        }
        if (role == nullptr) {
            frame->arg(k).errorMarks |= kErrorMark;
            return kStatusInvalidArgument;
        }
        *role = k;
    }

    FindFlags flags{};
    std::int64_t s = 0;
    if (const double* start = startArg != 0 ? frame->number(startArg) : nullptr) {
        const double x = *start;
        if (exponentAllOnes(x)) {
            *result = missingValue();
            return kStatusMissingStart;
        }
        if (x < 0) {
            flags.backward = true;
            const double magnitude = -x;
            s = magnitude < static_cast<double>(source.length) ? static_cast<std::int64_t>(magnitude) : source.length;
        } else if (x > static_cast<double>(source.length)) {
            *result = 0.0;
            return kStatusOk;
        } else {
            s = static_cast<std::int64_t>(x);
        }
    }

    CharSet built;
    const std::uint8_t* set = nullptr;
    if (const FindWordsCache* cache = frame->argCount >= 3 ? cachedRecordOf<kFindWordsFlags>(frame) : nullptr) {
        // The cached direction replaces that of a negative start.
        flags.backward = cache->flag[kCachedBackward] != 0;
        flags.wordNumber = cache->flag[kCachedWordNumber] != 0;
        flags.caseless = cache->flag[kCachedCaseless] != 0;
        if (cache->flag[kCachedTrim] != 0) {
            trimBlanks(&source);
            trimBlanks(&word);
        }
        set = cache->set.member;
        if (cache->flag[kCachedTrimWord] != 0) {
            // Trimming may clear the quote entries, so it works on a copy.
            std::memcpy(&built, &cache->set, sizeof built);
            trimWordBySet(&word, built.member, cache->flag[kCachedQuotes] != 0);
            set = built.member;
        }
    } else if (listArg == 0) {
        // No list means no modifiers either (they would come after it). The
        // environment's table is read only from a complete record.
        FunctionEnvironment* environment = functionEnvironmentFor(frame);
        if (environment == nullptr) return kStatusNoMemory;
        set = environment->defaultDelimiters;
    } else {
        ByteModifiers modifiers{};
        const StringValue* modifierText = modifierArg != 0 ? frame->string(modifierArg) : nullptr;
        if (modifierText != nullptr && modifierText->length >= 1) {
            modifiers = readByteModifiers(kFindWordLetters, modifierText->data, modifierText->length);
        }
        const ModifierSet& m = modifiers.flags;
        flags.backward = flags.backward || m.has(kModB);
        flags.wordNumber = m.has(kModE);
        flags.caseless = m.has(kModI);
        flags.emptyWords = m.has(kModM);
        flags.quotes = m.has(kModQ);

        Bytes list = bytesOf(frame->string(listArg));   // a null value is an empty list
        if (m.has(kModT)) {
            trimBlanks(&source);
            trimBlanks(&list);
            trimBlanks(&word);
        }
        buildByteSet(&built, modifiers.classLetters, reinterpret_cast<const char*>(list.data), list.length,
                     flags.caseless, m.has(kModK) || m.has(kModV));
        if (m.has(kModR)) trimWordBySet(&word, built.member, flags.quotes);
        set = built.member;

        if (m.has(kModO) && siteMayCache(frame)) {
            const std::uint8_t kept[kFindWordsFlags] = {flags.backward, flags.wordNumber, flags.caseless,
                                                        flags.quotes,   m.has(kModR),     m.has(kModT)};
            if (keepRecord(frame, kept, built) == nullptr) return kStatusNoMemory;
        }
    }

    if (source.length < word.length || (word.length == 0 && !flags.emptyWords)) {
        *result = 0.0;
        return kStatusOk;
    }
    if (flags.quotes) {
        // A quote byte is never a delimiter; `built` is this call's own set.
        built.member[static_cast<unsigned char>('"')] = 0;
        built.member[static_cast<unsigned char>('\'')] = 0;
    }
    const std::int64_t answer =
        flags.backward ? findLeft(source, word, set, flags, s) : findRight(source, word, set, flags, s);
    *result = static_cast<double>(answer);
    return kStatusOk;
}

}  // namespace txscan
