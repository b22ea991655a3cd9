// The BSS configuration TLV and the Wi-Fi Simple Configuration extension, byte for byte.
#include <gtest/gtest.h>

#include <cstdio>
#include <utility>

#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

struct MultiAp : testing::Test {
    FakeHost host;
};

// Returns the result and the fields of a parser: band index, attribute, MDID, TCI, extended attribute.
std::string outcome(int result, const KvBssInfo &bss) {
    char text[64];
    std::snprintf(text, sizeof text, "%d %x %x %x %x %x", result, bss.BandIndex, bss.Attribute, bss.MDID, bss.TCI,
                  bss.ExtAttribute);
    return text;
}

TEST_F(MultiAp, WritesBssConfiguration) {
    struct {
        uint32_t count;
        KvBssConfig bss[2];
    } list = {2, {{0x40, 1, 0x1234, 0x0002, 5, 6}, {0x80, 2, 0xFFFF, 0xFFFE, 7, 8}}};
    uint8_t buffer[23];
    uint32_t length = 0;
    ASSERT_EQ(kvMAP1905_TlvBss_Config_insert(buffer, &length, &list), 0);
    EXPECT_EQ(Bytes(buffer, buffer + length),
              fromHex("02 4E A7 D0 00 11 02  40 01 12 34 00 02 05 06  80 02 FF FF FF FE 07 08"));
    for (const uint32_t count : {0u, 256u}) {
        list.count = count;
        EXPECT_EQ(kvMAP1905_TlvBss_Config_insert(buffer, &length, &list), -1);
    }
    EXPECT_EQ(length, 23u);
}

TEST_F(MultiAp, WritesExtension) {
    const KvBssInfo bss = {0x40, 0x01, 0x1234, 0x0002, 4, 0x05, 7, 8, 9};
    uint8_t buffer[30] = {};
    EXPECT_EQ(kvMAP1905_ApCfg_fill(buffer, 3, &bss), 24);
    EXPECT_EQ(Bytes(buffer, buffer + 30),
              fromHex("000000 10 49 00 14 0A 61 C4 01 01 40 02 01 01 03 02 12 34 04 02 00 02 07 01 05 000000"));
}

TEST_F(MultiAp, ParsesExtensionWithAndWithoutLength) {
    nvram = {{"wl0_nband", "1"}, {"wl0_extattr", "0119"}};
    const std::string all = "01 01 40 02 01 01 03 02 12 34 04 02 00 02";
    const struct {
        std::string data;
        const char *inOrder;  // by the parser that gets no length and accepts sub-elements 1 to 4 in this order
        const char *checked;
    } cases[] = {
        {"0A61C4 " + all + "07 01 05", "0 40 1 1234 2 63", "0 40 1 1234 2 5"},
        {"0A61C4 " + all, "0 40 1 1234 2 63", "0 40 1 1234 2 77"},
        {"0A61C4 01 01 40 03 02 00 07 04 02 00 08", "0 40 0 7 8 63", "0 40 0 7 8 77"},
        {"0A61C4 02 01 05 01 01 40", "0 0 5 0 0 63", "0 40 5 0 0 63"},       // 2 before 1
        {"0A61C4 01 01 40 01 01 80", "0 40 0 0 0 63", "0 80 0 0 0 77"},      // the last one counts
        {"0A61C4 09 03 01 02 03 02 01 05", "0 0 0 0 0 63", "0 0 5 0 0 63"},  // an unknown one is skipped
        {"0A61C4 01 01 40 03 01 07", "-1 40 0 0 0 63", "-1 40 0 0 0 77"},    // a number of one byte
        {"0A61C4 02 02 00 05", "-1 0 0 0 0 63", "-1 0 0 0 0 77"},            // a byte of two
        {"0A61C4 02 00 07 01 05", "-1 0 0 0 0 63", "-1 0 0 0 0 63"},         // of none
        {"0A61C4 01 01 40 02 01", "0 40 0 0 0 63", "-1 40 0 0 0 77"},        // more than remains
        {"0A61C4 01 01 40 09 FF 02 01 05", "0 40 0 0 0 63", "-1 40 0 0 0 77"},
        {"0A61C4 01 01 40 07", "0 40 0 0 0 63", "-1 40 0 0 0 77"},
        {"0A61C5 01 01 40", "-1 0 0 0 0 63", "-1 0 0 0 0 63"},
        {"0A61", "-1 0 0 0 0 63", "-1 0 0 0 0 63"},
    };
    for (const auto &c : cases) {
        Bytes data = fromHex(c.data);
        const Bytes exact(data);
        KvBssInfo bss = {};
        bss.ExtAttribute = 0x63;
        const int checked = kvMAP1905_ApCfg_parse_check_len(exact.data(), static_cast<uint32_t>(exact.size()), &bss);
        EXPECT_EQ(outcome(checked, bss), c.checked) << c.data;
        data.resize(data.size() + 16);  // the caller without a length guarantees some more bytes
        bss = {};
        bss.ExtAttribute = 0x63;
        EXPECT_EQ(outcome(kvMAP1905_ApCfg_parse(data.data(), &bss), bss), c.inOrder) << c.data;
    }
}

