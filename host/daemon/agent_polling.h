// Schedules the controller's configuration queries.
#pragma once

#include <functional>
#include <map>
#include <random>

#include "daemon/topology.h"
#include "ieee1905/clock.h"

namespace kv1905d {

struct AgentPollingActions {
    std::function<bool()> isController;
    std::function<void(const MacAddress &)> query;
};

class AgentPolling {
  public:
    static constexpr unsigned kSilentAgentRounds = 10;  // rounds per query of a device that sent no vendor message yet

    AgentPolling(Duration interval, uint32_t seed, AgentPollingActions actions)
        : interval_(interval), random_(seed), actions_(std::move(actions)) {}

    // Handles a change that a known device announced: its next topology response starts a query, as for a new device.
    void notified(const MacAddress &alMac) { polls_[alMac].announced = true; }
    void responded(const MacAddress &alMac, TimePoint now);

    // Queries every device that is due; to be called about once a second.
    void run(const Topology &topology, TimePoint now);

  private:
    struct Poll {
        TimePoint due{};
        unsigned roundsSkipped = 0;
        bool announced = true;  // since its last query
    };
    void query(const MacAddress &alMac, Poll &poll, TimePoint now);

    Duration interval_;
    std::mt19937 random_;
    AgentPollingActions actions_;
    std::map<MacAddress, Poll> polls_;
};

}  // namespace kv1905d
