// Generated KSCANX calls, function and call routine, through the byte path
// and through the word scanner alone: the same status, string, position and
// length on every call, in UTF-8 (ASCII-heavy, multi-byte-heavy and
// malformed text) and in the single-byte sessions.
#include "module/frame/workers.h"
#include "module/words/word_scanner.h"
#include "tests/support/generated_calls.h"

namespace {

using namespace txtest;
using txscan::contract::ArgumentFrame;
using txscan::contract::EncodingHandle;

// The routine (its outputs in arguments 3 and 4) or the function, whose
// result holds at most a length drawn from the source's size.
Outcome scan(const std::vector<Argument>& args, EncodingHandle* h, bool bytePath) {
    FrameBuilder f(args);
    const bool routine = args.size() > 2 && std::holds_alternative<double>(args[2]);
    const std::size_t size = std::get<std::string>(args[0]).size();
    std::string buffer(256, '#');
    txscan::contract::StringValue result{size % 5 == 1 ? static_cast<std::int64_t>(1 + size / 5 % 4) : 200, 99,
                                         buffer.data(), nullptr, 0};
    txscan::contract::StringValue* out = routine ? nullptr : &result;
    const std::int32_t status = bytePath ? txscan::scanCommon(&f.frame, out, h, 0, nullptr)
                                         : txscan::scanCommonOnScanner(&f.frame, out, h);
    if (!routine) return {status, buffer.substr(0, static_cast<std::size_t>(result.length))};
    const auto output = [&](int k) {
        const auto* value = static_cast<const double*>(f.frame.args[k - 1].value);
        return value != nullptr ? shown(*value) : "-";
    };
    return {status, output(3) + "/" + output(4)};
}

TEST(ScanBytes, AgreesWithTheScannerOnGeneratedCalls) {
    std::vector<Alphabets> sets = utf8Alphabets();
    sets.push_back({"ISO-8859-1", weighted(kAsciiChars, kHighBytes), weighted({" ", ",", "a"}, kHighBytes)});
    sets.push_back({"windows-1252", weighted(kAsciiChars, kHighBytes, 2), weighted({" ", "K"}, kHighBytes)});
    sets.push_back({"ISO-8859-15", weighted(kAsciiChars, kHighBytes), weighted({",", "b"}, kHighBytes)});
    const char* const shapes[] = {"sn", "snl", "snlm", "snoo", "snool", "snoolm"};
    Generator g{std::mt19937(20261123)};
    for (const Alphabets& a : sets) {
        InProcess p(a.encoding);
        EncodingHandle* h = p.session.encodingHandle();
        expectAgree(
            std::string("KSCANX ") + a.encoding, 2500,
            [&] { return g.call(shapes[g.below(std::size(shapes))], a, "ABCDFGHIKLMNPQRSTUWXEOV:zy"); },
            [&](const std::vector<Argument>& args) { return scan(args, h, true); },
            [&](const std::vector<Argument>& args) { return scan(args, h, false); });
    }
}

}  // namespace
