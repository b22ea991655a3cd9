#include "frame/identity.h"

#include <sys/sysinfo.h>

uint8_t KvDevAlMac[KV_MAC_LEN] = {};
uint8_t controller = 1;
uint32_t download_timeout = 90;
const uint8_t I5_MCAST_MAC_ADDRESS[KV_MAC_LEN] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x13};

namespace kv {

namespace {
constexpr uint8_t kVendorOui[KV_OUI_LEN] = {KV_VENDOR_OUI >> 16, KV_VENDOR_OUI >> 8 & 0xFF, KV_VENDOR_OUI & 0xFF};
}

const uint8_t *getMAPAlMac() {
    return KvDevAlMac;
}

const uint8_t *getMAPAlOui() {
    return kVendorOui;
}

int32_t getSysUptime() {
    struct sysinfo info = {};
    if (sysinfo(&info) != 0) return 0;
    return static_cast<int32_t>(info.uptime);
}

}  // namespace kv
