// Device control: what an agent answers and does, in which order, and what the controller hands to the tool.
#include <gtest/gtest.h>

#include <cstring>

#include "features/device_control/answer.h"
#include "features/device_control/firmware.h"
#include "features/device_control/remote_command.h"
#include "features/kvMAP1905_netCtrl.h"
#include "frame/identity.h"
#include "frame/result_file.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "support/fake_host.h"
#include "support/fake_system.h"
#include "transport/outstanding_queries.h"

using namespace kvtest;

namespace {

constexpr uint16_t kMsgId = 0xBEEF;
const std::string kLocalText = "00:11:22:33:44:55";
const Mac kRadio24 = {2, 0, 0, 0, 0, 0x24};
const Mac kRadio5 = {2, 0, 0, 0, 0, 0x05};

Bytes bytesOf(const Mac &mac) {
    return Bytes(mac.begin(), mac.end());
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes &part : parts) {
        append(all, part);
    }
    return all;
}

Bytes number16(size_t number) {
    return {static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}

// A device that lets its controller do everything, asked by kAgent's address.
class DeviceControl : public testing::Test {
  protected:
    void SetUp() override {
        emptyDevice();
        configService() = ConfigService();
        configService().also = &host_.journal;
        host_.local().rebootFromNbrCap = 1;
        host_.local().intfPwrCtrlFromNbrCap = 1;
        host_.interfaces = {{kRadio24, 0x0103}, {kRadio5, 0x0105}};
        fakeCommand("reboot", "echo rebooted >> /tmp/rebooted\n");
        std::remove("/tmp/rebooted");
        std::remove(kv::kResultPath);
    }

    void request(uint16_t type, const Bytes &payload) { host_.receive(kAgent, message(kAgent, type, payload), kMsgId); }

    void command(const std::string &text) {
        request(kv::VEND_MSG_TYPE_COMMAND_REQ, join({{0, 9}, number16(text.size()), Bytes(text.begin(), text.end())}));
    }

    // The one message sent: an answer of that type to the source under the request's identifier.
    void expectAnswer(uint16_t type, const Bytes &payload) {
        ASSERT_EQ(host_.sent.size(), 1u);
        EXPECT_EQ(host_.sent[0].value, message(kLocal, type, payload));
        EXPECT_EQ(host_.sent[0].destination, kAgent);
        EXPECT_EQ(host_.sent[0].msgIdIn, kMsgId);
        host_.sent.clear();
    }

    FakeHost host_;
};

}  // namespace

TEST_F(DeviceControl, RebootAndResetsAnswerFirstAndActAfterwards) {
    struct Operation {
        const char *name;
        uint16_t request;
        const char *option;  // of the remote command
        const char *actions;
        const char *refusedByFirmware;
    };
    const Operation operations[] = {
        {"reboot", 4, "2", "", "reboot failed, FW upgeade now\n"},
        {"reset", 22, "10", "req8 ", "reset to default failed, FW upgeade now\n"},
        {"partial reset", 26, "20", "jsonGet jsonSet req34 ", "reset to default failed, FW upgeade now\n"},
    };
    struct Case {
        const char *what;
        Mac target;
        bool allowed;
        bool upgrading;
        int sendResult;
        uint8_t result;
        bool acts;
    };
    const Case cases[] = {
        {"carried out", kLocal, true, false, 0, 0, true},
        {"another device, which is checked before the capability", kStranger, false, false, 0, 7, false},
        {"not allowed", kLocal, false, false, 0, 16, false},
        {"firmware is being written: answered 0, refused afterwards", kLocal, true, true, 0, 0, false},
        {"the answer does not go out", kLocal, true, false, 1, 0, false},
        {"firmware has been written", kLocal, true, false, 0, 0, true},
    };
    for (const Operation &operation : operations) {
        for (const Case &c : cases) {
            for (const bool remote : {false, true}) {
                SCOPED_TRACE(std::string(operation.name) + (remote ? " inside a command: " : ": ") + c.what);
                SetUp();
                host_.journal.clear();
                host_.sent.clear();
                clearLog();
                host_.local().rebootFromNbrCap = c.allowed;
                State_fw_upgrade = c.upgrading ? 4 : 5;
                host_.sendResult = c.sendResult;
                if (remote) {
                    char target[18];
                    std::snprintf(target, sizeof target, "%02X:%02X:%02X:%02X:%02X:%02X", c.target[0], c.target[1],
                                  c.target[2], c.target[3], c.target[4], c.target[5]);
                    command(std::string(operation.option) + " " + target);
                    EXPECT_EQ(logCount(6, "send Command failed\n"), c.result != 0 || c.sendResult != 0 ? 1u : 0u);
                } else {
                    request(operation.request, bytesOf(c.target));
                }
                expectAnswer(remote ? uint16_t{32} : static_cast<uint16_t>(operation.request + 1), {c.result});
                EXPECT_EQ(host_.journal, std::string("send ") + (c.acts ? operation.actions : ""));
                EXPECT_EQ(exists("/tmp/rebooted"), c.acts && operation.request == 4);
                EXPECT_EQ(configService().unpurged, c.acts && operation.request == 26 ? 2 : -1);
                EXPECT_EQ(logCount(4, operation.refusedByFirmware), c.upgrading ? 1u : 0u);
                host_.sendResult = 0;
            }
        }
    }
}

