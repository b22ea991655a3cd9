// The stations that other devices reported: one table per device, inside the host's record of it.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Stations that one device's table holds at most: far more than radios serve, and a bound on the memory that a
// device with invented stations can use.
inline constexpr uint32_t kMaxTableStations = 8192;

// Merges the reported stations into a device's table: refreshes those that it holds, appends the others, as far as the
// table may grow. 0, or 16 without a record or a list, or when memory runs out: what was merged before then stays.
int kvUpdateWiFiNbr(KvDevVendorData *devData, const WIFINeighborList *list);

// Merges what a device reported into its table, which is registered for ageing, and requests a JSON write. KV_RET_ERR
// when the device is not in the topology.
int mergeReport(const uint8_t *alMac, const WIFINeighborList *list);

// Finds the AL MAC of the device whose table a message from source belongs to. KV_RET_ERR when no device owns source,
// or when it is this device: its list is the driver's, no message changes it.
int findReporter(const KvRecvVendTlv *source, uint8_t *alMac);

// Every 10 seconds: drops what no report has refreshed for more than 600 seconds from the tables of the registered
// devices. Returns 0.
int checkWIFIClientInfo();

}  // namespace kv
