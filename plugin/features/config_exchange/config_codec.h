// Payload of the configuration response. The query is the target payload.
//
//                     0  6  AL MAC of the answering agent
//                     6  1  attribute count N
//                     7     N attributes: type (1), length L (2, big-endian), value (L)
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

// A received value longer than attrValue is cut to it; attrLen is what is left.
struct KvConfAttr {
    uint8_t attrType;
    uint16_t attrLen;
    uint8_t attrValue[128];
};

struct KvConfRespData {
    uint8_t alMac[KV_MAC_LEN];
    uint8_t count;
    KvConfAttr attributes[256];
};

// Returns the bytes of a response on the wire.
uint32_t confRespLen(const KvConfRespData &response);

uint16_t parseConfRespMsgData(ByteReader &payload, KvVendMsg &msg);
int genConfRespMsgData(const KvVendMsg &msg, ByteWriter &writer);

}  // namespace kv
