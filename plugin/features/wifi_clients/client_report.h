// The report that every device sends of its stations to the whole network, and its merge on receipt.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Sends the report; called every 10 seconds. Returns 0, or 16 if nothing was sent: without stations or memory.
int kvSendWIFIClientInfo();

int handleWifiClientMcastMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg);

}  // namespace kv
