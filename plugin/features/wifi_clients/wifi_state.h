// Wi-Fi state: a controller requests an agent's stations, the agent responds in several messages.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

int sendWifiStateQuery(const uint8_t *alMac);

int handleWifiStateReqMsg(const KvRecvVendTlv *source, uint16_t msgId);
int handleWifiStateRespMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg);

}  // namespace kv
