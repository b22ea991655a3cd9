// Payloads of the interface power messages. At most 30 interfaces; a larger count refuses the message.
//
// State query:       the target payload
// State response:    0  6  AL MAC of the reporting agent      6  1  N
//                    7     N interfaces: MAC (6), media type (2, big-endian), power state (1)
// Control request:   0  6  AL MAC of the agent                6  1  N
//                    7     N interfaces: MAC (6), media type (2, big-endian); then the power state (1)
// Control response:  0  1  N
//                    1     N interfaces: MAC (6), media type (2, big-endian), result (1)
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

inline constexpr unsigned kMaxPowerEntries = KV_MAX_INTF_PWR_ENTRIES;

struct KvIntfPwrStateEntry {
    uint8_t mac[KV_MAC_LEN];
    uint16_t mediaType;
    uint8_t pwrState;
};

struct KvIntfPwrStateRec {
    uint8_t alMac[KV_MAC_LEN];
    uint8_t count;
    KvIntfPwrStateEntry entries[kMaxPowerEntries];
};

struct KvIntfPwrCtrlResult {
    uint8_t mac[KV_MAC_LEN];
    uint16_t mediaType;
    uint8_t retCode;
};

struct KvIntfPwrCtrlResp {
    uint8_t count;
    KvIntfPwrCtrlResult entries[kMaxPowerEntries];
};

constexpr uint16_t powerStateRespLen(unsigned count) {
    return static_cast<uint16_t>(7 + 9 * count);
}
constexpr uint16_t powerCtrlReqLen(unsigned count) {
    return static_cast<uint16_t>(8 + 8 * count);
}
constexpr uint16_t powerCtrlRespLen(unsigned count) {
    return static_cast<uint16_t>(1 + 9 * count);
}

uint16_t parseIntfPwrStateRespMsgData(ByteReader &payload, KvVendMsg &msg);
int genIntfPwrStateRespMsgData(const KvVendMsg &msg, ByteWriter &writer);
uint16_t parseIntfPwrCtrlReqMsgData(ByteReader &payload, KvVendMsg &msg);
int genIntfPwrCtrlReqMsgData(const KvVendMsg &msg, ByteWriter &writer);
uint16_t parseIntfPwrCtrlRespMsgData(ByteReader &payload, KvVendMsg &msg);
int genIntfPwrCtrlRespMsgData(const KvVendMsg &msg, ByteWriter &writer);

}  // namespace kv
