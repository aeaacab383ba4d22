// Generated KCOUNTW and KFINDW calls on UTF-8 sources, through the entry
// routines (the UTF-8 paths) and through the word scanner alone: the same
// status and result on every call, with random modifiers, starts, words and
// delimiter lists, ASCII and wide. The UTF-8 paths must take every call on
// well-formed text, so the comparison never rests on the scanner alone.
#include "module/frame/entries.h"
#include "module/frame/workers.h"
#include "tests/support/generated_calls.h"

namespace {

using namespace txtest;
using txscan::contract::ArgumentFrame;
using txscan::contract::EncodingHandle;
using Call = std::vector<Argument>;

struct Function {
    const char* name;
    std::vector<const char*> shapes;   // KFINDW's last two are not accepted
    std::int32_t (*entry)(ArgumentFrame*, void*);
    bool (*utf8)(ArgumentFrame*, double*, EncodingHandle*, std::int32_t*);
    std::int32_t (*reference)(ArgumentFrame*, double*, EncodingHandle*, std::uint8_t, txscan::contract::PerCallRecord*);
};

const Function kFunctions[] = {
    {"KCOUNTW", {"S", "SL", "SLm"}, txscan::kcountwEntry, txscan::countWordsUtf8, txscan::countWordsMultiByte},
    {"KFINDW", {"SP", "SPl", "SPlm", "SPlm1", "SPl1", "SPl1m", "SP1", "SP1l", "SP1lm", "SP11", "SPlmmm"},
     txscan::kfindwEntry, txscan::findWordUtf8, txscan::findWordMultiByte},
};

// The UTF-8 paths decline unaccepted signatures, and under T a wide
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

TEST(WordsUtf8, AgreesWithTheScannerOnGeneratedCalls) {
    InProcess p("UTF-8");
    EncodingHandle* h = p.session.encodingHandle();
    // Corners the generator seldom reaches: a backward search that starts on
    // the first trimmed blank or beyond it, characters that fold to ASCII
    // letters, wide blanks as white space.
    const std::vector<Call> corners[] = {
        {{"a\xE2\x84\xAA" "b \xC3\xA9", "k", "I"}, {"a\xE3\x80\x80" "b\xC2\xA0" "c", "", "S"}},
        {{"ab \xC3\xA9 c  ", "ab", " ,", "TB", 7.0}, {"ab \xC3\xA9 c  ", "ab", " ,", "TB", 8.0},
         {"ab \xC3\xA9 c  ", "c", " ,", "TB", 6.0}, {"x \xE2\x84\xAA y", "k", " ", "I"}, {"x \xC5\xBF", "S", " ", "I"}},
    };
    Generator g{std::mt19937(20261207)};
    for (std::size_t i = 0; i < std::size(kFunctions); ++i) {
        const Function& f = kFunctions[i];
        bool wellFormed = true;
        const auto fast = [&](const Call& args) {
            std::int32_t status = 0;
            double ignored = 0;
            FrameBuilder frame(args);
            if (!f.utf8(&frame.frame, &ignored, h, &status) && wellFormed && mustTake(args)) {
                return Outcome{-1, "declined"};
            }
            return onFrame(args, f.entry);
        };
        const auto reference = [&](const Call& args) {
            return onFrame(args, [&](ArgumentFrame* frame, double* r) { return f.reference(frame, r, h, 0, nullptr); });
        };
        std::size_t corner = 0;
        expectAgree(f.name, static_cast<int>(corners[i].size()), [&] { return corners[i][corner++]; }, fast, reference);
        for (const Alphabets& a : utf8Alphabets()) {
            wellFormed = a.wellFormed;
            const auto draw = [&] { return g.call(f.shapes[g.below(f.shapes.size())], a, "ABCDFGHIKLMNPQRSTUWXEOV:z "); };
            expectAgree(f.name, 2000, draw, fast, reference);
        }
    }
}

}  // namespace

namespace {

// A host whose compare over no characters answers "match"; every other
// compare is the session handle's own.
txscan::contract::op::CompareAt sessionCompareAt = nullptr;
std::int32_t emptyMatchesCompareAt(EncodingHandle* h, txscan::contract::TextCursor* c,
                                   txscan::contract::TextCursor* search, std::int64_t searchLength,
                                   std::int32_t flags) {
    return searchLength <= 0 ? 0 : sessionCompareAt(h, c, search, searchLength, flags);
}

// An empty search word (given empty, or emptied by T or R) is compared by the
// handle on every path, so a host that finds it everywhere gets its own
// answer from the UTF-8 path as from the scanner.
TEST(WordsUtf8, AnEmptyWordIsTheHandlesToMatch) {
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
        {{" \xF0\x9F\x98\x80", ""}, 0, 1},
        {{"a\xF0\x9F\x98\x80  b", " ", " ", "R"}, 0, 4},
        {{"a\xF0\x9F\x98\x80,,b", "  ", ",", "T"}, 0, 4},
        {{"a\xF0\x9F\x98\x80  b", " ", " ", "RE"}, 0, 2},
        {{"a\xF0\x9F\x98\x80  b", " ", " ", "RB"}, 0, 4},
        {{"\xC3\xA9  'x'", " ", " ", "RQ"}, 0, 3},
        {{"\xC3\xA9,,b", ",", ",", "R", 2.0}, 0, 3},
    };
    const Function& kfindw = kFunctions[1];
    for (const bool matching : {false, true}) {
        // The session's own handle answers through the wrapper, so the entry
        // routine meets the same host as the paths called directly.
        compareWord = matching ? reinterpret_cast<void*>(&emptyMatchesCompareAt)
                               : reinterpret_cast<void*>(sessionCompareAt);
        for (const Row& row : rows) {
            SCOPED_TRACE(describe(row.args) + (matching ? " matching host" : " reference host"));
            const double expected = matching ? row.matchingHost : row.referenceHost;
            double utf8 = -1;
            std::int32_t status = -1;
            FrameBuilder frame(row.args);
            ASSERT_TRUE(kfindw.utf8(&frame.frame, &utf8, h, &status));
            EXPECT_EQ(expected, utf8);
            const auto scanner = [&](ArgumentFrame* f, double* r) { return kfindw.reference(f, r, h, 0, nullptr); };
            EXPECT_EQ((Outcome{0, shown(expected)}), onFrame(row.args, scanner));
            EXPECT_EQ((Outcome{0, shown(expected)}), onFrame(row.args, kfindw.entry));
        }
    }
    compareWord = reinterpret_cast<void*>(sessionCompareAt);
}

}  // namespace
