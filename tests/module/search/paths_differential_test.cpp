// Byte path against multi-byte path on single-byte text: generated calls run
// through both path functions directly (the module linked in-process, a
// UTF-8 session) and must give the same status and result. Left out are the
// documented differences: B on KFIND and KCOUNTX (a note on the byte path, a
// leftward search on the other), B with a start on KFINDC, T with a negative
// start on KFINDC (the byte path trims what the start leaves, the other path
// the whole source), missing starts and those beyond 32 bits (read as 32-bit
// values on the byte path), starts between the length and the length plus
// one (the byte path compares before truncating), and the extra symbols of P.
// Long sources with sparse members reach the vector windows of the byte
// paths' few-byte lists and of their digit scan.
#include "module/frame/workers.h"
#include "tests/support/generated_calls.h"

namespace {

using namespace txtest;
using Call = std::vector<Argument>;

struct Function {
    const char* name;
    std::vector<const char*> shapes;
    const char* letters;
    std::int32_t (*bytes)(ArgumentFrame*, double*);
    MultiBytePath multiByte;
    Alphabets alphabets;
};

const Alphabets kPlain{"UTF-8", {"a", "a", "b", "b", "A", "B", " ", " ", ",", ".", ";", "'", "\"", "1", "\t", "_"},
                       {" ", ",", ";", ".", "a", "b", "'"}};
const Alphabets kSparse{"UTF-8", weighted({"a", "b", "A", "B"}, {"x", "y", "z", " ", "."}, 25), {"a", "b", "A", "B"},
                        true, 150, 4};
// Digits among their neighbours '/' and ':', for the lone class D.
const Alphabets kSparseDigits{"UTF-8", weighted({"0", "5", "9"}, {"x", "/", ":", " ", "."}, 25), {"x", "7"}, true,
                              150, 1};

const Function kFunctions[] = {
    {"KFIND", {"sp", "spm", "sp1", "sp1m", "spm1"}, "IT ", txscan::substringOnBytes<kFirst>,
     txscan::substringMultiByte<kFirst>, kPlain},
    {"KCOUNTX", {"spm"}, "IOT ", txscan::substringOnBytes<kCount>, txscan::substringMultiByte<kCount>, kPlain},
    {"KFINDC", {"sp", "spm", "sp1", "sp1m"}, "ACDFGHLNPSUWXIKVOTB", txscan::charSetOnBytes<kFirst>,
     txscan::charSetMultiByte<kFirst>, kPlain},
    {"KCOUNTC", {"spm"}, "ACDFGHLNPSUWXIKVOTB", txscan::charSetOnBytes<kCount>, txscan::charSetMultiByte<kCount>, kPlain},
    {"KFINDC", {"sl", "slm", "sl1"}, "IB ", txscan::charSetOnBytes<kFirst>, txscan::charSetMultiByte<kFirst>, kSparse},
    {"KCOUNTC", {"slm"}, "IV ", txscan::charSetOnBytes<kCount>, txscan::charSetMultiByte<kCount>, kSparse},
    {"KFINDC", {"slm", "sl1m"}, "DDB ", txscan::charSetOnBytes<kFirst>, txscan::charSetMultiByte<kFirst>,
     kSparseDigits},
    {"KCOUNTC", {"slm"}, "DDV ", txscan::charSetOnBytes<kCount>, txscan::charSetMultiByte<kCount>, kSparseDigits},
};

bool documentedDifference(const Function& f, const Call& args) {
    const auto& source = std::get<std::string>(args[0]);
    bool negativeStart = false, start = false, backward = false, trims = false;
    for (std::size_t k = 2; k < args.size(); ++k) {
        const Argument& a = args[k];
        if (const auto* x = std::get_if<double>(&a)) {
            const auto length = static_cast<double>(source.size());
            if (!(std::abs(*x) < 2147483648.0) || (*x > length && *x < length + 1)) return true;
            start = true;
            negativeStart = *x < 0;
        } else if (const auto* m = std::get_if<std::string>(&a)) {
            backward = m->find_first_of("Bb") != std::string::npos;
            trims = m->find_first_of("Tt") != std::string::npos;
        }
    }
    return (backward && start) || (trims && negativeStart && f.bytes == txscan::charSetOnBytes<kFirst>);
}

TEST(PathsAgree, BytePathsMatchTheMultiBytePaths) {
    InProcess p;
    EncodingHandle* h = p.session.encodingHandle();
    Generator g{std::mt19937(99)};
    for (const Function& f : kFunctions) {
        const auto draw = [&] {
            Call args = g.call(f.shapes[g.below(f.shapes.size())], f.alphabets, f.letters);
            return documentedDifference(f, args) ? Call{} : args;
        };
        const auto multiByte = [&](const Call& args) {
            const Outcome o = onFrame(args, [&](ArgumentFrame* frame, double* r) { return f.multiByte(frame, r, h, 0); });
            p.session.takeMessages();
            return o;
        };
        expectAgree(f.name, 3000, draw, [&](const Call& args) { return onFrame(args, f.bytes); }, multiByte);
    }
}

}  // namespace
