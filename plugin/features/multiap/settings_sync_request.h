// The request that starts both settings syncs: an agent requests the password or the country of its controller.
#pragma once

#include <cstdint>

namespace kv {

enum { kSyncPassword = 0, kSyncCountry = 1 };

// command: the requested setting. Returns 0 when the request was passed to the host; it is never resent.
int sendSyncCtrlSettingReq(const uint8_t *alMac, int command);

}  // namespace kv
