// LLDP bridge discovery: announces an interface to the next device on its link, because bridges do not forward it.
#pragma once

#include <optional>

#include "wire.h"

namespace kv1905d {

inline constexpr uint16_t kLldpEtherType = 0x88CC;
inline constexpr MacAddress kLldpMac{{0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E}};

struct BridgeDiscovery {
    MacAddress alMac;
    MacAddress interface;
};

// Returns the payload after the Ethernet header.
Bytes encodeBridgeDiscovery(const BridgeDiscovery &discovery);
// Returns nullopt for other LLDP frames and malformed ones.
std::optional<BridgeDiscovery> parseBridgeDiscovery(ByteView payload);

}  // namespace kv1905d
