// The session's byte tables against its EncodingHandle: for every character
// of one byte (below 0x80 in multi-byte sessions, every byte value in
// single-byte ones) each class question, both case tests and both folds get
// the same answer, since the byte paths answer from the tables what the
// scanner asks of the handle; in multi-byte sessions the bytes from 0x80 up
// have neither class nor case.
#include <gtest/gtest.h>

#include "host/host.h"
#include "module/charset/byte_classes.h"
#include "module/frame/encoding_ops.h"
#include "tests/support/module_calls.h"

namespace {

using namespace txscan::contract;

TEST(ByteTables, AgreeWithTheHandleOnEveryOneByteCharacter) {
    for (const std::string& encoding : txhost::availableEncodings()) {
        if (encoding == "Shift_JIS") continue;   // its second bytes overlap ASCII: no byte path
        SCOPED_TRACE(encoding);
        txhost::Session session(txhost::SessionOptions{.encoding = encoding});
        EncodingHandle* h = session.encodingHandle();
        const HostVector* v = session.hostVector();
        const int singles = h->encodingKind == kSingleByteEncoding ? 256 : 0x80;
        for (int b = 0; b < singles; ++b) {
            char text[1] = {static_cast<char>(b)};
            TextCursor at;
            txscan::setupCursor(h, &at, text, 1);
            for (const txscan::ClassQuestion& q : txscan::kClassQuestions) {
                ASSERT_EQ(txscan::enc::classTest(h, q.word, &at, q.mask, q.which),
                          (v->classTable[b] & txscan::byteClassMask(q.letter)) != 0)
                    << "byte " << b << " letter flag " << int(q.letter);
            }
            ASSERT_EQ(txscan::enc::caseTest(h, &at, kIsUpper), (v->classTable[b] & kClassUpper) != 0) << b;
            ASSERT_EQ(txscan::enc::caseTest(h, &at, kIsLower), (v->classTable[b] & kClassLower) != 0) << b;
            for (const bool upper : {false, true}) {
                char held[kCharBufferBytes] = {static_cast<char>(b)};
                TextCursor c;
                txscan::setupCursor(h, &c, held, 1);
                upper ? txscan::enc::toUpperChar(h, &c) : txscan::enc::toLowerChar(h, &c);
                const std::uint8_t* map = upper ? v->upcaseMap : v->lowcaseMap;
                ASSERT_EQ(c.length, 1) << b;
                ASSERT_EQ(static_cast<std::uint8_t>(held[0]), map[b]) << "byte " << b << (upper ? " up" : " down");
            }
        }
        for (int b = singles; b < 256; ++b)
            EXPECT_TRUE(v->classTable[b] == 0 && v->upcaseMap[b] == b && v->lowcaseMap[b] == b) << "byte " << b;
    }
}

}  // namespace
