// The static records and the two exports, read as a host reads them: in
// place, past the ImageInformation into the VersionRecord behind it. The
// loader checks the tag and magic of every module it binds.
#include <gtest/gtest.h>

#include <cstring>

#include "host/host.h"

namespace {

using namespace txscan::contract;

class Records : public ::testing::Test {
protected:
    txhost::Session session;
    std::unique_ptr<txhost::Module> module = txhost::Module::load(session);
};

TEST_F(Records, ImageInformationPointsIntoItself) {
    const ImageInformation& info = module->image();
    EXPECT_EQ(&info.moduleHeader, info.headerField);
    EXPECT_EQ(0u, info.zero);
    EXPECT_GT(std::strlen(info.notice), 0u);
    EXPECT_EQ(nullptr, std::strchr(info.notice, '\n'));
    EXPECT_EQ(&info, module->mcnMain()(session.hostVector(), 7)) << "the same address again";
}

// A host that reads 336 bytes from the returned address finds the record
// tkvercn1 copies out, and tkvercn1 writes not a byte past its 208.
TEST_F(Records, Tkvercn1CopiesTheRecordBehindTheImageInformation) {
    unsigned char buffer[256];
    std::memset(buffer, 0xA5, sizeof buffer);
    module->tkvercn1()(buffer);
    for (std::size_t i = 208; i < sizeof buffer; ++i) ASSERT_EQ(0xA5, buffer[i]) << i;
    EXPECT_EQ(0, std::memcmp(reinterpret_cast<const unsigned char*>(&module->image()) + 128, buffer, 208));
}

TEST_F(Records, ModuleHeaderProcedures) {
    const ModuleHeader& h = *module->image().moduleHeader;
    EXPECT_STREQ("txscanmd", h.name);
    EXPECT_EQ(1, h.procedureA());
    EXPECT_EQ(1, h.procedureC());
    // B forwards to service (1, 2), which the reference host answers with the sum of its arguments.
    session.clearServiceUseFlags();
    EXPECT_EQ(10u, h.procedureB(1, 2, 3, 4));
    EXPECT_EQ(1, session.serviceUseFlag(1));
}

}  // namespace
