// Method selection by name, alias, setting and fallback.
#include "module/rng/select.h"

#include <cstring>
#include <string>

#include "module/rng/messages.h"
#include "tests/module/rng/rng_host_fixture.h"

namespace rngtest {
namespace {

using namespace txscan::rng;

// Every alias with the method it selects, and the methods that have none.
const std::pair<const char*, const char*> kNames[] = {
    {"TF", "FRY4X64"},      {"TF2", "FRY2X64"},          {"TF4", "FRY4X64"},           {"THREEFRY", "FRY4X64"},
    {"THREEFRY2X32", "FRY2X32"}, {"THREEFRY2X64", "FRY2X64"}, {"THREEFRY4X64", "FRY4X64"}, {"TRNG", "RDRAND"},
    {"PCG", "PCG64I"},      {"MT", "MT64"},              {"MT2002", "MT32"},           {"HARD", "RDRAND"},
    {"HARDWARE", "RDRAND"}, {"XOR1024", "XOR1024"},      {"XORGENS", "XORGENS"},       {"MT1998", "MT1998"},
    {"MTHYBRID", "MTHYBRID"}, {"FRY2X32", "FRY2X32"},    {"RANUNI", "RANUNI"},         {"MH3", "MH3"},
};

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}
std::u16string wide(const std::string& s) { return std::u16string(s.begin(), s.end()); }

class SelectTest : public RngHostTest {
protected:
    RngMethod record{};
    std::int32_t select8(const char* name, std::int32_t length = -1) { return selectMethod(name, length, &record, 0); }
    std::int32_t select16(const std::u16string& name) {
        return selectMethod(name.c_str(), static_cast<std::int32_t>(name.size()), &record, kNameIsWide);
    }
    std::string chosen() const { return record.shortName; }
};

TEST_F(SelectTest, EveryNameAndAliasInAnyCaseAndBlanks) {
    for (const auto& [name, method] : kNames) {
        if (!processorHasRdrand() && std::string(method) == "RDRAND") continue;
        for (const std::string& spelling : {std::string(name), lower(name), "  " + lower(name) + "   "}) {
            EXPECT_EQ(select8(spelling.c_str()), 0) << spelling;
            EXPECT_EQ(chosen(), method) << spelling;
            EXPECT_EQ(std::u16string(record.wideName), wide(method)) << "the canonical name replaces the request";
            EXPECT_EQ(select16(wide(spelling)), 0) << spelling;
            EXPECT_EQ(chosen(), method) << spelling;
        }
    }
}

TEST_F(SelectTest, UnknownNamesFallBackToMtHybrid) {
    struct FallbackCase { const char* name; std::int32_t length; std::uint32_t status; const char* method; };
    const FallbackCase cases[] = {
        {"XOR 64", -1, 0x8C7FE80B, "MTHYBRID"},  {"THREEFRY4X64   A", -1, 0x8C7FE80B, "MTHYBRID"},
        {"XOR64", 3, 0x8C7FE80B, "MTHYBRID"},   {"MT64junk", 4, 0, "MT64"},   {nullptr, 5, 0, "MTHYBRID"},
    };
    for (const FallbackCase& c : cases) {
        EXPECT_EQ(static_cast<std::uint32_t>(select8(c.name, c.length)), c.status) << (c.name ? c.name : "null");
        EXPECT_EQ(chosen(), c.method) << (c.name ? c.name : "null");
    }
    EXPECT_EQ(selectMethod("XOR64", -1, nullptr, 0), 0);
    EXPECT_TRUE(cataloguedCodes().empty()) << "selection itself issues no message";
}

TEST_F(SelectTest, TheSettingNamesTheMethodWhenNoNameIsGiven) {
    const struct { const char* setting; std::uint32_t status; const char* method; } cases[] = {
        {"xorgens", 0, "XORGENS"}, {"xorgens ", 0x8C7FE80B, "MTHYBRID"},   // the setting is not trimmed
        {"", 0, "MTHYBRID"},       {"THREEFRY4X64XXYY", 0x8C7FE80B, "MTHYBRID"},   // cut to 14 characters
    };
    for (const auto& c : cases) {
        setText("OSENV.QIX_RNG_METHOD", c.setting);
        EXPECT_EQ(static_cast<std::uint32_t>(select8("  ")), c.status) << c.setting;
        EXPECT_EQ(chosen(), c.method) << c.setting;
    }
    setText("OSENV.QIX_RNG_METHOD", "XOR4096");
    EXPECT_EQ(select8("MT"), 0) << "an explicit name wins over the setting";
    EXPECT_EQ(chosen(), "MT64");
}

TEST_F(SelectTest, CaseFollowsUnicodeSimpleUpperCase) {
    EXPECT_EQ(select16(u"\u017Fubkey32"), 0) << "long s upper-cases to S";
    EXPECT_EQ(chosen(), "SUBKEY32");
    EXPECT_EQ(select16(u"\uFF4D\uFF54"), static_cast<std::int32_t>(0x8C7FE80Bu)) << "full-width letters stay apart";
}

TEST_F(SelectTest, EightBitNamesAreWidenedByTheHost) {
    txhost::Session other({.encoding = "ISO-8859-1"});
    auto bound = txhost::Module::attach(other, &mcn_main, &tkvercn1);
    EXPECT_EQ(static_cast<std::uint32_t>(selectMethod("mt\xE9", -1, &record, 0)), 0x8C7FE80Bu);
    bound.reset();
    auto rebound = txhost::Module::attach(session, &mcn_main, &tkvercn1);

    // A failed conversion is reported and the name counts as empty.
    constexpr std::int32_t kBroken = static_cast<std::int32_t>(0x803FC0F1u);
    txhost::failTranscoding(services(), kBroken);
    setText("OSENV.QIX_RNG_METHOD", "pcg");
    EXPECT_EQ(select8("XOR64"), 0);
    EXPECT_EQ(chosen(), "PCG64I");
    std::vector<Message> issued = catalogued();
    ASSERT_EQ(issued.size(), 1u);
    EXPECT_EQ(issued[0].code, kBroken);
    EXPECT_EQ(issued[0].kind, 4);
}

}  // namespace
}  // namespace rngtest
