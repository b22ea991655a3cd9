// The device's files and tools, read for real: configuration, version, channels, address, role.
#include "frame/local_files.h"

#include <gtest/gtest.h>

#include <cstring>

#include "frame/file.h"
#include "frame/parameters.h"
#include "frame/vendor_data.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_host.h"

using namespace kvtest;

namespace {

class LocalFiles : public testing::Test {
  protected:
    void SetUp() override { emptyDevice(); }

    FakeHost host_;
    KvDevVendorData &dev_ = host_.local();
};

constexpr const char *kCannotOpenConfig = "Can't open the file /tmp/.kv1905_conf\n";

}  // namespace

TEST_F(LocalFiles, ConfigurationLinesFillTheRecord) {
    struct Case {
        const char *what;
        std::string text;
        const char *field;
        std::string expected;
    };
    KvDevVendorData &d = dev_;
    const std::string longWord(300, 'x');
    const Case cases[] = {
        {"word", "ModelName=KV-1\n", d.modelName, "KV-1"},
        {"first word alone", "ModelName=KV 1\n", d.modelName, "KV"},
        {"blanks and semicolon", "ModelName = KV-1;\n", d.modelName, "KV-1"},
        {"carriage return", "ModelName=KV-1\r\n", d.modelName, "KV-1"},
        {"no newline at the end", "FirmwareVersion=1.2", d.fwVersion, "1.2"},
        {"no value", "ModelName=\n", d.modelName, ""},
        {"key anywhere in the line", "x ModelName KV\n", d.modelName, "ModelName"},
        {"the last line wins", "ModelName=A\nModelName=B\n", d.modelName, "B"},
        {"a comment is no comment", "#ModelName=A\n", d.modelName, "A"},
        {"lines beyond 127 characters come in pieces", "ModelName=" + longWord + "\n", d.modelName,
         longWord.substr(0, 117)},
        {"ap", "Mode=ap\n", d.opMode, "AP"},
        {"a shorter mode leaves nothing of the longer", "Mode=repeater\nMode=ap\n", d.opMode, "AP"},
        {"repeater", "Mode=repeater\n", d.opMode, "Repeater"},
        {"any other mode", "Mode=bridge\n", d.opMode, "Router"},
        {"Mode counts at the start of the line alone", "Mode=ap\n Mode=repeater\n", d.opMode, "AP"},
        {"led on", "LedEnable=1\n", d.ledStatus, "ON"},
        {"led off", "LedEnable=0\n", d.ledStatus, "OFF"},
        {"led neither", "LedEnable=2\n", d.ledStatus, "OFF"},
        {"led no number", "LedEnable=on\n", d.ledStatus, "OFF"},
        {"led repeats the last number that parsed", "LedEnable=1\nLedEnable=x\n", d.ledStatus, "ON"},
        {"24 GHz SSID with blanks", "24GMainSSID=my home = 1;\n", g_MainSSID, "my home = 1;"},
        {"5 GHz SSID cut to 32", "5GMainSSID=" + longWord.substr(0, 40) + "\n", g_MainSSID + 33,
         longWord.substr(0, 32)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        writeFile(kConfigFile, c.text);
        EXPECT_EQ(kv::readDevConfFile(&dev_), KV_RET_OK);
        EXPECT_EQ(std::string(c.field), c.expected);
    }
    EXPECT_STREQ(dev_.buildNum, "7879");
    EXPECT_STREQ(dev_.protoVersion, "3.0");
    EXPECT_GT(std::atoi(dev_.uptime), 0);
}

TEST_F(LocalFiles, BssidBytesThatDoNotParseStay) {
    writeFile(kConfigFile, "24GMainBSSID=01:02:03:0a:0B:0c\n5GMainBSSID=11:22:33:44:55:66\n");
    kv::readDevConfFile(&dev_);
    writeFile(kConfigFile, "5GMainBSSID=AA:BB:xx\n");
    kv::readDevConfFile(&dev_);
    EXPECT_EQ(Bytes(g_MainBSSID, g_MainBSSID + 12), fromHex("01 02 03 0A 0B 0C AA BB 33 44 55 66"));
}

TEST_F(LocalFiles, AMissingConfigurationFileKeepsTheRest) {
    writeFile(kConfigFile, "ModelName=A\nFirmwareVersion=1\nMode=ap\n");
    kv::readDevConfFile(&dev_);
    kv::setText(dev_.uptime, "old");
    emptyDevice();
    EXPECT_EQ(kv::readDevConfFile(&dev_), KV_RET_ERR);
    EXPECT_EQ(logCount(3, kCannotOpenConfig), 1u);
    EXPECT_STREQ(dev_.modelName, "");
    EXPECT_STREQ(dev_.fwVersion, "");
    EXPECT_STREQ(dev_.opMode, "AP");
    EXPECT_STREQ(dev_.uptime, "old");
}

TEST_F(LocalFiles, OperatorReloadTouchesOnlyWhatTheFileNames) {
    dev_.confFileMtime = 5;
    kv::setText(dev_.modelName, "kept");
    kv::setText(dev_.buildNum, "1");
    writeFile(kConfigFile, "FirmwareVersion=2.0\n");
    EXPECT_EQ(kv::updateDeviceConfig(&dev_), KV_RET_OK);
    EXPECT_STREQ(dev_.fwVersion, "2.0");
    EXPECT_STREQ(dev_.modelName, "kept");
    EXPECT_STREQ(dev_.buildNum, "1");
    EXPECT_EQ(dev_.confFileMtime, 5u);
    emptyDevice();
    EXPECT_EQ(kv::updateDeviceConfig(&dev_), KV_RET_ERR);
}

TEST_F(LocalFiles, NoiseInTheFilesHarmsNothing) {
    std::string noise;
    for (unsigned i = 0, seed = 1; i < 100'000; ++i, seed = seed * 1'103'515'245 + 12'345) {
        noise += static_cast<char>(seed >> 16);
    }
    for (const std::string &text : {noise, std::string(10'000'000, 'A') + "\nModelName=after\n",
                                    "ModelName=" + std::string(10'000'000, '=') + "\nModelName=after\n"}) {
        writeFile(kConfigFile, text);
        writeFile(kVersionFile, text);
        kvMAP1905_DeviceDm_init(&dev_);
        kvMAP1905_param_update();
    }
    EXPECT_STREQ(dev_.modelName, "after");
}

TEST_F(LocalFiles, VersionFile) {
    EXPECT_EQ(kv::readDevVersionFile(&dev_), KV_RET_ERR);
    EXPECT_EQ(logCount(3, "Can't open the file /etc/kv1905/kv1905_Version\n"), 1u);
    EXPECT_STREQ(dev_.appVersion, "1.0");
    EXPECT_STREQ(dev_.ledOnOff, "0");

    writeFile(kVersionFile,
              "#AppVersion=9\nAppVersion=3.1 beta\nL2DeviveCtrl=1\nWiFiAutoCfg=2\r\nWiFiOnOff=3;\n"
              "FwUpgrade=" +
                  std::string(50, 'f') + "\nLEDOnOff=\n");
    EXPECT_EQ(kv::readDevVersionFile(&dev_), KV_RET_OK);
    EXPECT_EQ(logCount(7,
                       "Kovan 1905.1 Version: Version_app 3.1, L2DeviveCtrl 1, WiFiAutoCfg 2, WiFiOnOff 3, "
                       "FwUpgrade " +
                           std::string(31, 'f') + ", LEDOnOff 0\n"),
              1u);
}

TEST_F(LocalFiles, ChannelIsTheNumberThatWlPrintsLast) {
    struct Case {
        const char *output;
        const char *channel;
    };
    const Case cases[] = {
        {"36/80 (0xe02a)\\n", "36"},
        {"6l\\n", "6"},
        {"11u\\n", "11"},
        {"149\\n", "149"},
        {"", "old"},
        {"\\n", "old"},
        {"1\\n2\\n", "2"},
        {"u\\n", "old"},
        {"1234567890123\\n", "123456789"},
        {"ul/\\n44\\n", "44"},
        {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa 7", "7"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.output);
        fakeCommand("wl", std::string("[ \"$*\" = '-i wl0 chanspec' ] && printf '") + c.output + "'\n");
        char channel[16] = "old";
        kvMAP1905_WifiChan_get("wl0", channel);
        EXPECT_STREQ(channel, c.channel);
    }
    char channel[16] = "old";
    for (const char *hostile : {"$(touch /tmp/pwned)", "wl0;touch /tmp/pwned", "`touch /tmp/pwned`", "", "a b"}) {
        clearLog();
        kvMAP1905_WifiChan_get(hostile, channel);
        EXPECT_EQ(logLines().size(), 1u) << hostile;
    }
    EXPECT_STREQ(channel, "old");
    EXPECT_FALSE(exists("/tmp/pwned"));
}

TEST_F(LocalFiles, ChannelsComeFromTheRealToolAndAChangeIsWritten) {
    ASSERT_EQ(std::system("nvram set wl0_chanspec=6l && nvram set wl1_chanspec=36/80"), 0);
    writeFile(kConfigFile, "24GMainIfname=wl0\n5GMainIfname=wl1\n");
    kv::getDeviceChannel(&dev_);
    EXPECT_STREQ(dev_.channel24G, "6");
    EXPECT_STREQ(dev_.channel5G, "36");
    EXPECT_STREQ(dev_.channelExtra, "000");
    EXPECT_EQ(host_.jsonWrites, 1);
    EXPECT_EQ(logCount(6, "WiFi channel has changed, update the json file\n"), 1u);
    kv::getDeviceChannel(&dev_);
    EXPECT_EQ(host_.jsonWrites, 1);

    emptyDevice();
    kv::checkWIFIChannelInfo();
    EXPECT_STREQ(dev_.channel24G, "000");
    EXPECT_STREQ(dev_.channel5G, "000");
    EXPECT_EQ(host_.jsonWrites, 2);
    EXPECT_EQ(logCount(3, kCannotOpenConfig), 1u);

    host_.devices.clear();
    EXPECT_EQ(kv::checkWIFIChannelInfo(), KV_RET_OK);
    EXPECT_EQ(logCount(4, "Device 00:11:22:33:44:55, configuration data is null\n"), 1u);
}

TEST_F(LocalFiles, AddressOfTheBridge) {
    struct Case {
        const char *script;
        const char *address;
    };
    const Case cases[] = {
        {"echo 'br0 Link encap:Ethernet'; echo '   inet addr:192.168.77.11  Bcast:192.168.77.255  "
         "Mask:255.255.255.0'\n",
         "192.168.77.11"},
        {"exit 1\n", ""},
    };
    for (const Case &c : cases) {
        fakeCommand("ifconfig", std::string("[ \"$*\" = br0 ] || exit 9\n") + c.script);
        char address[kv::kIpTextLen];
        std::memset(address, 'x', sizeof address);
        EXPECT_EQ(kv::getDeviceIP(address), KV_RET_OK);
        EXPECT_STREQ(address, c.address);
        EXPECT_FALSE(exists("/tmp/kv1905_IP"));
    }
    // A directory in the scratch file's place cannot be opened for writing, and reading it yields nothing.
    ASSERT_EQ(std::system("ip link add br0 type bridge && ip addr add 10.9.8.7/24 dev br0"), 0);
    emptyDevice();
    char address[kv::kIpTextLen];
    EXPECT_EQ(kv::getDeviceIP(address), KV_RET_OK);
    EXPECT_STREQ(address, "10.9.8.7") << "as busybox's ifconfig prints it";
}

TEST_F(LocalFiles, PowerStateOfAMediaType) {
    struct Case {
        const char *text;
        uint32_t mediaType;
        uint32_t state;
    };
    const Case cases[] = {
        {"24GPower=1\n", 0x0103, 0},  {"24GPower=0\n", 0x0103, 2}, {"24GPower=10\n", 0x0103, 2},
        {"24GPower=\n", 0x0103, 0},   {"5GPower=0\n", 0x0103, 0},  {"5GPower=0\n", 0x0105, 2},
        {"5GPower=0\n", 0xFF0105, 2}, {"5GPower=0\n", 0x0001, 0},  {"5GPower=0\n5GPower=1\n", 0x0105, 2},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        writeFile(kConfigFile, c.text);
        KvIntfVendorData intf = {99};
        kvMAP1905_DevIntfDm_init(&intf, c.mediaType);
        EXPECT_EQ(intf.pwrState, c.state);
    }
    emptyDevice();
    KvIntfVendorData intf = {};
    kvMAP1905_DevIntfDm_init(&intf, 0x0001);
    EXPECT_EQ(intf.pwrState, 255u) << "no file, no answer, whatever the media type";
    EXPECT_EQ(logCount(3, kCannotOpenConfig), 1u);
    kvMAP1905_DevIntfDm_init(nullptr, 0x0001);
    EXPECT_EQ(logCount(3, "Allocate memory failed for interface vendor data\n"), 1u);
}

TEST_F(LocalFiles, RoleFlags) {
    struct Case {
        const char *text;
        uint32_t flags;
    };
    const Case cases[] = {
        {"autoRoleSelect=1\nautoRoleSelectOnlyWhenGwFound=0\nMode=ap\n", 0x5},
        {"Mode=repeater\n", 0x8},
        {"Mode=router\n", 0x0},
        {"Mode=apx\nMode=repeater5\n", 0xC},
        {"autoRoleSelectOnlyWhenGwFound=-1\n", 0x2},
        {"autoRoleSelect=1\nautoRoleSelect=0\n", 0x1},
        {"autoRoleSelect=1\nautoRoleSelectOnlyWhenGwFound=x\n", 0x3},
        {"xautoRoleSelect=1\n", 0x0},
        {"", 0x0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        writeFile(kConfigFile, c.text);
        kvFlags = 0xF0;
        EXPECT_EQ(kvMAP1905_param_update(), KV_RET_OK);
        EXPECT_EQ(kvFlags, c.flags);
    }
    EXPECT_EQ(logLines().back().text.rfind("kvMAP1905_param_update(", 0), 0u);
    EXPECT_NE(logLines().back().text.find(") kvFlags = 0x0000\n"), std::string::npos);
    emptyDevice();
    kvFlags = 0x7;
    EXPECT_EQ(kvMAP1905_param_update(), KV_RET_ERR);
    EXPECT_EQ(kvFlags, 0x7u);
    EXPECT_EQ(logCount(3, kCannotOpenConfig), 1u);
}

TEST_F(LocalFiles, ControllerByNvram) {
    struct Case {
        const char *setting;
        int controller;
    };
    EXPECT_EQ(kvMAP1905_findController(), 0) << "no setting at all";
    for (const Case &c : {Case{"1", 1}, Case{"3", 1}, Case{"2", 0}, Case{"0", 0}, Case{"x", 0}, Case{"", 0}}) {
        SCOPED_TRACE(c.setting);
        ASSERT_EQ(std::system((std::string("nvram set multiap_mode=") + c.setting).c_str()), 0);
        EXPECT_EQ(kvMAP1905_findController(), c.controller);
        EXPECT_FALSE(exists("/tmp/.kv1905_nvram_tmp"));
    }
    fakeCommand("nvram", "exit 127\n");
    EXPECT_EQ(kvMAP1905_findController(), 0);
    EXPECT_TRUE(logLines().empty());
}

TEST_F(LocalFiles, RecordsReloadOnlyWhatChanged) {
    ASSERT_EQ(std::system("nvram set multiap_mode=2"), 0);
    writeFile(kConfigFile, "ModelName=A\n");
    writeFile(kVersionFile, "AppVersion=1\n");
    dev_.cfgAttrCount = 9;
    kvMAP1905_DeviceDm_init(&dev_);
    EXPECT_EQ(controller, 0);
    EXPECT_EQ(dev_.cfgAttrCount, 0);
    EXPECT_EQ(kv::getEnableRebootFromNbrCap(), 1) << "an agent lets its controller";
    EXPECT_EQ(kv::getEnableIntfPwrCtrlFromNbrCap(), 1);
    EXPECT_EQ(kvMAP1905_CtrlFromNbrCap_get(2), 0);
    EXPECT_EQ(logCount(7, "Device 00:11:22:33:44:55, initialize KOVAN device configuration\n"), 1u);

    dev_.cfgAttrCount = 9;
    kvMAP1905_DeviceDm_update(&dev_);
    EXPECT_EQ(dev_.cfgAttrCount, 9);
    EXPECT_EQ(logCount(7, "initialize KOVAN"), 1u);
    EXPECT_EQ(logCount(7, "Kovan 1905.1 Version"), 1u);

    writeFile(kVersionFile, "AppVersion=2\n");
    kvMAP1905_DeviceDm_update(&dev_);
    EXPECT_STREQ(dev_.appVersion, "2");
    EXPECT_EQ(logCount(7, "initialize KOVAN"), 1u);

    ASSERT_EQ(std::system("nvram set multiap_mode=1 && touch -d @0 /tmp/.kv1905_conf"), 0);
    kvMAP1905_DeviceDm_init(&dev_);
    EXPECT_EQ(controller, 1);
    EXPECT_EQ(kv::getEnableRebootFromNbrCap(), 0) << "nobody reboots the controller";
    EXPECT_EQ(kv::getEnableIntfPwrCtrlFromNbrCap(), 0);

    emptyDevice();
    clearLog();
    kvMAP1905_DeviceDm_update(&dev_);
    kvMAP1905_DeviceDm_update(&dev_);
    EXPECT_EQ(logCount(7, "initialize KOVAN"), 2u) << "a file that cannot be examined is tried each time";
    EXPECT_STREQ(dev_.channel24G, "000");
    EXPECT_STREQ(dev_.appVersion, "1.0");
}
