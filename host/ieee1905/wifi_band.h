// The Wi-Fi bands that this host distinguishes, and how each protocol writes them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace kv1905d {

enum Band { kBand24, kBand5, kBandOther };

struct BandRow {
    const char *name;
    uint8_t frequencyBand;   // in the frequency band TLVs of AP-autoconfiguration
    uint8_t rfBands;         // in Wi-Fi Simple Configuration
    uint8_t bssIndex;        // of the band's main BSS: the low four bits, the BSS on its radio, are zero
    uint8_t stationBand;     // in the plug-in's station entries
    uint16_t mediaTypes[3];  // of IEEE 1905.1
};

// Indexed by Band; kBandOther has no row.
inline constexpr BandRow kBands[] = {
    {"2.4GHz", 0x00, 0x01, 0x80, 1, {0x0100 /* 802.11b */, 0x0101 /* g */, 0x0103 /* n */}},
    {"5GHz", 0x01, 0x02, 0x40, 6, {0x0102 /* 802.11a */, 0x0104 /* n */, 0x0105 /* ac */}},
};

// Returns the first band whose row meets the condition, or kBandOther.
template <typename Condition>
constexpr Band findBand(const Condition &condition) {
    return static_cast<Band>(std::find_if(std::begin(kBands), std::end(kBands), condition) - std::begin(kBands));
}

// Returns the band that a protocol writes as `value`, for example bandOf(&BandRow::rfBands, 2).
constexpr Band bandOf(uint8_t BandRow::*member, uint8_t value) {
    return findBand([&](const BandRow &row) { return row.*member == value; });
}

constexpr Band bandOfMediaType(uint16_t mediaType) {
    return findBand([&](const BandRow &row) {
        return std::find(std::begin(row.mediaTypes), std::end(row.mediaTypes), mediaType) != std::end(row.mediaTypes);
    });
}

constexpr const char *bandName(Band band) {
    return band == kBandOther ? "" : kBands[band].name;
}

}  // namespace kv1905d
