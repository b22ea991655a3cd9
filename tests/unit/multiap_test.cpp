// The BSS configuration TLV and the Wi-Fi Simple Configuration extension, byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

class MultiAp : public testing::Test {
  protected:
    FakeHost host_;
};

}  // namespace

TEST_F(MultiAp, TheBssConfigurationByteForByte) {
    struct {
        uint32_t count;
        KvBssConfig bss[2];
    } list = {2, {{0x40, 1, 0x1234, 0x0002, 5, 6}, {0x80, 2, 0xFFFF, 0xFFFE, 7, 8}}};
    uint8_t buffer[23];
    uint32_t length = 0;
    ASSERT_EQ(kvMAP1905_TlvBss_Config_insert(buffer, &length, &list), 0);
    EXPECT_EQ(Bytes(buffer, buffer + length),
              fromHex("02 4E A7 D0 00 11 02  40 01 12 34 00 02 05 06  80 02 FF FF FF FE 07 08"));
    EXPECT_EQ(logCount(3,
                       "[TLV] Bss insert BandIndex = 64 Attribute = 1, MDID = 4660, TCI = 2, WlMode = 5, "
                       "ExtAttribute = 6\n"),
              1u);
    for (const uint32_t count : {0u, 256u}) {
        list.count = count;
        EXPECT_EQ(kvMAP1905_TlvBss_Config_insert(buffer, &length, &list), -1);
    }
    EXPECT_EQ(length, 23u);
}

TEST_F(MultiAp, WhatIsFilledInIsParsed) {
    const KvBssInfo bss = {0x40, 0x01, 0x1234, 0x0002, 9, 0x05, 9, 9, 9};
    uint8_t buffer[30] = {};
    EXPECT_EQ(kvMAP1905_ApCfg_fill(buffer, 3, &bss), 24);
    EXPECT_EQ(Bytes(buffer, buffer + 30),
              fromHex("000000 10 49 00 14 0A 61 C4 01 01 40 02 01 01 03 02 12 34 04 02 00 02 07 01 05 000000"));
    EXPECT_EQ(notes().back(), "logs 2.7 KOVAN proprietary field length 24\n");
    nvram()["wl0_nband"] = "1";
    nvram()["wl0_extattr"] = "77";
    const uint8_t *attribute = buffer + 7;
    KvBssInfo parsed = {0, 0, 0, 0, 1, 99, 2, 3, 4};
    EXPECT_EQ(kvMAP1905_ApCfg_parse(attribute, &parsed), 0);
    const KvBssInfo inOrder = {0x40, 0x01, 0x1234, 0x0002, 1, 99, 2, 3, 4};
    EXPECT_EQ(std::memcmp(&parsed, &inOrder, 11), 0) << "ExtAttribute is not read here";
    EXPECT_EQ(kvMAP1905_ApCfg_parse_check_len(attribute, 20, &parsed), 0);
    EXPECT_EQ(parsed.ExtAttribute, 5) << "whatever nvram says";
    EXPECT_EQ(kvMAP1905_ApCfg_parse_check_len(attribute, 17, &parsed), 0);
    EXPECT_EQ(parsed.ExtAttribute, 77) << "without sub-element 7, what nvram says";
    EXPECT_EQ(logCount(7, "MDID:[0x1234]\n"), 3u);

    notes().clear();
    const KvBssInfo distinct = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    dumpBssInfo(&distinct);
    ASSERT_EQ(notes().size(), 9u);
    EXPECT_EQ(notes()[6], "logs 2.7 Channel     : 0x07\n");
    EXPECT_EQ(notes()[8], "logs 2.7 Bandwidth   : 0x09\n");
}

