// Operator commands: what the tool's entries post, and what the daemon's handlers send.
#include <gtest/gtest.h>

#include <cstring>

#include "features/device_control/firmware.h"
#include "frame/mac_text.h"
#include "frame/result_file.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

const std::string kAgentText = "66:77:88:99:AA:BB";

struct Posted {
    uint32_t code = 0;
    Bytes buffer;
};
Posted posted;

int takePost(uint32_t code, void *buffer, uint32_t size) {
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    posted = {code, Bytes(bytes, bytes + size)};
    return 42;
}

using Entry = int (*)(void *, int, char **);

// Calls an entry as the tool does: "kv1905App N words...".
int call(Entry entry, std::vector<std::string> words) {
    words.insert(words.begin(), {"kv1905App", "N"});
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    posted = {};
    return entry(nullptr, static_cast<int>(words.size()), argv.data());
}

class Tool : public testing::Test {
  protected:
    void SetUp() override {
        emptyDevice();
        std::remove(kv::kResultPath);
        Kv1905BcmCbs table = {};
        table.cmdSend = takePost;
        kvMAP1905_Func_reg(&table, 1);
    }

    FakeHost host_;
};

// A buffer of size bytes that starts like this.
Bytes buffer(size_t size, const std::string &hex) {
    Bytes bytes = fromHex(hex);
    bytes.resize(size);
    return bytes;
}

// In host byte order, as the tool's own machine has it.
template <typename Number>
void put(Bytes &bytes, size_t offset, Number number) {
    std::memcpy(bytes.data() + offset, &number, sizeof number);
}

const std::string kTargetHex = "66 77 88 99 AA BB";

void handle(uint32_t code, const Bytes &bytes) {
    Bytes shifted(1);  // the host promises no alignment
    append(shifted, bytes);
    kvMAP1905_VendSpecCmd_handle(shifted.data() + 1, code);
}

}  // namespace

