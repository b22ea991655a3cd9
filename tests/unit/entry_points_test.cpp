// What only a program can ask of the entry points: null pointers, the callback table, records in memory.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/local_stations.h"
#include "frame/host_table.h"
#include "frame/mac_text.h"
#include "frame/vendor_data.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_host.h"
#include "support/fake_system.h"
#include "transport/receive.h"

using namespace kvtest;

namespace {

class EntryPoints : public testing::Test {
  protected:
    FakeHost host_;
};

}  // namespace

TEST_F(EntryPoints, EachRegistrationCopiesItsOwnSlots) {
    const Kv1905BcmCbs before = g_kv1905_bcm_cbs;
    kvMAP1905_ApCfg_reg(nullptr);
    Kv1905BcmCbs tool = {};
    tool.cmdSend = [](uint32_t, void *, uint32_t) { return 0; };
    setClock(1234);
    kvMAP1905_Func_reg(&tool, 1);
    EXPECT_EQ(g_timeStamp, 1234u);
    EXPECT_EQ(std::memcmp(&g_kv1905_bcm_cbs, &before, 5 * sizeof(void *)), 0);
    const Kv1905BcmCbs daemon = {};
    kvMAP1905_Func_reg(&daemon, 7);
    EXPECT_EQ(g_kv1905_bcm_cbs.dmDataGet, nullptr);
    EXPECT_EQ(g_kv1905_bcm_cbs.vendRelayMcastMsgSend, nullptr);
    EXPECT_EQ(g_kv1905_bcm_cbs.cmdSend, tool.cmdSend);
    ASSERT_EQ(g_kv1905_bcm_cbs.apCfgSet, kvMAP1905_ApCfg_set) << "slot 6 survives every registration";
    clearLog();
    EXPECT_EQ(g_kv1905_bcm_cbs.apCfgSet(nullptr), 0);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{2, 7, "Enter.\n"}}));
}

TEST_F(EntryPoints, NothingIsRefused) {
    KvRecvVendTlv tlv = {};
    kvMAP1905_VendSpecMsg_handle(nullptr, 1);
    kvMAP1905_VendSpecMsg_handle_Intel(nullptr, 1);
    kvMAP1905_VendSpecTlv_handle(nullptr, 10, 1);
    kvMAP1905_VendSpecTlv_handle(&tlv, 10, 1);
    EXPECT_EQ(logCount(4, "Invalid vendor specific message\n"), 4u);
    kvMAP1905_DevIntfDm_init(nullptr, 0x0001);
    EXPECT_EQ(logCount(3, "Allocate memory failed for interface vendor data\n"), 1u);
    EXPECT_EQ(kvMAP1905_VenderSpecMsg_send(kAgent.data(), nullptr, nullptr), KV_RET_ERR);
    EXPECT_EQ(kvMAP1905_RssiMeasurementNotify_send(kAgent.data(), nullptr), KV_RET_ERR);
    uint32_t length = 4711;
    const KvVendMsg longest = kv::makeVendMsg(VEND_MSG_TYPE_RESERVED_10, 0xFFFF, nullptr);
    EXPECT_EQ(kv::genKvVendMsg(nullptr, &length, &longest), KV_RET_ERR);
    EXPECT_EQ(length, 4711u);
    Bytes buffer(KV_VEND_MSG_BUFFER_LEN);
    EXPECT_EQ(kv::genKvVendMsg(buffer.data(), &length, &longest), KV_RET_ERR);
    EXPECT_EQ(length, 65550u) << "the sum does not wrap";
    uint8_t mac[KV_MAC_LEN];
    EXPECT_EQ(kv::string2MacAddr(nullptr, mac), nullptr);
    EXPECT_EQ(kv::string2MacAddr("0:0:0:0:0:0", nullptr), nullptr);
    Mac owner;
    EXPECT_EQ(kv::getalMacOfDevTableByIfMac(nullptr, owner.data()), KV_RET_ERR);
    EXPECT_EQ(kv::getalMacOfDevTableByIfMac(owner.data(), nullptr), KV_RET_ERR);
    EXPECT_EQ(logCount(4, "invalid intfMac\n"), 2u);
}

TEST_F(EntryPoints, WhatTheDispatcherDoesNotKnowIsNamed) {
    const KvRecvVendTlv source = {};
    for (const uint16_t type : {uint16_t{10}, uint16_t{71}}) {
        clearLog();
        KvVendMsg msg = kv::makeVendMsg(type, 0, nullptr);
        EXPECT_EQ(kv::handleKvVendSpecMsg(&source, 1, &msg, kv::kOriginNetwork), KV_RET_ERR);
        const std::string line = "Vendor specific message type (" + std::to_string(type) + ")";
        EXPECT_EQ(logLines(), (std::vector<LogLine>{{1, 7, line + "\n"}, {1, 4, line + " is unsoppourted\n"}}));
    }
}

TEST_F(EntryPoints, SecurityConfigurationSurvivesOutOfMemory) {
    SecurityConfig sec = {1, 0, nullptr};
    {
        FailingAllocation failing(1);
        EXPECT_EQ(kv::initSecurityConfig(&sec), KV_RET_ERR);
        EXPECT_TRUE(failing.happened());
    }
    EXPECT_EQ(sec.secType, 1u) << "as it was";
    EXPECT_EQ(logCount(3, "allocate memory fail for security config\n"), 1u);
    EXPECT_EQ(kv::initSecurityConfig(&sec), KV_RET_OK);
    EXPECT_EQ(sec.secType, 0u);
}

