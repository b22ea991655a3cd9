// The TLVs of link metric queries and their answers.
#pragma once

#include <optional>
#include <vector>

#include "cmdu.h"

namespace kv1905d {

struct LinkMetricQuery {
    std::optional<MacAddress> neighbour;  // nothing: all of them
    bool transmit = false;
    bool receive = false;
};

// Of one interface since it exists.
struct LinkStatistics {
    uint32_t sent = 0, sendErrors = 0, received = 0, receiveErrors = 0;  // packets
    uint16_t speed = 0;                                                  // Mbit/s; 0 when it is not known
};

// One link to a neighbour.
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
// The answer about a neighbour that is not known.
Tlv invalidNeighbourTlv();

}  // namespace kv1905d
