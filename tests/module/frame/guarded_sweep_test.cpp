// Every entry through the loaded module with guarded arguments, on generated
// texts of single-byte and (where the encoding has them) multi-byte
// characters, against plain references: substring positions and counts,
// membership in a character list, and word splits on one delimiter. The
// byte paths meet the multi-byte ones in the differential tests of
// tests/module/search and tests/module/words, whose frames are guarded too.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "host/host.h"

namespace {

using txhost::Argument;
using Chars = std::vector<std::string>;   // one element per character

std::string joined(const Chars& chars, std::size_t from = 0, std::size_t to = std::string::npos) {
    std::string out;
    for (std::size_t i = from; i < chars.size() && i < to; ++i) out += chars[i];
    return out;
}

// First character index at or after `from` where `pattern` begins, or -1.
long findAt(const Chars& text, const Chars& pattern, std::size_t from) {
    for (std::size_t i = from; i + pattern.size() <= text.size(); ++i) {
        if (std::equal(pattern.begin(), pattern.end(), text.begin() + static_cast<long>(i))) return static_cast<long>(i);
    }
    return -1;
}

struct Word { std::size_t first; std::size_t length; };

std::vector<Word> wordsOf(const Chars& text, const std::string& delimiter) {
    std::vector<Word> words;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == delimiter) {
            ++i;
            continue;
        }
        std::size_t end = i;
        while (end < text.size() && text[end] != delimiter) ++end;
        words.push_back({i, end - i});
        i = end;
    }
    return words;
}

Chars charsOf(const Chars& text, const Word& w) {
    const auto from = text.begin() + static_cast<long>(w.first);
    return Chars(from, from + static_cast<long>(w.length));
}

struct Alphabet {
    const char* encoding;
    Chars letters;   // the last is multi-byte where the encoding has one
};

TEST(GuardedSweep, EveryEntryAgainstPlainReferences) {
    const Alphabet alphabets[] = {
        {"ISO-8859-1", {"a", "b", "B", " ", ",", "\xE9"}},
        {"UTF-8", {"a", "b", "B", " ", ",", "\xC3\xA9"}},
        {"Shift_JIS", {"a", "b", "B", " ", ",", "\x82\xA0"}},
    };
    std::mt19937 random(1123);
    const auto pick = [&random](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    for (const Alphabet& alphabet : alphabets) {
        txhost::Session session({.encoding = alphabet.encoding, .guardedArguments = true});
        auto module = txhost::Module::load(session);
        const auto chars = [&](std::size_t maxLength, bool wide) {
            Chars out(pick(maxLength + 1));
            const std::size_t letters = alphabet.letters.size() - (wide ? 0 : 1);
            for (std::string& c : out) c = alphabet.letters[pick(letters)];
            return out;
        };
        for (int trial = 0; trial < 600; ++trial) {
            const bool wide = trial % 2 == 1;
            const Chars source = chars(16, wide);
            Chars pattern = chars(3, wide);
            if (pattern.empty()) pattern.push_back("a");
            const std::string text = joined(source);
            SCOPED_TRACE(std::string(alphabet.encoding) + " '" + text + "' '" + joined(pattern) + "'");

            const auto number = [&](const char* function, const std::vector<Argument>& args) {
                const txhost::CallResult r = module->call(function, args);
                EXPECT_EQ(r.status, 0) << function;
                return r.number.value_or(-1);
            };
            EXPECT_EQ(number("KFIND", {text, joined(pattern)}), findAt(source, pattern, 0) + 1);
            long count = 0;
            for (long at = findAt(source, pattern, 0); at >= 0;
                 at = findAt(source, pattern, static_cast<std::size_t>(at) + pattern.size())) {
                ++count;
            }
            EXPECT_EQ(number("KCOUNTX", {text, joined(pattern)}), count);

            long first = -1;
            long members = 0;
            for (std::size_t i = 0; i < source.size(); ++i) {
                if (std::find(pattern.begin(), pattern.end(), source[i]) == pattern.end()) continue;
                if (first < 0) first = static_cast<long>(i);
                ++members;
            }
            EXPECT_EQ(number("KFINDC", {text, joined(pattern)}), first + 1);
            EXPECT_EQ(number("KCOUNTC", {text, joined(pattern)}), members);

            const std::string delimiter = pick(2) == 0 ? " " : ",";
            const std::vector<Word> words = wordsOf(source, delimiter);
            EXPECT_EQ(number("KCOUNTW", {text, delimiter}), static_cast<double>(words.size()));
            const Chars wanted = words.empty() || pick(4) == 0 ? Chars{"a"} : charsOf(source, words[pick(words.size())]);
            long foundAt = 0;
            for (const Word& w : words) {
                if (charsOf(source, w) != wanted) continue;
                foundAt = static_cast<long>(w.first) + 1;
                break;
            }
            EXPECT_EQ(number("KFINDW", {text, joined(wanted), delimiter}), foundAt);

            const long n = static_cast<long>(pick(words.size() + 2)) + 1;
            const long signedN = pick(2) == 0 ? n : -n;
            const std::size_t index = static_cast<std::size_t>(signedN > 0 ? n - 1 : static_cast<long>(words.size()) - n);
            const bool exists = n <= static_cast<long>(words.size());
            const txhost::CallResult scanned = module->call("KSCANX", {text, static_cast<double>(signedN), delimiter});
            EXPECT_EQ(scanned.text.value_or("(none)"),
                      exists ? joined(source, words[index].first, words[index].first + words[index].length) : " ");
            const txhost::CallResult located =
                module->call("KSCANX", {text, static_cast<double>(signedN), 0.0, 0.0, delimiter}, true);
            EXPECT_EQ(located.position.value_or(-1), exists ? static_cast<double>(words[index].first + 1) : 0);
            EXPECT_EQ(located.length.value_or(-1), exists ? static_cast<double>(words[index].length) : 0);
        }
    }
}

}  // namespace
