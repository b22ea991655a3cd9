// The envelope of the vendor's messages, the value of an IEEE 1905.1 vendor-specific TLV:
//
//   offset 0   3   OUI 02:4E:A7
//          3   6   AL MAC of the device that built the message
//          9   2   marker, 00 01 when sent, not checked when received
//         11   2   message type, big-endian
//         13   2   payload length, big-endian
//         15       payload; the type's row in the catalogue names its codec
#pragma once

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"

namespace kv {

inline constexpr size_t kEnvelopeLen = 15;

// Decodes a TLV value into a zero-filled msg. On success msg->payload holds the type's record (or null where the
// decoder does all the work). On KV_RET_ERR the reason is logged, msg may hold part of the header and payload is null.
int parseKvVendMsg(ByteReader value, KvVendMsg *msg);

// Encodes msg into a zero-filled buffer of KV_VEND_MSG_BUFFER_LEN bytes. totalLen becomes 15 + payloadLen, also if the
// type or the payload is refused; with a null buffer it is not written. Returns 0 or KV_RET_ERR.
int genKvVendMsg(uint8_t *buffer, uint32_t *totalLen, const KvVendMsg *msg);

// Returns a message of this device, with OUI, AL MAC and marker filled in.
KvVendMsg makeVendMsg(uint16_t msgType, uint16_t payloadLen, void *payload);

}  // namespace kv
