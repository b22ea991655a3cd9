// Queries that a response clears: sent to one device, with its AL MAC as payload, and recorded when sent.
#pragma once

#include <cstdint>

namespace kv {

// name: in the log lines; retry: number of earlier attempts. Returns 0, or KV_RET_ERR with nothing recorded.
int sendTrackedQuery(uint16_t type, const char *name, const uint8_t *alMac, uint8_t retry);

}  // namespace kv
