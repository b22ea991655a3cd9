// Sends messages as Ethernet frames through ports or the bridge that they belong to.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "daemon/counters.h"
#include "ieee1905/cmdu.h"

namespace kv1905d {

enum class Reach { Unicast, Neighbours, Network };

struct Port {
    std::string name;
    MacAddress mac;
    uint16_t mediaType = 0x0001;  // Gigabit Ethernet
    int fd = -1;                  // the caller's; one write is one Ethernet frame
};

// Counts frames and failures. Its constructor's arguments must outlive it. False: no interface accepted the message.
class FrameSender {
  public:
    // bridgeFd: sends unicast into the bridge over the ports; -1 when there is none.
    FrameSender(const MacAddress &alMac, const std::vector<Port> &ports, int bridgeFd, Counters &counters)
        : alMac_(alMac), ports_(ports), bridgeFd_(bridgeFd), counters_(counters) {}

    bool multicast(const Message &message, std::optional<size_t> exceptPort = std::nullopt);
    bool multicastOn(size_t port, const Message &message);
    // Sends a bridge discovery through the port.
    bool bridgeDiscoveryOn(size_t port);
    // port: the one that leads to that device; without it, and without a bridge, all ports send.
    bool unicast(const Message &message, const MacAddress &alMac, std::optional<size_t> port);

  private:
    bool send(int fd, const MacAddress &destination, const std::vector<Bytes> &payloads);
    bool sendFrame(int fd, const MacAddress &destination, uint16_t etherType, ByteView payload);

    const MacAddress &alMac_;
    const std::vector<Port> &ports_;
    int bridgeFd_;
    Counters &counters_;
};

}  // namespace kv1905d
