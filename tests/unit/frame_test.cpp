// Registration, data-model access, the vendor records' small operations, and the schedule.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/host_table.h"
#include "frame/vendor_data.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

int commandSent(uint32_t, void *, uint32_t) {
    return 0;
}

const char *kNullFunction = "Device 00:11:22:33:44:55, NULL registar function\n";

}  // namespace

TEST(Registration, EachFlagCopiesItsOwnSlots) {
    FakeHost host;
    const Kv1905BcmCbs before = g_kv1905_bcm_cbs;
    kvMAP1905_ApCfg_reg(nullptr);
    Kv1905BcmCbs toolTable = {};
    toolTable.cmdSend = commandSent;
    setClock(1234);
    kvMAP1905_Func_reg(&toolTable, 1);
    EXPECT_EQ(g_timeStamp, 1234u);
    EXPECT_EQ(g_kv1905_bcm_cbs.cmdSend, commandSent);
    EXPECT_EQ(std::memcmp(&g_kv1905_bcm_cbs, &before, 5 * sizeof(void *)), 0);

    Kv1905BcmCbs daemonTable = {};
    kvMAP1905_Func_reg(&daemonTable, 7);
    EXPECT_EQ(g_kv1905_bcm_cbs.dmDataGet, nullptr);
    EXPECT_EQ(g_kv1905_bcm_cbs.vendRelayMcastMsgSend, nullptr);
    EXPECT_EQ(g_kv1905_bcm_cbs.cmdSend, commandSent);
    ASSERT_EQ(g_kv1905_bcm_cbs.apCfgSet, kvMAP1905_ApCfg_set) << "slot 6 survives every registration";
    clearLog();
    EXPECT_EQ(g_kv1905_bcm_cbs.apCfgSet(nullptr), 0);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{2, 7, "Enter.\n"}}));
}

TEST(Registration, EmptySlotsAreLoggedAtUse) {
    FakeHost host;
    host.jsonResult = 5;
    EXPECT_EQ(kvMAP1905_JsonDataModel_write(), 5) << "the host's own result";
    g_kv1905_bcm_cbs = {};
    EXPECT_EQ(kvMAP1905_DmData_get(DM_QUERY_DEV_VENDOR_DATA, nullptr, 0), 0u);
    EXPECT_EQ(kvMAP1905_JsonDataModel_write(), KV_RET_ERR);
    EXPECT_EQ(logCount(3, kNullFunction), 2u);
}

TEST(VendorData, NeighborsFillFromTheTopAndTheSixthIsNotTaken) {
    FakeHost host;
    const auto &table = kv::registeredNeighbors();
    for (uint8_t i = 1; i <= 6; ++i) {
        const Mac mac = {2, 0, 0, 0, 0, i};
        kv::registerMAPNeighbor(mac.data());
        kv::registerMAPNeighbor(mac.data());  // again: nothing changes, nothing is logged
    }
    const Mac zero = {};
    kv::registeredNeighbors().clear();
    kv::registerMAPNeighbor(zero.data());
    EXPECT_EQ(logLines().size(), 5u) << "neither a seventh time nor the all-zero address";
    for (uint8_t i = 1; i <= 5; ++i) {
        const Mac mac = {2, 0, 0, 0, 0, i};
        kv::registerMAPNeighbor(mac.data());
    }
    EXPECT_EQ(logLines()[0],
              (LogLine{1, 5, "Device 00:11:22:33:44:55 Register MAP Neighbor 02:00:00:00:00:01, idx = 4\n"}));
    for (size_t index = 0; index < 5; ++index) {
        EXPECT_EQ(table.at(index)[5], 5 - index);
    }
}

TEST(VendorData, OwnerOfAnInterface) {
    FakeHost host;
    const Mac interface = {2, 1, 1, 1, 1, 1};
    host.owners[interface] = kAgent;
    Mac owner = {};
    EXPECT_EQ(kv::getalMacOfDevTableByIfMac(owner.data(), interface.data()), 0);
    EXPECT_EQ(owner, kAgent);
    EXPECT_EQ(kv::getalMacOfDevTableByIfMac(owner.data(), kStranger.data()), KV_RET_ERR);
    EXPECT_EQ(kv::getalMacOfDevTableByIfMac(nullptr, interface.data()), KV_RET_ERR);
    EXPECT_EQ(kv::getalMacOfDevTableByIfMac(owner.data(), nullptr), KV_RET_ERR);
    EXPECT_EQ(logCount(4, "[MSG] Device 00:11:22:33:44:55, invalid intfMac\n"), 2u);
}

