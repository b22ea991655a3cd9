// Connects the daemon with the plug-in: passes messages and time to it and serves its calls. Without a plug-in, the
// daemon is an ordinary member of the network.
#pragma once

#include <functional>
#include <optional>

#include "daemon/agent_polling.h"
#include "daemon/bss_extension.h"
#include "daemon/command_server.h"
#include "daemon/data_model_file.h"
#include "daemon/node.h"
#include "daemon/onboarding.h"
#include "daemon/options.h"
#include "daemon/plugin.h"
#include "daemon/settings_guard.h"

namespace kv1905d {

class PluginSide final : private PluginHost {
  public:
    // Loads the plug-in; throws std::runtime_error. `node` must outlive it. requestDataModel: as of PluginHost.
    // observe: is called with every vendor message that the plug-in sends.
    PluginSide(const Options &options, Node &node, std::function<int()> requestDataModel,
               std::function<void(const Event &)> observe);

    // Starts the plug-in, which may call everything that the constructor received.
    void start();
    // Lets the plug-in fill its part of every local interface's record.
    void initInterfaces();
    void everySecond(TimePoint now);
    // Passes the TLV, read as `message`, to the plug-in, unless the settings guard refuses it.
    void receive(const VendorTlv &tlv, const VendorMessage &message, const std::optional<MacAddress> &controller,
                 TimePoint now);
    // Sends this agent's configuration by relayed multicast.
    void announceConfiguration();
    CommandEffect runCommand(uint32_t code, void *buffer);

    bool isController() const { return *plugin_.controller != 0; }
    MainNetworks mainNetworks() const;
    uint32_t stationCount() const { return *plugin_.stationCount; }
    uint64_t refused() const { return guard_.refused(); }
    void setDataModelTime(time_t when) { *plugin_.dataModelTimeStamp = static_cast<uint32_t>(when); }

    AgentPolling &polling() { return polling_; }
    const BssExtension &bss() const { return bss_; }
    OnboardingActions onboardingActions();

  private:
    AgentPollingActions pollingActions();

    // Run the host's own commands. Return the entry point's result.
    int notifyRssi(const uint8_t *buffer);
    int queryStations(const uint8_t *buffer) { return plugin_.wifiStateQuerySend(buffer, 0); }
    int queryPower(const uint8_t *buffer) { return plugin_.powerQuerySend(buffer, 0); }
    struct OwnCommandRow {
        uint32_t code;
        int (PluginSide::*run)(const uint8_t *buffer);
    };
    static const OwnCommandRow kOwnCommands[];

    uintptr_t dataQuery(uint32_t code, void *argument, uintptr_t argument2) override;
    int writeDataModel() override { return requestDataModel_(); }
    int sendVendor(Reach reach, const KvVendMsgDest &dest, uint16_t *msgId) override;

    const Options &options_;
    Node &node_;
    std::function<int()> requestDataModel_;
    std::function<void(const Event &)> observe_;
    const PluginSymbols plugin_;
    SettingsGuard guard_;
    BssExtension bss_;
    AgentPolling polling_;
    uint64_t seconds_ = 0;  // calls of everySecond
};

}  // namespace kv1905d