TEST_F(DeviceControl, ResetLinesNameTheRequestedAddressAndTheFailure) {
    request(22, bytesOf(kStranger));
    EXPECT_EQ(logCount(4, "Requested AL MAC is unmatched 02:EE:EE:EE:EE:EE\n"), 1u);
    EXPECT_EQ(logCount(5, "Reset to default failed\n"), 1u);
    EXPECT_EQ(logCount(7, "received Reset to Default Request msgId beef\n"), 1u);
    EXPECT_EQ(logCount(7, "transmit vendor msgId beef\n"), 1u);
    host_.local().rebootFromNbrCap = 0;
    request(22, bytesOf(kLocal));
    request(26, bytesOf(kLocal));
    request(4, bytesOf(kLocal));
    EXPECT_EQ(logCount(kPrint, "unsupport reset function\n"), 1u);
    EXPECT_EQ(logCount(kPrint, "unsupport partial reset function\n"), 1u);
    EXPECT_EQ(logCount(kPrint, "unsupport reboot function\n"), 1u);
    EXPECT_EQ(logCount(kPrint, "Device 00:11:22:33:44:55, failed to reboot\n"), 1u);
    EXPECT_EQ(logCount(kPrint, "transmit Reboot Response msgId beef\n"), 1u);

    configService().failing = "jsonGet";
    EXPECT_EQ(kv::kvPartialResetToDefault(), KV_RET_OK) << "an object that cannot be read is no reason";
    configService().failing = "req34";
    EXPECT_EQ(kv::kvPartialResetToDefault(), KV_RET_ERR);
    configService().failing = "req8";
    EXPECT_EQ(kv::kvResetToDefault(), KV_RET_ERR);
    configService().failing = "";
    configService().unpurgedIsNumber = true;
    EXPECT_EQ(kv::kvPartialResetToDefault(), KV_RET_OK) << "JSON that is no object is left alone";
    EXPECT_EQ(logCount(kPrint, "Fail to reset to default.\n"), 2u);
}

TEST_F(DeviceControl, EveryResponseReachesTheResultFile) {
    struct Case {
        uint16_t type;
        const char *line;
        int level;
    };
    const Case cases[] = {
        {5, "received Reboot Response msgId beef, result 7\n", kPrint},
        {21, "received FW control response msgId beef, result 7\n", 6},
        {23, "received reset to default response msgId beef, result 7\n", 7},
        {27, "received partial reset to default response msgId beef, result 7\n", 7},
        {32, "received msgId beef, send command result 7\n", 7},
        {35, "received LED control response msgId beef, result 7\n", 7},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.type);
        std::remove(kv::kResultPath);
        request(c.type, {7});
        EXPECT_EQ(readFile(kv::kResultPath), "07\n");
        EXPECT_EQ(logCount(c.level, "[MSG] Device 00:11:22:33:44:55, " + std::string(c.line)), 1u);
        request(c.type, {});
        EXPECT_EQ(readFile(kv::kResultPath), "07\n") << "a response without its byte is refused";
    }
    request(7, join({{2}, bytesOf(kRadio24), {1, 3}, {0}, bytesOf(kRadio5), {1, 5}, {64}}));
    EXPECT_EQ(readFile(kv::kResultPath), "40\n") << "the last entry's result stays";
    EXPECT_EQ(logCount(kPrint, "ReturnValue = "), 8u);
    EXPECT_EQ(logCount(7, "Interface Mac 02:00:00:00:00:05, mediaType 105, retCode 40\n"), 1u);
    EXPECT_EQ(kv::output_ReturnValue(255), 0);
    EXPECT_EQ(readFile(kv::kResultPath), "ff\n");
}

