// Role selection: the flag word for the host, and whether this device is the Multi-AP controller.
#pragma once

namespace kv {

// Rebuilds kvFlags from the configuration file. Returns KV_RET_ERR, with kvFlags unchanged, if it cannot be opened.
int updateParameters();

// Returns 1 if bit 0 of the nvram setting multiap_mode is set, else 0.
int findController();

}  // namespace kv
