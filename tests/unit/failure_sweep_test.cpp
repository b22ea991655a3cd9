// Every entry point and message type with every call to the outside failing once: the first allocation, the second, ...
// until it passes, and likewise files, commands, sends, questions to the host, and the configuration service. What a
// failure leads to is compared with failure_sweep.txt: result, messages sent, and the lines that tell of it.
#include <gtest/gtest.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

#include "features/device_control/firmware.h"
#include "features/wifi_clients/local_stations.h"
#include "frame/file.h"
#include "frame/result_file.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "support/fake_host.h"
#include "support/fake_system.h"
#include "support/sample_messages.h"

using namespace kvtest;

namespace {

const std::string kAgentHex = "66778899AABB";
const std::string kLocalHex = "001122334455";
const Mac kRadio = {2, 0, 0, 0, 0, 5};

struct Scenario {
    std::string name;
    std::function<int(FakeHost &)> run;
};

std::vector<Scenario> &scenarios() {
    static std::vector<Scenario> all;
    return all;
}

Scenario received(const SampleMessage &sample) {
    return {std::string("received ") + kv::findMessageRow(sample.type)->name, [&sample](FakeHost &host) {
                host.receive(kAgent, message(kAgent, sample.type, fromHex(sample.payload)), 0xBEEF);
                return 0;
            }};
}

Scenario command(const std::string &name, uint32_t code, const std::string &buffer, size_t size) {
    return {"command " + name, [code, buffer, size](FakeHost &) {
                Bytes bytes = fromHex(buffer);
                bytes.resize(size);
                kvMAP1905_VendSpecCmd_handle(bytes.data(), code);
                return 0;
            }};
}

int takePost(uint32_t, void *, uint32_t) {
    return callFails(Call::Post) ? -1 : 0;
}

Scenario posted(const std::string &name, int (*entry)(void *, int, char **), std::vector<std::string> words) {
    return {"posted " + name, [entry, words](FakeHost &) {
                Kv1905BcmCbs table = {};
                table.cmdSend = takePost;
                kvMAP1905_Func_reg(&table, 1);
                std::vector<std::string> copy = words;
                copy.insert(copy.begin(), {"kv1905App", "N"});
                std::vector<char *> argv;
                for (std::string &word : copy) {
                    argv.push_back(word.data());
                }
                return entry(nullptr, static_cast<int>(argv.size()), argv.data());
            }};
}

std::string hexOf(const std::string &text) {
    std::string hex;
    for (const char c : text) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<uint8_t>(c));
        hex += digits;
    }
    return hex;
}

KvMdidInterfaceList mdidList() {
    KvMdidInterfaceList list = {};
    list.InterfaceNumberOfEntries = 1;
    kv::setText(list.interfaces[0].ifname, "wl1");
    return list;
}

