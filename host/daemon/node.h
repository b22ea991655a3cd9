// This device as a member of the IEEE 1905.1 network: discovery, topology, relaying, vendor messages. Independent of
// sockets, plug-in and clock: receives frames and the time as arguments, sends through descriptors.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <random>
#include <vector>

#include "daemon/counters.h"
#include "daemon/frame_sender.h"
#include "daemon/neighbourhood.h"
#include "daemon/topology.h"
#include "daemon/vendor_tlv.h"
#include "ieee1905/link_metrics.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/relay.h"
#include "support/log.h"

namespace kv1905d {

struct NodeConfig {
    MacAddress alMac;
    std::string name{};  // for log lines
    std::vector<Port> ports;
    std::vector<LocalInterface> radios;  // reported to others, not used for frames
    int bridgeFd = -1;                   // sends into the bridge that the ports belong to; -1 when there is none
    Duration discoveryInterval = std::chrono::seconds(60);
    uint32_t seed = 1;
};

// Callbacks to the owner. Each may be empty.
struct NodeEvents {
    std::function<void(const VendorTlv &)> vendorTlv;
    // A known device announced a change.
    std::function<void(const MacAddress &)> notification;
    // A device answered a topology query.
    std::function<void(const MacAddress &)> topologyResponse;
    // An AP-autoconfiguration message, with the originator's AL MAC if known. Returns false if it is malformed.
    std::function<bool(const MacAddress &, const Message &, TimePoint)> autoconfiguration;
    // An unhandled message from that AL MAC was received.
    std::function<void(const MacAddress &, const Message &)> unhandled;
    // Returns the counters of a port's interface.
    std::function<LinkStatistics(size_t)> linkStatistics;
    // Returns TLVs to append to every topology response.
    std::function<std::vector<Tlv>()> extraTopologyTlvs;
};

class Node {
  public:
    // Limits on state about other devices; the excess is refused.
    static constexpr size_t kMaxPendingQueries = 256;
    static constexpr size_t kMaxUnhandledTypes = 64;  // counted one by one
    static constexpr size_t kMaxToSelf = 16;          // messages to this device that run() has not delivered yet

    Node(NodeConfig config, NodeEvents events, TimePoint now);
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    // Handles a frame that was received on that port.
    void receive(size_t port, ByteView frame, TimePoint now);

    // Runs what is due. Returns the time of the next call; call it after receive() too, which may make that earlier.
    TimePoint run(TimePoint now);

    // Handles a change of a port's link.
    void linkChanged(size_t port, bool up, TimePoint now);
    // Uses the port's new MAC from now on and announces it.
    void macChanged(size_t port, const MacAddress &mac, TimePoint now);

    /*
     * Sends a vendor-specific TLV value in a separate message. `destination` counts for Reach::Unicast only: an AL
     * MAC or an interface MAC of a known device; the next run() delivers a message to this device.
     * msgId: null, or 0 to have an identifier chosen and written back, or the identifier to use.
     * Returns false if no interface accepted the message.
     */
    bool sendVendor(Reach reach, const MacAddress &destination, ByteView value, uint16_t *msgId, TimePoint now);

    /*
     * Sends a complete message; `destination` as above. An identifier of 0 is replaced by a fresh one. The relay
     * bit is set according to `reach`; with Reach::Network the message must hold our AL MAC TLV. False when no
     * interface accepted it.
     */
    bool sendMessage(Reach reach, const MacAddress &destination, Message &message, TimePoint now);

    Topology &topology() { return topology_; }
    const Topology &topology() const { return topology_; }
    const Counters &counters() const { return counters_; }
    // Unhandled messages, by type.
    const std::map<uint16_t, uint64_t> &unhandled() const { return unhandled_; }
    const NodeConfig &config() const { return config_; }

  private:
    struct PendingQuery {
        unsigned sent = 0;
        TimePoint due{};
    };
    // A received message, as handlers get it.
    struct Received {
        const Message &message;
        size_t port;
        MacAddress source;      // Ethernet source
        MacAddress originator;  // AL MAC of the device that built the message, if known
        bool multicast;
        TimePoint now;
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
    bool handleLinkMetricQuery(const Received &received);
    bool handleHigherLayerQuery(const Received &received);
    void handle(const Message &message, size_t port, const MacAddress &source, bool multicast, TimePoint now);
    void receiveBridgeDiscovery(size_t port, ByteView payload, TimePoint now);
    void process(const Received &received);
    void countUnhandled(const Received &received);
    void forward(const Received &received);
    void reject(const Received &received, const char *reason);
    // type: of the message; nullopt if unknown.
    void logDropped(size_t port, const MacAddress &source, const MacAddress &originator, std::optional<uint16_t> type,
                    TimePoint now, const char *reason);
    void logAbandoned(TimePoint now);

    void queueTopologyQuery(const MacAddress &alMac, TimePoint now);
    void sendDueQueries(TimePoint now);
    void keepAlive(TimePoint now);
    void age(TimePoint now);
    void linksChanged(TimePoint now);
    void notifySoon(TimePoint now);
    void discoverSoon(size_t port, TimePoint now);

    void sendDiscovery(size_t port, TimePoint now);
    void sendNotification(TimePoint now);
    std::vector<LocalInterface> localInterfaces() const;
    TopologyReport localReport() const;

    bool sendUnicast(const Message &message, const MacAddress &destination);
    bool sendToSelf(const Message &message);
    void receiveFromSelf();
    uint16_t nextId();
    Duration lifetime() const { return config_.discoveryInterval * 7 / 6; }
    Duration bridgedAfter() const { return config_.discoveryInterval * 2; }

    NodeConfig config_;
    NodeEvents events_;
    std::mt19937 random_;
    uint16_t lastId_;
    Counters counters_;
    Topology topology_;
    Reassembly reassembly_;
    DuplicateFilter duplicates_;
    FrameSender sender_;
    Neighbourhood neighbours_;
    std::map<MacAddress, PendingQuery> queries_;
    std::map<uint16_t, uint64_t> unhandled_;
    std::vector<Message> toSelf_;
    std::vector<TimePoint> discoveryDue_;  // per port
    TimePoint notificationDue_;            // TimePoint::max() when there is nothing to notify
    TimePoint earliestNotification_{};
    support::LogGate dropLog_;
};

}  // namespace kv1905d