TEST_F(DeviceControl, PowerStatesAreReportedAsTheFileSaysThem) {
    writeFile(kConfigFile, "24GPower=0\n");
    request(2, bytesOf(kStranger));  // the queried address is not compared
    expectAnswer(3, join({bytesOf(kLocal), {2}, bytesOf(kRadio24), {1, 3}, {2}, bytesOf(kRadio5), {1, 5}, {0}}));

    for (int i = 0; i < 300; ++i) {
        host_.interfaces.push_back({kRadio5, 0x0105});
    }
    request(2, bytesOf(kLocal));
    ASSERT_EQ(host_.sent.size(), 1u);
    EXPECT_EQ(host_.sent[0].value.size(), 15u + 7 + 9 * 30) << "the first 30";
    host_.sent.clear();

    host_.interfaces.clear();
    request(2, bytesOf(kLocal));
    request(6, join({bytesOf(kLocal), {0}, {0}}));
    EXPECT_TRUE(host_.sent.empty());
    EXPECT_EQ(logCount(4, "[DB] Device 00:11:22:33:44:55, interface data is null\n"), 2u);
}

TEST_F(DeviceControl, AStateQueryIsTrackedUntilItsAnswerCanBeUsed) {
    const auto isWaiting = [] { return !kv::isZeroMac(kv::outstandingQueries().at(0).alMac); };
    host_.addDevice(kAgent);
    setClock(1'700'000'000);
    ASSERT_EQ(kvMAP1905_IntfPwrStateQuery_send(kAgent.data(), 0), KV_RET_OK);
    EXPECT_EQ(host_.sent[0].value, message(kLocal, 2, bytesOf(kAgent)));
    host_.addDevice({1, 1, 1, 1, 1, 1});
    const Bytes one = join({bytesOf(kAgent), {1}, bytesOf(kRadio5), {1, 5}, {2}});
    host_.receive(kAgent, message(kAgent, 3, join({bytesOf(kStranger), {0}})), 0x1000);
    EXPECT_TRUE(isWaiting()) << "no interface data for that device";
    host_.receive(kAgent, message(kAgent, 3, head(one, one.size() - 1)), 0x1000);
    EXPECT_TRUE(isWaiting()) << "shorter than its count";
    host_.receive(kStranger, message({1, 1, 1, 1, 1, 1}, 3, one), 0x1000);
    EXPECT_TRUE(isWaiting()) << "the envelope's device is who answers";
    clearLog();
    host_.receive(kAgent, message(kAgent, 3, one), 0x1000);
    EXPECT_FALSE(isWaiting());
    EXPECT_EQ(logCount(7, "Interface Mac 02:00:00:00:00:05, mediaType 105, pwrState 2\n"), 1u);
    EXPECT_EQ(logCount(7, ", pwrState "), 1u) << "the reported entry alone, though the host knows two";

    kvMAP1905_IntfPwrStateQuery_send(kAgent.data(), 0);
    setClock(1'700'000'006);
    kvMAP1905_MainLoop();
    EXPECT_EQ(host_.sent.back().value, message(kLocal, 2, bytesOf(kAgent))) << "sent again";
    for (std::time_t later = 12; later < 100; later += 6) {
        setClock(1'700'000'000 + later);
        kvMAP1905_MainLoop();
    }
    EXPECT_EQ(host_.sent.size(), 4u) << "three times in all, after the answered one";
    host_.sendResult = 1;
    EXPECT_EQ(kvMAP1905_IntfPwrStateQuery_send(kAgent.data(), 0), KV_RET_ERR);
    EXPECT_EQ(logCount(4, "fail send intfPwr state query to 66:77:88:99:AA:BB\n"), 1u);
    EXPECT_EQ(kvMAP1905_IntfPwrStateQuery_send(nullptr, 0), KV_RET_ERR);
}

TEST_F(DeviceControl, PowerControlAnswersPerInterface) {
    const auto entry = [](const Mac &mac, uint8_t low) { return join({bytesOf(mac), {1, low}}); };
    const Mac zero = {};
    struct Case {
        const char *what;
        Mac target;
        bool allowed;
        std::vector<Bytes> entries;
        uint8_t state;
        std::vector<uint8_t> results;
    };
    const Case cases[] = {
        {"applied, in any order", kLocal, true, {entry(kRadio5, 5), entry(kRadio24, 3)}, 2, {0, 0}},
        {"unknown MAC, wrong media type", kLocal, true, {entry(kStranger, 5), entry(kRadio5, 3)}, 0, {1, 1}},
        {"unsupported state", kLocal, true, {entry(kRadio5, 5)}, 3, {2}},
        {"unknown interface before unsupported state", kLocal, true, {entry(kStranger, 5)}, 3, {1}},
        {"as many as there may be", kLocal, true, std::vector<Bytes>(30, entry(kRadio5, 5)), 1,
         std::vector<uint8_t>(30)},
        {"by media type, which ends the list",
         kLocal,
         true,
         {entry(kRadio5, 5), entry(zero, 5), entry(kRadio24, 3)},
         0,
         {0, 64, 0}},
        {"another device", kStranger, false, {entry(kRadio5, 5), entry(kRadio24, 3), entry(zero, 9)}, 0, {7, 7, 7}},
        {"not allowed", kLocal, false, {entry(kRadio5, 5)}, 0, {16}},
        {"nothing listed", kLocal, true, {}, 0, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        host_.local().intfPwrCtrlFromNbrCap = c.allowed;
        Bytes payload = join({bytesOf(c.target), {static_cast<uint8_t>(c.entries.size())}});
        Bytes answer = {static_cast<uint8_t>(c.entries.size())};
        bool ended = false;
        for (size_t i = 0; i < c.entries.size(); ++i) {
            append(payload, c.entries[i]);
            append(answer, ended ? Bytes(8) : c.entries[i]);
            answer.push_back(c.results[i]);
            ended = ended || c.results[i] == 64;
        }
        payload.push_back(c.state);
        request(6, payload);
        expectAnswer(7, answer);
        for (size_t length = 0; length < payload.size(); ++length) {
            request(6, head(payload, length));
        }
        EXPECT_TRUE(host_.sent.empty()) << "every shorter payload is refused";
    }
    EXPECT_EQ(logCount(7, "Request power state 3 is unsupport\n"), 1u);
    EXPECT_EQ(logCount(7, "[TLV] Device 00:11:22:33:44:55, parse Intf Pwr Ctrl Request from AlMac 02:EE:EE:EE:EE:EE\n"),
              1u);
    EXPECT_EQ(logCount(7, "Power state 3\n"), 2u);
    for (const uint8_t count : {uint8_t{31}, uint8_t{255}}) {
        const Bytes many = join({bytesOf(kLocal), {count}, Bytes(size_t{8} * count + 1)});
        request(6, many);
        request(3, join({bytesOf(kLocal), {count}, Bytes(size_t{9} * count)}));
        request(7, join({{count}, Bytes(size_t{9} * count)}));
    }
    EXPECT_TRUE(host_.sent.empty());
    EXPECT_FALSE(exists(kv::kResultPath)) << "counts above 30 refuse requests and responses";
}

TEST_F(DeviceControl, FirmwareRequests) {
    const Bytes url(20, 'u');
    request(20, {3, 0, 0});
    expectAnswer(21, {16});
    EXPECT_EQ(logCount(7, "FWCtrlReq: FWOption 3, FWTopoOption 0, FWURLcount 0\n"), 1u);
    EXPECT_EQ(logCount(7, "FWCtrlReq: FWURL"), 0u);
    request(20, join({{3, 0, 21, 0}, url}));
    expectAnswer(21, {16});
    EXPECT_EQ(logCount(7, "FWCtrlReq: FWURL"), 0u) << "without a topology option the URL does not count";
    request(20, {3, 0, 1, 2});
    expectAnswer(21, {16});
    EXPECT_EQ(logCount(7, "FWCtrlReq: FWOption 3, FWTopoOption 2, FWURLcount 0\n"), 1u);
    clearLog();
    request(20, join({{3, 0, 21, 1}, url}));
    expectAnswer(21, {16});
    EXPECT_EQ(logCount(7, "FWCtrlReq: FWURL uuuuuuuuuuuuuuuuuuuu\n"), 1u);
    EXPECT_EQ(logCount(5, "not support FW control\n"), 1u);
    EXPECT_EQ(logCount(4, "FW control failed\n"), 1u);
    for (const size_t length : {size_t{1023}, size_t{1024}, size_t{2048}}) {
        clearLog();
        request(20, join({{3}, number16(length + 1), {1}, Bytes(length, 'u')}));
        expectAnswer(21, {16});
        EXPECT_EQ(logCount(7, "FWCtrlReq: FWURL u"), length < 1024 ? 1u : 0u);
    }
    request(20, join({{3}, number16(2050), {1}, Bytes(2049, 'u')}));
    request(20, {3, 0});
    request(20, join({{3, 0, 22, 1}, url}));
    EXPECT_TRUE(host_.sent.empty()) << "what does not fit the record or the payload is refused unanswered";
}

TEST_F(DeviceControl, UpgradeStepsGuardRebootAndAreShown) {
    const auto step = [&](int32_t result) {
        kv::setKvFWresult(result);
        return std::pair(State_fw_is_download, State_fw_upgrade);
    };
    Download_and_upgrade = 5;
    EXPECT_EQ(step(4), std::pair(0, 0));
    EXPECT_EQ(Download_and_upgrade, 0) << "also when the step is refused";
    EXPECT_EQ(logCount(7, "State_fw_is_download is not FW_STATE_FINISH_DOWNLOAD_FW\n"), 1u);
    EXPECT_EQ(host_.jsonWrites, 0);
    struct Step {
        int32_t result;
        std::pair<int32_t, int32_t> states;
        uint8_t status;
        int writes;
    };
    for (const Step &s : {Step{2, {2, 0}, 2, 1}, Step{2, {2, 0}, 2, 1}, Step{3, {3, 0}, 3, 2}, Step{1, {3, 0}, 3, 2},
                          Step{4, {3, 4}, 4, 3}, Step{4, {3, 4}, 4, 3}, Step{5, {3, 5}, 5, 4}, Step{0, {0, 0}, 0, 5}}) {
        SCOPED_TRACE(s.result);
        EXPECT_EQ(step(s.result), s.states);
        EXPECT_EQ(host_.local().fwUpgradeStatus, s.status);
        EXPECT_EQ(host_.jsonWrites, s.writes) << "only a change is written";
    }
    EXPECT_EQ(logCount(7, "State_fw_upgrade is FW_STATE_FW_UPGRADE\n"), 1u);

    EXPECT_EQ(updateKvFWNewfirmware(1), KV_RET_OK);
    EXPECT_EQ(host_.local().fwUpgradeStatus, 1);
    EXPECT_EQ(updateKvFWNewfirmware(0), KV_RET_OK);
    EXPECT_EQ(host_.jsonWrites, 7) << "written whatever the result";
    host_.devices.clear();
    EXPECT_EQ(updateKvFWNewfirmware(1), KV_RET_ERR);
}

TEST_F(DeviceControl, TheUpgradeListIsMirroredInItsFile) {
    const std::string file = kv::kFirmwareListPath;
    const Mac first = {2, 0, 0, 0, 0, 0xA};
    const Mac second = {2, 0, 0, 0, 0, 0xB};
    const Mac third = {2, 0, 0, 0, 0, 0xC};
    writeFile(file, "left behind\n");
    EXPECT_EQ(kv::addKvFWupgradealmac(first.data(), 3), KV_RET_ERR);
    EXPECT_FALSE(exists(file)) << "an empty list has no file";
    EXPECT_EQ(takeSleptSeconds(), 0u);
    for (const size_t nth : {size_t{1}, size_t{2}}) {  // head, entry
        FailingAllocation failing(nth);
        EXPECT_EQ(kv::addKvFWupgradealmac(first.data(), 4), KV_RET_ERR);
        EXPECT_TRUE(failing.happened());
        kv::firmwareUpgradeList().clear();
    }
    EXPECT_EQ(kv::addKvFWupgradealmac(first.data(), 4), KV_RET_OK);
    EXPECT_EQ(takeSleptSeconds(), 1u);
    EXPECT_EQ(kv::addKvFWupgradealmac(second.data(), 5), KV_RET_OK);
    EXPECT_EQ(takeSleptSeconds(), 1u) << "the file told the list before";
    EXPECT_EQ(kv::addKvFWupgradealmac(third.data(), 4), KV_RET_OK);
    EXPECT_EQ(kv::addKvFWupgradealmac(second.data(), 5), KV_RET_ERR) << "listed already";
    EXPECT_EQ(kv::addKvFWupgradealmac(nullptr, 5), KV_RET_ERR);
    EXPECT_EQ(kv::rmKvFWupgradealmac(nullptr), KV_RET_ERR);
    EXPECT_EQ(readFile(file), "02:00:00:00:00:0a\n02:00:00:00:00:0b\n02:00:00:00:00:0c\n");
    EXPECT_EQ(kv::rmKvFWupgradealmac(second.data()), KV_RET_OK);
    EXPECT_EQ(kv::rmKvFWupgradealmac(second.data()), KV_RET_ERR);
    EXPECT_EQ(readFile(file), "02:00:00:00:00:0a\n02:00:00:00:00:0c\n");
    EXPECT_EQ(kv::rmKvFWupgradealmac(first.data()), KV_RET_OK);
    EXPECT_EQ(kv::rmKvFWupgradealmac(third.data()), KV_RET_OK);
    EXPECT_EQ(kv::firmwareUpgradeList().count(), 0);
    EXPECT_FALSE(exists(file));

    host_.addDevice(kAgent);
    host_.receive(kAgent, message(kAgent, 1, join({bytesOf(kAgent), {1}, {4, 0, 1, 5}})), 1);
    EXPECT_EQ(readFile(file), "66:77:88:99:aa:bb\n") << "an agent's configuration response lists it";
    EXPECT_EQ(logCount(7, "[DB] addKvFWupgradealmac  return code: SUCCESS\n"), 1u);
    host_.receive(kStranger, message(kStranger, 1, join({bytesOf(kAgent), {1}, {4, 0, 1, 5}})), 1);
    EXPECT_EQ(logCount(7, "[DB] addKvFWupgradealmac  return code: FAIL\n"), 1u)
        << "the payload's device is listed already";
    takeSleptSeconds();
    const Bytes four = {4, 0, 1, 4};
    host_.receive(kAgent, message(kAgent, 1, join({bytesOf(kAgent), {5}, four, four, four, four, four})), 1);
    EXPECT_EQ(takeSleptSeconds(), 0u) << "what is known already stops nobody";
    for (const char *altered : {"altered\n", "66:77:88:99:aa:bb\n\n", "66:77:88:99:aa:bb", ""}) {
        writeFile(file, altered);
        kv::addKvFWupgradealmac(kAgent.data(), 4);
        EXPECT_EQ(readFile(file), "66:77:88:99:aa:bb\n");
        EXPECT_EQ(takeSleptSeconds(), 1u);
    }
    writeFile(file, "altered\n");
    EXPECT_EQ(kv::rmKvFWupgradealmac(first.data()), KV_RET_ERR);
    EXPECT_EQ(readFile(file), "66:77:88:99:aa:bb\n") << "rewritten although nothing was removed";
    EXPECT_EQ(takeSleptSeconds(), 1u);
}

TEST_F(DeviceControl, LedsAreSwitchedThroughTheConfigurationService) {
    struct Case {
        const char *what;
        uint8_t option;
        const char *failing;
        const char *journal;
        uint8_t after;
    };
    const Case cases[] = {
        {"off", 0, "", "send get set ", 0},
        {"already on", 1, "", "send get ", 1},
        {"another number for on is written as 1", 2, "", "send get set ", 1},
        {"the object cannot be read", 0, "get", "send get ", 1},
        {"nor written", 0, "set", "send get set ", 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        host_.journal.clear();
        configService().failing = c.failing;
        request(33, join({bytesOf(kStranger), {c.option}}));  // the address is not compared
        expectAnswer(35, {0});
        EXPECT_EQ(host_.journal, c.journal);
        EXPECT_EQ(configService().led.enable, c.after);
    }
    EXPECT_EQ(logCount(7, "Apply to RDM_OID_LED_CTRL fail  beef\n"), 1u);
    EXPECT_EQ(logCount(7, "Apply to RDM_OID_LED_CTRL fail beef\n"), 1u);
    host_.journal.clear();
    request(34, join({Bytes(6), {0}}));
    EXPECT_EQ(logCount(7, "Mcast control LED option 0\n"), 1u);
    request(33, Bytes(6));
    EXPECT_EQ(host_.journal, "") << "the multicast changes nothing, a short payload neither";
    host_.sendResult = 1;
    request(33, Bytes(7));
    EXPECT_EQ(host_.journal, "send ") << "no answer, no action";
    EXPECT_EQ(logCount(4, "LED control error\n"), 1u);
}

TEST_F(DeviceControl, RemoteCommandsBecomeTheirRequest) {
    std::string pairs;
    for (int i = 0; i < 30; ++i) {
        pairs += " 02:00:00:00:00:05 105";
    }
    struct Case {
        const char *what;
        std::string text;
        int result;  // -1: not answered
    };
    const std::string target = " " + kLocalText;
    const Case cases[] = {
        {"power by media type", "3" + target + " 00:00:00:00:00:00 105 0", 16},
        {"power", "3" + target + " 02:00:00:00:00:05 0x105 2", 0},
        {"power of nothing", "3" + target + " 0", 0},
        {"power of 30", "3" + target + pairs + " 0", 0},
        {"power, the second one fails", "3" + target + " 02:00:00:00:00:05 105 02:00:00:00:00:05 103 0", 16},
        {"power, unsupported state", "3" + target + " 02:00:00:00:00:05 105 3", 16},
        {"power of 31", "3" + target + pairs + " 02:00:00:00:00:05 105 0", -1},
        {"runs of blanks", "  3   " + kLocalText + "   02:00:00:00:00:05  105   0 ", 0},
        {"firmware", "9" + target + " 3 1 http://x", 16},
        {"unknown option", "7" + target, -1},
        {"a command inside a command", "100" + target + " 2" + target, -1},
        {"no option", "", -1},
        {"blanks alone", "    ", -1},
        {"words missing: reboot", "2", -1},
        {"words missing: power", "3" + target, -1},
        {"words missing: firmware", "9" + target + " 1 1", -1},
        {"malformed address", "2 00:11:22:33:44", -1},
        {"an address of too many digits", "2 100:11:22:33:44:55", -1},
        {"an address with more behind it", "2" + target + "x", -1},
        {"an address with signs", "2 0x:11:22:33:44:55", -1},
        {"malformed interface", "3" + target + " 02:00:00:00:00 105 0", -1},
        {"a word of 1023", "9" + target + " 1 1 " + std::string(1023, 'u'), 16},
        {"a word of 1024", "9" + target + " 1 1 " + std::string(1024, 'u'), -1},
        {"a text of 2047", "2" + target + std::string(2047 - 19, ' '), 0},
        {"a text of 2048", "2" + target + std::string(2048 - 19, ' '), -1},
        {"a text of 2049", "2" + target + std::string(2049 - 19, ' '), -1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        command(c.text);
        if (c.result >= 0) {
            expectAnswer(32, {static_cast<uint8_t>(c.result)});
        }
        EXPECT_TRUE(host_.sent.empty());
    }
    // A count that promises more text than there is.
    request(25, join({{0, 1}, number16(60), Bytes(20, '2')}));
    EXPECT_TRUE(host_.sent.empty());
    EXPECT_EQ(logCount(4, "Unsupport command option\n"), 4u);
    EXPECT_EQ(logCount(7, "FWOption 3, FWTopoOption 1, FWURLcount 8, FWURL http://x\n"), 1u);
    EXPECT_EQ(logCount(7, "FWCtrlReq: FWURL http://x\n"), 1u);
    EXPECT_EQ(logCount(7, "Set power state = 3\n"), 1u);
    EXPECT_GE(logCount(7, "CommandURLcount  19\n"), 1u) << "two blanks";

    for (const size_t nth : {size_t{3}, size_t{4}, size_t{5}}) {  // two words, the embedded record
        FailingAllocation failing(nth);
        command("2" + target);
        EXPECT_TRUE(failing.happened());
        EXPECT_TRUE(host_.sent.empty());
    }
    EXPECT_EQ(logCount(3, "allocate memory fail when copy cmd\n"), 1u);
}
