#include "plugin.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "host_support.h"

namespace kv1905d {
namespace {

TEST(LoadPlugin, NamesTheLibraryAndWhatItLacks) {
    const struct {
        const char *path, *named;
    } rows[] = {
        {"/no/such/plugin.so", "/no/such/plugin.so"},
        {"libc.so.6", "libc.so.6 lacks kvMAP1905_Func_reg"},
    };
    for (const auto &row : rows) {
        try {
            loadPlugin(row.path);
            ADD_FAILURE() << row.path << " was accepted";
        } catch (const std::runtime_error &error) {
            EXPECT_NE(std::string(error.what()).find(row.named), std::string::npos) << error.what();
        }
    }
}

// A plug-in that notes how it is called.
std::vector<std::string> calls;
Kv1905BcmCbs slots;
uint8_t pluginAlMac[KV_MAC_LEN];

PluginSymbols fakePlugin() {
    PluginSymbols plugin{};
    plugin.funcReg = [](const Kv1905BcmCbs *table, uint8_t flag) {
        slots = *table;
        calls.push_back("register " + std::to_string(flag));
    };
    plugin.apCfgReg = [](void *) { calls.push_back("register AP configuration"); };
    plugin.deviceInit = [](KvDevVendorData *) {
        calls.push_back("initialise " + MacAddress::copyOf(pluginAlMac).text());
    };
    plugin.alMac = &pluginAlMac;
    return plugin;
}

struct FakeHost : PluginHost {
    uintptr_t dataQuery(uint32_t code, void *, uintptr_t argument2) override {
        return failing ? throw std::bad_alloc() : code + argument2;
    }
    int writeDataModel() override { return failing ? throw std::bad_alloc() : 0; }
    int sendUnicast(const KvVendMsgDest &dest, uint16_t *msgId) override { return send("unicast", dest, msgId); }
    int sendToNeighbours(const KvVendMsgDest &dest, uint16_t *msgId) override {
        return send("neighbours", dest, msgId);
    }
    int sendToNetwork(const KvVendMsgDest &dest, uint16_t *msgId) override { return send("network", dest, msgId); }

    int send(const char *reach, const KvVendMsgDest &dest, uint16_t *msgId) {
        if (failing) throw std::bad_alloc();
        calls.push_back(std::string(reach) + " " + std::to_string(dest.length));
        if (msgId != nullptr) *msgId = 7;
        return 0;
    }
    bool failing = false;
};

TEST(StartPlugin, RegistersInOrderAndFillsTheSlots) {
    FakeHost host;
    calls.clear();
    startPlugin(fakePlugin(), host, mac(1), nullptr);
    const std::vector<std::string> order{"register 0", "register AP configuration", "initialise 02:00:5e:00:01:00"};
    EXPECT_EQ(calls, order);

    calls.clear();
    uint8_t value[5] = {};
    KvVendMsgDest dest{{}, value, sizeof value};
    uint16_t msgId = 0;
    EXPECT_EQ(slots.vendMsgSend(&dest, &msgId), 0);
    EXPECT_EQ(slots.vendMcastMsgSend(&dest, nullptr), 0);
    EXPECT_EQ(slots.vendRelayMcastMsgSend(&dest, nullptr), 0);
    const std::vector<std::string> sends{"unicast 5", "neighbours 5", "network 5"};
    EXPECT_EQ(calls, sends);
    EXPECT_EQ(msgId, 7);
    EXPECT_EQ(slots.dmDataGet(DM_QUERY_INTF_LIST, nullptr, 40), 43u);
    EXPECT_EQ(slots.jsonDataModelWrite(0), 0);
    EXPECT_EQ(slots.cmdSend, nullptr);
    EXPECT_EQ(slots.vendMsgSend(nullptr, &msgId), KV_RET_ERR);

    // No exception reaches the plug-in's frames; each query fails in its own way.
    host.failing = true;
    EXPECT_EQ(slots.vendMsgSend(&dest, &msgId), KV_RET_ERR);
    EXPECT_EQ(slots.jsonDataModelWrite(0), KV_RET_ERR);
    EXPECT_EQ(slots.dmDataGet(DM_QUERY_DEVICE, value, 0), static_cast<uintptr_t>(KV_RET_ERR));
    EXPECT_EQ(slots.dmDataGet(DM_QUERY_DEV_VENDOR_DATA, value, 0), 0u);
}

}  // namespace
}  // namespace kv1905d