TEST_F(Tool, EntriesPostTheirBuffer) {
    Bytes power = buffer(252, kTargetHex + "01 00 02 03 04 05 06 0A");
    put<uint16_t>(power, 14, 0x0105);
    put<uint32_t>(power, 248, 2);
    Bytes firmware = buffer(2060, kTargetHex);
    put<uint16_t>(firmware, 6, 7);
    put<uint16_t>(firmware, 8, 1);
    put<uint16_t>(firmware, 10, 3);
    std::memcpy(firmware.data() + 12, "url", 3);
    Bytes longUrl = firmware;
    put<uint16_t>(longUrl, 8, 2);
    put<uint16_t>(longUrl, 10, 2048);
    std::memset(longUrl.data() + 12, 'u', 2048);
    Bytes led = buffer(8, kTargetHex);
    put<uint16_t>(led, 6, 10);
    Bytes result(8);
    put<int32_t>(result, 0, -5);
    const auto log = [](int32_t third) {
        Bytes bytes(12);
        put<int32_t>(bytes, 0, 1);
        put<int32_t>(bytes, 4, 0);
        put<int32_t>(bytes, 8, third);
        return bytes;
    };
    const auto command = [](uint16_t words, const std::string &text) {
        Bytes bytes = buffer(2058, kTargetHex);
        put(bytes, 6, words);
        put(bytes, 8, static_cast<uint16_t>(text.size()));
        std::memcpy(bytes.data() + 10, text.data(), text.size());
        return bytes;
    };
    const std::string longest(2048, 'w');
    struct Case {
        Entry entry;
        std::vector<std::string> words;
        uint32_t code;
        Bytes expected;
    };
    const Case cases[] = {
        {kvMAP1905_RebootQuery_send, {kAgentText}, 102, fromHex(kTargetHex)},
        {kvMAP1905_CtrlInftPwrQuery_send, {kAgentText, "2:3:4:5:6:a", "0105", "2"}, 103, power},
        {kvMAP1905_FWCtrlQuery_send, {kAgentText, "7", "1", "url"}, 109, firmware},
        {kvMAP1905_ResetDefaultQuery_send, {kAgentText}, 110, fromHex(kTargetHex)},
        {kvMAP1905_FwResult_set, {"-5"}, 111, result},
        {kvMAP1905_ledStatus_send, {kAgentText, "65546"}, 114, led},
        {kvMAP1905_ledStatus_send, {kAgentText, "010"}, 114, led},
        {kvMAP1905_FWCtrlQuery_send, {kAgentText, "7", "65538", std::string(2048, 'u')}, 109, longUrl},
        {kvMAP1905_PartialResetDefaultQuery_send, {kAgentText}, 120, fromHex(kTargetHex)},
        {kvMAP1905_CmdQuery_send, {kAgentText, "ls", "", "-l"}, 200, command(3, "ls -l")},
        {kvMAP1905_CmdQuery_send, {kAgentText, "ls", ""}, 200, command(2, "ls ")},
        {kvMAP1905_CmdQuery_send, {kAgentText, longest}, 200, command(1, longest)},
        {kvMAP1905_SyslogDbg_set, {"1", "0"}, 201, log(7)},
        {kvMAP1905_SyslogDbg_set, {"1", "0", "4", "ignored"}, 201, log(4)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.code);
        EXPECT_EQ(call(c.entry, c.words), 42) << "the callback's own result";
        EXPECT_EQ(posted.code, c.code);
        EXPECT_EQ(posted.buffer, c.expected);
        const Kv1905BcmCbs registered = g_kv1905_bcm_cbs;
        g_kv1905_bcm_cbs.cmdSend = nullptr;
        EXPECT_EQ(call(c.entry, c.words), -1);
        g_kv1905_bcm_cbs = registered;
    }
    EXPECT_EQ(logCount(3, "NULL registar function\n"), std::size(cases));
    EXPECT_EQ(logCount(7, "kv1905App 3: Media type 0x105, Power state OFF\n"), 2u);
    EXPECT_EQ(logCount(7, "kv1905App 100: CommandURL = [ls -l]\n"), 4u);
    EXPECT_EQ(logCount(7, "kv1905App 20: Partial Reset alMac 66:77:88:99:AA:BB\n"), 2u);
}