TEST_F(MultiAp, OddAttributes) {
    const struct {
        const char *what;
        const char *elements;  // behind the vendor ID
        int inOrder;           // result of the parser that walks in order and trusts its caller
        int checked;
        std::array<unsigned, 4> afterInOrder;  // band index, attribute, MDID, TCI
        std::array<unsigned, 4> afterChecked;
    } cases[] = {
        {"1, 3, 4", "01 01 40 03 02 00 07 04 02 00 08", 0, 0, {0x40, 0, 7, 8}, {0x40, 0, 7, 8}},
        {"2 before 1", "02 01 05 01 01 40", 0, 0, {0, 5}, {0x40, 5}},
        {"a later one overwrites", "01 01 40 01 01 80", 0, 0, {0x40}, {0x80}},
        {"nothing", "", 0, 0, {}, {}},
        {"an unknown one is skipped", "09 03 01 02 03 02 01 05", 0, 0, {}, {0, 5}},
        {"number with length 1", "01 01 40 03 01 07", -1, -1, {0x40}, {0x40}},
        {"byte with length 2", "02 02 00 05", -1, -1, {}, {}},
        {"length 0", "02 00 07 01 05", -1, -1, {}, {}},
        {"claims more than remains", "01 01 40 02 01", 0, -1, {0x40}, {0x40}},
        {"an unknown one claims more", "01 01 40 09 FF 02 01 05", 0, -1, {0x40}, {0x40}},
        {"half a header", "01 01 40 07", 0, -1, {0x40}, {0x40}},
    };
    const auto read = [](const KvBssInfo &bss) {
        return std::array<unsigned, 4>{bss.BandIndex, bss.Attribute, bss.MDID, bss.TCI};
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Bytes data = fromHex(std::string("0A 61 C4") + c.elements);
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[data.size()]);
        std::copy(data.begin(), data.end(), exact.get());
        KvBssInfo bss = {};
        EXPECT_EQ(kvMAP1905_ApCfg_parse_check_len(exact.get(), static_cast<uint32_t>(data.size()), &bss), c.checked);
        EXPECT_EQ(read(bss), c.afterChecked);
        data.resize(data.size() + 8);  // the caller without a length vouches for some bytes more
        bss = {};
        EXPECT_EQ(kvMAP1905_ApCfg_parse(data.data(), &bss), c.inOrder);
        EXPECT_EQ(read(bss), c.afterInOrder);
    }
    EXPECT_EQ(logCount(3, "Invalid length for multiap extension attr 1\n"), 3u);
    EXPECT_EQ(logCount(6, "Unsupport extension type 9\n"), 1u);
    const uint8_t foreign[20] = {0x0A, 0x61, 0xC5};
    KvBssInfo bss = {};
    EXPECT_EQ(kvMAP1905_ApCfg_parse(foreign, &bss), -1);
    for (const uint32_t length : {20u, 2u, 0u}) {
        EXPECT_EQ(kvMAP1905_ApCfg_parse_check_len(foreign, length, &bss), -1);
    }
    EXPECT_EQ(logCount(3, "Invalid vendor ID\n"), 4u);
    EXPECT_TRUE(
        std::all_of(notes().begin(), notes().end(), [](const std::string &n) { return n.starts_with("logs 2."); }));
}

TEST_F(MultiAp, AVirtualBssBelongsToTheMainBssBefore) {
    nvram() = {
        {"wl0_nband", "2"}, {"wl1_nband", "1"}, {"wl1.2_extattr", "9"}, {"wl0.2_extattr", "265"}, {"wl1_extattr", "3"}};
    constexpr uint8_t kAsBefore = 4;
    const std::pair<uint8_t, uint8_t> steps[] = {
        {0x02, 9}, {0x40, 3},         {0x42, 9},         {0x82, 9},         {0x80, kAsBefore},
        {0x02, 9}, {0x20, kAsBefore}, {0x00, kAsBefore}, {0x60, kAsBefore}, {0x43, kAsBefore}};
    for (const auto &[bandIndex, extAttribute] : steps) {
        const uint8_t elements[] = {1, 1, bandIndex};
        KvBssInfo bss = {};
        bss.ExtAttribute = kAsBefore;
        kvMAP1905_parameter_init(elements, &bss);
        EXPECT_EQ(bss.ExtAttribute, extAttribute) << int{bandIndex};
    }
}
