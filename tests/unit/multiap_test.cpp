// The two vendor TLVs and the Wi-Fi Simple Configuration extension, byte for byte.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/file.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_host.h"

using namespace kvtest;

namespace {

struct Bss {
    uint8_t id;
    const char *ifname;
    uint8_t enabled = 1;
};

KvMdidInterfaceList listOf(std::initializer_list<Bss> entries) {
    KvMdidInterfaceList list = {};
    for (const Bss &bss : entries) {
        KvMdidInterface &entry = list.interfaces[list.InterfaceNumberOfEntries++];
        entry.bssid[5] = bss.id;
        kv::setText(entry.ifname, bss.ifname);
        entry.mdid = 0x7777;
        entry.enabled = bss.enabled;
    }
    return list;
}

// The nvram command, which notes each of its runs.
class Mdid : public testing::Test {
  protected:
    void SetUp() override {
        emptyDevice();
        std::remove("/tmp/nvram.runs");
        setNvram("wl0_mdid=4660\\nwl1_mdid=17\\n");
    }

    void setNvram(const std::string &lines) {
        fakeCommand("nvram", "echo run >> /tmp/nvram.runs; printf '" + lines + "'\n");
    }

    size_t runs() { return readFile("/tmp/nvram.runs").size() / 4; }

    FakeHost host_;
};

}  // namespace

TEST_F(Mdid, TheValueByteForByte) {
    KvMdidInterfaceList list = listOf({{0xA, "wl0", 1}, {0xB, "wl1", 0}});
    uint8_t buffer[142];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = 0;
    ASSERT_EQ(kvMAP1905_TlvMDID_insert(buffer, &length, &list), 0);
    EXPECT_EQ(Bytes(buffer, buffer + length),
              fromHex("02 4E A7 C0 00 13 02  00 00 00 00 00 0A 12 34 01  00 00 00 00 00 0B 00 11 00"));
    EXPECT_EQ(buffer[length], 0xEE);
    EXPECT_EQ(logCount(6, "[TLV] Device 00:11:22:33:44:55, insert MDID TLV, enabled ifnames = wl0, mdid = 1234\n"), 1u);
    EXPECT_EQ(logCount(6, "insert MDID TLV, disabled ifnames = wl1, mdid = 11\n"), 1u);
    EXPECT_EQ(logCount(7, "[TLV] Device 00:11:22:33:44:55, update MDID TLV, ifnames = wl0, mdid = 1234\n"), 1u);
    EXPECT_FALSE(exists("/tmp/.kv1905_nvram_tmp"));
    list = listOf({{0xC, "wl1.5"}});
    EXPECT_EQ(kvMAP1905_mdid_update(&list), 0) << "only wl0.5 must have one";
    EXPECT_EQ(list.interfaces[0].mdid, 0);
}

TEST_F(Mdid, TheCacheAnswersUntilItMeetsAStranger) {
    const auto update = [](KvMdidInterfaceList list) {
        EXPECT_EQ(kvMAP1905_mdid_update(&list), 0);
        return list.interfaces[0].mdid;
    };
    const KvMdidInterfaceList both = listOf({{0xA, "wl0"}, {0xB, "wl1"}});
    EXPECT_EQ(update(both), 0x1234);
    EXPECT_EQ(runs(), 1u);
    setNvram("wl0_mdid=1\\n");
    EXPECT_EQ(update(both), 0x1234);
    EXPECT_EQ(update(listOf({{0xB, "renamed"}})), 0x11) << "found by BSSID";
    EXPECT_EQ(runs(), 1u);
    EXPECT_EQ(update(listOf({{0xA, "wl0"}, {0xC, "wl1"}})), 1) << "one new BSSID rereads every entry";
    EXPECT_EQ(runs(), 2u);
    EXPECT_EQ(logCount(3, "[TLV] can't find bssid to update mdid!!!\n"), 1u);

    KvMdidInterfaceList backhaul = listOf({{0xC, "wl0"}, {0xD, "wl0.5"}});
    testing::internal::CaptureStdout();
    uint32_t length = 99;
    uint8_t buffer[142];
    EXPECT_EQ(kvMAP1905_TlvMDID_insert(buffer, &length, &backhaul), -1);
    std::fflush(stdout);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("*               In kv1905, BH's MDID = 0    "),
              std::string::npos);
    EXPECT_EQ(length, 99u);
    EXPECT_EQ(runs(), 3u);
    EXPECT_FALSE(exists("/tmp/.kv1905_nvram_tmp"));
    EXPECT_EQ(update(listOf({{0xC, "wl1"}})), 0) << "the stale cache is not used: wl1 has no setting any more";
    EXPECT_EQ(runs(), 4u);
    setNvram("wl0.5_mdid=5\\n");
    EXPECT_EQ(kvMAP1905_TlvMDID_insert(buffer, &length, &backhaul), 0);
}

