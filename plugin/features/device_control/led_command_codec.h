// Payloads of LED control and remote commands. Both responses are the shared result payload.
//
// LED, 7 bytes:      0  6  AL MAC of the agent, all zero for all        6  1  0 off, any other value on
// Command:           0  2  words, big-endian       2  2  characters, big-endian       4     text, no terminator
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

inline constexpr uint16_t kLedCtrlLen = 7;

constexpr uint32_t commandReqLen(const KvCommandReq &request) {
    return 4u + request.CommandURLcount;
}

uint16_t parseLedCtrlMsgData(ByteReader &payload, KvVendMsg &msg);
int genLedCtrlMsgData(const KvVendMsg &msg, ByteWriter &writer);

// Refuses a message whose text does not fit the record.
uint16_t parseCommandReqMsgData(ByteReader &payload, KvVendMsg &msg);
int genCommandReqMsgData(const KvVendMsg &msg, ByteWriter &writer);

}  // namespace kv
