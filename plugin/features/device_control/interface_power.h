// The power state of an agent's Wi-Fi interfaces: queried, reported, changed.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Controller: queries an agent; tracked and resent like a configuration query. Returns 0 or KV_RET_ERR.
int sendIntfPwrStateQuery(const uint8_t *alMac, uint8_t retry);

int handleIntfPwrStateQueryMsg(const KvRecvVendTlv *source, uint16_t msgId);
int handleIntfPwrStateRespMsg(uint16_t msgId, KvVendMsg *msg);
int handleIntfPwrCtrlReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin);
int handleIntfPwrCtrlRespMsg(uint16_t msgId, KvVendMsg *msg);

}  // namespace kv
