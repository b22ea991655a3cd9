#include "daemon/node.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace kv1905d {
namespace {

using std::chrono::milliseconds;

constexpr size_t kEthernetHeader = 14;
constexpr Time kNotificationSpacing{1000};
constexpr Time kQuerySpacing{1000};
constexpr unsigned kQueryAttempts = 3;
// How soon a newcomer's discovery is answered: spread, so that many neighbours do not answer in step.
constexpr Time kSoonEarliest{50};
constexpr Time kSoonLatest{400};

Bytes ethernetFrame(const MacAddress &destination, const MacAddress &source, ByteView payload) {
    WireWriter out;
    out.mac(destination);
    out.mac(source);
    out.u16(kEtherType);
    out.bytes(payload);
    return out.take();
}

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
};

Node::Node(NodeConfig config, NodeEvents events, Time now)
    : config_(std::move(config)),
      events_(std::move(events)),
      random_(config_.seed),
      lastId_(static_cast<uint16_t>(random_())),
      topology_(config_.alMac, now),
      discoveryDue_(config_.ports.size(), now),
      notificationDue_(now) {
    topology_.setInterfaces(topology_.local(), localInterfaces());
}

// ---- Receiving

void Node::receive(size_t port, ByteView frame, Time now) {
    ++counters_.framesReceived;
    WireReader reader(frame);
    const MacAddress destination = reader.mac();
    const MacAddress source = reader.mac();
    const uint16_t etherType = reader.u16();
    std::optional<Fragment> fragment = parseFragment(reader.rest());
    const auto isOurs = [&](const MacAddress &mac) {
        return mac == config_.alMac ||
               std::any_of(config_.ports.begin(), config_.ports.end(), [&](const Port &own) { return own.mac == mac; });
    };
    const bool multicast = destination == kMulticastMac;
    // Not for us, or our own, which a ring brings back.
    if (!reader.ok() || etherType != kEtherType || (!multicast && !isOurs(destination)) || isOurs(source)) {
        ++counters_.framesDropped;
        return;
    }
    if (source.isGroup() || source.isZero() || !fragment) {
        ++counters_.framesDropped;
        return complain({port, source, source, {}}, now, fragment ? "no device has that address" : "no valid header");
    }

    fragment->port = port;
    counters_.reassemblyTimeouts += reassembly_.expire(now);
    const Reassembly::Outcome outcome = reassembly_.add(source, *fragment, now);
    counters_.reassemblyEvictions = reassembly_.evicted();
    complainOfLost(now);
    if (outcome.status == Reassembly::Status::Malformed) {
        ++counters_.parseFailures;
        complain({port, source, source, fragment->type}, now, "a TLV or fragment does not fit");
    }
    if (outcome.status == Reassembly::Status::Complete) handle(outcome.message, port, source, multicast, now);
}

void Node::handle(const Message &message, size_t port, const MacAddress &source, bool multicast, Time now) {
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
    arrivedOn_ = received.port;
    if (Device *device = topology_.find(received.originator)) {
        device->lastHeard = received.now;
        device->port = received.port;
        device->nextKeepAlive = received.now + config_.discoveryInterval / 2;
    }
    for (const HandlerRow &row : kHandlers) {
        if (row.type == received.message.type && !(this->*row.handle)(received)) return;
    }
    for (const Tlv &tlv : received.message.tlvs) {
        if (tlv.type != kTlvVendorSpecific) continue;
        if (!parseVendorSpecific(tlv.value)) {
            reject(received, "vendor-specific TLV without an OUI");
            continue;
        }
        ++counters_.vendorTlvsReceived;
        if (received.message.type == kTopologyResponse && isBssElement(tlv.value)) continue;  // read with the report
        if (events_.vendorTlv) events_.vendorTlv(received.originator, tlv.value, received.message.id);
    }
}

void Node::forward(const Received &received) {
    if (config_.ports.size() > 1 && sendMulticast(received.message, received.port)) ++counters_.messagesRelayed;
}

