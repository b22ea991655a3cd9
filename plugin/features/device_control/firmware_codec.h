// Payload of the firmware control request. The response is the shared result payload.
//
//   0  1  option
//   1  2  L, big-endian: URL length + 1 when there is a topology option, else 0
//   3  1  topology option   } only when L is not 0
//   4     URL, L - 1 bytes  }
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

// Returns the bytes of a request on the wire; without a topology option the URL is not carried.
uint32_t fwCtrlReqLen(const KvFWCtrlReq &request);

// Refuses a message whose URL does not fit the record.
uint16_t parseFWCtrlReqMsgData(ByteReader &payload, KvVendMsg &msg);
int genFWCtrlReqMsgData(const KvVendMsg &msg, ByteWriter &writer);

}  // namespace kv
