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

    // A link belongs to a neighbour that announced itself less than `lifetime` ago. Another bridge is between when no
    // bridge discovery was received for `bridgedAfter`.
    Neighbourhood(Duration lifetime, Duration bridgedAfter) : lifetime_(lifetime), bridgedAfter_(bridgedAfter) {}

    struct Link {
        size_t port;
        MacAddress alMac;
        MacAddress mac;  // of the neighbour's interface
        TimePoint lastDiscovery;
        TimePoint lastDirect;  // the last bridge discovery; the first topology discovery before there was one
        bool viaBridge = false;
    };

    enum class Announced { New, Known, TooMany };
    // Enters or refreshes the neighbour's interface `mac` on that port.
    Announced announce(size_t port, const MacAddress &alMac, const MacAddress &mac, TimePoint now);

    // The functions below return whether report() changed. announceDirect() enters a bridge discovery. It ignores an
    // unknown neighbour, whose next one follows.
    bool announceDirect(size_t port, const MacAddress &alMac, const MacAddress &mac, TimePoint now);
    // Removes neighbours that were silent, and marks those without bridge discoveries.
    bool age(TimePoint now);
    bool forgetPort(size_t port);

    const std::vector<Link> &links() const { return links_; }

    // Returns the ports on which that device is a neighbour, one for each of its interfaces.
    std::vector<size_t> portsOf(const MacAddress &alMac) const;
    // Returns the neighbours in the form of a topology response.
    std::vector<Ieee1905Neighbours> report(const std::vector<Port> &ports) const;
    // Returns when age() must run next; TimePoint::max() without neighbours.
    TimePoint nextExpiry() const;

  private:
    Link *find(size_t port, const MacAddress &alMac, const MacAddress &mac);

    Duration lifetime_, bridgedAfter_;
    std::vector<Link> links_;
};

}  // namespace kv1905d
