// The set asked byte by byte (ByteSetTest) against the 256-entry set that
// buildByteSet fills from the same class letters, list and flags, for every
// byte value in a single-byte and a multi-byte session, wherever
// byteSetTestOf offers a test (it may leave name classes and long lists to
// the table).
#include <gtest/gtest.h>

#include <string>

#include "module/charset/char_set.h"
#include "tests/support/module_calls.h"

namespace {

using namespace txscan;

const std::uint16_t kClassLetterSets[] = {
    0, kClassLetterA, kClassLetterC, kClassLetterD, kClassLetterG, kClassLetterH, kClassLetterL, kClassLetterP,
    kClassLetterS, kClassLetterU, kClassLetterW, kClassLetterX, kClassLetterD | kClassLetterU | kClassLetterH,
    kClassLetterL | kClassLetterX | kClassLetterS, kClassLetterF, kClassLetterN | kClassLetterD};

const std::string kLists[] = {"", "a", "aZ9", "\t ", "\xE9\xC9", "xyz.,-_!", std::string("\0q", 2), "abcdefghi"};

TEST(ByteSetTest, AnswersAsTheFilledSet) {
    int offered = 0;
    for (const char* encoding : {"ISO-8859-1", "UTF-8"}) {
        txtest::InProcess p(encoding);
        for (const std::uint16_t letters : kClassLetterSets) {
            for (const std::string& list : kLists) {
                for (const bool caseless : {false, true}) {
                    for (const bool negated : {false, true}) {
                        SCOPED_TRACE(std::string(encoding) + " letters " + std::to_string(letters) + " list \"" +
                                     list + "\"" + (caseless ? " I" : "") + (negated ? " V" : ""));
                        const auto n = static_cast<std::int64_t>(list.size());
                        ByteSetTest test;
                        if (!byteSetTestOf(letters, list.data(), n, caseless, negated, &test)) continue;
                        ++offered;
                        CharSet set;
                        buildByteSet(&set, letters, list.data(), n, caseless, negated);
                        for (int b = 0; b < 256; ++b) {
                            ASSERT_EQ(test.holds(static_cast<std::uint8_t>(b)), set.member[b] != 0) << "byte " << b;
                        }
                    }
                }
            }
        }
    }
    EXPECT_GT(offered, 700);
}

}  // namespace