TEST_F(MultiAp, LogsFieldsAndErrors) {
    const auto newNotes = [] {
        std::string all;
        for (const std::string &note : std::exchange(notes, {}))
            all += note;
        return all;
    };
    const KvBssInfo bss = {0x40, 1, 0x1234, 2, 4, 5, 7, 8, 9};
    uint8_t buffer[24];
    kvMAP1905_ApCfg_fill(buffer, 0, &bss);
    EXPECT_EQ(newNotes(),
              "logs 2.7 Enter.\nlogs 2.7 BandIndex   : 0x40\nlogs 2.7 Attribute   : 0x01\n"
              "logs 2.7 MDID        : 0x1234\nlogs 2.7 TCI         : 0x0002\nlogs 2.7 WlMode      : 0x04\n"
              "logs 2.7 ExtAttribute: 0x05\nlogs 2.7 Channel     : 0x07\nlogs 2.7 ACS_Sideband: 0x08\n"
              "logs 2.7 Bandwidth   : 0x09\nlogs 2.7 KOVAN proprietary field length 24\n");
    const std::pair<const char *, const char *> parsed[] = {
        {"0A61C5", "logs 2.3 Invalid vendor ID\n"},
        {"0A61C4 03 01 07", "logs 2.3 Invalid length for multiap extension attr 1\n"},
        {"0A61C4 01 01 40 09 00 03 02 00 07",
         "logs 2.7 BandIndex:[0x40]\nlogs 2.6 Unsupport extension type 9\nlogs 2.7 MDID:[0x0007]\n"}};
    for (const auto &[data, texts] : parsed) {
        const Bytes bytes = fromHex(data);
        KvBssInfo read = {};
        kvMAP1905_ApCfg_parse_check_len(bytes.data(), static_cast<uint32_t>(bytes.size()), &read);
        EXPECT_EQ(newNotes(), "logs 2.7 Enter.\n" + std::string(texts)) << data;
    }
    const struct {
        uint32_t count;
        KvBssConfig bss;
    } list = {1, {0x40, 1, 0x1234, 2, 5, 6}};
    uint32_t length = 0;
    kvMAP1905_TlvBss_Config_insert(buffer, &length, &list);
    EXPECT_EQ(newNotes(),
              "logs 3 [TLV] Bss insert BandIndex = 64 Attribute = 1, MDID = 4660, TCI = 2, WlMode = 5, "
              "ExtAttribute = 6\n");
}

TEST_F(MultiAp, VirtualBssBelongsToPrecedingMainBss) {
    nvram = {
        {"wl0_nband", "2"}, {"wl1_nband", "1"}, {"wl1.2_extattr", "9"}, {"wl0.2_extattr", "266"}, {"wl1_extattr", "3"}};
    constexpr uint8_t kAsBefore = 4;
    const auto extAttributeOf = [](uint8_t bandIndex) {
        const uint8_t elements[] = {1, 1, bandIndex};
        KvBssInfo bss = {};
        bss.ExtAttribute = kAsBefore;
        kvMAP1905_parameter_init(elements, &bss);
        return bss.ExtAttribute;
    };
    const std::pair<uint8_t, uint8_t> steps[] = {
        {0x02, 10}, {0x40, 3},         {0x42, 9},         {0x82, 9},         {0x80, kAsBefore},
        {0x02, 10}, {0x20, kAsBefore}, {0x00, kAsBefore}, {0x60, kAsBefore}, {0x43, kAsBefore}};
    for (const auto &[bandIndex, extAttribute] : steps)
        EXPECT_EQ(extAttributeOf(bandIndex), extAttribute) << int{bandIndex};
    nvram = {{"wl0_nband", "1"}, {"wl1_nband", "1"}, {"wl0_extattr", "6"}, {"wl1_extattr", "7"}};
    EXPECT_EQ(extAttributeOf(0x40), 6) << "the first radio of a band";
}

}  // namespace