TEST_F(EntryPoints, AFileThatCannotBeOpenedIsNotLoadedAgainUntilItChanges) {
    writeFile("/tmp/.kv1905_conf", "ModelName=m\n");
    KvDevVendorData dev = {};
    FailingCall failing(Call::OpenFile, 1);
    kvMAP1905_DeviceDm_update(&dev);
    EXPECT_TRUE(failing.happened());
    EXPECT_STREQ(dev.modelName, "");
    kvMAP1905_DeviceDm_update(&dev);
    EXPECT_STREQ(dev.modelName, "") << "its time is known";
    EXPECT_EQ(logCount(7, "initialize KOVAN device configuration\n"), 1u);
}

TEST_F(EntryPoints, PowerAnswersLogTheIdentifierOfTheRequest) {
    host_.interfaces = {{kLocal, 0x0103}};
    host_.receive(kAgent, message(kAgent, VEND_MSG_TYPE_INTF_PWR_STATE_QUERY, Bytes(kLocal.begin(), kLocal.end())), 0);
    host_.receive(kAgent, message(kAgent, VEND_MSG_TYPE_INTF_PWR_CTRL_REQ, Bytes(8)), 0);
    EXPECT_EQ(host_.sent.size(), 2u);
    EXPECT_EQ(logCount(7, "transmit vendor msgId 0000\n"), 2u);
}

TEST_F(EntryPoints, ASecurityBlockOfTheHostIsNotFreed) {
    uint8_t block = 0;
    SecurityConfig sec = {};
    sec.secData = &block;
    EXPECT_EQ(kv::initSecurityConfig(&sec), KV_RET_OK);
}

TEST_F(EntryPoints, AForeignValueWithoutLengthIsReadNoFurtherThanItsOui) {
    const auto value = std::make_unique<uint8_t[]>(KV_OUI_LEN);  // zero: a foreign OUI, and a read past it is caught
    KvRecvVendTlv tlv = {};
    tlv.value = value.get();
    kvMAP1905_VendSpecMsg_handle(&tlv, 1);
    kvMAP1905_VendSpecMsg_handle_Intel(&tlv, 1);
    EXPECT_EQ(logCount(4, "parse unsupported vendor OUI 00:00:00\n"), 2u);
}

TEST_F(EntryPoints, AReportWithoutARegisteredHostIsReadToItsEnd) {
    const Bytes report = message(kAgent, VEND_MSG_TYPE_WIFI_STATE_RESP, Bytes(1));
    g_kv1905_bcm_cbs = {};
    host_.receive(kAgent, report, 1);
    EXPECT_EQ(logCount(4, "invalid input when update WiFiNbr\n"), 1u);
}

TEST_F(EntryPoints, NullArgumentsOfTheExtensionsAreLogged) {
    KvBssInfo bss = {};
    kvMAP1905_Func_reg(nullptr, 0);
    EXPECT_EQ(logCount(3, "registration without a callback table\n"), 1u);
    EXPECT_EQ(kvMAP1905_mdid_update(nullptr), -1);
    EXPECT_EQ(logCount(3, "invalid input value when update MDID\n"), 1u);
    EXPECT_EQ(kvMAP1905_ApCfg_parse(nullptr, &bss), -1);
    EXPECT_EQ(kvMAP1905_ApCfg_parse_check_len(nullptr, 20, &bss), -1);
    EXPECT_EQ(kvMAP1905_parameter_init(nullptr, &bss), 0);
    EXPECT_EQ(kvMAP1905_ApCfg_fill(nullptr, 0, &bss), 0);
    EXPECT_EQ(logCount(3, "multiap extension attr without data or BSS information\n"), 4u);
}

TEST_F(EntryPoints, AUrlWithoutTopologyOptionIsNotCarried) {
    KvFWCtrlReq request = {};
    request.FWOption = 2;
    request.FWURLcount = 0xFFFF;
    const KvVendMsg msg = kv::makeVendMsg(VEND_MSG_TYPE_FW_CTRL_REQ, 3, &request);
    uint16_t id = 1;
    EXPECT_EQ(kvMAP1905_VenderSpecMsg_send(kAgent.data(), &id, &msg), KV_RET_OK);
    ASSERT_EQ(host_.sent.size(), 1u);
    EXPECT_EQ(host_.sent[0].value, message(kLocal, VEND_MSG_TYPE_FW_CTRL_REQ, fromHex("02 0000")));
}

TEST_F(EntryPoints, AReportThatContradictsItsRecordIsDumpedAndNotSent) {
    kv::KvWifiClientMsg record = {};
    std::memcpy(record.alMac, kLocal.data(), kLocal.size());
    std::strcpy(record.text, "002{}");
    const struct {
        uint16_t dataLen;
        uint16_t payloadLen;
        uint8_t lastByte;
        const char *line;
    } cases[] = {
        {5, 17, 0x55, "generate dataLen(5) is unequal to (17-8)!!!\n"},
        {1301, 1309, 0x55, "generate dataLen(1301) is unequal to (1309-8)!!!\n"},
        {5, 13, 0, "generate AlMac 00:11:22:33:44:00 is unequal to 00:11:22:33:44:55!!!\n"},
    };
    for (const auto &c : cases) {
        clearLog();
        record.dataLen = c.dataLen;
        record.alMac[5] = c.lastByte;
        const KvVendMsg msg = kv::makeVendMsg(VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, c.payloadLen, &record);
        EXPECT_EQ(kvMAP1905_VenderSpecRelayMcastMsg_send(&msg, nullptr), KV_RET_ERR);
        EXPECT_EQ(logCount(kPrint, c.line), 1u) << c.line;
        std::string dump;
        for (const LogLine &line : logLines()) {
            dump += line.text;
        }
        EXPECT_NE(dump.find("\n00 11 22 33 44 "), std::string::npos) << "the record as it lies in memory";
    }
    EXPECT_TRUE(host_.sent.empty());
}