void fillScenarios() {
    using namespace kv;
    for (uint16_t type = 0; type < VEND_MSG_TYPE_LIMIT; ++type) {
        const MessageRow *row = findMessageRow(type);
        const bool isSpoken = row != nullptr && row->handle != nullptr;
        EXPECT_TRUE(!isSpoken || std::any_of(std::begin(kSampleMessages), std::end(kSampleMessages),
                                             [type](const SampleMessage &sample) { return sample.type == type; }))
            << row->name << " has no sample message";
    }
    for (const SampleMessage &sample : kSampleMessages) {
        scenarios().push_back(received(sample));
    }
    const Scenario more[] = {
        {"received Intel's RSSI_MEASUREMENT_REQ",
         [](FakeHost &host) {
             host.receive(kAgent, fromHex(kSampleIntelRequest), 1);
             return 0;
         }},
        {"kvMAP1905_ConfQuery_send", [](FakeHost &) { return kvMAP1905_ConfQuery_send(kAgent.data(), 0); }},
        {"kvMAP1905_ConfRespMsg_send by multicast",
         [](FakeHost &) { return kvMAP1905_ConfRespMsg_send(nullptr, 0, 1); }},
        {"kvMAP1905_IntfPwrStateQuery_send",
         [](FakeHost &) { return kvMAP1905_IntfPwrStateQuery_send(kAgent.data(), 0); }},
        {"kvMAP1905_WifiStateQuery_send", [](FakeHost &) { return kvMAP1905_WifiStateQuery_send(kAgent.data(), 0); }},
        {"kvMAP1905_SyncCtrlSettingReq_send",
         [](FakeHost &) { return kvMAP1905_SyncCtrlSettingReq_send(kAgent.data(), 0); }},
        {"kvMAP1905_RssiMeasurementNotify_send",
         [](FakeHost &) {
             KvRssiMeasurement measurement = {{2, 0, 0, 0, 0, 1}, 0, 0, 0, 0};
             KvIntelVendMsg msg = {};
             msg.payload = &measurement;
             return kvMAP1905_RssiMeasurementNotify_send(kAgent.data(), &msg);
         }},
        {"kvMAP1905_VenderSpecMcastMsg_send",
         [](FakeHost &) {
             KvVendMsg msg = {{2, 0x4E, 0xA7}, {}, {}, VEND_MSG_TYPE_RESERVED_10, 0, nullptr};
             return kvMAP1905_VenderSpecMcastMsg_send(&msg, nullptr);
         }},
        {"kvMAP1905_MainLoop with everything due",
         [](FakeHost &) {
             kvMAP1905_ConfQuery_send(kAgent.data(), 0);
             setClock(std::time(nullptr) + 130);
             return kvMAP1905_MainLoop();
         }},
        {"kvMAP1905_DeviceDm_init",
         [](FakeHost &host) {
             kvMAP1905_DeviceDm_init(&host.local());
             return 0;
         }},
        {"kvMAP1905_DeviceDm_update",
         [](FakeHost &host) {
             touchFile(kConfigFile);
             kvMAP1905_DeviceDm_update(&host.local());
             return 0;
         }},
        {"kvMAP1905_DevIntfDm_init",
         [](FakeHost &) {
             KvIntfVendorData intf = {};
             kvMAP1905_DevIntfDm_init(&intf, 0x0105);
             return static_cast<int>(intf.pwrState);
         }},
        {"kvMAP1905_param_update", [](FakeHost &) { return kvMAP1905_param_update(); }},
        {"kvMAP1905_findController", [](FakeHost &) { return kvMAP1905_findController(); }},
        {"checkKovanAgent",
         [](FakeHost &) {
             uint8_t speaks = 9;
             return checkKovanAgent(kAgent.data(), &speaks) + speaks;
         }},
        {"kvMAP1905_CtrlFromNbrCap_get", [](FakeHost &) { return kvMAP1905_CtrlFromNbrCap_get(0); }},
        {"kvMAP1905_WifiChan_get",
         [](FakeHost &) {
             char channel[16] = "x";
             kvMAP1905_WifiChan_get("wl1", channel);
             return channel[0] == 'x';
         }},
        {"updateKvFWNewfirmware", [](FakeHost &) { return updateKvFWNewfirmware(1); }},
        {"kvMAP1905_TlvMDID_insert",
         [](FakeHost &) {
             uint8_t buffer[142] = {};
             uint32_t length = 0;
             KvMdidInterfaceList list = mdidList();
             return kvMAP1905_TlvMDID_insert(buffer, &length, &list) * 1000 + list.interfaces[0].mdid;
         }},
        {"kvMAP1905_CountryInBcn_update", [](FakeHost &) { return kvMAP1905_CountryInBcn_update("wl1", "DE/1", ""); }},
        command("102 reboot", KV_CMD_REBOOT, kAgentHex, 6),
        command("103 power", KV_CMD_INTF_PWR_CTRL, kAgentHex + "01 00 020000000005 0501", sizeof(KvIntfPwrCtrlReq)),
        command("109 firmware", KV_CMD_FW_CTRL, kAgentHex, sizeof(KvFWCtrlReq)),
        command("110 reset", KV_CMD_RESET_DEFAULT, kAgentHex, 6),
        {"command 111 firmware result",
         [](FakeHost &) {
             int32_t result[2] = {FW_STATE_DOWNLOAD_FW, 0};
             kvMAP1905_VendSpecCmd_handle(result, KV_CMD_FW_RESULT);
             return 0;
         }},
        command("114 LED", KV_CMD_LED_CTRL, kAgentHex, sizeof(KvLedCtrlReq)),
        command("120 partial reset", KV_CMD_PARTIAL_RESET_DEFAULT, kAgentHex, 6),
        command("200 remote command", KV_CMD_COMMAND, kAgentHex, sizeof(KvCommandReq)),
        command("202 password", KV_CMD_SYNC_CTRL_PWD, hexOf("2 7878"), 7),
        command("203 country request", KV_CMD_SYNC_COUNTRY_BCN_REQ, kAgentHex, 6),
        command("205 country", KV_CMD_COUNTRY_IN_BCN, kLocalHex + "02 4445", sizeof(SyncCtrlerCountryMsgData)),
        command("301 device info", KV_CMD_UPDATE_DEVICE_INFO, "", 0),
        posted("reboot", kvMAP1905_RebootQuery_send, {"66:77:88:99:AA:BB"}),
        posted("power", kvMAP1905_CtrlInftPwrQuery_send, {"66:77:88:99:AA:BB", "2:0:0:0:0:5", "0105", "0"}),
        posted("firmware", kvMAP1905_FWCtrlQuery_send, {"66:77:88:99:AA:BB", "1", "0", "u"}),
        posted("reset", kvMAP1905_ResetDefaultQuery_send, {"66:77:88:99:AA:BB"}),
        posted("firmware result", kvMAP1905_FwResult_set, {"4"}),
        posted("LED", kvMAP1905_ledStatus_send, {"66:77:88:99:AA:BB", "1"}),
        posted("partial reset", kvMAP1905_PartialResetDefaultQuery_send, {"66:77:88:99:AA:BB"}),
        posted("remote command", kvMAP1905_CmdQuery_send, {"66:77:88:99:AA:BB", "reboot"}),
        posted("country request", kvMAP1905_sync_country_req_send, {"66:77:88:99:AA:BB"}),
        posted("country", kvMAP1905_CountryInBcn_send, {"DE"}),
        posted("log setting", kvMAP1905_SyslogDbg_set, {"1", "7"}),
    };
    scenarios().insert(scenarios().end(), std::begin(more), std::end(more));
}

