// Payloads that several families share, and the step that all payload decoders have in common.
//
// Target, 6 bytes:   0  6  AL MAC of the agent that is to act or answer
// Result, 1 byte:    0  1  result code: 0, KV_RET_NOT_FOUND, KV_RET_ERR
#pragma once

#include <cstdint>

#include "frame/memory.h"
#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

// Reads a payload with read(record) into a new record, which msg then owns. Returns the bytes consumed; 0 if read
// refuses the payload by returning false, if the payload is too short, or without memory.
template <typename Record, typename Message, typename Read>
uint16_t decodeRecord(ByteReader &payload, Message &msg, Read read) {
    const size_t available = payload.remaining();
    auto record = allocateRecord<Record>();
    if (record == nullptr || !read(*record) || !payload.ok()) return 0;
    msg.payload = record.release();
    return static_cast<uint16_t>(available - payload.remaining());
}

// Returns the record of a message to encode; the envelope's encoder refuses a message without one.
template <typename Record>
const Record &recordOf(const KvVendMsg &msg) {
    return *static_cast<const Record *>(msg.payload);
}

inline constexpr uint16_t kTargetLen = KV_MAC_LEN;
inline constexpr uint16_t kResultLen = 1;

struct KvTargetData {
    uint8_t alMac[KV_MAC_LEN];
};

using KvResultData = uint32_t;  // the byte, zero-extended

// Decode the same layout; they differ in the line that names the target.
uint16_t parseTargetMsgData(ByteReader &payload, KvVendMsg &msg);        // no line
uint16_t parseRebootTargetMsgData(ByteReader &payload, KvVendMsg &msg);  // without a level
uint16_t parseNamedTargetMsgData(ByteReader &payload, KvVendMsg &msg);   // debug
int genTargetMsgData(const KvVendMsg &msg, ByteWriter &writer);

uint16_t parseResultMsgData(ByteReader &payload, KvVendMsg &msg);
int genResultMsgData(const KvVendMsg &msg, ByteWriter &writer);

}  // namespace kv
