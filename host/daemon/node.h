// This device as a member of the IEEE 1905.1 network: discovery, topology, relaying, vendor messages. Knows neither
// sockets nor the plug-in nor a clock: frames and the time are handed in, frames go out through descriptors.
#pragma once

#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "daemon/counters.h"
#include "daemon/topology.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/relay.h"

namespace kv1905d {

struct Port {
    std::string name;
    MacAddress mac;
    uint16_t mediaType = 0x0001;  // Gigabit Ethernet
    int fd = -1;                  // the caller's; one write is one Ethernet frame
};

struct NodeConfig {
    MacAddress alMac;
    std::vector<Port> ports;
    std::vector<LocalInterface> radios;  // told to others, not used for frames
    int bridgeFd = -1;                   // sends into the bridge that the ports belong to; -1 when there is none
    Time discoveryInterval = std::chrono::seconds(60);
    uint32_t seed = 1;
};

// What the node tells its owner. Each may be empty.
struct NodeEvents {
    // A vendor-specific TLV: the originator's AL MAC, the value (its OUI first), the message identifier.
    std::function<void(const MacAddress &, ByteView, uint16_t)> vendorTlv;
    // A device answered a topology query.
    std::function<void(Device &)> topologyResponse;
    // An AP-autoconfiguration message, with the originator's AL MAC as far as we know; false when it is malformed.
    std::function<bool(const MacAddress &, const Message &, Time)> autoconfiguration;
    // TLVs to append to every topology response.
    std::function<std::vector<Tlv>()> extraTopologyTlvs;
};

enum class Reach { Unicast, Neighbours, Network };

class Node {
  public:
    // Bounds of what is kept about others; more is refused.
    static constexpr size_t kMaxLinks = kMaxNeighbours;  // neighbours seen on all ports together
    static constexpr size_t kMaxPendingQueries = 256;
    static constexpr size_t kMaxToSelf = 16;  // messages to this device itself that run() has not delivered yet

    Node(NodeConfig config, NodeEvents events, Time now);

    // Take a frame that came in on that port.
    void receive(size_t port, ByteView frame, Time now);

    // Do what is due. Returns when to call again; a frame may make it earlier, so ask again after receive().
    Time run(Time now);

    // A port's link came or went.
    void linkChanged(size_t port, bool up, Time now);

    /*
     * Send a vendor-specific TLV value in a message of its own. `destination` counts for Reach::Unicast alone: an AL
     * MAC or an interface MAC of a known device; a message to this device itself arrives with the next run().
     * msgId: null, or 0 to have an identifier chosen and written back, or the identifier to use.
     * False when no interface took the message.
     */
    bool sendVendor(Reach reach, const MacAddress &destination, ByteView value, uint16_t *msgId, Time now);

    /*
     * Send a message made elsewhere; `destination` as above. An identifier of 0 is replaced by a fresh one. The relay
     * bit is set as `reach` says; with Reach::Network the message must hold our AL MAC TLV. False when no interface
     * took it.
     */
    bool sendMessage(Reach reach, const MacAddress &destination, Message &message, Time now);

    Topology &topology() { return topology_; }
    const Topology &topology() const { return topology_; }
    const Counters &counters() const { return counters_; }
    const NodeConfig &config() const { return config_; }
    // Where the message came in that an event is about; of no meaning outside an event.
    const std::string &arrivedOn() const { return config_.ports[arrivedOn_].name; }
    // A point in time between 5/6 of the interval and the whole of it from now: many devices must not act in step.
    Time jittered(Time interval);

  private:
    // A neighbour's interface that announced itself on one of our ports.
    struct Link {
        size_t port;
        MacAddress alMac;
        MacAddress mac;
        Time lastDiscovery;
    };
    struct PendingQuery {
        unsigned sent = 0;
        Time due{};
    };
    // One received message on its way through the handlers.
    struct Received {
        const Message &message;
        size_t port;
        MacAddress source;      // Ethernet source
        MacAddress originator;  // AL MAC of the device that built the message, as far as we know
        bool multicast;
        Time now;
    };
    // Of what is refused, for the log.
    struct Sender {
        size_t port;
        MacAddress source;
        MacAddress originator;
        std::optional<uint16_t> type;  // of the message; nothing when that is not known
    };
    struct HandlerRow {
        uint16_t type;
        bool (Node::*handle)(const Received &);
    };
    static const HandlerRow kHandlers[];

    bool handleDiscovery(const Received &received);
    bool handleNotification(const Received &received);
    bool handleQuery(const Received &received);
    bool handleResponse(const Received &received);
    bool handleVendor(const Received &received);
    bool handleAutoconfiguration(const Received &received);
    void handle(const Message &message, size_t port, const MacAddress &source, bool multicast, Time now);
    void process(const Received &received);
    void forward(const Received &received);
    void reject(const Received &received, const char *reason);
    void complain(const Sender &sender, Time now, const char *reason);
    void complainOfLost(Time now);

    void ask(const MacAddress &alMac, Time now);
    void sendDueQueries(Time now);
    void keepAlive(Time now);
    void age(Time now);
    void linksChanged(Time now);
    void notifySoon(Time now);
    bool isNeighbour(const MacAddress &alMac) const;
    void hurryDiscovery(size_t port, Time now);

    void sendDiscovery(size_t port, Time now);
    void sendNotification(Time now);
    std::vector<LocalInterface> localInterfaces() const;
    TopologyReport localReport() const;

    bool sendMulticast(const Message &message, std::optional<size_t> except);
    bool sendUnicast(const Message &message, const MacAddress &destination);
    bool sendToSelf(const Message &message);
    void receiveFromSelf();
    bool sendFrames(int fd, const MacAddress &destination, const std::vector<Bytes> &payloads);
    uint16_t nextId();
    Time lifetime() const { return config_.discoveryInterval * 7 / 6; }
    Time soon(Time now);

    NodeConfig config_;
    NodeEvents events_;
    std::mt19937 random_;
    uint16_t lastId_;
    Counters counters_;
    Topology topology_;
    Reassembly reassembly_;
    DuplicateFilter duplicates_;
    std::vector<Link> links_;
    std::map<MacAddress, PendingQuery> queries_;
    std::vector<Message> toSelf_;
    std::vector<Time> discoveryDue_;  // per port
    Time notificationDue_{};          // Time::max() when there is nothing to notify
    Time earliestNotification_{};
    LogGate complaints_;
    size_t arrivedOn_ = 0;
};

}  // namespace kv1905d
