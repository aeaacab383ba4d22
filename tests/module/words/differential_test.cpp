// Generated calls on single-byte text: the byte paths of KCOUNTW and KFINDW
// (through the loaded module) against the word scanner (called directly),
// outside the documented differences between the two; and the vector word
// counts against their byte-by-byte forms.
#include "module/words/word_starts.h"
#include "tests/support/generated_calls.h"

namespace {

using namespace txtest;
using Call = std::vector<Argument>;

const Chars kPlain = {"a", "a", "b", "b", "A", "B", " ", ",", ",", ".", ";", "'", "\"", "1", "\t"};

// Left out: E (counts differently with M), P and S (classes of their own on
// the multi-byte path) and unknown letters; an empty source, or one that T
// leaves empty (0 on the scanner, 1 under M on the byte path). KFINDW
// without a start, Q, R, M, V and classes, and with a word of letters that
// no list or class makes delimiters (a word of delimiters is found by the
// scanner but skipped by the byte path's word counting under E).
TEST(WordsDifferential, BytePathsMatchTheScanner) {
    txhost::Session session({.guardedArguments = true});
    auto module = txhost::Module::load(session);
    InProcess inProcess;
    struct Function {
        const char* name;
        std::vector<const char*> shapes;
        const char* letters;
        Alphabets alphabets;
        txscan::ArgumentRoles (*roles)(std::size_t);
        std::int32_t mode;
    };
    const Function functions[] = {
        {"KCOUNTW", {"s", "sl", "slm"}, "ABCDFGHIKLMNQTUWX", {"UTF-8", kPlain, {" ", ",", ";", ".", "a", "b", "'"}}, txtest::countRoles, txscan::kCountWords},
        {"KFINDW", {"sp", "spl", "splm"}, "BCDEHIT", {"UTF-8", kPlain, {" ", ",", "."}}, txtest::findRoles, txscan::kFindWord},
    };
    Generator g{std::mt19937(20261123)};
    for (const Function& f : functions) {
        const auto fits = [&](const Call& args) {
            const auto& source = std::get<std::string>(args[0]);
            const bool trims = args.size() > 2 && std::get<std::string>(args[2]).find_first_of("Tt") != std::string::npos;
            if (source.find_first_not_of(trims ? " " : "") == std::string::npos) return false;
            if (f.mode != txscan::kFindWord) return true;
            const auto& word = std::get<std::string>(args[1]);
            return !word.empty() && word.find_first_not_of("abAB") == std::string::npos;
        };
        const auto draw = [&] {
            for (;;) {
                Call args = g.call(f.shapes[g.below(f.shapes.size())], f.alphabets, f.letters);
                if (fits(args)) return args;
            }
        };
        const auto bytes = [&](const Call& args) {
            const txhost::CallResult r = module->call(f.name, args);
            return Outcome{r.status, shown(r.number.value_or(-1))};
        };
        const auto scanner = [&](const Call& args) {
            const InProcess::Answer a = inProcess.scan(args, f.roles(args.size()), f.mode);
            return Outcome{a.status, shown(a.number)};
        };
        expectAgree(f.name, 3000, draw, bytes, scanner);
    }
}

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
