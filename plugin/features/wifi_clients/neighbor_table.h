// The stations that other devices reported: one table per device, inside the host's record of it.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Maximum stations in one device's table: far more than radios serve. Limits the memory that a device with invented
// stations can use.
inline constexpr uint32_t kMaxTableStations = 8192;

// Merges the reported stations into a device's table: refreshes known ones, appends others up to the table's limit.
// Returns 0, or 16 without a record or a list, or if memory runs out: stations merged before that stay.
int kvUpdateWiFiNbr(KvDevVendorData *devData, const WIFINeighborList *list);

// Merges what a device reported into its table, which is registered for ageing, and requests a JSON write. KV_RET_ERR
// when the device is not in the topology.
int mergeReport(const uint8_t *alMac, const WIFINeighborList *list);

// Finds the AL MAC of the device whose table a message from source belongs to. Returns KV_RET_ERR if no device owns
// source, or if it is this device: its list comes from the driver, no message changes it.
int findReporter(const KvRecvVendTlv *source, uint8_t *alMac);

// Removes stations that no report refreshed for more than 600 seconds from the tables of the registered devices; called
// every 10 seconds. Returns 0.
int checkWIFIClientInfo();

}  // namespace kv
