// The request that starts both settings syncs: an agent asks its controller for the password or the country.
#pragma once

#include <cstdint>

namespace kv {

enum { kSyncPassword = 0, kSyncCountry = 1 };

// command: what to ask for. 0 when the request was handed to the host; no answer is awaited or asked for again.
int sendSyncCtrlSettingReq(const uint8_t *alMac, int command);

}  // namespace kv
