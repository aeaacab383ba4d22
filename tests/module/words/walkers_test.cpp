// Generated word-function calls answered on each byte walker and through
// the handle walker alone: the same status, number, string, position and
// length on every call. KCOUNTW and KFINDW run through their entry
// routines and must be taken on bytes whenever the text is well formed;
// KSCANX runs through its call routine, in UTF-8 (ASCII-heavy, wide-heavy,
// malformed) and in the single-byte sessions. The byte paths of KCOUNTW and
// KFINDW on single-byte text are held to the handle where they agree.
#include "module/frame/entries.h"
#include "module/frame/workers.h"
#include "module/words/word_roles.h"
#include "module/words/word_scanner.h"
#include "tests/support/generated_calls.h"

namespace {

using namespace txtest;
using txscan::contract::ArgumentFrame;
using txscan::contract::EncodingHandle;
using Call = std::vector<Argument>;

// Not taken on bytes: unaccepted KFINDW signatures, and under T a wide
// character before the trailing blanks, which is the host's to trim or keep.
bool mustTake(const Call& args) {
    if (args.size() > 5 || (args.size() == 4 && std::holds_alternative<double>(args[2]) &&
                            std::holds_alternative<double>(args[3]))) {
        return false;
    }
    bool trims = false, wideBeforeBlanks = false;
    for (std::size_t k = 0; k < args.size(); ++k) {
        const auto* text = std::get_if<std::string>(&args[k]);
        if (text == nullptr) continue;
        trims = trims || text->find_first_of("Tt") != std::string::npos;
        const std::size_t last = text->find_last_not_of(' ');
        wideBeforeBlanks = wideBeforeBlanks ||
                           (k < 2 && last != std::string::npos && (static_cast<unsigned char>((*text)[last]) & 0x80) != 0);
    }
    return !(trims && wideBeforeBlanks);
}

// KSCANX's function (its result holds at most a length drawn from the
// source's size) or call routine (outputs in arguments 3 and 4).
Outcome scan(const Call& args, EncodingHandle* h, bool onBytes) {
    FrameBuilder f(args);
    const bool routine = args.size() > 2 && std::holds_alternative<double>(args[2]);
    const std::size_t size = std::get<std::string>(args[0]).size();
    std::string buffer(256, '#');
    txscan::contract::StringValue result{size % 5 == 1 ? static_cast<std::int64_t>(1 + size / 5 % 4) : 200, 99,
                                         buffer.data(), nullptr, 0};
    txscan::contract::StringValue* out = routine ? nullptr : &result;
    const std::int32_t status = onBytes ? txscan::scanCommon(&f.frame, out, h)
                                        : txscan::scanCommonOnScanner(&f.frame, out, h);
    if (!routine) return {status, buffer.substr(0, static_cast<std::size_t>(result.length))};
    const auto output = [&](int k) {
        const auto* value = static_cast<const double*>(f.frame.args[k - 1].value);
        return value != nullptr ? shown(*value) : "-";
    };
    return {status, output(3) + "/" + output(4)};
}

using Numeric = std::int32_t (*)(ArgumentFrame*, void*);
using OnBytes = bool (*)(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);
using OnHandle = std::int32_t (*)(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t);

struct Function {
    const char* name;
    std::vector<const char*> shapes;   // KFINDW's last two are not accepted
    Numeric entry;                     // null: KSCANX
    OnBytes onBytes;
    OnHandle onHandle;
    std::vector<Call> corners;         // UTF-8 calls the generator seldom draws
    const char* letters = "ABCDFGHIKLMNPQRSTUWXEOV:zy ";
    bool (*fits)(const Call&) = nullptr;   // the calls the comparison holds for
};

// The corners: characters that fold to ASCII letters, wide blanks, and a
// backward search that starts on the first trimmed blank or beyond it.
const Function kCountWords{"KCOUNTW", {"S", "SL", "SLm"}, txscan::kcountwEntry, txscan::countWordsUtf8,
                           txscan::countWordsMultiByte,
                           {{"a\xE2\x84\xAA" "b \xC3\xA9", "k", "I"}, {"a\xE3\x80\x80" "b\xC2\xA0" "c", "", "S"}}};
const Function kFindWord{"KFINDW", {"SP", "SPl", "SPlm", "SPlm1", "SPl1", "SPl1m", "SP1", "SP1l", "SP1lm", "SP11", "SPlmmm"},
                         txscan::kfindwEntry, txscan::findWordUtf8, txscan::findWordMultiByte,
                         {{"ab \xC3\xA9 c  ", "ab", " ,", "TB", 7.0}, {"ab \xC3\xA9 c  ", "ab", " ,", "TB", 8.0},
                          {"ab \xC3\xA9 c  ", "c", " ,", "TB", 6.0}, {"x \xE2\x84\xAA y", "k", " ", "I"},
                          {"x \xC5\xBF", "S", " ", "I"}}};
const Function kScan{"KSCANX", {"sn", "snl", "snlm", "snoo", "snool", "snoolm"}, nullptr, nullptr, nullptr, {}};

// The byte paths of KCOUNTW and KFINDW against the handle, through the
// loaded module, outside their documented differences. Left out: E (counts
// differently with M), P and S (classes of their own on the multi-byte path)
// and unknown letters; an empty source, or one that T leaves empty (0 on
// the handle, 1 under M on the byte path). KFINDW without a start, Q, R, M,
// V and classes, and with a word of letters that no list or class makes
// delimiters (the byte path's word counting under E skips a word of
// delimiters).
bool sourceLeft(const Call& args) {
    const bool trims = args.size() > 2 && std::get<std::string>(args.back()).find_first_of("Tt") != std::string::npos;
    return std::get<std::string>(args[0]).find_first_not_of(trims ? " " : "") != std::string::npos;
}
bool wordOfLetters(const Call& args) {
    const auto& word = std::get<std::string>(args[1]);
    return sourceLeft(args) && !word.empty() && word.find_first_not_of("abAB") == std::string::npos;
}
const Function kCountWordsBytes{"KCOUNTW", {"s", "sl", "slm"}, txscan::kcountwEntry, nullptr, txscan::countWordsMultiByte,
                                {}, "ABCDFGHIKLMNQTUWX", sourceLeft};
const Function kFindWordBytes{"KFINDW", {"sp", "spl", "splm"}, txscan::kfindwEntry, nullptr, txscan::findWordMultiByte,
                              {}, "BCDEHIT", wordOfLetters};

struct Walker {
    const char* name;
    std::vector<Alphabets> alphabets;
    std::vector<Function> functions;
    bool loaded = false;   // the entries through a loaded module, with guarded arguments
};
void PrintTo(const Walker& w, std::ostream* out) { *out << w.name; }

class WalkerTest : public ::testing::TestWithParam<Walker> {};

TEST_P(WalkerTest, AgreesWithTheHandleOnGeneratedCalls) {
    Generator g{std::mt19937(20261207)};
    txhost::Session guarded({.guardedArguments = true});
    const auto loaded = GetParam().loaded ? txhost::Module::load(guarded) : nullptr;
    for (const Alphabets& a : GetParam().alphabets) {
        InProcess p(a.encoding);
        EncodingHandle* h = p.session.encodingHandle();
        for (const Function& f : GetParam().functions) {
            const auto onBytes = [&](const Call& args) {
                if (f.entry == nullptr) return scan(args, h, true);
                if (loaded) {
                    const txhost::CallResult r = loaded->call(f.name, args);
                    return Outcome{r.status, shown(r.number.value_or(-1))};
                }
                std::int32_t status = 0;
                double ignored = 0;
                FrameBuilder frame(args);
                if (!f.onBytes(&frame.frame, &ignored, h, -1, &status) && a.wellFormed && mustTake(args)) {
                    return Outcome{-1, "declined"};
                }
                return onFrame(args, f.entry);
            };
            const auto onHandle = [&](const Call& args) {
                if (f.entry == nullptr) return scan(args, h, false);
                return onFrame(args, [&](ArgumentFrame* frame, double* r) { return f.onHandle(frame, r, h, 0); });
            };
            std::size_t corner = &a == &GetParam().alphabets[0] ? 0 : f.corners.size();
            const auto draw = [&] {
                if (corner < f.corners.size()) return f.corners[corner++];
                for (;;) {
                    Call args = g.call(f.shapes[g.below(f.shapes.size())], a, f.letters);
                    if (f.fits == nullptr || f.fits(args)) return args;
                }
            };
            expectAgree(std::string(f.name) + " " + a.encoding, 1500, draw, onBytes, onHandle);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Walkers, WalkerTest,
    ::testing::Values(
        Walker{"Utf8", utf8Alphabets(), {kCountWords, kFindWord, kScan}},
        Walker{"SingleByte",
               {{"ISO-8859-1", weighted(kAsciiChars, kHighBytes), weighted({" ", ",", "a"}, kHighBytes)},
                {"windows-1252", weighted(kAsciiChars, kHighBytes, 2), weighted({" ", "K"}, kHighBytes)},
                {"ISO-8859-15", weighted(kAsciiChars, kHighBytes), weighted({",", "b"}, kHighBytes)}},
               {kScan}},
        Walker{"BytePaths",
               {{"UTF-8", {"a", "a", "b", "b", "A", "B", " ", ",", ",", ".", ";", "'", "\"", "1", "\t"}, {" ", ",", ";", ".", "'"}}},
               {kCountWordsBytes, kFindWordBytes},
               true}),
    [](const ::testing::TestParamInfo<Walker>& info) { return std::string(info.param.name); });

// A host whose compare over no characters answers "match"; every other
// compare is the session handle's own.
txscan::contract::op::CompareAt sessionCompareAt = nullptr;
std::int32_t emptyMatchesCompareAt(EncodingHandle* h, txscan::contract::TextCursor* c,
                                   txscan::contract::TextCursor* search, std::int64_t searchLength,
                                   std::int32_t flags) {
    return searchLength <= 0 ? 0 : sessionCompareAt(h, c, search, searchLength, flags);
}

// An empty search word (given empty, or emptied by T or R) is compared by
// the handle on every walker, so a host that finds it everywhere gets its
// own answer from each.
TEST(Walkers, AnEmptyWordIsTheHandlesToMatch) {
    InProcess p("UTF-8");
    EncodingHandle* h = p.session.encodingHandle();
    void*& compareWord = h->word[txscan::contract::kOpCompareAt - 6];
    sessionCompareAt = reinterpret_cast<txscan::contract::op::CompareAt>(compareWord);
    struct Row {
        Call args;
        double referenceHost;   // an empty word never matches
        double matchingHost;
    };
    const Row rows[] = {
        {{" \xF0\x9F\x98\x80", ""}, 0, 1},                        {{"a\xF0\x9F\x98\x80  b", " ", " ", "R"}, 0, 4},
        {{"a\xF0\x9F\x98\x80,,b", "  ", ",", "T"}, 0, 4},         {{"a\xF0\x9F\x98\x80  b", " ", " ", "RE"}, 0, 2},
        {{"a\xF0\x9F\x98\x80  b", " ", " ", "RB"}, 0, 4},         {{"\xC3\xA9  'x'", " ", " ", "RQ"}, 0, 3},
        {{"\xC3\xA9,,b", ",", ",", "R", 2.0}, 0, 3},
    };
    for (const bool matching : {false, true}) {
        // The session's own handle answers through the wrapper, so the entry
        // routine meets the same host as the walkers called directly.
        compareWord = matching ? reinterpret_cast<void*>(&emptyMatchesCompareAt)
                               : reinterpret_cast<void*>(sessionCompareAt);
        for (const Row& row : rows) {
            SCOPED_TRACE(describe(row.args) + (matching ? " matching host" : " reference host"));
            const Outcome expected{0, shown(matching ? row.matchingHost : row.referenceHost)};
            double onBytes = -1;
            std::int32_t status = -1;
            FrameBuilder frame(row.args);
            ASSERT_TRUE(kFindWord.onBytes(&frame.frame, &onBytes, h, -1, &status));
            EXPECT_EQ(expected, (Outcome{status, shown(onBytes)}));
            const auto onHandle = [&](ArgumentFrame* f, double* r) { return kFindWord.onHandle(f, r, h, 0); };
            EXPECT_EQ(expected, onFrame(row.args, onHandle));
            EXPECT_EQ(expected, onFrame(row.args, kFindWord.entry));
        }
    }
    compareWord = reinterpret_cast<void*>(sessionCompareAt);
}

}  // namespace
