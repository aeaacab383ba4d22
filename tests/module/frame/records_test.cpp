// The static records and the two exports, read as a host reads them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/host.h"

namespace {

using namespace txscan::contract;

class Records : public ::testing::Test {
protected:
    txhost::Session session;
    std::unique_ptr<txhost::Module> module = txhost::Module::load(session);
    const unsigned char* bytes() const { return reinterpret_cast<const unsigned char*>(&module->image()); }
};

TEST_F(Records, ImageInformationBytes) {
    const unsigned char* b = bytes();
    EXPECT_EQ(0, std::memcmp(b, "QIX_Image_Information=\0\0", 24));
    std::uint32_t magic, eight;
    std::memcpy(&magic, b + 24, 4);
    std::memcpy(&eight, b + 28, 4);
    EXPECT_EQ(0xB0BDEBEDu, magic);
    EXPECT_EQ(8u, eight);
    EXPECT_STREQ("5.12.03R2C031114", reinterpret_cast<const char*>(b + 38));
    const void* words[2];   // the address of byte 112, and zero at 120
    std::memcpy(words, b + 88, 8);
    std::memcpy(words + 1, b + 120, 8);
    EXPECT_EQ(b + 112, words[0]);
    EXPECT_EQ(nullptr, words[1]);
    const char* notice;
    std::memcpy(&notice, b + 96, 8);
    EXPECT_GT(std::strlen(notice), 0u);
    EXPECT_EQ(nullptr, std::strchr(notice, '\n'));
}

TEST_F(Records, VersionRecordFollowsImageInformation) {
    // A host that reads 336 bytes from the returned address finds both records.
    unsigned char block[336];
    std::memcpy(block, bytes(), sizeof block);
    VersionRecord copied;
    module->tkvercn1()(&copied);
    EXPECT_EQ(0, std::memcmp(block + 128, &copied, sizeof copied));
    const char* release;
    std::memcpy(&release, block + 128, 8);
    EXPECT_EQ(18u, std::strlen(release));
    EXPECT_STREQ("5.12.03R2C03112014", release);
}

TEST_F(Records, Tkvercn1WritesExactly208Bytes) {
    unsigned char buffer[256];
    std::memset(buffer, 0xA5, sizeof buffer);
    module->tkvercn1()(buffer);
    for (std::size_t i = 208; i < sizeof buffer; ++i) ASSERT_EQ(0xA5, buffer[i]) << i;
    VersionRecord v;
    std::memcpy(&v, buffer, sizeof v);
    for (std::uint64_t word : v.zero) EXPECT_EQ(0u, word);
    EXPECT_EQ(1394560953u, v.buildTime);  // Tue Mar 11 14:02:33 EDT 2014
    EXPECT_STREQ("Tue Mar 11 14:02:33 EDT 2014", v.buildTimeText);
}

TEST_F(Records, ModuleHeader) {
    const ModuleHeader& h = *module->image().moduleHeader;
    EXPECT_STREQ("txscanmd", h.name);
    const std::uint32_t words[] = {h.zero, h.allOnes, h.interfaceA, h.interfaceB, h.one,
                                   h.buildNumber, h.interfaceFlags, h.fifteen, h.three, h.padding};
    const std::uint32_t expected[] = {0, 0xFFFF, 1024, 1024, 1, 9683, 0x20018F13, 15, 3, 0};
    for (std::size_t i = 0; i < std::size(words); ++i) EXPECT_EQ(expected[i], words[i]) << i;
    EXPECT_EQ(h.functionTableRoutine, module->tableRoutine());
    EXPECT_EQ(1, h.procedureA());
    EXPECT_EQ(1, h.procedureC());
    // B forwards to service (1, 2), which the reference host answers with the sum of its arguments.
    session.clearServiceUseFlags();
    EXPECT_EQ(10u, h.procedureB(1, 2, 3, 4));
    EXPECT_EQ(1, session.serviceUseFlag(1));
    EXPECT_EQ(&module->image(), module->mcnMain()(session.hostVector(), 7)) << "the same address again";
}

}  // namespace
