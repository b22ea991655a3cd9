// Calls that the scenarios cannot make: null pointers, the callback table, records in memory.
#include <gtest/gtest.h>

#include <cstring>

#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/local_stations.h"
#include "frame/host_table.h"
#include "frame/vendor_data.h"
#include "kv1905/vendor_messages.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "support/fake_host.h"
#include "support/fake_system.h"
#include "transport/receive.h"

using namespace kvtest;

namespace {

struct EntryPoints : testing::Test {
    FakeHost host;
};

TEST_F(EntryPoints, RegistrationCopiesSlotsByFlag) {
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
    notes.clear();
    EXPECT_EQ(g_kv1905_bcm_cbs.apCfgSet(nullptr), 0);
    EXPECT_EQ(notes, (std::vector<std::string>{"logs 2.7 Enter.\n"}));
}

TEST_F(EntryPoints, RejectsNullAndUnusualArguments) {
    KvRecvVendTlv tlv = {};
    KvBssInfo bss = {};
    KvMdidInterfaceList mdids = {};
    uint32_t length = 0;
    uint8_t mac[KV_MAC_LEN] = {};
    KvVendMsg unknown = kv::makeVendMsg(71, 0, nullptr);
    KvFWCtrlReq withoutTopology = {};
    withoutTopology.FWURLcount = 0xFFFF;
    const KvVendMsg firmware = kv::makeVendMsg(VEND_MSG_TYPE_FW_CTRL_REQ, 3, &withoutTopology);
    KvIntelVendMsg intel = {};
    intel.msgType = INTEL_MSG_TYPE_RSSI_MEASUREMENT_NOTIFY;
    const struct {
        std::function<long()> call;
        long result;
        int level;
        const char *line;
    } cases[] = {
        {[] { return kvMAP1905_VendSpecMsg_handle(nullptr, 1), 0; }, 0, 4, "Invalid vendor specific message\n"},
        {[&] { return kvMAP1905_VendSpecMsg_handle_Intel(&tlv, 1), 0; }, 0, 4, "Invalid vendor specific message\n"},
        {[&] { return kvMAP1905_VendSpecTlv_handle(&tlv, 10, 1), 0; }, 0, 4, "Invalid vendor specific message\n"},
        {[&] { return kv::handleKvVendSpecMsg(&tlv, 1, &unknown, kv::kOriginNetwork); }, 16, 4, "(71) is unsoppourted"},
        {[&] { return kvMAP1905_VenderSpecMsg_send(mac, nullptr, &firmware); }, 0, 7, "SUCCESS send vendor message to"},
        {[&] { return kvMAP1905_IntelVenderSpecMsg_send(mac, nullptr, &intel); }, 16, 3, "generate vendor msg fail\n"},
        {[] { return kvMAP1905_Func_reg(nullptr, 0), 0; }, 0, 3, "registration without a callback table\n"},
        {[] { return kvMAP1905_DevIntfDm_init(nullptr, 1), 0; }, 0, 3, "memory failed for interface vendor data\n"},
        {[&] { return kv::getalMacOfDevTableByIfMac(mac, nullptr); }, 16, 4, "invalid intfMac\n"},
        {[] { return kv::kvWriteWIFINbrInfo(nullptr, "", 0, {}, 0), 0; }, 0, 4, "input when write WiFi Nbr info\n"},
        {[&] { return kvMAP1905_TlvBss_Config_insert(mac, &length, nullptr); }, -1, 3, "when insert BSS Config\n"},
        {[&] { return kvMAP1905_TlvMDID_insert(nullptr, &length, &mdids); }, -1, 3, "value when insert MDID\n"},
        {[] { return kvMAP1905_mdid_update(nullptr); }, -1, 3, "invalid input value when update MDID\n"},
        {[&] { return kvMAP1905_ApCfg_parse(nullptr, &bss); }, -1, 3, "attr without data or BSS information\n"},
        {[&] { return kvMAP1905_ApCfg_parse_check_len(mac, 6, nullptr); }, -1, 3, "attr without data or BSS"},
        {[] { return kvMAP1905_parameter_init(nullptr, nullptr); }, 0, 3, "attr without data or BSS information\n"},
        {[&] { return kvMAP1905_ApCfg_fill(nullptr, 3, &bss); }, 0, 3, "attr without data or BSS information\n"},
        {[] { return dumpBssInfo(nullptr), 0; }, 0, 7, "dump_bssinfo is NULL!\n\n"},
    };
    for (const auto &[call, result, level, line] : cases) {
        notes.clear();
        EXPECT_EQ(call(), result) << line;
        EXPECT_EQ(logCount(level, line), 1u) << line;
    }
    SecurityConfig ofHost = {};
    ofHost.secData = mac;
    EXPECT_EQ(kv::initSecurityConfig(&ofHost), KV_RET_OK) << "a block of the host is not freed";
}

TEST_F(EntryPoints, DumpsAndRejectsInconsistentReport) {
    kv::KvWifiClientMsg record = {};
    std::memcpy(record.alMac, kLocal.data(), kLocal.size());
    const auto send = [&](uint16_t dataLen, uint16_t payloadLen, const std::string &line) {
        notes.clear();
        record.dataLen = dataLen;
        const KvVendMsg msg = kv::makeVendMsg(VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, payloadLen, &record);
        EXPECT_EQ(kvMAP1905_VenderSpecRelayMcastMsg_send(&msg, nullptr), KV_RET_ERR);
        EXPECT_EQ(logCount(kPrint, line), 1u) << line;
        EXPECT_EQ(logCount(kPrint, "11 "), 1u) << "the record as stored in memory";
    };
    send(5, 17, "generate dataLen(5) is unequal to (17-8)!!!\n");
    send(1301, 1309, "generate dataLen(1301) is unequal to (1309-8)!!!\n");
    record.alMac[5] = 0;
    send(5, 13, "generate AlMac 00:11:22:33:44:00 is unequal to 00:11:22:33:44:55!!!\n");
    EXPECT_TRUE(host.sent.empty());
}

}  // namespace