TEST_F(Tool, RefusedArgumentsPostNothing) {
    struct Case {
        Entry entry;
        std::vector<std::string> words;
        std::string line;
    };
    const std::string mac = ": MAC Address must be of form xx:xx:xx:xx:xx:xx\n";
    const Case cases[] = {
        {kvMAP1905_RebootQuery_send, {"66-77-88-99-AA-BB"}, "2" + mac},
        {kvMAP1905_CtrlInftPwrQuery_send, {"1:2:3:4:5", kAgentText, "103", "0"}, "3" + mac},
        {kvMAP1905_CtrlInftPwrQuery_send, {kAgentText, "1:2:3:4:5", "103", "0"}, "3" + mac},
        {kvMAP1905_FWCtrlQuery_send, {"x", "1", "1", "u"}, "9" + mac},
        {kvMAP1905_FWCtrlQuery_send, {kAgentText, "1", "1", std::string(2049, 'u')}, "9: URL is longer than 2048"},
        {kvMAP1905_ledStatus_send, {"", "1"}, "14" + mac},
        {kvMAP1905_PartialResetDefaultQuery_send, {"zz:00:00:00:00:00"}, "20" + mac},
        {kvMAP1905_CmdQuery_send, {kAgentText, std::string(2049, 'w')}, "100: command text is longer than 2048"},
        {kvMAP1905_CmdQuery_send, {kAgentText, std::string(2048, 'w'), "w"}, "100: command text is longer"},
    };
    struct Count {
        Entry entry;
        const char *name;
        size_t wrong;  // words behind the command
    };
    const Count counts[] = {
        {kvMAP1905_RebootQuery_send, "2", 0},
        {kvMAP1905_RebootQuery_send, "2", 2},
        {kvMAP1905_CtrlInftPwrQuery_send, "3", 3},
        {kvMAP1905_CtrlInftPwrQuery_send, "3", 5},
        {kvMAP1905_FWCtrlQuery_send, "9", 3},
        {kvMAP1905_FWCtrlQuery_send, "9", 5},
        {kvMAP1905_ResetDefaultQuery_send, "10", 0},
        {kvMAP1905_ResetDefaultQuery_send, "10", 2},
        {kvMAP1905_FwResult_set, "11", 0},
        {kvMAP1905_FwResult_set, "11", 2},
        {kvMAP1905_ledStatus_send, "14", 1},
        {kvMAP1905_ledStatus_send, "14", 3},
        {kvMAP1905_PartialResetDefaultQuery_send, "20", 0},
        {kvMAP1905_PartialResetDefaultQuery_send, "20", 2},
        {kvMAP1905_CmdQuery_send, "100", 1},
        {kvMAP1905_SyslogDbg_set, "d", 1},
    };
    for (const Count &c : counts) {
        const std::string line = std::string("kv1905App ") + c.name + ": Invalid input number ";
        EXPECT_EQ(call(c.entry, std::vector<std::string>(c.wrong, kAgentText)), -1) << line;
        EXPECT_EQ(logCount(4, line + std::to_string(c.wrong + 2) + "\n"), 1u) << line;
    }
    for (const Case &c : cases) {
        SCOPED_TRACE(c.line);
        clearLog();
        EXPECT_EQ(call(c.entry, c.words), -1);
        EXPECT_EQ(posted.code, 0u);
        EXPECT_EQ(logCount(4, "kv1905App " + c.line), 1u);
    }
    clearLog();
    for (const char *option : {"0", "8", "x", "65536"}) {
        std::remove(kv::kResultPath);
        EXPECT_EQ(call(kvMAP1905_FWCtrlQuery_send, {kAgentText, option, "1", "u"}), -1);
        EXPECT_EQ(posted.code, 0u);
        EXPECT_EQ(readFile(kv::kResultPath), "10\n") << "16, for the operator";
    }
    EXPECT_EQ(loggedAtMost(7), "");
}

TEST(MacText, TakesSixFieldsAndNoLess) {
    struct Case {
        const char *text;
        const char *expected;  // empty: refused
    };
    for (const Case &c : {Case{"0:1:2:a:B:c", "00 01 02 0A 0B 0C"}, Case{"00:11:22:33:44", ""},
                          Case{"00-11-22-33-44-55", ""}, Case{"00:11:22:33:44:55:66", "00 11 22 33 44 55"},
                          Case{"", ""}, Case{"00:11:22:33:44:g", ""}, Case{"001:2:3:4:5:6", ""}}) {
        SCOPED_TRACE(c.text);
        uint8_t mac[6] = {};
        const uint8_t *parsed = kv::string2MacAddr(c.text, mac);
        EXPECT_EQ(parsed != nullptr, *c.expected != '\0');
        if (parsed != nullptr) {
            EXPECT_EQ(Bytes(mac, mac + 6), fromHex(c.expected));
        }
    }
    uint8_t mac[6];
    EXPECT_EQ(kv::string2MacAddr(nullptr, mac), nullptr);
    EXPECT_EQ(kv::string2MacAddr("0:0:0:0:0:0", nullptr), nullptr);
}