void Node::reject(const Received &received, const char *reason) {
    ++counters_.parseFailures;
    complain({received.port, received.source, received.originator, received.message.type}, received.now, reason);
}

void Node::complain(const Sender &sender, Time now, const char *reason) {
    unsigned held = 0;
    if (!complaints_.open(now, &held)) return;
    char what[32] = "frame";
    if (sender.type) std::snprintf(what, sizeof what, "message 0x%04x", *sender.type);
    const std::string builder = sender.originator == sender.source ? "" : ", built by " + sender.originator.text();
    KV_HOST_LOG(KV_LOG_WARNING, "%s: %s from %s%s dropped: %s (%u more lines held back)",
                config_.ports[sender.port].name.c_str(), what, sender.source.text().c_str(), builder.c_str(), reason,
                held);
}

void Node::complainOfLost(Time now) {
    const std::optional<Reassembly::Lost> lost = reassembly_.takeLost();
    if (lost) complain({lost->port, lost->source, lost->source, lost->type}, now, lost->reason);
}

// ---- Handlers: false when the message is malformed and must not be looked at any further

bool Node::handleDiscovery(const Received &received) {
    if (!received.multicast) return true;  // says nothing about who sits on this link
    const Tlv *macTlvFound = received.message.find(kTlvMacAddress);
    const std::optional<MacAddress> mac = macTlvFound ? parseMacTlv(macTlvFound->value) : std::nullopt;
    if (!mac || received.message.find(kTlvAlMac) == nullptr) {
        reject(received, "topology discovery without a valid AL MAC or MAC address TLV");
        return false;
    }
    const auto known = std::find_if(links_.begin(), links_.end(), [&](const Link &link) {
        return link.port == received.port && link.alMac == received.originator && link.mac == *mac;
    });
    if (known != links_.end()) {
        known->lastDiscovery = received.now;
        if (topology_.find(received.originator) == nullptr) ask(received.originator, received.now);
        return true;
    }
    if (links_.size() >= kMaxLinks) {
        reject(received, "too many neighbours");
        return false;
    }
    links_.push_back({received.port, received.originator, *mac, received.now});
    KV_HOST_LOG(KV_LOG_INFO, "%s: neighbour %s", config_.ports[received.port].name.c_str(),
                received.originator.text().c_str());
    linksChanged(received.now);
    hurryDiscovery(received.port, received.now);
    ask(received.originator, received.now);
    return true;
}

bool Node::handleNotification(const Received &received) {
    if (received.message.find(kTlvAlMac) == nullptr) {
        reject(received, "topology notification without an AL MAC TLV");
        return false;
    }
    if (Device *device = topology_.find(received.originator)) device->poll.announced = true;
    // A neighbour that was restarted does not know us any more, although we still know it.
    for (const Link &link : links_) {
        if (link.alMac == received.originator) hurryDiscovery(link.port, received.now);
    }
    ask(received.originator, received.now);
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
        complain({received.port, received.source, report->device.alMac, received.message.type}, received.now,
                 "too many devices are known");
        return true;
    }
    device->port = received.port;
    device->nextKeepAlive = received.now + config_.discoveryInterval / 2;
    for (const Ieee1905Neighbours &link : report->neighbours) {
        for (const Neighbour &neighbour : link.neighbours) {
            if (topology_.find(neighbour.alMac) == nullptr) ask(neighbour.alMac, received.now);
        }
    }
    if (events_.topologyResponse) events_.topologyResponse(*device);
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

// ---- Periodic work

