// Payloads that carry the controller's settings. Both requests are the target payload.
//
// Password, 264 bytes:   0  6  AL MAC of the sender    6  2  length, big-endian, at most 255    8  256  password, zeros
// Country, 7 + L:        0  6  AL MAC of the sender    6  1  L, at most 4                       7  L    country
//
// Decoding applies: the decoders pass a complete, valid payload to password_sync and country_sync and leave no record.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

inline constexpr uint16_t kSyncPwdLen = 264;
inline constexpr size_t kMaxPwdLen = 255;
inline constexpr size_t kMaxCountryLen = 4;

constexpr uint16_t syncCountryLen(size_t countryLen) {
    return static_cast<uint16_t>(7 + countryLen);
}

uint16_t parseSyncCtrlerPwdMsgData(ByteReader &payload, KvVendMsg &msg);
int genSyncCtrlerPwdMsgData(const KvVendMsg &msg, ByteWriter &writer);
uint16_t parseSyncCtrlerCountryMsgData(ByteReader &payload, KvVendMsg &msg);
int genSyncCtrlerCountryMsgData(const KvVendMsg &msg, ByteWriter &writer);

}  // namespace kv
