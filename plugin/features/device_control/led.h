// The agent's LEDs, switched through the configuration service.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

int handleLedCtrlReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin);
int handleLedCtrlMcastMsg(KvVendMsg *msg);
int handleLedCtrlRespMsg(uint16_t msgId, KvVendMsg *msg);

}  // namespace kv
