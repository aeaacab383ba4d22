// Generated calls on single-byte text: the byte paths of KCOUNTW and KFINDW
// (through the loaded module) against the word scanner (called directly),
// outside the documented differences between the two; and the vector word
// counts against their byte-by-byte forms.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "module/words/word_starts.h"
#include "tests/support/module_calls.h"

namespace {

using txtest::Argument;

struct Generator {
    std::mt19937 random{20261123};

    std::size_t below(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); }

    std::string text(const char* alphabet, std::size_t maxLength) {
        const std::string letters(alphabet);
        std::string t(below(maxLength + 1), ' ');
        for (char& c : t) c = letters[below(letters.size())];
        return t;
    }

    // Each letter of `letters` with probability 1/4, sometimes lower case.
    std::string modifiers(const char* letters) {
        std::string m;
        for (const char* p = letters; *p != '\0'; ++p) {
            if (below(4) != 0) continue;
            m += below(3) == 0 ? static_cast<char>(*p - 'A' + 'a') : *p;
        }
        return m;
    }
};

constexpr const char* kSourceAlphabet = "aabbAB ,,.;'\"1\t";
constexpr const char* kListAlphabet = " ,;.ab'";

bool allBlanks(const std::string& s) { return s.find_first_not_of(' ') == std::string::npos; }

// E (counts differently with M), P and S (classes of their own on the
// multi-byte path) and unknown letters are left out.
TEST(WordsDifferential, CountWordsBytePathMatchesScanner) {
    txhost::Session session({.guardedArguments = true});
    auto module = txhost::Module::load(session);
    txtest::InProcess inProcess;
    Generator g;
    int compared = 0;
    for (int i = 0; i < 3000; ++i) {
        const std::string source = g.text(kSourceAlphabet, 14);
        // An empty source counts 0 on the scanner, 1 under M on the byte
        // path; likewise a source that T leaves empty.
        if (source.empty()) continue;
        std::vector<Argument> args{source};
        const std::size_t shape = g.below(3);
        if (shape >= 1) args.push_back(g.text(kListAlphabet, 3));
        std::string modifiers;
        if (shape == 2) {
            modifiers = g.modifiers("ABCDFGHIKLMNQTUWX");
            args.push_back(modifiers);
            const bool trims = modifiers.find_first_of("Tt") != std::string::npos;
            if (trims && allBlanks(source)) continue;
        }
        const txhost::CallResult bytes = module->call("KCOUNTW", args);
        const auto scanned = inProcess.scan(args, txtest::countRoles(args.size()), txscan::kCountWords);
        ASSERT_EQ(bytes.number.value_or(-1), scanned.number)
            << "source '" << source << "' list '" << (args.size() > 1 ? std::get<std::string>(args[1]) : "-")
            << "' modifiers '" << modifiers << "'";
        ++compared;
    }
    EXPECT_GT(compared, 2500);
}

// Without a start position, without Q, R, M, V and the multi-byte classes,
// and with a non-empty word of non-delimiters, the two paths agree.
TEST(WordsDifferential, FindWordBytePathMatchesScanner) {
    txhost::Session session({.guardedArguments = true});
    auto module = txhost::Module::load(session);
    txtest::InProcess inProcess;
    Generator g;
    int found = 0;
    for (int i = 0; i < 3000; ++i) {
        const std::string source = g.text("aabb ,,.AB", 14);
        std::string word = g.below(2) == 0 && !source.empty()
                               ? source.substr(g.below(source.size()), 1 + g.below(3))
                               : g.text("abAB", 2);
        // A word of delimiters is found by the scanner but skipped by the
        // byte path's word counting under E: keep words to letters that no
        // list or class letter below makes delimiters.
        if (word.empty() || source.empty() || word.find_first_not_of("abAB") != std::string::npos) continue;
        std::vector<Argument> args{source, word};
        const std::size_t shape = g.below(3);
        if (shape >= 1) args.push_back(g.text(" ,.", 3));
        std::string modifiers;
        if (shape == 2) {
            modifiers = g.modifiers("BCDEHIT");
            args.push_back(modifiers);
        }
        const txhost::CallResult bytes = module->call("KFINDW", args);
        const auto scanned = inProcess.scan(args, txtest::findRoles(args.size()), txscan::kFindWord);
        ASSERT_EQ(bytes.number.value_or(-1), scanned.number)
            << "source '" << source << "' word '" << word << "' list '"
            << (args.size() > 2 ? std::get<std::string>(args[2]) : "-") << "' modifiers '" << modifiers << "'";
        if (scanned.number > 0) ++found;
    }
    EXPECT_GT(found, 150);
}

TEST(WordsDifferential, VectorWordStartsMatchByteByByte) {
    Generator g;
    for (int i = 0; i < 400; ++i) {
        const std::string text = g.text("ab ,\xE9\x80", 700);
        const auto* data = reinterpret_cast<const std::uint8_t*>(text.data());
        std::uint8_t set[256] = {};
        for (char c : g.text(" ,\xE9", 3)) set[static_cast<unsigned char>(c)] = 1;
        ASSERT_EQ(txscan::countWordStarts(data, static_cast<std::int64_t>(text.size()), set),
                  txscan::countWordStartsScalar(data, static_cast<std::int64_t>(text.size()), set));
        const auto delimiter = static_cast<std::uint8_t>(g.below(2) == 0 ? ' ' : 0x80);
        ASSERT_EQ(txscan::countWordStartsSplitBy(data, static_cast<std::int64_t>(text.size()), delimiter),
                  txscan::countWordStartsSplitByScalar(data, static_cast<std::int64_t>(text.size()), delimiter));
    }
}

}  // namespace