Time Node::run(Time now) {
    receiveFromSelf();
    counters_.reassemblyTimeouts += reassembly_.expire(now);
    complainOfLost(now);
    age(now);
    keepAlive(now);
    for (size_t port = 0; port < config_.ports.size(); ++port) {
        if (discoveryDue_[port] <= now) sendDiscovery(port, now);
    }
    if (notificationDue_ <= now) sendNotification(now);
    sendDueQueries(now);

    Time next = std::min(notificationDue_, reassembly_.nextExpiry());
    if (!toSelf_.empty()) next = now;
    for (const Time due : discoveryDue_)
        next = std::min(next, due);
    for (const auto &[alMac, query] : queries_)
        next = std::min(next, query.due);
    for (const Link &link : links_)
        next = std::min(next, link.lastDiscovery + lifetime());
    for (const auto &[alMac, device] : topology_.devices()) {
        if (device->local) continue;
        next = std::min({next, device->lastHeard + lifetime(), device->nextKeepAlive});
    }
    return std::max(next, now + milliseconds(1));
}

void Node::age(Time now) {
    const auto silent = [&](const Link &link) { return now - link.lastDiscovery >= lifetime(); };
    if (std::erase_if(links_, silent) > 0) linksChanged(now);
    if (!topology_.expire(lifetime(), now).empty()) notifySoon(now);
}

// Neighbours announce themselves; the others are asked when they were silent for half an interval.
void Node::keepAlive(Time now) {
    for (const auto &[alMac, device] : topology_.devices()) {
        if (device->local || device->nextKeepAlive > now) continue;
        device->nextKeepAlive = now + config_.discoveryInterval / 4;
        if (!isNeighbour(alMac)) ask(alMac, now);
    }
}

bool Node::isNeighbour(const MacAddress &alMac) const {
    return std::any_of(links_.begin(), links_.end(), [&](const Link &link) { return link.alMac == alMac; });
}

void Node::linksChanged(Time now) {
    std::vector<Ieee1905Neighbours> neighbours;
    for (size_t port = 0; port < config_.ports.size(); ++port) {
        std::set<MacAddress> alMacs;
        for (const Link &link : links_) {
            if (link.port == port) alMacs.insert(link.alMac);
        }
        if (alMacs.empty()) continue;
        neighbours.push_back({config_.ports[port].mac, {}});
        for (const MacAddress &alMac : alMacs)
            neighbours.back().neighbours.push_back({alMac, false});
    }
    topology_.local().neighbours = std::move(neighbours);
    notifySoon(now);
}

// Several changes within the spacing make one notification.
void Node::notifySoon(Time now) {
    notificationDue_ = std::min(notificationDue_, std::max(now, earliestNotification_));
}

void Node::linkChanged(size_t port, bool up, Time now) {
    KV_HOST_LOG(KV_LOG_NOTICE, "%s: link is %s", config_.ports[port].name.c_str(), up ? "up" : "down");
    if (up) {
        discoveryDue_[port] = now;
        notifySoon(now);
    } else if (std::erase_if(links_, [&](const Link &link) { return link.port == port; }) > 0) {
        linksChanged(now);
    }
}

void Node::hurryDiscovery(size_t port, Time now) {
    discoveryDue_[port] = std::min(discoveryDue_[port], soon(now));
}

Time Node::soon(Time now) {
    return now + Time(std::uniform_int_distribution<Time::rep>(kSoonEarliest.count(), kSoonLatest.count())(random_));
}

Time Node::jittered(Time interval) {
    const auto whole = interval.count();
    return Time(std::uniform_int_distribution<Time::rep>(whole * 5 / 6, whole)(random_));
}

void Node::ask(const MacAddress &alMac, Time now) {
    if (alMac == config_.alMac || alMac.isGroup() || alMac.isZero()) return;
    if (queries_.size() < kMaxPendingQueries) queries_.try_emplace(alMac, PendingQuery{0, now});
}

