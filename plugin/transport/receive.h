// Receive entries and dispatchers.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Receives a TLV of any OUI, length bytes long.
void receiveTlv(const KvRecvVendTlv *tlv, uint32_t length, uint16_t msgId);

// Receive a TLV of the vendor's (Intel's) OUI of unknown length: the length in the envelope (28 bytes) is assumed.
void receiveVendorTlv(const KvRecvVendTlv *tlv, uint16_t msgId);
void receiveIntelTlv(const KvRecvVendTlv *tlv, uint16_t msgId);

// Calls the handler of msg's type; origin as in message_row.h. Returns the handler's result, KV_RET_ERR for unknown
// types.
int handleKvVendSpecMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin);
int handleIntelVendSpecMsg(const KvRecvVendTlv *source, uint16_t msgId, KvIntelVendMsg *msg, unsigned origin);

}  // namespace kv
