// Generated KFIND, KCOUNTX, KFINDC and KCOUNTC calls in a UTF-8 session, run
// through the entry routine (which offers them to the UTF-8 paths) and
// through the handle-walking paths alone: the same status and result on
// every call. On well-formed text the UTF-8 paths must answer themselves.
// Long rows cross the vector widths of the UTF-8 check and counting.
#include "module/frame/entries.h"
#include "module/charset/utf8_text.h"
#include "module/frame/workers.h"
#include "tests/support/generated_calls.h"

namespace {

using namespace txtest;

struct Function {
    const char* name;
    std::vector<const char*> shapes;
    std::int32_t (*entry)(ArgumentFrame*, void*);
    bool (*utf8)(ArgumentFrame*, double*, EncodingHandle*, std::int64_t, std::int32_t*);
    MultiBytePath reference;
};

const Function kFunctions[] = {
    {"KFIND", {"SP", "SPm", "SP1", "SP1m", "SPm1", "SP11"}, txscan::kfindEntry, txscan::substringUtf8<kFirst>,
     txscan::substringMultiByte<kFirst>},
    {"KCOUNTX", {"SP", "SPm"}, txscan::kcountxEntry, txscan::substringUtf8<kCount>, txscan::substringMultiByte<kCount>},
    {"KFINDC", {"S", "SP", "SPm", "SP1", "SP1m", "SPm1", "SP11"}, txscan::kfindcEntry, txscan::charSetUtf8<kFirst>,
     txscan::charSetMultiByte<kFirst>},
    {"KCOUNTC", {"SP", "SPm"}, txscan::kcountcEntry, txscan::charSetUtf8<kCount>, txscan::charSetMultiByte<kCount>},
};

TEST(Utf8Paths, AgreeWithTheHandlePathsOnGeneratedCalls) {
    InProcess p("UTF-8");
    EncodingHandle* h = p.session.encodingHandle();
    Generator g{std::mt19937(20261207)};
    std::vector<Alphabets> alphabets = utf8Alphabets();
    // Rows long enough to be walked a vector at a time, wide characters
    // falling on either side of each vector's edge.
    alphabets.push_back({"UTF-8", weighted(kAsciiChars, kWideChars), weighted(kAsciiChars, kWideChars), true, 120});
    for (const Alphabets& a : alphabets) {
        for (const Function& f : kFunctions) {
            const auto fast = [&](const std::vector<Argument>& args) {
                std::int32_t status = 0;
                double ignored = 0;
                FrameBuilder frame(args);
                const StringValue* source = frame.frame.string(1);
                const std::int64_t chars =
                    source == nullptr || source->data == nullptr
                        ? 0
                        : txscan::utf8CharsIfWellFormed(reinterpret_cast<const std::uint8_t*>(source->data),
                                                        source->length);
                if (!f.utf8(&frame.frame, &ignored, h, chars, &status) && a.wellFormed) {
                    return Outcome{-1, "declined"};
                }
                return onFrame(args, f.entry);
            };
            const auto reference = [&](const std::vector<Argument>& args) {
                return onFrame(args, [&](ArgumentFrame* frame, double* r) { return f.reference(frame, r, h, 0); });
            };
            const auto draw = [&] { return g.call(f.shapes[g.below(f.shapes.size())], a, "ABCDFGHIKLMNOPQSTUVWXER: ıſz"); };
            expectAgree(f.name, 2000, draw, fast, reference);
        }
    }
}

}  // namespace
