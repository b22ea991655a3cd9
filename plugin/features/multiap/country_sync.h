// The country in the beacons: requested from the controller, or pushed by it, and set on every radio.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Controller: responds with its own setting, or an empty one. Returns 0 or KV_RET_ERR.
int handleSyncControllerCountryBcnReqMsg(const KvRecvVendTlv *source, uint16_t msgId);

// Stores the country (0 to 4 letters, digits or /) in every radio and applies it if that succeeded.
void applyCountry(const char *country);

// Applies one radio's setting with wl. Returns 0.
int updateCountryInBeacon(const char *ifname, const char *countryCode, const char *beaconCountry);

}  // namespace kv
