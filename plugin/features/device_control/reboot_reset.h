// Reboot, reset and partial reset of an agent. The agent answers first and acts afterwards.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

int handleRebootReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin);
int handleRebootRespMsg(uint16_t msgId, KvVendMsg *msg);
int handleResetDefaultReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin);
int handleResetDefaultRespMsg(uint16_t msgId, KvVendMsg *msg);
int handlePartialResetDefaultReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin);
int handlePartialResetDefaultRespMsg(uint16_t msgId, KvVendMsg *msg);

}  // namespace kv
