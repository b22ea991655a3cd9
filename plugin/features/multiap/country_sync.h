// The country in the beacons: requested from the controller, or pushed by it, and set on every radio.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Controller: answer with the own setting, empty when there is none. 0 or KV_RET_ERR.
int handleSyncControllerCountryBcnReqMsg(const KvRecvVendTlv *source, uint16_t msgId);

// Stores the country (0 to 4 letters, digits or /) in every radio and applies it where that succeeded.
void applyCountry(const char *country);

// One radio's setting, with wl. Returns 0.
int updateCountryInBeacon(const char *ifname, const char *countryCode, const char *beaconCountry);

}  // namespace kv
