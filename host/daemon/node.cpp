#include "daemon/node.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

#include "daemon/jitter.h"
#include "ieee1905/lldp.h"

namespace kv1905d {
namespace {

constexpr Duration kNotificationSpacing{1000};
constexpr Duration kQuerySpacing{1000};
constexpr unsigned kQueryAttempts = 3;
// Delay of the response to a new device's discovery: random, so that many neighbours do not respond at once.
constexpr Duration kSoonEarliest{50};
constexpr Duration kSoonLatest{400};

}  // namespace

const Node::HandlerRow Node::kHandlers[] = {
    {kTopologyDiscovery, &Node::handleDiscovery},
    {kTopologyNotification, &Node::handleNotification},
    {kTopologyQuery, &Node::handleQuery},
    {kTopologyResponse, &Node::handleResponse},
    {kVendorSpecific, &Node::handleVendor},
    {kAutoconfigurationSearch, &Node::handleAutoconfiguration},
    {kAutoconfigurationResponse, &Node::handleAutoconfiguration},
    {kAutoconfigurationWsc, &Node::handleAutoconfiguration},
    {kAutoconfigurationRenew, &Node::handleAutoconfiguration},
    {kLinkMetricQuery, &Node::handleLinkMetricQuery},
    {kHigherLayerQuery, &Node::handleHigherLayerQuery},
};

Node::Node(NodeConfig config, NodeEvents events, TimePoint now)
    : config_(std::move(config)),
      events_(std::move(events)),
      random_(config_.seed),
      lastId_(static_cast<uint16_t>(random_())),
      topology_(config_.alMac, now),
      sender_(config_.alMac, config_.ports, config_.bridgeFd, counters_),
      neighbours_(lifetime(), bridgedAfter()),
      discoveryDue_(config_.ports.size(), now),
      notificationDue_(now) {
    topology_.setInterfaces(topology_.local(), localInterfaces());
}

// ---- Receiving

void Node::receive(size_t port, ByteView frame, TimePoint now) {
    ++counters_.framesReceived;
    WireReader reader(frame);
    const MacAddress destination = reader.mac();
    const MacAddress source = reader.mac();
    const uint16_t etherType = reader.u16();
    if (reader.ok() && etherType == kLldpEtherType && destination == kLldpMac) {
        return receiveBridgeDiscovery(port, reader.rest(), now);
    }
    std::optional<Fragment> fragment = parseFragment(reader.rest());
    const auto isOurs = [&](const MacAddress &mac) {
        return mac == config_.alMac ||
               std::any_of(config_.ports.begin(), config_.ports.end(), [&](const Port &own) { return own.mac == mac; });
    };
    const bool multicast = destination == kMulticastMac;
    // Drops frames for others, and own frames, which a ring returns.
    if (!reader.ok() || etherType != kEtherType || (!multicast && !isOurs(destination)) || isOurs(source)) {
        ++counters_.framesDropped;
        return;
    }
    if (source.isGroup() || source.isZero() || !fragment) {
        ++counters_.framesDropped;
        return logDropped(port, source, source, {}, now, fragment ? "no device has that address" : "no valid header");
    }

    fragment->port = port;
    counters_.reassemblyTimeouts += reassembly_.expire(now);
    const Reassembly::Result result = reassembly_.add(source, *fragment, now);
    counters_.reassemblyEvictions = reassembly_.evicted();
    logAbandoned(now);
    if (result.status == Reassembly::Status::Malformed) {
        ++counters_.parseFailures;
        logDropped(port, source, source, fragment->type, now, "a TLV or fragment does not fit");
    }
    if (result.status == Reassembly::Status::Complete) handle(result.message, port, source, multicast, now);
}

void Node::receiveBridgeDiscovery(size_t port, ByteView payload, TimePoint now) {
    const std::optional<BridgeDiscovery> discovery = parseBridgeDiscovery(payload);
    if (!discovery) {
        ++counters_.framesDropped;
    } else if (neighbours_.announceDirect(port, discovery->alMac, discovery->interface, now)) {
        linksChanged(now);
    }
}

void Node::handle(const Message &message, size_t port, const MacAddress &source, bool multicast, TimePoint now) {
    Received received{message, port, source, source, multicast, now};
    if (const Tlv *tlv = message.find(kTlvAlMac)) {
        const std::optional<MacAddress> alMac = parseMacTlv(tlv->value);
        if (!alMac) return reject(received, "malformed AL MAC TLV");
        received.originator = *alMac;
    } else if (const Device *device = topology_.findByAnyMac(source)) {
        received.originator = device->alMac;  // some stacks send from the interface's MAC
    }
    if (received.originator == config_.alMac) {
        ++counters_.framesDropped;
        return;
    }
    const bool relayed = multicast && message.relay;
    if (relayed && !duplicates_.enter({received.originator, message.type, message.id}, now)) {
        ++counters_.duplicatesDropped;
        return;
    }
    process(received);
    if (relayed) forward(received);
}

void Node::process(const Received &received) {
    ++counters_.messagesReceived;
    if (Device *device = topology_.find(received.originator)) {
        device->lastHeard = received.now;
        device->port = received.port;
        device->nextKeepAlive = received.now + config_.discoveryInterval / 2;
    }
    const auto row = std::find_if(std::begin(kHandlers), std::end(kHandlers),
                                  [&](const HandlerRow &each) { return each.type == received.message.type; });
    if (row == std::end(kHandlers)) {
        countUnhandled(received);
    } else if (!(this->*row->handle)(received)) {
        return;
    }
    for (const Tlv &tlv : received.message.tlvs) {
        if (tlv.type != kTlvVendorSpecific) continue;
        if (!parseVendorSpecific(tlv.value)) {
            reject(received, "vendor-specific TLV without an OUI");
            continue;
        }
        ++counters_.vendorTlvsReceived;
        if (received.message.type == kTopologyResponse && isBssElement(tlv.value)) continue;  // read with the report
        if (events_.vendorTlv) {
            events_.vendorTlv({received.originator, config_.ports[received.port].name, tlv.value, received.message.id});
        }
    }
}

void Node::countUnhandled(const Received &received) {
    ++counters_.messagesUnhandled;
    const uint16_t type = received.message.type;
    if (unhandled_.size() < kMaxUnhandledTypes || unhandled_.contains(type)) ++unhandled_[type];
    if (events_.unhandled) events_.unhandled(received.originator, received.message);
}

void Node::forward(const Received &received) {
    if (config_.ports.size() > 1 && sender_.multicast(received.message, received.port)) ++counters_.messagesRelayed;
}

void Node::reject(const Received &received, const char *reason) {
    ++counters_.parseFailures;
    logDropped(received.port, received.source, received.originator, received.message.type, received.now, reason);
}

void Node::logDropped(size_t port, const MacAddress &source, const MacAddress &originator, std::optional<uint16_t> type,
                      TimePoint now, const char *reason) {
    char what[32] = "frame";
    if (type) std::snprintf(what, sizeof what, "message 0x%04x", *type);
    const std::string builder = originator == source ? "" : ", built by " + originator.text();
    dropLog_.log(KV_LOG_WARNING, now, "%s: %s from %s%s dropped: %s", config_.ports[port].name.c_str(), what,
                 source.text().c_str(), builder.c_str(), reason);
}

void Node::logAbandoned(TimePoint now) {
    const std::optional<Reassembly::Lost> lost = reassembly_.takeLost();
    if (lost) logDropped(lost->port, lost->source, lost->source, lost->type, now, lost->reason);
}

// ---- Handlers return false for a malformed message, which is then not processed further

bool Node::handleDiscovery(const Received &received) {
    if (!received.multicast) return true;  // unicast: the sender may be on another link
    const Tlv *macTlvFound = received.message.find(kTlvMacAddress);
    const std::optional<MacAddress> mac = macTlvFound ? parseMacTlv(macTlvFound->value) : std::nullopt;
    if (!mac || received.message.find(kTlvAlMac) == nullptr) {
        reject(received, "topology discovery without a valid AL MAC or MAC address TLV");
        return false;
    }
    const auto announced = neighbours_.announce(received.port, received.originator, *mac, received.now);
    if (announced == Neighbourhood::Announced::TooMany) {
        reject(received, "too many neighbours");
        return false;
    }
    const bool isNew = announced == Neighbourhood::Announced::New;
    if (isNew) {
        KV_HOST_LOG(KV_LOG_INFO, "%s: neighbour %s", config_.ports[received.port].name.c_str(),
                    received.originator.text().c_str());
        linksChanged(received.now);
        discoverSoon(received.port, received.now);
    }
    if (isNew || topology_.find(received.originator) == nullptr) queueTopologyQuery(received.originator, received.now);
    return true;
}

bool Node::handleNotification(const Received &received) {
    if (received.message.find(kTlvAlMac) == nullptr) {
        reject(received, "topology notification without an AL MAC TLV");
        return false;
    }
    if (events_.notification && topology_.find(received.originator) != nullptr) {
        events_.notification(received.originator);
    }
    // A restarted neighbour does not know us, although we still know it.
    for (const size_t port : neighbours_.portsOf(received.originator))
        discoverSoon(port, received.now);
    queueTopologyQuery(received.originator, received.now);
    return true;
}

bool Node::handleQuery(const Received &received) {
    Message response{kTopologyResponse, received.message.id, false, topologyReportTlvs(localReport())};
    if (events_.extraTopologyTlvs) {
        for (Tlv &tlv : events_.extraTopologyTlvs())
            response.tlvs.push_back(std::move(tlv));
    }
    sendUnicast(response, received.source);
    return true;
}

bool Node::handleResponse(const Received &received) {
    const std::optional<TopologyReport> report = parseTopologyReport(received.message);
    if (!report || report->device.alMac == config_.alMac) {
        reject(received, "malformed topology response");
        return false;
    }
    queries_.erase(report->device.alMac);
    Device *device = topology_.update(*report, received.now);
    if (device == nullptr) {
        logDropped(received.port, received.source, report->device.alMac, received.message.type, received.now,
                   "too many devices are known");
        return true;
    }
    device->port = received.port;
    device->nextKeepAlive = received.now + config_.discoveryInterval / 2;
    for (const Ieee1905Neighbours &link : report->neighbours) {
        for (const Neighbour &neighbour : link.neighbours) {
            if (topology_.find(neighbour.alMac) == nullptr) queueTopologyQuery(neighbour.alMac, received.now);
        }
    }
    if (events_.topologyResponse) events_.topologyResponse(device->alMac);
    return true;
}

bool Node::handleVendor(const Received &received) {
    if (received.message.find(kTlvVendorSpecific) != nullptr) return true;
    reject(received, "vendor message without a vendor-specific TLV");
    return false;
}

bool Node::handleAutoconfiguration(const Received &received) {
    if (!events_.autoconfiguration) return true;
    if (events_.autoconfiguration(received.originator, received.message, received.now)) return true;
    reject(received, "malformed AP-autoconfiguration");
    return false;
}

bool Node::handleLinkMetricQuery(const Received &received) {
    const Tlv *tlv = received.message.find(kTlvLinkMetricQuery);
    const std::optional<LinkMetricQuery> query = tlv ? parseLinkMetricQuery(tlv->value) : std::nullopt;
    if (!query) {
        reject(received, "link metric query without a valid query TLV");
        return false;
    }
    std::map<MacAddress, std::vector<LinkMetrics>> links;
    for (const Neighbourhood::Link &link : neighbours_.links()) {
        if (query->neighbour && *query->neighbour != link.alMac) continue;
        const Port &port = config_.ports[link.port];
        const auto statistics = events_.linkStatistics ? events_.linkStatistics(link.port) : LinkStatistics{};
        links[link.alMac].push_back({port.mac, link.mac, port.mediaType, link.viaBridge, statistics});
    }
    Message response{kLinkMetricResponse, received.message.id, false, {}};
    if (query->neighbour && links.empty()) response.tlvs.push_back(invalidNeighbourTlv());
    for (const auto &[alMac, metrics] : links) {
        if (query->transmit) response.tlvs.push_back(transmitterMetricsTlv(config_.alMac, alMac, metrics));
        if (query->receive) response.tlvs.push_back(receiverMetricsTlv(config_.alMac, alMac, metrics));
    }
    sendUnicast(response, received.source);
    return true;
}

bool Node::handleHigherLayerQuery(const Received &received) {
    constexpr uint8_t kProfile1905a = 1;
    const KvDevVendorData &record = *topology_.local().vendor.data();
    const std::string_view model(record.modelName, strnlen(record.modelName, sizeof record.modelName));
    const Message response{kHigherLayerResponse,
                           received.message.id,
                           false,
                           {macTlv(kTlvAlMac, config_.alMac),
                            {kTlvProfileVersion, {kProfile1905a}},
                            deviceIdentificationTlv(config_.name, "", model)}};
    sendUnicast(response, received.source);
    return true;
}

// ---- Periodic work

TimePoint Node::run(TimePoint now) {
    receiveFromSelf();
    counters_.reassemblyTimeouts += reassembly_.expire(now);
    logAbandoned(now);
    age(now);
    keepAlive(now);
    for (size_t port = 0; port < config_.ports.size(); ++port) {
        if (discoveryDue_[port] <= now) sendDiscovery(port, now);
    }
    if (notificationDue_ <= now) sendNotification(now);
    sendDueQueries(now);

    TimePoint next = std::min({notificationDue_, reassembly_.nextExpiry(), neighbours_.nextExpiry()});
    if (!toSelf_.empty()) next = now;
    for (const TimePoint due : discoveryDue_)
        next = std::min(next, due);
    for (const auto &[alMac, query] : queries_)
        next = std::min(next, query.due);
    for (const auto &[alMac, device] : topology_.devices()) {
        if (device->local) continue;
        next = std::min({next, device->lastHeard + lifetime(), device->nextKeepAlive});
    }
    return std::max(next, now + Duration(1));
}

void Node::age(TimePoint now) {
    if (neighbours_.age(now)) linksChanged(now);
    if (!topology_.expire(lifetime(), now).empty()) notifySoon(now);
}

// Neighbours announce themselves; the others are queried after half an interval of silence.
void Node::keepAlive(TimePoint now) {
    for (const auto &[alMac, device] : topology_.devices()) {
        if (device->local || device->nextKeepAlive > now) continue;
        device->nextKeepAlive = now + config_.discoveryInterval / 4;
        if (neighbours_.portsOf(alMac).empty()) queueTopologyQuery(alMac, now);
    }
}

void Node::linksChanged(TimePoint now) {
    topology_.setNeighbours(topology_.local(), neighbours_.report(config_.ports));
    notifySoon(now);
}

// Combines several changes within the spacing into one notification.
void Node::notifySoon(TimePoint now) {
    notificationDue_ = std::min(notificationDue_, std::max(now, earliestNotification_));
}

void Node::linkChanged(size_t port, bool up, TimePoint now) {
    KV_HOST_LOG(KV_LOG_NOTICE, "%s: link is %s", config_.ports[port].name.c_str(), up ? "up" : "down");
    if (up) {
        discoveryDue_[port] = now;
        notifySoon(now);
    } else if (neighbours_.forgetPort(port)) {
        linksChanged(now);
    }
}

void Node::macChanged(size_t port, const MacAddress &mac, TimePoint now) {
    config_.ports[port].mac = mac;
    topology_.setInterfaces(topology_.local(), localInterfaces());
    linksChanged(now);
    discoveryDue_[port] = now;
}

void Node::discoverSoon(size_t port, TimePoint now) {
    discoveryDue_[port] = std::min(discoveryDue_[port], now + randomDuration(random_, kSoonEarliest, kSoonLatest));
}

void Node::queueTopologyQuery(const MacAddress &alMac, TimePoint now) {
    if (alMac == config_.alMac || alMac.isGroup() || alMac.isZero()) return;
    if (queries_.size() < kMaxPendingQueries) queries_.try_emplace(alMac, PendingQuery{0, now});
}

void Node::sendDueQueries(TimePoint now) {
    for (auto at = queries_.begin(); at != queries_.end();) {
        PendingQuery &query = at->second;
        if (query.due > now) {
            ++at;
        } else if (query.sent >= kQueryAttempts) {
            at = queries_.erase(at);
        } else {
            sendUnicast({kTopologyQuery, nextId(), false, {}}, at->first);
            ++query.sent;
            query.due = now + kQuerySpacing;
            ++at;
        }
    }
}

// ---- Sending

void Node::sendDiscovery(size_t port, TimePoint now) {
    discoveryDue_[port] = now + jittered(random_, config_.discoveryInterval);
    const Message message{kTopologyDiscovery,
                          nextId(),
                          false,
                          {macTlv(kTlvAlMac, config_.alMac), macTlv(kTlvMacAddress, config_.ports[port].mac)}};
    sender_.multicastOn(port, message);
    sender_.bridgeDiscoveryOn(port);
}

void Node::sendNotification(TimePoint now) {
    notificationDue_ = TimePoint::max();
    earliestNotification_ = now + kNotificationSpacing;
    const Message message{kTopologyNotification, nextId(), true, {macTlv(kTlvAlMac, config_.alMac)}};
    duplicates_.enter({config_.alMac, message.type, message.id}, now);
    sender_.multicast(message);
}

bool Node::sendVendor(Reach reach, const MacAddress &destination, ByteView value, uint16_t *msgId, TimePoint now) {
    const uint16_t id = msgId != nullptr && *msgId != 0 ? *msgId : nextId();
    if (msgId != nullptr) *msgId = id;
    Message message{kVendorSpecific, id, false, {{kTlvVendorSpecific, {value.begin(), value.end()}}}};
    if (reach == Reach::Network) message.tlvs.push_back(macTlv(kTlvAlMac, config_.alMac));
    if (reach == Reach::Unicast && topology_.findByAnyMac(destination) == &topology_.local())
        return sendToSelf(message);
    const bool sent = sendMessage(reach, destination, message, now);
    if (sent) ++counters_.vendorMessagesSent;
    return sent;
}

bool Node::sendMessage(Reach reach, const MacAddress &destination, Message &message, TimePoint now) {
    if (message.id == 0) message.id = nextId();
    message.relay = reach == Reach::Network;
    if (message.relay) duplicates_.enter({config_.alMac, message.type, message.id}, now);
    return reach == Reach::Unicast ? sendUnicast(message, destination) : sender_.multicast(message);
}

// Delivered by run(): the receiver must not be called while it is sending.
bool Node::sendToSelf(const Message &message) {
    if (toSelf_.size() >= kMaxToSelf) return false;
    toSelf_.push_back(message);
    ++counters_.vendorMessagesSent;
    return true;
}

void Node::receiveFromSelf() {
    static const std::string kSelf = "this device";
    for (const Message &message : std::exchange(toSelf_, {})) {
        ++counters_.vendorTlvsReceived;
        if (events_.vendorTlv) events_.vendorTlv({config_.alMac, kSelf, message.tlvs.front().value, message.id});
    }
}

std::vector<LocalInterface> Node::localInterfaces() const {
    std::vector<LocalInterface> interfaces;
    for (const Port &port : config_.ports) {
        const bool isWifi = (port.mediaType & 0xFF00) == 0x0100;
        interfaces.push_back({port.mac, port.mediaType, Bytes(isWifi ? 10 : 0)});  // its network is not known here
    }
    interfaces.insert(interfaces.end(), config_.radios.begin(), config_.radios.end());
    return interfaces;
}

TopologyReport Node::localReport() const {
    TopologyReport report;
    report.device = {config_.alMac, localInterfaces()};
    report.neighbours = topology_.local().neighbours;
    if (config_.bridgeFd >= 0) {
        for (const Port &port : config_.ports)
            report.bridge.push_back(port.mac);
    }
    return report;
}

bool Node::sendUnicast(const Message &message, const MacAddress &destination) {
    const Device *device = topology_.findByAnyMac(destination);
    if (device == nullptr) return sender_.unicast(message, destination, std::nullopt);
    return sender_.unicast(message, device->alMac, device->port);
}

uint16_t Node::nextId() {
    if (++lastId_ == 0) ++lastId_;
    return lastId_;
}

}  // namespace kv1905d
