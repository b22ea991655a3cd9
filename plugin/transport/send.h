// Encodes a message and passes it to one of the host's send slots.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "kv1905/vendor_messages.h"

namespace kv {

// Return 0 if the message was encoded and the host accepted it, else KV_RET_ERR, and log the outcome. destinationMac: 6
// bytes. msgId: in-out, see Kv1905BcmCbs.
int sendUnicast(const uint8_t *destinationMac, uint16_t *msgId, const KvVendMsg *msg);
// Sends a message whose payload is its destination's AL MAC.
int sendTarget(const uint8_t *alMac, uint16_t type, uint16_t *msgId);
int sendIntelUnicast(const uint8_t *destinationMac, uint16_t *msgId, const KvIntelVendMsg *msg);
int sendMulticast(const KvVendMsg *msg, uint16_t *msgId);
int sendRelayedMulticast(const KvVendMsg *msg, uint16_t *msgId);

}  // namespace kv
