// The TLVs of topology messages: parsing refuses a value that is shorter than its layout or than its own counts imply.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "bss_elements.h"
#include "cmdu.h"

namespace kv1905d {

// Limits on what one device may report; more is refused.
inline constexpr size_t kMaxInterfaces = 64;
inline constexpr size_t kMaxNeighbours = 256;

struct LocalInterface {
    MacAddress mac;
    uint16_t mediaType = 0;  // IEEE 1905.1 code: 0x00xx Ethernet, 0x01xx Wi-Fi
    Bytes specialInfo;       // media-specific; at most 255 bytes

    bool operator==(const LocalInterface &) const = default;
};

struct DeviceInformation {
    MacAddress alMac;
    std::vector<LocalInterface> interfaces;

    bool operator==(const DeviceInformation &) const = default;
};

struct Neighbour {
    MacAddress alMac;
    bool viaBridge = false;  // there is another bridge between

    bool operator==(const Neighbour &) const = default;
};

struct Ieee1905Neighbours {
    MacAddress localInterface;
    std::vector<Neighbour> neighbours;

    bool operator==(const Ieee1905Neighbours &) const = default;
};

// `data` points into the value that was parsed.
struct VendorSpecific {
    uint32_t oui = 0;
    ByteView data;
};

std::optional<MacAddress> parseMacTlv(ByteView value);  // AL MAC and MAC address TLVs
std::optional<DeviceInformation> parseDeviceInformation(ByteView value);
std::optional<Ieee1905Neighbours> parseIeee1905Neighbours(ByteView value);
std::optional<VendorSpecific> parseVendorSpecific(ByteView value);

Tlv macTlv(TlvType type, const MacAddress &mac);
Tlv deviceInformationTlv(const DeviceInformation &device);
Tlv ieee1905NeighboursTlv(const Ieee1905Neighbours &neighbours);
// Cuts the texts to 64 bytes.
Tlv deviceIdentificationTlv(std::string_view name, std::string_view manufacturer, std::string_view model);

// The contents of a topology response.
struct TopologyReport {
    DeviceInformation device;
    std::vector<MacAddress> bridge;  // interfaces that are bridged with one another; only written
    std::vector<Ieee1905Neighbours> neighbours;
    BssElements bss{};  // only read: the plug-in writes its TLVs
};

// Returns nullopt if the device information is missing, a known TLV is malformed or a bound is exceeded.
std::optional<TopologyReport> parseTopologyReport(const Message &message);
std::vector<Tlv> topologyReportTlvs(const TopologyReport &report);

}  // namespace kv1905d
