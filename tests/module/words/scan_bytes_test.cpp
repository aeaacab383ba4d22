// Generated KSCANX calls, function and call routine, through the byte path
// and through the word scanner alone: the same status, string, position and
// length on every call, in UTF-8 (ASCII-heavy, multi-byte-heavy and
// malformed text) and in the single-byte sessions.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "module/frame/workers.h"
#include "module/words/scan_bytes.h"
#include "tests/support/module_calls.h"

namespace {

using txhost::Argument;

struct Alphabets {
    const char* encoding;
    std::vector<std::string> source;   // characters the texts are made of
    std::vector<std::string> list;
};

// Multi-byte characters with case, without case, of other classes, and one
// that folds to ASCII (the Kelvin sign); malformed bytes sometimes.
const std::vector<std::string> kUtf8Wide = {"\xC3\xA9", "\xC3\x89", "\xC3\x9F", "\xE6\x9D\xB1", "\xE4\xBA\xAC",
                                            "\xE2\x80\x94", "\xC2\xA0", "\xE2\x84\xAA", "\xF0\x9F\x98\x80",
                                            "\xEF\xBC\x8C", "\xD0\x96"};
const std::vector<std::string> kAscii = {"a", "b", "k", "A", "K", " ", " ", ",", ".", ";", "'", "\"", "1", "\t",
                                         "_", "$", "~", "-", "\x01"};
const std::vector<std::string> kLatin = {"\xE9", "\xC9", "\xDF", "\xA0", "\xB5", "\xD7", "\xFF", "\x80", "\xA4"};

std::vector<std::string> joined(std::vector<std::string> a, const std::vector<std::string>& b, int weightOfB) {
    for (int i = 0; i < weightOfB; ++i) a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct Generator {
    std::mt19937 random{20261123};
    std::size_t below(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); }
    std::string text(const std::vector<std::string>& alphabet, std::size_t maxChars) {
        std::string t;
        for (std::size_t n = below(maxChars + 1); n > 0; --n) t += alphabet[below(alphabet.size())];
        return t;
    }
    std::string modifiers() {
        static const std::string letters = "ABCDFGHIKLMNPQRSTUWXEOV:zy";
        std::string m;
        for (char c : letters) {
            if (below(6) != 0) continue;
            m += below(3) == 0 ? static_cast<char>(std::tolower(c)) : c;
        }
        return m;
    }
};

struct Answer {
    std::int32_t status;
    std::string text;
    double position, length;
    bool operator==(const Answer&) const = default;
};

Answer run(txtest::InProcess& p, const std::vector<Argument>& args, bool routine, std::int64_t maxLength,
           bool bytePath) {
    txtest::FrameBuilder f(args);
    txscan::contract::EncodingHandle* h = p.session.encodingHandle();
    if (routine) {
        const std::int32_t status = bytePath ? txscan::scanCommon(&f.frame, nullptr, h, 0, nullptr)
                                             : txscan::scanCommonOnScanner(&f.frame, nullptr, h);
        const auto output = [&](int k) {
            const auto* value = static_cast<const double*>(f.frame.args[k - 1].value);
            return value != nullptr ? *value : 0.0;
        };
        return {status, "", output(3), output(4)};
    }
    std::string buffer(256, '#');
    txscan::contract::StringValue result{maxLength, 99, buffer.data(), nullptr, 0};
    const std::int32_t status = bytePath ? txscan::scanCommon(&f.frame, &result, h, 0, nullptr)
                                         : txscan::scanCommonOnScanner(&f.frame, &result, h);
    return {status, buffer.substr(0, static_cast<std::size_t>(result.length)), 0, 0};
}

TEST(ScanBytes, AgreesWithTheScannerOnGeneratedCalls) {
    const std::vector<Alphabets> sets = {
        {"UTF-8", joined(kAscii, kUtf8Wide, 0), joined({" ", ",", "a", "K", "'"}, kUtf8Wide, 0)},
        {"UTF-8", joined(kAscii, kUtf8Wide, 1), joined({" ", ",", "a", "k"}, kUtf8Wide, 1)},
        {"UTF-8", joined(kAscii, kUtf8Wide, 3), joined({" ", "a"}, kUtf8Wide, 1)},
        {"UTF-8", joined(joined(kAscii, kUtf8Wide, 1), {"\xC3", "\xFF", "\x80", "\xE6\x9D"}, 1), {" ", ",", "\xC3"}},
        {"ISO-8859-1", joined(kAscii, kLatin, 1), joined({" ", ",", "a"}, kLatin, 1)},
        {"windows-1252", joined(kAscii, kLatin, 2), joined({" ", "K"}, kLatin, 1)},
        {"ISO-8859-15", joined(kAscii, kLatin, 1), joined({",", "b"}, kLatin, 1)},
    };
    const double numbers[] = {1, 2, 3, -1, -2, 4, -4, 7, 1e12, -1e12};
    Generator g;
    for (const Alphabets& set : sets) {
        txtest::InProcess p(set.encoding);
        for (int i = 0; i < 2500; ++i) {
            const bool routine = g.below(2) == 0;
            std::vector<Argument> args;
            args.emplace_back(g.text(set.source, 14));
            args.emplace_back(numbers[g.below(std::size(numbers))]);
            if (routine) {
                args.push_back(-7.0);
                args.push_back(-7.0);
            }
            const std::size_t extra = g.below(3);
            if (extra >= 1) args.push_back(g.text(set.list, 3));
            if (extra >= 2) args.push_back(g.modifiers());
            const std::int64_t maxLength = g.below(4) == 0 ? static_cast<std::int64_t>(1 + g.below(4)) : 200;
            const Answer fast = run(p, args, routine, maxLength, true);
            const Answer reference = run(p, args, routine, maxLength, false);
            std::string shown;
            for (const Argument& a : args) {
                shown += std::holds_alternative<std::string>(a) ? "'" + std::get<std::string>(a) + "' "
                                                                : std::to_string(std::get<double>(a)) + " ";
            }
            ASSERT_EQ(fast, reference) << set.encoding << (routine ? " routine: " : " function: ") << shown
                                       << "got '" << fast.text << "' " << fast.position << "/" << fast.length
                                       << " want '" << reference.text << "' " << reference.position << "/"
                                       << reference.length;
        }
    }
}

}  // namespace
