// Encoding a message and handing it to one of the host's send slots.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Each returns 0 when the message was encoded and the host took it, else KV_RET_ERR; the outcome is logged.
// destinationMac: 6 bytes. msgId: in-out, see Kv1905BcmCbs.
int sendUnicast(const uint8_t *destinationMac, uint16_t *msgId, const KvVendMsg *msg);
int sendIntelUnicast(const uint8_t *destinationMac, uint16_t *msgId, const KvIntelVendMsg *msg);
int sendMulticast(const KvVendMsg *msg, uint16_t *msgId);
int sendRelayedMulticast(const KvVendMsg *msg, uint16_t *msgId);

}  // namespace kv
