// Byte path against multi-byte path on single-byte text: generated calls run
// through both path functions directly (the module linked in-process, a
// UTF-8 session) and must give the same status and result. Left out are the
// documented differences: B on KFIND and KCOUNTX (a note on the byte path, a
// leftward search on the other), B with a positive start on KFINDC, T with a
// negative start on KFINDC (the byte path trims what the start leaves, the
// other path the whole source), missing starts, starts between the length
// and the length plus one (the byte path compares before truncating), and
// the extra symbols of P.
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

struct Generator {
    std::mt19937 random;

    std::string text(const char* alphabet, std::size_t maxLength) {
        const std::size_t size = std::char_traits<char>::length(alphabet);
        std::string out(random() % (maxLength + 1), ' ');
        for (char& c : out) c = alphabet[random() % size];
        return out;
    }
    // Some letters of `letters`, possibly with blanks, in either case.
    std::string modifiers(const char* letters) {
        std::string out;
        const std::size_t size = std::char_traits<char>::length(letters);
        for (unsigned n = random() % 4; n > 0; --n) {
            char c = letters[random() % size];
            if (random() % 2) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            out += c;
        }
        return out;
    }
    // Starts on both sides of the source, some fractional.
    double start(std::size_t length) {
        const auto span = static_cast<int>(length) + 3;
        double s = static_cast<int>(random() % static_cast<unsigned>(2 * span + 1)) - span;
        if (random() % 4 == 0 && s != static_cast<double>(length)) s += s < 0 ? -0.5 : 0.5;
        return s;
    }
};

class PathsAgree : public ::testing::Test {
protected:
    txtest::InProcess inProcess;
    Generator generate{std::mt19937(99)};

    void expectSame(const std::vector<Argument>& arguments, ByteWorker bytes, MultiByteWorker multiByte) {
        FrameBuilder byteFrame(arguments);
        FrameBuilder multiFrame(arguments);
        double byteResult = -1;
        double multiResult = -1;
        const std::int32_t byteStatus = bytes(&byteFrame.frame, &byteResult);
        const std::int32_t multiStatus =
            multiByte(&multiFrame.frame, &multiResult, inProcess.session.encodingHandle(), 0);
        inProcess.session.takeMessages();
        ASSERT_EQ(byteStatus, multiStatus);
        ASSERT_EQ(byteResult, multiResult);
    }
};

using txtest::describe;

// Arguments in order, built one by one: GCC 12 mistakes an initializer list
// of variants for uninitialised strings.
template <typename... Values>
Arguments arguments(const Values&... values) {
    Arguments out;
    out.reserve(sizeof...(Values));
    (out.emplace_back(values), ...);
    return out;
}

TEST_F(PathsAgree, FindAndCount) {
    for (int trial = 0; trial < 3000; ++trial) {
        const std::string source = generate.text("aAbB ", 12);
        const std::string search = generate.text("aAbB ", 3);
        const std::string modifiers = generate.modifiers("it ");
        Arguments find = arguments(source, search);
        switch (trial % 4) {
            case 1: find.push_back(modifiers); break;
            case 2: find.push_back(generate.start(source.size())); break;
            case 3: {
                const double start = generate.start(source.size());
                if (trial % 8 == 3) {
                    find.push_back(modifiers);
                    find.push_back(start);
                } else {
                    find.push_back(start);
                    find.push_back(modifiers);
                }
                break;
            }
            default: break;
        }
        SCOPED_TRACE(describe(find));
        expectSame(find, txscan::findBytes, txscan::findMultiByte);
        expectSame(arguments(source, search, generate.modifiers("iot ")), txscan::countBytes, txscan::countMultiByte);
    }
}

TEST_F(PathsAgree, FindCharAndCountChar) {
    const char* kClassLetters = "acdfghlnpsuwx";
    for (int trial = 0; trial < 3000; ++trial) {
        const std::string source = generate.text("aAbB1 ,.\t_", 12);
        const std::string list = generate.text("aAb1 .", 3);
        std::string modifiers = generate.modifiers(kClassLetters) + generate.modifiers("ikvot");
        Arguments find = arguments(source, list);
        const int shape = trial % 4;
        if (shape >= 2) {
            const double start = generate.start(source.size());
            find.push_back(start);
            if (start < 0) {
                std::erase_if(modifiers, [](char c) { return c == 't' || c == 'T'; });
            }
        } else if (trial % 3 == 0) {
            modifiers += 'b';   // leftwards from the end on both paths
        }
        if (shape == 1 || shape == 3) find.push_back(modifiers);
        SCOPED_TRACE(describe(find));
        expectSame(find, txscan::findCharBytes, txscan::findCharMultiByte);
        expectSame(arguments(source, list, generate.modifiers(kClassLetters) + generate.modifiers("ikvotb")),
                   txscan::countCharBytes, txscan::countCharMultiByte);
    }
}

}  // namespace