// A device with all that the scenarios touch: configuration, stations, a radio, an account, a key, tools that answer.
class Device {
  public:
    Device() {
        for (KvDevVendorData *dev : {&host.local(), &host.addDevice(kAgent)}) {
            dev->rebootFromNbrCap = 1;
            dev->intfPwrCtrlFromNbrCap = 1;
            kv::setText(dev->protoVersion, "3.0");
        }
        host.owners = {{kAgent, kAgent}, {kRadio, kLocal}};
        host.interfaces = {{kRadio, 0x0105}};
        configService() = ConfigService();
        RdmNatIntfSetting account = {};
        kv::setText(account.userName, "admin");
        configService().accounts = {account};
        RdmWifiRadio radio = {};
        kv::setText(radio.ifName, "wl1");
        kv::setText(radio.countryCode, "DE");
        configService().radios = {radio};
        configService().keys = {RdmSyncKeySource{"key"}};
        setClock(1'000'000);
        data_model_time_stamp = 1'000'000;
        writeFile(kConfigFile, "ModelName=M\n5GPower=1\nMode=ap\n");
        std::remove(kv::kResultPath);
        std::remove(kv::kFirmwareListPath);
        kv::kvUpdateWIFINeighborList();
        clearLog();
    }

    // What an observer can tell of the device, without times.
    std::string state() {
        std::ostringstream text;
        for (const auto &[mac, device] : host.devices) {
            KvDevVendorData copy = *device;
            size_t stations = 0;
            for (const auto *at = copy.wifiNbrHead; at != nullptr; at = at->next) {
                ++stations;
            }
            copy.wifiNbrHead = nullptr;
            copy.security = {};
            copy.confFileMtime = copy.versionFileMtime = copy.uptimeRecvTime = 0;
            std::memset(copy.uptime, 0, sizeof copy.uptime);
            text << stations << '/' << std::hash<std::string_view>()({reinterpret_cast<char *>(&copy), sizeof copy})
                 << ' ';
        }
        const ConfigService &service = configService();
        text << int{service.led.enable} << service.accounts[0].password << service.radios[0].countryInBeacon
             << service.unpurged << ' ' << readFile(kv::kResultPath) << ' ' << State_fw_upgrade << ' ' << kvFlags << ' '
             << kv::firmwareUpgradeList().count() << ' ' << WIFINbrNum << ' ' << g_MainSSID;
        return text.str();
    }

    std::vector<Bytes> sent() {
        std::vector<Bytes> values;
        for (const Sent &each : host.sent) {
            values.push_back(each.value);
        }
        host.sent.clear();
        return values;
    }

    FakeHost host;
};

std::vector<std::string> complaints() {
    std::vector<std::string> lines;
    for (const LogLine &line : logLines()) {
        if (line.level <= 4) {
            std::string text = line.text.substr(0, line.text.find_last_not_of('\n') + 1);
            const std::string prefix = "Device 00:11:22:33:44:55, ";
            if (const size_t at = text.find(prefix); at != std::string::npos) {
                text.erase(at, prefix.size());
            }
            for (size_t open = text.find('('); line.level == kPrint && open != std::string::npos;
                 open = std::string::npos) {
                text.erase(open, text.find(')') - open + 1);  // line numbers
            }
            lines.push_back((line.level == kPrint ? "" : std::to_string(line.level) + " ") + text);
        }
    }
    return lines;
}