TEST_F(Mdid, LinesAreMatchedByTheirBeginning) {
    struct Case {
        const char *lines;
        uint16_t mdid;
    };
    for (const Case &c : {Case{"wl0_mdid2=5\\nwl0_mdid=6\\n", 5}, Case{"wl0_mdid\\nwl0_mdid=6\\n", 6}, Case{"", 0},
                          Case{"xwl0_mdid=5\\n", 0}, Case{"wl0_mdid=65537\\n", 1}, Case{"wl0_mdid=x\\n", 0},
                          Case{"a_mdid=0123456789012345678901234567890wl0_mdid=7\\n", 0}}) {
        SCOPED_TRACE(c.lines);
        setNvram(c.lines);
        KvMdidInterfaceList list = listOf({{static_cast<uint8_t>(runs() + 1), "wl0"}});
        EXPECT_EQ(kvMAP1905_mdid_update(&list), 0);
        EXPECT_EQ(list.interfaces[0].mdid, c.mdid);
    }
    KvMdidInterfaceList unterminated = listOf({{0xF0, ""}});
    std::memset(unterminated.interfaces[0].ifname, 'w', sizeof unterminated.interfaces[0].ifname);
    setNvram("wwwwwwwwwwwwwwww_mdid=9\\n");
    EXPECT_EQ(kvMAP1905_mdid_update(&unterminated), 0);
    EXPECT_EQ(unterminated.interfaces[0].mdid, 9);
    // A dump that cannot be opened leaves what the host had.
    ASSERT_EQ(std::system("ln -s /tmp/none/none /tmp/.kv1905_nvram_tmp"), 0);
    KvMdidInterfaceList list = listOf({{0xF1, "wl0"}});
    EXPECT_EQ(kvMAP1905_mdid_update(&list), 0);
    EXPECT_EQ(list.interfaces[0].mdid, 0x7777);
    ASSERT_EQ(std::system("rm /tmp/.kv1905_nvram_tmp"), 0);
}

TEST_F(Mdid, RefusedLists) {
    uint8_t buffer[142];
    uint32_t length = 99;
    KvMdidInterfaceList list = listOf({{1, "wl0"}});
    EXPECT_EQ(kvMAP1905_TlvMDID_insert(nullptr, &length, &list), -1);
    EXPECT_EQ(kvMAP1905_TlvMDID_insert(buffer, &length, nullptr), -1);
    EXPECT_EQ(kvMAP1905_mdid_update(nullptr), -1);
    for (const uint32_t count : {0u, 16u, 0xFFFFFFFFu}) {
        list.InterfaceNumberOfEntries = count;
        EXPECT_EQ(kvMAP1905_TlvMDID_insert(buffer, &length, &list), -1);
        EXPECT_EQ(kvMAP1905_mdid_update(&list), -1);
    }
    EXPECT_EQ(logCount(3, "invalid input value when insert MDID\n"), 2u);
    EXPECT_EQ(logCount(3, "[TLV] Error: InterfaceNumberOfEntries = "), 6u);
    EXPECT_EQ(length, 99u);
    EXPECT_EQ(runs(), 0u);
    list = {};
    list.InterfaceNumberOfEntries = 15;
    EXPECT_EQ(kvMAP1905_TlvMDID_insert(buffer, &length, &list), 0);
    EXPECT_EQ(length, 142u);
}

