// Responses to device-control requests: a result of the request's type, or of a remote command.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Sends msg to the request's source under its msgId; what the host makes of the identifier is not read. 0 or
// KV_RET_ERR.
int sendAnswer(const KvRecvVendTlv *source, uint16_t msgId, const KvVendMsg &msg);

// Sends a result payload of that type to the request's source under its msgId. 0 or KV_RET_ERR.
int sendResultMsg(const KvRecvVendTlv *source, uint16_t msgId, uint16_t responseType, uint32_t result);

// The same as VEND_MSG_TYPE_COMMAND_RESP; also KV_RET_ERR when the result it sent is not 0.
int sendCommandRespMsg(const KvRecvVendTlv *source, uint16_t msgId, uint32_t result);

// The result byte of a decoded response, and its report to the command tool.
uint32_t resultOf(const KvVendMsg *msg);
void reportResult(uint32_t result);

}  // namespace kv
