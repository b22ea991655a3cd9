#include "plugin.h"

#include "host_support.h"

namespace kv1905d {
namespace {

TEST(LoadPlugin, NamesTheLibraryAndWhatItLacks) {
    for (const auto &[path, named] :
         {std::pair{"/no/such/plugin.so", "/no/such/plugin.so"}, {"libc.so.6", "libc.so.6 lacks kvMAP1905_Func_reg"}}) {
        const std::string text = errorOf([&, path = path] { loadPlugin(path); });
        EXPECT_NE(text.find(named), std::string::npos) << text;
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
    plugin.deviceInit = [](KvDevVendorData *) { calls.push_back("start " + MacAddress::copyOf(pluginAlMac).text()); };
    plugin.alMac = &pluginAlMac;
    return plugin;
}

struct FakeHost : PluginHost {
    uintptr_t dataQuery(uint32_t code, void *, uintptr_t argument2) override {
        return note("query") + code + argument2;
    }
    int writeDataModel() override { return note("write"); }
    int sendUnicast(const KvVendMsgDest &, uint16_t *msgId) override {
        *msgId = 7;
        return note("unicast");
    }
    int sendToNeighbours(const KvVendMsgDest &, uint16_t *) override { return note("neighbours"); }
    int sendToNetwork(const KvVendMsgDest &, uint16_t *) override { return note("network"); }

    uint8_t note(const char *call) const {
        if (failing) throw std::bad_alloc();
        calls.push_back(call);
        return 0;
    }
    bool failing = false;
};

TEST(StartPlugin, RegistersInOrderAndFillsTheSlots) {
    FakeHost host;
    startPlugin(fakePlugin(), host, mac(1), nullptr);
    uint8_t value[5] = {};
    KvVendMsgDest dest{{}, value, sizeof value};
    uint16_t msgId = 0;
    EXPECT_EQ(slots.vendMsgSend(&dest, &msgId), 0);
    EXPECT_EQ(msgId, 7);
    EXPECT_EQ(slots.vendMcastMsgSend(&dest, nullptr), 0);
    EXPECT_EQ(slots.vendRelayMcastMsgSend(&dest, nullptr), 0);
    EXPECT_EQ(slots.dmDataGet(DM_QUERY_INTF_LIST, nullptr, 40), 43u);
    EXPECT_EQ(slots.jsonDataModelWrite(0), 0);
    const std::vector<std::string> order{"register 0",
                                         "register AP configuration",
                                         "start 02:00:5e:00:01:00",
                                         "unicast",
                                         "neighbours",
                                         "network",
                                         "query",
                                         "write"};
    EXPECT_EQ(calls, order);
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