TEST(VendorData, MissingRecordsAreLogged) {
    FakeHost host;
    uint8_t isKovan = 77;
    EXPECT_EQ(checkKovanAgent(kStranger.data(), &isKovan), KV_RET_ERR);
    EXPECT_EQ(isKovan, 77);
    EXPECT_EQ(logCount(3, "enrolle_mac [02:EE:EE:EE:EE:EE] is not exist in DB.\n\n"), 1u);
    KvDevVendorData &agent = host.addDevice(kAgent);
    EXPECT_EQ(checkKovanAgent(kAgent.data(), &isKovan), 0);
    EXPECT_EQ(isKovan, 0);
    std::strcpy(agent.protoVersion, "3.0");
    EXPECT_EQ(checkKovanAgent(kAgent.data(), &isKovan), 0);
    EXPECT_EQ(isKovan, 1);

    kvMAP1905_DeviceDm_init(nullptr);
    EXPECT_EQ(loggedAtMost(7).find("device vendor data"), std::string::npos) << "silent";
    kvMAP1905_DeviceDm_update(nullptr);
    EXPECT_EQ(logCount(3, "Allocate memory failed for device vendor data\n"), 1u);
    host.devices.clear();
    EXPECT_EQ(kvMAP1905_CtrlFromNbrCap_get(0), 0);
    EXPECT_EQ(logCount(3, "Device configuration is NULL.\n"), 1u);
}

TEST(VendorData, SecurityConfigurationSurvivesOutOfMemory) {
    FakeHost host;
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

TEST(MainLoop, RunsWhatIsDue) {
    constexpr std::time_t kStart = 1'700'000'000;
    struct Step {
        const char *what;
        std::time_t now;
        std::time_t jsonStamp;
        int jsonWrites;
        size_t channelChecks;
    };
    const Step steps[] = {
        {"first call: everything", kStart, 0, 1, 1},
        {"same second again, stamp fresh", kStart, kStart, 0, 0},
        {"stamp 2 seconds old", kStart + 2, kStart, 0, 0},
        {"stamp 3 seconds old", kStart + 3, kStart, 1, 0},
        {"and again while the host does not move it", kStart + 3, kStart, 1, 0},
        {"one second before the period", kStart + 119, kStart + 119, 0, 0},
        {"the period, to the second", kStart + 120, kStart + 120, 0, 1},
        {"clock stepped back", kStart - 5000, kStart, 0, 0},
        {"and forward", kStart + 240, kStart + 240, 0, 1},
    };
    emptyDevice();
    FakeHost host;
    std::strcpy(host.local().channel24G, "000");  // nothing to report, so that every write is the loop's own
    std::strcpy(host.local().channel5G, "000");
    std::strcpy(host.local().channelExtra, "000");
    for (const Step &step : steps) {
        SCOPED_TRACE(step.what);
        setClock(step.now);
        data_model_time_stamp = static_cast<uint32_t>(step.jsonStamp);
        host.jsonWrites = 0;
        clearLog();
        kvMAP1905_MainLoop();
        EXPECT_EQ(host.jsonWrites, step.jsonWrites);
        EXPECT_EQ(logCount(3, "Can't open the file /tmp/.kv1905_conf"), step.channelChecks);
    }
}

TEST(MainLoop, ResendsOnEveryCall) {
    FakeHost host;
    setClock(1'700'000'000);
    kvMAP1905_ConfQuery_send(kAgent.data(), 0);
    kvMAP1905_MainLoop();
    EXPECT_EQ(host.sent.size(), 1u);
    setClock(1'700'000'006);
    kvMAP1905_MainLoop();
    EXPECT_EQ(host.sent.size(), 2u);
}
