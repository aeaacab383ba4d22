// Every entry through the loaded module with guarded arguments, on generated
// texts of single-byte and (where the encoding has them) multi-byte
// characters, against plain references: substring positions and counts,
// membership in a character list, and word splits on one delimiter. The
// byte paths meet the multi-byte ones in the differential tests of
// tests/module/search and tests/module/words, whose frames are guarded too.
#include "tests/support/generated_calls.h"

namespace {

using namespace txtest;

std::string joined(const Chars& chars, std::size_t from = 0, std::size_t to = std::string::npos) {
    std::string out;
    for (std::size_t i = from; i < chars.size() && i < to; ++i) out += chars[i];
    return out;
}

// First character index at or after `from` where `pattern` begins, or -1.
long findAt(const Chars& text, const Chars& pattern, std::size_t from) {
    const auto at = std::search(text.begin() + static_cast<long>(std::min(from, text.size())), text.end(),
                                pattern.begin(), pattern.end());
    return at == text.end() ? -1 : at - text.begin();
}

struct Word { std::size_t first, end; };

std::vector<Word> wordsOf(const Chars& text, const std::string& delimiter) {
    std::vector<Word> words;
    for (std::size_t i = 0, end = 0; i < text.size(); i = end) {
        for (end = i; end < text.size() && text[end] != delimiter;) ++end;
        if (end > i) words.push_back({i, end});
        end += end == i;
    }
    return words;
}

TEST(GuardedSweep, EveryEntryAgainstPlainReferences) {
    // The last letter is multi-byte where the encoding has one.
    const Alphabets alphabets[] = {
        {"ISO-8859-1", {"a", "b", "B", " ", ",", "\xE9"}, {}},
        {"UTF-8", {"a", "b", "B", " ", ",", "\xC3\xA9"}, {}},
        {"Shift_JIS", {"a", "b", "B", " ", ",", "\x82\xA0"}, {}},
    };
    Generator g{std::mt19937(1123)};
    for (const Alphabets& alphabet : alphabets) {
        txhost::Session session({.encoding = alphabet.encoding, .guardedArguments = true});
        auto module = txhost::Module::load(session);
        for (int trial = 0; trial < 600; ++trial) {
            const auto chars = [&](std::size_t maxLength) {
                Chars out(g.below(maxLength + 1));
                for (std::string& c : out) c = alphabet.source[g.below(alphabet.source.size() - 1 + trial % 2)];
                return out;
            };
            const Chars source = chars(16);
            Chars pattern = chars(3);
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
            for (long at = findAt(source, pattern, 0); at >= 0; at = findAt(source, pattern, at + pattern.size())) ++count;
            EXPECT_EQ(number("KCOUNTX", {text, joined(pattern)}), count);
            const auto member = [&](const std::string& c) { return std::ranges::find(pattern, c) != pattern.end(); };
            const auto first = std::ranges::find_if(source, member);
            EXPECT_EQ(number("KFINDC", {text, joined(pattern)}), first == source.end() ? 0 : first - source.begin() + 1);
            EXPECT_EQ(number("KCOUNTC", {text, joined(pattern)}), std::ranges::count_if(source, member));

            const std::string delimiter = g.oneIn(2) ? " " : ",";
            const std::vector<Word> words = wordsOf(source, delimiter);
            EXPECT_EQ(number("KCOUNTW", {text, delimiter}), static_cast<double>(words.size()));
            const auto wordText = [&](const Word& w) { return joined(source, w.first, w.end); };
            const std::string wanted = words.empty() || g.oneIn(4) ? "a" : wordText(words[g.below(words.size())]);
            const auto found = std::ranges::find_if(words, [&](const Word& w) { return wordText(w) == wanted; });
            EXPECT_EQ(number("KFINDW", {text, wanted, delimiter}), found == words.end() ? 0 : found->first + 1);

            const auto n = static_cast<long>(g.below(words.size() + 2)) + 1;
            const long signedN = g.oneIn(2) ? n : -n;
            const bool exists = n <= static_cast<long>(words.size());
            const Word w = exists ? words[static_cast<std::size_t>(signedN > 0 ? n - 1 : std::ssize(words) - n)] : Word{};
            const txhost::CallResult scanned = module->call("KSCANX", {text, static_cast<double>(signedN), delimiter});
            EXPECT_EQ(scanned.text.value_or("(none)"), exists ? wordText(w) : " ");
            const txhost::CallResult located =
                module->call("KSCANX", {text, static_cast<double>(signedN), 0.0, 0.0, delimiter}, true);
            EXPECT_EQ(located.position.value_or(-1), exists ? static_cast<double>(w.first + 1) : 0);
            EXPECT_EQ(located.length.value_or(-1), static_cast<double>(w.end - w.first));
        }
    }
}

}  // namespace
