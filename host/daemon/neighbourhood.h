// The neighbours that announced themselves on the ports of this device.
#pragma once

#include <vector>

#include "daemon/frame_sender.h"
#include "ieee1905/clock.h"
#include "ieee1905/topology_tlvs.h"

namespace kv1905d {

class Neighbourhood {
  public:
    static constexpr size_t kMaxLinks = kMaxNeighbours;  // on all ports together; more are refused

    explicit Neighbourhood(Duration lifetime) : lifetime_(lifetime) {}

    enum class Announced { New, Known, TooMany };
    // Enters or refreshes the neighbour's interface `mac` on that port.
    Announced announce(size_t port, const MacAddress &alMac, const MacAddress &mac, TimePoint now);

    // Both return whether a neighbour went.
    bool forgetSilent(TimePoint now);
    bool forgetPort(size_t port);

    // The ports on which that device is a neighbour, one for each of its interfaces.
    std::vector<size_t> portsOf(const MacAddress &alMac) const;
    // As a topology response lists them.
    std::vector<Ieee1905Neighbours> report(const std::vector<Port> &ports) const;
    // When forgetSilent() has something to do next; TimePoint::max() without neighbours.
    TimePoint nextExpiry() const;

  private:
    struct Link {
        size_t port;
        MacAddress alMac;
        MacAddress mac;
        TimePoint lastDiscovery;
    };

    Duration lifetime_;
    std::vector<Link> links_;
};

}  // namespace kv1905d
