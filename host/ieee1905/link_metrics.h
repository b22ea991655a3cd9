// The TLVs of link metric queries and responses.
#pragma once

#include <optional>
#include <vector>

#include "cmdu.h"

namespace kv1905d {

struct LinkMetricQuery {
    std::optional<MacAddress> neighbour;  // nullopt: all of them
    bool transmit = false;
    bool receive = false;
};

// Counters of an interface since its creation.
struct LinkStatistics {
    uint32_t sent = 0, sendErrors = 0, received = 0, receiveErrors = 0;  // packets
    uint16_t speed = 0;                                                  // Mbit/s; 0 if unknown
};

// A link to a neighbour.
struct LinkMetrics {
    MacAddress ownInterface;
    MacAddress neighbourInterface;
    uint16_t mediaType = 0;
    bool viaBridge = false;
    LinkStatistics statistics;
};

std::optional<LinkMetricQuery> parseLinkMetricQuery(ByteView value);
Tlv transmitterMetricsTlv(const MacAddress &alMac, const MacAddress &neighbour, const std::vector<LinkMetrics> &links);
Tlv receiverMetricsTlv(const MacAddress &alMac, const MacAddress &neighbour, const std::vector<LinkMetrics> &links);
// Returns the response about an unknown neighbour.
Tlv invalidNeighbourTlv();

}  // namespace kv1905d
