// The vector UTF-8 check and count against the one-sequence-at-a-time form,
// on generated text with one fault planted at every position, at every
// length around the 16- and 32-byte blocks. Each text lives in a buffer of
// exactly its length, so a read past the end shows up under AddressSanitizer.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "module/charset/byte_vectors.h"
#include "module/charset/utf8_text.h"

namespace {

using txscan::Utf8Vectors;

// Characters at the edges of each sequence length and of the excluded ranges.
const char* const kCharacters[] = {
    "a", "\x7F", "\xC2\x80", "\xDF\xBF", "\xC3\xA9", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
    "\xE6\x9D\xB1", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "\xF0\x9F\x98\x80", " ", "0"};

// A fault: bytes written over the text at some position (the text keeps its
// length), or, with cut, the text ends inside the sequence planted last. A
// stray continuation may land where one belongs; every other fault makes the
// text malformed wherever it lands.
struct Fault {
    const char* name;
    std::string bytes;
    bool cut;
};

const Fault kFaults[] = {
    {"none", "", false},                        {"stray continuation", "\x80", false},
    {"lead C0", "\xC0\x80", false},             {"lead C1", "\xC1\xBF", false},
    {"lead F5", "\xF5\x80\x80\x80", false},     {"byte FF", "\xFF", false},
    {"overlong three", "\xE0\x9F\xBF", false},  {"surrogate", "\xED\xA0\x80", false},
    {"overlong four", "\xF0\x8F\xBF\xBF", false}, {"above U+10FFFF", "\xF4\x90\x80\x80", false},
    {"lead then ASCII", "\xE6\x41", false},     {"two leads", "\xC3\xC3", false},
    {"cut two", "\xC3", true},                   {"cut three", "\xE6\x9D", true},
    {"cut four", "\xF0\x9F\x98", true},
};

std::vector<std::uint8_t> wellFormed(std::mt19937& random, std::size_t length) {
    std::string text;
    while (text.size() < length) {
        const std::string c = kCharacters[random() % std::size(kCharacters)];
        text += text.size() + c.size() <= length ? c : std::string("a");
    }
    return {text.begin(), text.end()};
}

std::int64_t countedLeads(const std::vector<std::uint8_t>& text) {
    std::int64_t leads = 0;
    for (std::uint8_t b : text) leads += (b & 0xC0) != 0x80;
    return leads;
}

TEST(Utf8Scan, VectorFormsAgreeWithOneByOne) {
    std::mt19937 random(20261124);
    for (const Fault& fault : kFaults) {
        for (std::size_t length = 1; length <= 100; ++length) {
            if (length < fault.bytes.size()) continue;
            for (std::size_t at = 0; at + fault.bytes.size() <= length; at += fault.bytes.empty() ? length : 1) {
                std::vector<std::uint8_t> text = wellFormed(random, length);
                std::copy(fault.bytes.begin(), fault.bytes.end(), text.begin() + static_cast<std::ptrdiff_t>(at));
                if (fault.cut) text.resize(at + fault.bytes.size());
                const auto n = static_cast<std::int64_t>(text.size());
                const std::vector<std::uint8_t> exact(text.begin(), text.end());   // no spare capacity
                const std::int64_t expected = txscan::utf8CharsOneByOne(exact.data(), n);
                SCOPED_TRACE(std::string(fault.name) + ", length " + std::to_string(n) + ", at " + std::to_string(at));
                EXPECT_EQ(txscan::utf8CharsIfWellFormed(exact.data(), n), expected);
                EXPECT_EQ(txscan::utf8CharsIfWellFormed(exact.data(), n, Utf8Vectors::kSse2), expected);
                if (fault.bytes.empty()) {
                    EXPECT_GE(expected, 0);
                    EXPECT_EQ(txscan::leadBytes(exact.data(), n), countedLeads(exact));
                } else if (fault.bytes != "\x80") {
                    EXPECT_EQ(expected, -1);
                }
            }
        }
    }
}

}  // namespace

// Long texts, where the vector count gathers blocks in batches.
TEST(Utf8Scan, LeadBytesOfLongTexts) {
    std::mt19937 random(7);
    for (const std::size_t length : {4079u, 4080u, 4081u, 4096u, 8161u, 20000u}) {
        const std::vector<std::uint8_t> text = wellFormed(random, length);
        const std::vector<std::uint8_t> ascii(length, 'a');
        EXPECT_EQ(txscan::leadBytes(text.data(), static_cast<std::int64_t>(length)), countedLeads(text)) << length;
        EXPECT_EQ(txscan::leadBytes(ascii.data(), static_cast<std::int64_t>(length)), static_cast<std::int64_t>(length));
    }
}

// The masked-load test of a short text's top bits, where the processor has
// it: at every length, one byte above 0x7F at every position or none, in a
// buffer of exactly that length.
TEST(Utf8Scan, MaskedHighBitTestAtEveryLengthAndPosition) {
    if (!txscan::haveAvx512Bytes()) GTEST_SKIP() << "no AVX-512BW";
    for (std::int64_t n = 1; n <= 128; ++n) {
        for (std::int64_t at = -1; at < n; ++at) {
            std::vector<char> text(static_cast<std::size_t>(n), 'a');
            if (at >= 0) text[static_cast<std::size_t>(at)] = static_cast<char>(0x80 + at % 0x80);
            EXPECT_EQ(txscan::highBitUpTo128(text.data(), n), at >= 0) << n << " " << at;
        }
    }
}