TEST(BssConfig, TheValueByteForByte) {
    FakeHost host;
    struct {
        uint32_t count;
        KvBssConfig bss[3];
    } list = {3, {{0x40, 1, 0x1234, 0x0002, 5, 6}, {0x80, 2, 0xFFFF, 0xFFFE, 7, 8}, {0x41, 3, 1, 2, 3, 4}}};
    uint8_t buffer[31];
    uint32_t length = 0;
    ASSERT_EQ(kvMAP1905_TlvBss_Config_insert(buffer, &length, &list), 0);
    EXPECT_EQ(Bytes(buffer, buffer + length), fromHex("02 4E A7 D0 00 19 03  40 01 12 34 00 02 05 06"
                                                      "80 02 FF FF FF FE 07 08  41 03 00 01 00 02 03 04"));
    EXPECT_EQ(logCount(3,
                       "[TLV] Bss insert BandIndex = 64 Attribute = 1, MDID = 4660, TCI = 2, WlMode = 5, "
                       "ExtAttribute = 6\n"),
              1u);
    for (const uint32_t count : {0u, 256u}) {
        list.count = count;
        EXPECT_EQ(kvMAP1905_TlvBss_Config_insert(buffer, &length, &list), -1);
    }
    EXPECT_EQ(kvMAP1905_TlvBss_Config_insert(nullptr, &length, &list), -1);
    EXPECT_EQ(kvMAP1905_TlvBss_Config_insert(buffer, &length, nullptr), -1);
    EXPECT_EQ(length, 31u);
    EXPECT_EQ(logCount(3, "invalid input value when insert BSS Config\n"), 2u);
}

TEST(ApCfg, WhatIsFilledIsParsed) {
    FakeHost host;
    const KvBssInfo bss = {0x40, 0x01, 0x1234, 0x0002, 9, 0x05, 9, 9, 9};
    uint8_t buffer[30] = {};
    EXPECT_EQ(kvMAP1905_ApCfg_fill(buffer, 3, &bss), 24);
    const Bytes attribute(buffer + 3, buffer + 27);
    EXPECT_EQ(attribute, fromHex("10 49 00 14 0A 61 C4 01 01 40 02 01 01 03 02 12 34 04 02 00 02 07 01 05"));
    EXPECT_EQ(logLines().back(), (LogLine{2, 7, "KOVAN proprietary field length 24\n"}));
    EXPECT_EQ(buffer[2] + buffer[27], 0);

    nvram()["wl0_nband"] = "1";
    nvram()["wl0_extattr"] = "77";
    KvBssInfo parsed = {0, 0, 0, 0, 1, 99, 2, 3, 4};
    EXPECT_EQ(kvMAP1905_ApCfg_parse(attribute.data() + 4, &parsed), 0);
    const KvBssInfo inOrder = {0x40, 0x01, 0x1234, 0x0002, 1, 99, 2, 3, 4};
    EXPECT_EQ(std::memcmp(&parsed, &inOrder, 11), 0) << "ExtAttribute is not read here";
    EXPECT_EQ(kvMAP1905_ApCfg_parse_check_len(attribute.data() + 4, 20, &parsed), 0);
    EXPECT_EQ(parsed.ExtAttribute, 5) << "whatever nvram says";
    EXPECT_EQ(kvMAP1905_ApCfg_parse_check_len(attribute.data() + 4, 17, &parsed), 0);
    EXPECT_EQ(parsed.ExtAttribute, 77) << "without sub-element 7, what nvram says";
    EXPECT_EQ(logCount(7, "MDID:[0x1234]\n"), 3u);
    clearLog();
    const KvBssInfo distinct = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    dumpBssInfo(&distinct);
    ASSERT_EQ(logLines().size(), 9u);
    EXPECT_EQ(logLines()[6].text, "Channel     : 0x07\n");
    EXPECT_EQ(logLines()[8].text, "Bandwidth   : 0x09\n");
    dumpBssInfo(nullptr);
    EXPECT_EQ(logLines().back().text, "dump_bssinfo is NULL!\n\n");
    EXPECT_EQ(kvMAP1905_ApCfg_fill(nullptr, 3, &bss), 0);
}