TEST(Commands, HandlersSendTheirRequestToKnownTargetsAlone) {
    Bytes power = buffer(252, kTargetHex + "28");  // 40 entries
    for (size_t i = 8; i < 248; ++i) {
        power[i] = static_cast<uint8_t>(i);
    }
    put<uint32_t>(power, 248, 0x102);
    const auto firmware = [](uint16_t topo, uint16_t length) {
        Bytes bytes = buffer(2060, kTargetHex);
        put<uint16_t>(bytes, 6, 2);
        put(bytes, 8, topo);
        put(bytes, 10, length);
        std::memset(bytes.data() + 12, 'u', 2048);
        return bytes;
    };
    const auto command = [](uint16_t length) {
        Bytes bytes = buffer(2058, kTargetHex);
        put<uint16_t>(bytes, 6, 3);
        put(bytes, 8, length);
        std::memset(bytes.data() + 10, 'c', 2048);
        return bytes;
    };
    Bytes led = buffer(8, kTargetHex);
    put<uint16_t>(led, 6, 5);
    struct Case {
        const char *what;
        uint32_t code;
        Bytes posted;
        uint16_t type;
        size_t payloadLen;  // 0: nothing is sent, result 16
    };
    const Case cases[] = {
        {"reboot", 102, fromHex(kTargetHex), 4, 6},
        {"power, 40 entries cut to 30", 103, power, 6, 248},
        {"firmware without topology option carries no URL", 109, firmware(0, 20), 20, 3},
        {"firmware", 109, firmware(1, 20), 20, 24},
        {"firmware, the longest that fits", 109, firmware(1, 1495), 20, 1499},
        {"firmware, one more", 109, firmware(1, 1496), 20, 0},
        {"firmware, a count past the buffer", 109, firmware(1, 65535), 20, 0},
        {"reset", 110, fromHex(kTargetHex), 22, 6},
        {"led", 114, led, 33, 7},
        {"partial reset", 120, fromHex(kTargetHex), 26, 6},
        {"command", 200, command(5), 25, 9},
        {"command, the longest that fits", 200, command(1495), 25, 1499},
        {"command, one more", 200, command(1496), 25, 0},
        {"command, a count past the buffer", 200, command(65535), 25, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        FakeHost host;
        handle(c.code, c.posted);
        EXPECT_TRUE(host.sent.empty());
        EXPECT_EQ(logCount(4, "Device 00:11:22:33:44:55, Not found 66:77:88:99:AA:BB in network topology\n"), 1u);
        EXPECT_EQ(logCount(7, "Check kv1905App return value = (7)\n"), 1u);

        host.addDevice(kAgent);
        kv::addKvFWupgradealmac(kAgent.data(), 4);
        clearLog();
        handle(c.code, c.posted);
        if (c.payloadLen == 0) {
            EXPECT_TRUE(host.sent.empty());
            EXPECT_EQ(logCount(7, "Check kv1905App return value = (16)\n"), 1u);
            EXPECT_EQ(kv::firmwareUpgradeList().count(), 1) << "a refused command changes nothing";
            continue;
        }
        ASSERT_EQ(host.sent.size(), 1u);
        EXPECT_EQ(host.sent[0].destination, kAgent);
        EXPECT_EQ(host.sent[0].msgIdIn, 0);
        EXPECT_EQ(host.sent[0].value.size(), 15 + c.payloadLen);
        EXPECT_EQ(head(host.sent[0].value, 15),
                  head(message(kLocal, c.type, {}, static_cast<uint16_t>(c.payloadLen)), 15));
        if (c.payloadLen == 6) {
            EXPECT_EQ(host.sent[0].value, message(kLocal, c.type, fromHex(kTargetHex)));
        }
        EXPECT_EQ(logCount(7, "transmit vendor msgId 1000\n"), 1u) << "the identifier as the send left it";
        EXPECT_EQ(logCount(7, "Check kv1905App return value = (0)\n"), 1u);
        EXPECT_EQ(kv::firmwareUpgradeList().count(), c.code == 109 ? 0 : 1);

        host.sendResult = 1;
        kv::addKvFWupgradealmac(kAgent.data(), 4);
        handle(c.code, c.posted);
        EXPECT_EQ(logCount(7, "Check kv1905App return value = (16)\n"), 1u);
        EXPECT_EQ(kv::firmwareUpgradeList().count(), c.code == 109 ? 0 : 1) << "whatever becomes of the send";
        kvMAP1905_VendSpecCmd_handle(nullptr, c.code);
        EXPECT_EQ(logCount(3, "without a buffer\n"), 1u);
    }
}

TEST(Commands, PayloadsAreBuiltFieldByField) {
    FakeHost host;
    host.addDevice(kAgent);
    Bytes power = buffer(252, kTargetHex + "02 00 01 02 03 04 05 06 00 00 0A 0B 0C 0D 0E 0F");
    put<uint16_t>(power, 14, 0x0103);
    put<uint16_t>(power, 22, 0x0A05);
    put<uint32_t>(power, 248, 0x102);
    handle(103, power);
    EXPECT_EQ(host.sent.back().value,
              message(kLocal, 6, fromHex(kTargetHex + "02 01 02 03 04 05 06 01 03 0A 0B 0C 0D 0E 0F 0A 05 02")));
    Bytes led = buffer(8, kTargetHex);
    put<uint16_t>(led, 6, 0x100);
    handle(114, led);
    EXPECT_EQ(host.sent.back().value, message(kLocal, 33, fromHex(kTargetHex + "00")));
    Bytes firmware = buffer(2060, kTargetHex);
    put<uint16_t>(firmware, 6, 0x107);
    put<uint16_t>(firmware, 8, 2);
    put<uint16_t>(firmware, 10, 2);
    std::memcpy(firmware.data() + 12, "ab", 2);
    handle(109, firmware);
    EXPECT_EQ(host.sent.back().value, message(kLocal, 20, fromHex("07 00 03 02 61 62")));
    Bytes command = buffer(2058, kTargetHex);
    put<uint16_t>(command, 6, 2);
    put<uint16_t>(command, 8, 2);
    std::memcpy(command.data() + 10, "cd", 2);
    handle(200, command);
    EXPECT_EQ(host.sent.back().value, message(kLocal, 25, fromHex("00 02 00 02 63 64")));
}

TEST(Commands, LedStateIsRecordedForItsDevice) {
    FakeHost host;
    KvDevVendorData &agent = host.addDevice(kAgent);
    const auto led = [](const Mac &mac, uint16_t state) {
        Bytes bytes(mac.begin(), mac.end());
        bytes.resize(8);
        put(bytes, 6, state);
        handle(114, bytes);
    };
    led(kAgent, 0);
    EXPECT_STREQ(agent.ledStatus, "OFF");
    EXPECT_EQ(host.sent.size(), 1u);
    led(kLocal, 9);
    EXPECT_STREQ(host.local().ledStatus, "ON");
    EXPECT_EQ(host.jsonWrites, 2);
    EXPECT_EQ(host.sent.size(), 1u) << "nobody to send it to";
    led({}, 0);
    EXPECT_EQ(logCount(7, "Check kv1905App return value = (0)\n"), 3u);
    led(kStranger, 0);
    EXPECT_EQ(host.jsonWrites, 2) << "neither for everybody nor for an unknown device";
    EXPECT_EQ(host.sent.size(), 1u);
    host.sendResult = 1;
    led(kAgent, 1);
    EXPECT_STREQ(agent.ledStatus, "ON") << "recorded before the send, which fails";
    EXPECT_EQ(host.jsonWrites, 3);
}

TEST(Commands, LocalCodesActHere) {
    emptyDevice();
    FakeHost host;
    Bytes result(8);
    put<int32_t>(result, 0, 2);
    handle(111, result);
    EXPECT_EQ(State_fw_is_download, 2);
    Bytes setting(12);
    put<int32_t>(setting, 0, 1);
    put<int32_t>(setting, 4, -2);
    put<int32_t>(setting, 8, 7);
    handle(201, setting);
    EXPECT_EQ(lastLogSetting(), (std::array<int, 3>{1, -2, 7}));
    writeFile(kConfigFile, "ModelName=fresh\n");
    handle(301, {});
    EXPECT_STREQ(host.local().modelName, "fresh");
    host.devices.clear();
    clearLog();
    handle(301, {});
    EXPECT_EQ(logCount(4, "configuration data is null\n"), 1u);
    for (const uint32_t unknown : {0u, 101u, 204u, 302u, 0xFFFFFFFFu}) {
        handle(unknown, {});
    }
    EXPECT_EQ(logCount(4, "Unknown command type received\n"), 5u);
    EXPECT_EQ(logCount(7, "Check kv1905App return value = (16)\n"), 6u);
}
