// The Wi-Fi bands that this host tells apart.
#pragma once

#include <cstdint>

namespace kv1905d {

enum Band { kBand24, kBand5, kBandOther };

// The band of an IEEE 1905.1 media type; kBandOther when it names none of the two, or no Wi-Fi.
constexpr Band wifiBand(uint16_t mediaType) {
    constexpr struct {
        uint16_t mediaType;
        Band band;
    } kRows[] = {
        {0x0100, kBand24},  // 802.11b
        {0x0101, kBand24},  // 802.11g
        {0x0102, kBand5},   // 802.11a
        {0x0103, kBand24},  // 802.11n, 2.4 GHz
        {0x0104, kBand5},   // 802.11n, 5 GHz
        {0x0105, kBand5},   // 802.11ac
    };
    for (const auto &row : kRows) {
        if (row.mediaType == mediaType) return row.band;
    }
    return kBandOther;
}

}  // namespace kv1905d
