// The stations that other devices reported: one table per device, inside the host's record of it.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Stations that one device's table holds at most: far more than radios serve, and a bound on what a neighbour that
// invents stations can make this device keep.
inline constexpr uint32_t kMaxTableStations = 16384;

// Merges the reported stations into a device's table: refreshes those that it holds, appends the others. 0, or 16
// without a record or a list, or when memory runs out: what was merged before then stays.
int kvUpdateWiFiNbr(KvDevVendorData *devData, const WIFINeighborList *list);

// Finds the AL MAC of the device whose table a message from source belongs to. KV_RET_ERR when nobody owns source, or
// when it is this device: its list is the driver's, no message changes it.
int findReporter(const KvRecvVendTlv *source, uint8_t *alMac);

// The device's record, which is registered for ageing; null when the host has none.
KvDevVendorData *registeredTable(const uint8_t *alMac);

// Every 10 seconds: drops what no report has refreshed for more than 600 seconds from the tables of the registered
// devices. Returns 0.
int checkWIFIClientInfo();

}  // namespace kv
