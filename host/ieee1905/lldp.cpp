#include "lldp.h"

namespace kv1905d {
namespace {

constexpr uint16_t kTimeToLive = 180;  // seconds

// A TLV's first two bytes: type in 7 bits, length in 9.
enum TlvStart : uint16_t {
    kChassisId = 1 << 9 | 7,
    kPortId = 2 << 9 | 7,
    kTtl = 3 << 9 | 2,
    kEnd = 0,
};
// Subtype of a chassis or port: a MAC address.
enum Subtype : uint8_t { kChassisMac = 4, kPortMac = 3 };

}  // namespace

Bytes encodeBridgeDiscovery(const BridgeDiscovery &discovery) {
    WireWriter out;
    out.u16(kChassisId);
    out.u8(kChassisMac);
    out.mac(discovery.alMac);
    out.u16(kPortId);
    out.u8(kPortMac);
    out.mac(discovery.interface);
    out.u16(kTtl);
    out.u16(kTimeToLive);
    out.u16(kEnd);
    return out.take();
}

std::optional<BridgeDiscovery> parseBridgeDiscovery(ByteView payload) {
    WireReader reader(payload);
    BridgeDiscovery discovery;
    bool isOne = reader.u16() == kChassisId && reader.u8() == kChassisMac;
    discovery.alMac = reader.mac();
    isOne = isOne && reader.u16() == kPortId && reader.u8() == kPortMac;
    discovery.interface = reader.mac();
    isOne = isOne && reader.u16() == kTtl && reader.u16() > 0;
    if (!isOne || !reader.ok()) return std::nullopt;
    return discovery;
}

}  // namespace kv1905d
