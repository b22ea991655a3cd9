// Identity of this device: its AL MAC, the vendors' OUIs, its uptime.
#pragma once

#include <cstdint>
#include <cstring>

#include "kv1905/kvMAP1905.h"
#include "kv1905/vendor_messages.h"

namespace kv {

inline constexpr uint8_t kIntelOui[KV_OUI_LEN] = {KV_INTEL_OUI >> 16, KV_INTEL_OUI >> 8 & 0xFF, KV_INTEL_OUI & 0xFF};

inline bool sameMac(const uint8_t *left, const uint8_t *right) {
    return std::memcmp(left, right, KV_MAC_LEN) == 0;
}

inline bool isZeroMac(const uint8_t *mac) {
    constexpr uint8_t kZero[KV_MAC_LEN] = {};
    return sameMac(mac, kZero);
}

// The local AL MAC; the pointer never changes, its content is the host's.
const uint8_t *getMAPAlMac();

// The vendor's OUI, three bytes.
const uint8_t *getMAPAlOui();

// Whole seconds since the system started.
int32_t getSysUptime();

}  // namespace kv
