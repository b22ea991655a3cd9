#include "topology_tlvs.h"

#include <algorithm>

namespace kv1905d {
namespace {

constexpr uint8_t kViaBridge = 0x80;
constexpr size_t kMaxCount = 255;  // counts on the wire are one byte

uint8_t count8(size_t count) {
    return static_cast<uint8_t>(std::min(count, kMaxCount));
}

// Adds the neighbours of one local interface; false if they must be refused.
bool readNeighbours(ByteView value, TopologyReport &report) {
    auto neighbours = parseIeee1905Neighbours(value);
    size_t total = 0;
    for (const auto &known : report.neighbours)
        total += known.neighbours.size();
    if (!neighbours || report.neighbours.size() >= kMaxInterfaces) return false;
    if (neighbours->neighbours.size() > kMaxNeighbours - total) return false;
    report.neighbours.push_back(std::move(*neighbours));
    return true;
}

Tlv bridgingCapabilityTlv(const std::vector<MacAddress> &bridge) {
    WireWriter out;
    out.u8(1);  // bridges
    out.u8(count8(bridge.size()));
    for (const MacAddress &mac : bridge)
        out.mac(mac);
    return {kTlvBridgingCapability, out.take()};
}

}  // namespace

std::optional<MacAddress> parseMacTlv(ByteView value) {
    WireReader reader(value);
    const MacAddress mac = reader.mac();
    if (!reader.ok() || mac.isGroup() || mac.isZero()) return std::nullopt;
    return mac;
}

std::optional<DeviceInformation> parseDeviceInformation(ByteView value) {
    WireReader reader(value);
    DeviceInformation device;
    device.alMac = reader.mac();
    const size_t count = reader.u8();
    if (!reader.ok() || count > kMaxInterfaces || device.alMac.isGroup() || device.alMac.isZero()) return std::nullopt;
    for (size_t i = 0; i < count; ++i) {
        LocalInterface interface;
        interface.mac = reader.mac();
        interface.mediaType = reader.u16();
        const ByteView info = reader.bytes(reader.u8());
        interface.specialInfo.assign(info.begin(), info.end());
        if (!reader.ok()) return std::nullopt;
        device.interfaces.push_back(std::move(interface));
    }
    return device;
}

std::optional<Ieee1905Neighbours> parseIeee1905Neighbours(ByteView value) {
    WireReader reader(value);
    Ieee1905Neighbours neighbours{reader.mac(), {}};
    while (reader.remaining() > 0) {
        const MacAddress alMac = reader.mac();
        neighbours.neighbours.push_back({alMac, (reader.u8() & kViaBridge) != 0});
    }
    if (!reader.ok()) return std::nullopt;
    return neighbours;
}

std::optional<VendorSpecific> parseVendorSpecific(ByteView value) {
    WireReader reader(value);
    const uint32_t oui = reader.u24();
    if (!reader.ok()) return std::nullopt;
    return VendorSpecific{oui, reader.rest()};
}

Tlv macTlv(TlvType type, const MacAddress &mac) {
    return {type, Bytes(mac.bytes.begin(), mac.bytes.end())};
}

Tlv deviceInformationTlv(const DeviceInformation &device) {
    WireWriter out;
    out.mac(device.alMac);
    const uint8_t count = count8(device.interfaces.size());
    out.u8(count);
    for (size_t i = 0; i < count; ++i) {
        const LocalInterface &interface = device.interfaces[i];
        const uint8_t infoSize = count8(interface.specialInfo.size());
        out.mac(interface.mac);
        out.u16(interface.mediaType);
        out.u8(infoSize);
        out.bytes(ByteView(interface.specialInfo).first(infoSize));
    }
    return {kTlvDeviceInformation, out.take()};
}

Tlv ieee1905NeighboursTlv(const Ieee1905Neighbours &neighbours) {
    WireWriter out;
    out.mac(neighbours.localInterface);
    for (const Neighbour &neighbour : neighbours.neighbours) {
        out.mac(neighbour.alMac);
        out.u8(neighbour.viaBridge ? kViaBridge : 0);
    }
    return {kTlvIeee1905Neighbours, out.take()};
}

Tlv deviceIdentificationTlv(std::string_view name, std::string_view manufacturer, std::string_view model) {
    constexpr size_t kTextSize = 64;  // bytes, filled with zeros
    Tlv tlv{kTlvDeviceIdentification, {}};
    for (const std::string_view text : {name, manufacturer, model}) {
        const size_t end = tlv.value.size() + kTextSize;
        const std::string_view cut = text.substr(0, kTextSize);
        tlv.value.insert(tlv.value.end(), cut.begin(), cut.end());
        tlv.value.resize(end);
    }
    return tlv;
}

std::optional<TopologyReport> parseTopologyReport(const Message &message) {
    const Tlv *information = message.find(kTlvDeviceInformation);
    if (information == nullptr) return std::nullopt;
    std::optional<DeviceInformation> device = parseDeviceInformation(information->value);
    if (!device) return std::nullopt;
    TopologyReport report;
    report.device = std::move(*device);
    for (const Tlv &tlv : message.tlvs) {
        if (tlv.type == kTlvIeee1905Neighbours && !readNeighbours(tlv.value, report)) return std::nullopt;
        if (tlv.type == kTlvVendorSpecific && !readBssElement(tlv.value, report.bss)) return std::nullopt;
    }
    return report;
}

std::vector<Tlv> topologyReportTlvs(const TopologyReport &report) {
    std::vector<Tlv> tlvs{deviceInformationTlv(report.device)};
    if (!report.bridge.empty()) tlvs.push_back(bridgingCapabilityTlv(report.bridge));
    for (const auto &neighbours : report.neighbours)
        tlvs.push_back(ieee1905NeighboursTlv(neighbours));
    return tlvs;
}

}  // namespace kv1905d
