// The report that every device sends of its stations to the whole network, and its merge on receipt.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Every 10 seconds. 0; 16 without stations or memory, then nothing was sent.
int kvSendWIFIClientInfo();

int handleWifiClientMcastMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg);

}  // namespace kv
