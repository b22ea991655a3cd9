// The two payloads that device control shares.
//
// Target, 6 bytes:   0  6  AL MAC of the agent that is to act
// Result, 1 byte:    0  1  result code: 0, KV_RET_NOT_FOUND, KV_RET_ERR
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

inline constexpr uint16_t kTargetLen = KV_MAC_LEN;
inline constexpr uint16_t kResultLen = 1;

struct KvTargetData {
    uint8_t alMac[KV_MAC_LEN];
};

using KvResultData = uint32_t;  // the byte, zero-extended

// The same layout three times; what differs is the line that names the target.
uint16_t parseTargetMsgData(ByteReader &payload, KvVendMsg &msg);        // no line
uint16_t parseRebootTargetMsgData(ByteReader &payload, KvVendMsg &msg);  // without a level
uint16_t parseNamedTargetMsgData(ByteReader &payload, KvVendMsg &msg);   // debug
int genTargetMsgData(const KvVendMsg &msg, ByteWriter &writer);

uint16_t parseResultMsgData(ByteReader &payload, KvVendMsg &msg);
int genResultMsgData(const KvVendMsg &msg, ByteWriter &writer);

}  // namespace kv
