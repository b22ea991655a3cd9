// The process: sockets, timers and signals around a Node, and the plug-in beside it.
#pragma once

#include <uv.h>

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "command/server.h"
#include "daemon/bss_extension.h"
#include "daemon/data_model_file.h"
#include "daemon/ethernet_port.h"
#include "daemon/node.h"
#include "daemon/onboarding.h"
#include "daemon/options.h"
#include "daemon/plugin.h"
#include "daemon/settings_guard.h"
#include "daemon/trace.h"

namespace kv1905d {

class Daemon final : private PluginHost {
  public:
    // Opens every socket and starts the plug-in. Throws std::runtime_error that names what failed.
    explicit Daemon(const Options &options);
    ~Daemon() override;
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // Runs until SIGTERM or SIGINT.
    void run();

  private:
    // A port's socket on the event loop.
    struct Watch {
        Daemon *daemon;
        size_t port;
        FileDescriptor fd;
        bool running = true;   // last known link state
        bool polling = false;  // libuv stops watching a socket after an error, such as the interface going down
        uv_poll_t handle{};
    };
    struct SignalRow {
        int number;
        void (Daemon::*act)();
    };
    static const SignalRow kSignals[];
    static constexpr size_t kSignalCount = 3;

    NodeConfig openPorts();
    NodeEvents nodeEvents();
    void openLoop();
    void closeLoop();
    void initPlugin();

    void watch(Watch &watch);
    void readFrames(Watch &watch);
    void receiveVendorTlv(const MacAddress &source, ByteView value, uint16_t msgId);
    void complainOfMalformed(const MacAddress &source, ByteView value);
    void trace(Way way, std::string_view peer, uint16_t msgId, ByteView value) const;
    void schedule();
    void wake(uint64_t delay);  // schedule() after so many milliseconds
    void everySecond();
    void checkLinks();

    // Signals
    void stop();
    void announceConfiguration();

    // The controller's duties
    bool isController() const { return plugin_ && *plugin_->controller != 0; }
    void topologyResponse(Device &device);
    void pollConfigurations();
    void queryConfiguration(Device &device);

    OnboardingActions onboardingActions();
    void refreshBss();

    CommandActions commandActions();
    CommandEffect runCommand(uint32_t code, void *buffer);
    // The host's own commands; the entry point's result.
    int notifyRssi(const uint8_t *buffer);
    int queryStations(const uint8_t *buffer);
    int queryPower(const uint8_t *buffer);
    struct OwnCommandRow {
        uint32_t code;
        int (Daemon::*run)(const uint8_t *buffer);
    };
    static const OwnCommandRow kOwnCommands[];
    Counters counters() const;
    const char *role() const;
    MainNetworks mainNetworks() const;

    uintptr_t dataQuery(uint32_t code, void *argument, uintptr_t argument2) override;
    int writeDataModel() override;
    int writeDataModelNow();
    int writeDataModelFile(Time now, time_t wallClock);
    int sendUnicast(const KvVendMsgDest &dest, uint16_t *msgId) override;
    int sendToNeighbours(const KvVendMsgDest &dest, uint16_t *msgId) override;
    int sendToNetwork(const KvVendMsgDest &dest, uint16_t *msgId) override;
    int sendVendor(Reach reach, const KvVendMsgDest &dest, uint16_t *msgId);
    Device *deviceFor(const void *alMac);

    Options options_;
    CommandServer commands_;
    std::vector<std::unique_ptr<Watch>> watches_;
    FileDescriptor bridge_;
    std::optional<PluginSymbols> plugin_;
    std::unique_ptr<Node> node_;
    std::optional<BssExtension> bss_;  // with the plug-in
    std::optional<Onboarding> onboarding_;
    SettingsGuard guard_;
    LogGate writeFailures_;
    LogGate complaints_;
    Time nextWrite_{};           // of the JSON file, at the earliest
    int lastWrite_ = KV_RET_OK;  // its result
    uint64_t seconds_ = 0;       // calls of everySecond
    uv_loop_t loop_{};
    uv_timer_t nodeTimer_{};
    uv_timer_t secondTimer_{};
    uv_timer_t writeTimer_{};
    std::array<uv_signal_t, kSignalCount> signals_{};
};

}  // namespace kv1905d
