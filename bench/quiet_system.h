// Surroundings of the measured plug-in: a platform that logs nothing and runs no command, a host that knows one agent
// and sends nothing, and a record of the heap blocks that the plug-in allocates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "kv1905/kvMAP1905.h"

namespace kvbench {

using Bytes = std::vector<uint8_t>;

inline constexpr uint8_t kLocal[KV_MAC_LEN] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
inline constexpr uint8_t kAgent[KV_MAC_LEN] = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};

void startHost();
KvDevVendorData &agentRecord();

// The values that work sends.
std::vector<Bytes> sentBy(const std::function<void()> &work);

// Sizes of the heap blocks that the plug-in allocates during work.
std::vector<size_t> blocksOf(const std::function<void()> &work);

Bytes fromHex(std::string_view text);

}  // namespace kvbench
