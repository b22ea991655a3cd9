#include "link_metrics.h"

namespace kv1905d {
namespace {

enum Destination : uint8_t { kAllNeighbours = 0, kOneNeighbour = 1 };
enum Metrics : uint8_t { kTransmit = 0, kReceive = 1, kBoth = 2 };

constexpr uint16_t kAvailable = 100;  // percent; nothing but this device sends in this direction of a cable
constexpr uint8_t kNoSignal = 0xFF;   // RSSI of a link that is no Wi-Fi link

WireWriter linkTlv(const MacAddress &alMac, const MacAddress &neighbour) {
    WireWriter out;
    out.mac(alMac);
    out.mac(neighbour);
    return out;
}

void writeEnds(WireWriter &out, const LinkMetrics &link) {
    out.mac(link.ownInterface);
    out.mac(link.neighbourInterface);
    out.u16(link.mediaType);
}

}  // namespace

// A query about all neighbours may leave out the address or fill it with zeros.
std::optional<LinkMetricQuery> parseLinkMetricQuery(ByteView value) {
    constexpr size_t kAfterAddress = 1;
    WireReader reader(value);
    const uint8_t destination = reader.u8();
    const bool hasAddress = reader.remaining() != kAfterAddress;
    const MacAddress neighbour = hasAddress ? reader.mac() : MacAddress{};
    const uint8_t metrics = reader.u8();
    if (!reader.finished() || destination > kOneNeighbour || metrics > kBoth) return std::nullopt;
    if (destination == kOneNeighbour && !hasAddress) return std::nullopt;
    LinkMetricQuery query{{}, metrics != kReceive, metrics != kTransmit};
    if (destination == kOneNeighbour) query.neighbour = neighbour;
    return query;
}

Tlv transmitterMetricsTlv(const MacAddress &alMac, const MacAddress &neighbour, const std::vector<LinkMetrics> &links) {
    WireWriter out = linkTlv(alMac, neighbour);
    for (const LinkMetrics &link : links) {
        writeEnds(out, link);
        out.u8(link.viaBridge);
        out.u32(link.statistics.sendErrors);
        out.u32(link.statistics.sent);
        out.u16(link.statistics.speed);  // MAC throughput
        out.u16(kAvailable);
        out.u16(link.statistics.speed);  // PHY rate
    }
    return {kTlvTransmitterLinkMetric, out.take()};
}

Tlv receiverMetricsTlv(const MacAddress &alMac, const MacAddress &neighbour, const std::vector<LinkMetrics> &links) {
    WireWriter out = linkTlv(alMac, neighbour);
    for (const LinkMetrics &link : links) {
        writeEnds(out, link);
        out.u32(link.statistics.receiveErrors);
        out.u32(link.statistics.received);
        out.u8(kNoSignal);
    }
    return {kTlvReceiverLinkMetric, out.take()};
}

Tlv invalidNeighbourTlv() {
    return {kTlvLinkMetricResult, {0}};
}

}  // namespace kv1905d
