// The envelope of Intel's messages, the value of an IEEE 1905.1 vendor-specific TLV with OUI 00:03:47:
//
//   offset 0   3   OUI                       10   1   field10, 0 when sent
//          3   4   field3                    11   6   field11
//          7   2   field7                    17   1   zero
//          9   1   message type              18   2   field18, byte by byte
//                                            20   2   zero, then the payload
//
// The numbered fields are copied and never interpreted.
#pragma once

#include <cstddef>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

inline constexpr size_t kIntelEnvelopeLen = 22;
// Length assumed for a value without one: the envelope and a station's MAC.
inline constexpr size_t kIntelRequestLen = kIntelEnvelopeLen + KV_MAC_LEN;

// Describes one message type of Intel's set. Rows are defined in message_catalogue.cpp.
struct IntelMessageRow {
    uint8_t type;
    // Functions as in MessageRow; null if the type is not received or not sent.
    uint16_t (*decode)(ByteReader &payload, KvIntelVendMsg &msg);
    // Writes the payload and returns its length, 0 on failure.
    size_t (*encode)(const KvRssiMeasurement *payload, ByteWriter &writer);
    int (*handle)(const KvRecvVendTlv *source, uint16_t msgId, KvIntelVendMsg *msg);
};

const IntelMessageRow *findIntelMessageRow(uint8_t type);

// Decode and encode like parseKvVendMsg and genKvVendMsg; totalLen is 22 plus what the payload encoder wrote.
int parseIntelVendMsg(ByteReader value, KvIntelVendMsg *msg);
int genIntelVendMsg(uint8_t *buffer, uint32_t *totalLen, const KvIntelVendMsg *msg);

}  // namespace kv
