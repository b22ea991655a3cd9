// Composes the process: sockets and time for a Node, the plug-in, the JSON file and operator commands.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "daemon/command_server.h"
#include "daemon/data_model_writer.h"
#include "daemon/ethernet_port.h"
#include "daemon/event_loop.h"
#include "daemon/node.h"
#include "daemon/onboarding.h"
#include "daemon/options.h"
#include "daemon/plugin_side.h"
#include "daemon/supervisor.h"
#include "support/log.h"

namespace kv1905d {

class Daemon {
  public:
    // Opens every socket and starts the plug-in. Throws std::runtime_error that names what failed.
    explicit Daemon(const Options &options, Heartbeat heartbeat = {});
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // Runs until SIGTERM or SIGINT.
    void run();

  private:
    struct PortSocket {
        FileDescriptor fd;
        bool hasLink = true;  // as of the last check
        EventLoop::Watch *watch = nullptr;
        LinkStatistics statistics{};  // read again when they are due
        TimePoint statisticsDue{};
    };

    NodeConfig openPorts();
    NodeEvents nodeEvents();
    OnboardingActions onboardingActions();
    CommandActions commandActions();

    void readFrames(size_t port);
    void receiveVendorTlv(const VendorTlv &tlv);
    void noteForeign(const VendorTlv &tlv, const std::string &name);
    void observe(const Event &event);
    void schedule();
    void everySecond();
    void checkLink(size_t port);
    void checkLinks();
    void followInterface(size_t port);
    void followBridge();
    const LinkStatistics &linkStatistics(size_t port);
    void announceConfiguration();
    void writeDataModel();
    const char *role() const;

    Options options_;
    TimePoint started_ = EventLoop::now();
    Heartbeat heartbeat_;
    CommandServer commands_;
    std::vector<PortSocket> ports_;
    FileDescriptor bridge_;
    std::unique_ptr<Node> node_;
    std::unique_ptr<PluginSide> plugin_;  // null without a plug-in
    std::unique_ptr<Onboarding> onboarding_;
    DataModelWriter writer_;
    support::LogGate malformed_, late_, links_;
    uint64_t framesLate_ = 0;
    uint64_t foreignTlvs_ = 0;
    std::set<std::pair<MacAddress, std::string>> foreignLogged_;  // their sources and names
    uint64_t shownChanges_ = 0;                                   // of the topology, in the JSON file
    EventLoop loop_;                                              // closed before what it watches
    EventLoop::Timer &nodeTimer_;
};

}  // namespace kv1905d