TEST(ApCfg, OddAttributes) {
    FakeHost host;
    struct Read {
        uint8_t band = 0, attribute = 0;
        uint16_t mdid = 0, tci = 0;
        bool operator==(const Read &) const = default;
    };
    const auto read = [](const KvBssInfo &bss) { return Read{bss.BandIndex, bss.Attribute, bss.MDID, bss.TCI}; };
    struct Case {
        const char *what;
        const char *elements;  // behind the vendor ID
        int inOrder;
        int checked;
        Read afterInOrder;
        Read afterChecked;
    };
    const Read none = {};
    const Case cases[] = {
        {"1, 3, 4", "01 01 40 03 02 00 07 04 02 00 08", 0, 0, {0x40, 0, 7, 8}, {0x40, 0, 7, 8}},
        {"2 before 1", "02 01 05 01 01 40", 0, 0, {0, 5}, {0x40, 5}},
        {"a later one overwrites", "01 01 40 01 01 80", 0, 0, {0x40}, {0x80}},
        {"nothing", "", 0, 0, none, none},
        {"an unknown one is skipped", "09 03 01 02 03 02 01 05", 0, 0, none, {0, 5}},
        {"number with length 1", "01 01 40 03 01 07", -1, -1, {0x40}, {0x40}},
        {"byte with length 2", "02 02 00 05", -1, -1, none, none},
        {"length 0", "02 00 07 01 05", -1, -1, none, none},
        {"claims more than remains", "01 01 40 02 01", 0, -1, {0x40}, {0x40}},
        {"an unknown one claims more", "01 01 40 09 FF 02 01 05", 0, -1, {0x40}, {0x40}},
        {"half a header", "01 01 40 07", 0, -1, {0x40}, {0x40}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Bytes data = {0x0A, 0x61, 0xC4};
        append(data, fromHex(c.elements));
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[data.size()]);
        std::copy(data.begin(), data.end(), exact.get());
        KvBssInfo bss = {};
        EXPECT_EQ(kvMAP1905_ApCfg_parse_check_len(exact.get(), static_cast<uint32_t>(data.size()), &bss), c.checked);
        EXPECT_TRUE(read(bss) == c.afterChecked);
        data.resize(data.size() + 8);  // the caller without a length vouches for some bytes more
        bss = {};
        EXPECT_EQ(kvMAP1905_ApCfg_parse(data.data(), &bss), c.inOrder);
        EXPECT_TRUE(read(bss) == c.afterInOrder);
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
    for (const LogLine &line : logLines()) {
        EXPECT_EQ(line.facility, 2) << line.text;
    }
}

TEST(ApCfg, AVirtualBssBelongsToTheMainBssBefore) {
    FakeHost host;
    nvram() = {
        {"wl0_nband", "2"}, {"wl1_nband", "1"}, {"wl1.2_extattr", "9"}, {"wl0.2_extattr", "265"}, {"wl1_extattr", "3"}};
    struct Step {
        uint8_t bandIndex;
        uint8_t extAttribute;
    };
    // 4 stands for "as the caller had it".
    for (const Step &s : {Step{0x02, 9}, Step{0x40, 3}, Step{0x42, 9}, Step{0x82, 9}, Step{0x80, 4}, Step{0x02, 9},
                          Step{0x20, 4}, Step{0x00, 4}, Step{0x60, 4}, Step{0x43, 4}}) {
        SCOPED_TRACE(int{s.bandIndex});
        const uint8_t elements[] = {1, 1, s.bandIndex};
        KvBssInfo bss = {};
        bss.ExtAttribute = 4;
        kvMAP1905_parameter_init(elements, &bss);
        EXPECT_EQ(bss.ExtAttribute, s.extAttribute);
    }
}
