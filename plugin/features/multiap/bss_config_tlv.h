// The BSS configuration TLV, a vendor-specific TLV value:
//
//   0  3  OUI 02:4E:A7      3  1  0xD0      4  2  bytes that follow, big-endian      6  1  count
//   7     per BSS: BandIndex (1), Attribute (1), MDID (2, big-endian), TCI (2, big-endian), WlMode (1), ExtAttribute
//   (1)
#pragma once

#include <cstdint>

namespace kv {

// list: uint32_t count, then KvBssConfig entries from offset 4. Returns 0 or -1.
int insertBssConfigTlv(uint8_t *buffer, uint32_t *length, const void *list);

}  // namespace kv