struct Kind {
    Call call;
    const char *name;
};
constexpr Kind kKinds[] = {
    {Call::Allocation, "allocation"}, {Call::OpenFile, "fopen"}, {Call::OpenPipe, "popen"},
    {Call::RunCommand, "system"},     {Call::Send, "send"},      {Call::Query, "query"},
    {Call::JsonWrite, "JSON"},        {Call::Config, "kcfg"},    {Call::Post, "post"},
};

struct Clean {
    int result = 0;
    int secondResult = 0;
    std::vector<Bytes> sent;
    std::vector<Bytes> secondSent;
    std::string secondState;
    std::vector<std::string> complaints;
};

Clean runClean(const Scenario &scenario) {
    Device device;
    Clean clean;
    clean.result = scenario.run(device.host);
    clean.complaints = complaints();
    clean.sent = device.sent();
    clean.secondResult = scenario.run(device.host);
    clean.secondSent = device.sent();
    clean.secondState = device.state();
    return clean;
}

// One failure; its line of the listing, or nothing when there is no nth call.
std::string runFailing(const Scenario &scenario, const Kind &kind, size_t nth, const Clean &clean) {
    Device device;
    int result = 0;
    {
        FailingCall failure(kind.call, nth);
        result = scenario.run(device.host);
        if (!failure.happened()) {
            return {};
        }
    }
    std::string line = scenario.name + ", " + kind.name + " " + std::to_string(nth) + ":";
    if (result != clean.result) {
        line += " result " + std::to_string(result);
    }
    const std::vector<Bytes> sent = device.sent();
    if (sent != clean.sent) {
        line += " sent " + std::to_string(sent.size()) + " of " + std::to_string(clean.sent.size());
    }
    for (const std::string &text : complaints()) {
        if (std::find(clean.complaints.begin(), clean.complaints.end(), text) == clean.complaints.end()) {
            line += " | " + text;
        }
    }
    clearLog();
    const int again = scenario.run(device.host);
    const std::vector<Bytes> sentAgain = device.sent();
    EXPECT_TRUE(again == clean.result || again == clean.secondResult) << line << "\nthe next call returns " << again;
    EXPECT_TRUE(sentAgain == clean.sent || sentAgain == clean.secondSent) << line << "\nthe next call sends otherwise";
    EXPECT_EQ(device.state(), clean.secondState) << line << "\nthe next call leads elsewhere";
    return line + "\n";
}

}  // namespace

TEST(FailureSweep, EveryFailureTakesItsDocumentedPathAndTheNextCallWorks) {
    emptyDevice();
    fakeCommand("reboot", "exit 0\n");
    fakeCommand("ifconfig", "echo '  inet addr:10.1.2.3  Mask:x'\n");
    fakeCommand("wl", "case $* in *chanspec) echo '36/80' ;; esac\n");
    fakeCommand("nvram", "echo multiap_mode=3; echo wl1_mdid=17\n");
    fakeCommand("openssl", "echo secret\n");
    writeFile("/data/FMUBBW3CBI.dat", "x");
    writeFile(kVersionFile, "AppVersion=1\nL2DeviveCtrl=1\nWiFiAutoCfg=1\nWiFiOnOff=1\nFwUpgrade=1\nLEDOnOff=1\n");
    writeFile(kv::kStationFile5G, "02:00:00:00:00:01 1000 -60 30 1 wl1 1 2 3000 4000 10\n");
    fillScenarios();

    std::string listing;
    size_t failures = 0;
    for (const Scenario &scenario : scenarios()) {
        const Clean clean = runClean(scenario);
        for (const std::string &text : clean.complaints) {
            EXPECT_EQ(text.find("failed to parse"), std::string::npos) << scenario.name << " is refused: " << text;
        }
        for (const Kind &kind : kKinds) {
            for (size_t nth = 1;; ++nth) {
                const std::string line = runFailing(scenario, kind, nth, clean);
                if (line.empty()) {
                    break;
                }
                ++failures;
                listing += line;
            }
        }
#if defined(__SANITIZE_ADDRESS__)
        ASSERT_EQ(__lsan_do_recoverable_leak_check(), 0) << scenario.name;
#endif
    }
    emptyDevice();
    std::remove(kv::kStationFile5G);
    std::remove("/data/FMUBBW3CBI.dat");
    RecordProperty("failures", static_cast<int>(failures));
    std::printf("%zu scenarios, %zu failures injected\n", scenarios().size(), failures);

    const std::string expected = readFile(KV_SOURCE_DIRECTORY "/tests/unit/failure_sweep.txt");
    const std::string found = "failure_sweep.txt";  // in the build tree
    if (listing != expected) {
        std::ofstream(found) << listing;
    }
    EXPECT_TRUE(listing == expected) << "Failures lead elsewhere than tests/unit/failure_sweep.txt says. When that is "
                                        "meant, copy "
                                     << found << " from the build tree over it.";
}