void Node::sendDueQueries(Time now) {
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

void Node::sendDiscovery(size_t port, Time now) {
    discoveryDue_[port] = now + jittered(config_.discoveryInterval);
    const Message message{kTopologyDiscovery,
                          nextId(),
                          false,
                          {macTlv(kTlvAlMac, config_.alMac), macTlv(kTlvMacAddress, config_.ports[port].mac)}};
    sendFrames(config_.ports[port].fd, kMulticastMac, encodeMessage(message));
}

void Node::sendNotification(Time now) {
    notificationDue_ = Time::max();
    earliestNotification_ = now + kNotificationSpacing;
    const Message message{kTopologyNotification, nextId(), true, {macTlv(kTlvAlMac, config_.alMac)}};
    duplicates_.enter({config_.alMac, message.type, message.id}, now);
    sendMulticast(message, std::nullopt);
}

bool Node::sendVendor(Reach reach, const MacAddress &destination, ByteView value, uint16_t *msgId, Time now) {
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

bool Node::sendMessage(Reach reach, const MacAddress &destination, Message &message, Time now) {
    if (message.id == 0) message.id = nextId();
    message.relay = reach == Reach::Network;
    if (message.relay) duplicates_.enter({config_.alMac, message.type, message.id}, now);
    return reach == Reach::Unicast ? sendUnicast(message, destination) : sendMulticast(message, std::nullopt);
}

// Handed on by run(): the receiver must not be called while it is sending.
bool Node::sendToSelf(const Message &message) {
    if (toSelf_.size() >= kMaxToSelf) return false;
    toSelf_.push_back(message);
    ++counters_.vendorMessagesSent;
    return true;
}

void Node::receiveFromSelf() {
    for (const Message &message : std::exchange(toSelf_, {})) {
        ++counters_.vendorTlvsReceived;
        if (events_.vendorTlv) events_.vendorTlv(config_.alMac, message.tlvs.front().value, message.id);
    }
}

std::vector<LocalInterface> Node::localInterfaces() const {
    std::vector<LocalInterface> interfaces;
    for (const Port &port : config_.ports)
        interfaces.push_back({port.mac, port.mediaType, {}});
    interfaces.insert(interfaces.end(), config_.radios.begin(), config_.radios.end());
    return interfaces;
}

TopologyReport Node::localReport() const {
    TopologyReport report;
    report.device = {config_.alMac, localInterfaces()};
    report.neighbours = topology_.local().neighbours;
    if (config_.bridgeFd >= 0) {
        report.bridges.emplace_back();
        for (const Port &port : config_.ports)
            report.bridges.back().push_back(port.mac);
    }
    return report;
}

bool Node::sendMulticast(const Message &message, std::optional<size_t> except) {
    const std::vector<Bytes> payloads = encodeMessage(message);
    bool sent = false;
    for (size_t port = 0; port < config_.ports.size(); ++port) {
        if (port != except) sent |= sendFrames(config_.ports[port].fd, kMulticastMac, payloads);
    }
    return sent;
}

bool Node::sendUnicast(const Message &message, const MacAddress &destination) {
    const Device *device = topology_.findByAnyMac(destination);
    const MacAddress &alMac = device != nullptr ? device->alMac : destination;
    const std::vector<Bytes> payloads = encodeMessage(message);
    if (config_.bridgeFd >= 0) return sendFrames(config_.bridgeFd, alMac, payloads);
    if (device != nullptr && device->port) return sendFrames(config_.ports[*device->port].fd, alMac, payloads);
    bool sent = false;
    for (const Port &port : config_.ports)
        sent |= sendFrames(port.fd, alMac, payloads);
    return sent;
}

bool Node::sendFrames(int fd, const MacAddress &destination, const std::vector<Bytes> &payloads) {
    for (const Bytes &payload : payloads) {
        const Bytes frame = ethernetFrame(destination, config_.alMac, payload);
        if (send(fd, frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL) != static_cast<ssize_t>(frame.size())) {
            ++counters_.sendFailures;
            return false;
        }
        ++counters_.framesSent;
    }
    return !payloads.empty();
}

uint16_t Node::nextId() {
    if (++lastId_ == 0) ++lastId_;
    return lastId_;
}

}  // namespace kv1905d
