#include "daemon/agent_polling.h"

#include "daemon/jitter.h"

namespace kv1905d {

void AgentPolling::responded(const MacAddress &alMac, TimePoint now) {
    if (!actions_.isController()) return;
    Poll &poll = polls_[alMac];
    if (poll.announced) query(alMac, poll, now);
}

void AgentPolling::run(const Topology &topology, TimePoint now) {
    std::erase_if(polls_, [&](const auto &entry) { return topology.find(entry.first) == nullptr; });
    if (!actions_.isController()) return;
    for (const auto &[alMac, device] : topology.devices()) {
        if (device->local) continue;
        Poll &poll = polls_[alMac];
        if (poll.due > now) continue;
        if (device->sentVendorMessage || ++poll.roundsSkipped >= kSilentAgentRounds) {
            query(alMac, poll, now);
        } else {
            poll.due = now + jittered(random_, interval_);
        }
    }
}

void AgentPolling::query(const MacAddress &alMac, Poll &poll, TimePoint now) {
    poll = {now + jittered(random_, interval_), 0, false};
    actions_.query(alMac);
}

}  // namespace kv1905d
