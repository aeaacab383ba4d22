// KFINDC and KCOUNTC with lists of one to four bytes on sources long enough
// for the vector windows (up to 150 bytes, members sparse and anywhere,
// ragged ends), the byte path against the multi-byte path on the same
// single-byte text: forward, leftward, caseless and from a start.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "module/frame/workers.h"
#include "tests/support/module_calls.h"

namespace {

using txtest::Argument;
using txtest::FrameBuilder;
using Arguments = std::vector<Argument>;
using ByteWorker = std::int32_t (*)(txscan::contract::ArgumentFrame*, double*);
using MultiByteWorker = std::int32_t (*)(txscan::contract::ArgumentFrame*, double*, txscan::contract::EncodingHandle*,
                                         std::uint8_t);

TEST(FewByteLists, AgreeWithTheMultiByteScan) {
    txtest::InProcess inProcess;
    std::mt19937 random(7);
    auto pick = [&](const char* alphabet, std::size_t n) {
        std::string out(n, ' ');
        for (char& c : out) c = alphabet[random() % std::char_traits<char>::length(alphabet)];
        return out;
    };
    auto expectSame = [&](const Arguments& arguments, ByteWorker bytes, MultiByteWorker multiByte) {
        FrameBuilder byteFrame(arguments);
        FrameBuilder multiFrame(arguments);
        double byteResult = -1;
        double multiResult = -1;
        const std::int32_t byteStatus = bytes(&byteFrame.frame, &byteResult);
        const std::int32_t multiStatus = multiByte(&multiFrame.frame, &multiResult, inProcess.session.encodingHandle(), 0);
        inProcess.session.takeMessages();
        ASSERT_EQ(byteStatus, multiStatus);
        ASSERT_EQ(byteResult, multiResult);
    };
    for (int trial = 0; trial < 4000; ++trial) {
        std::string source = pick("xyz .", random() % 151);
        for (unsigned hits = random() % 3; hits > 0 && !source.empty(); --hits) {
            source[random() % source.size()] = "abAB"[random() % 4];
        }
        const std::string list = pick("abAB", 1 + random() % 4);
        const std::string modifiers = pick("ib ", random() % 3);
        Arguments find{source, list};
        if (trial % 3 == 1) find.emplace_back(modifiers);
        if (trial % 3 == 2) find.emplace_back(static_cast<double>(static_cast<int>(random() % 301) - 150));
        SCOPED_TRACE(txtest::describe(find));
        expectSame(find, txscan::findCharBytes, txscan::findCharMultiByte);
        expectSame(Arguments{source, list, pick("iv ", random() % 3)}, txscan::countCharBytes,
                   txscan::countCharMultiByte);
    }
}

}  // namespace
