// The configuration exchange: a controller queries an agent, which answers with its attributes.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Controller: queries an agent; retry counts the earlier attempts. Returns 0 or KV_RET_ERR.
int sendConfQuery(const uint8_t *alMac, uint8_t retry);

// Agent: responds to source under its msgId, or sends by relayed multicast when mcast is 1. Returns 0 or KV_RET_ERR.
int sendConfResp(const KvRecvVendTlv *source, uint16_t msgId, uint8_t mcast);

int handleConfQueryMsg(const KvRecvVendTlv *source, uint16_t msgId);
int handleConfRespMsg(uint16_t msgId, KvVendMsg *msg);

}  // namespace kv
