// Responses to device-control requests: a result of the request's type, or of a remote command.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Sends msg to the request's source under its msgId and ignores what the host writes there. Returns 0 or KV_RET_ERR.
int sendAnswer(const KvRecvVendTlv *source, uint16_t msgId, const KvVendMsg &msg);

// Sends a result payload of that type to the request's source under its msgId. Returns 0 or KV_RET_ERR.
int sendResultMsg(const KvRecvVendTlv *source, uint16_t msgId, uint16_t responseType, uint32_t result);

// Does the same with VEND_MSG_TYPE_COMMAND_RESP. Also returns KV_RET_ERR if the result it sent is not 0.
int sendCommandRespMsg(const KvRecvVendTlv *source, uint16_t msgId, uint32_t result);

// Reports the result byte of a decoded response to the command tool.
uint32_t resultOf(const KvVendMsg *msg);
void reportResult(uint32_t result);

}  // namespace kv
