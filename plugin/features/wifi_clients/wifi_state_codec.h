// Payloads of the Wi-Fi state messages.
//
// Type 8, request: a target (shared_payloads.h), the AL MAC of the queried agent, which does not compare it.
//
// Type 9, response: offset 0  1  N, number of stations, then N times, big-endian:
//                      +0  6  MAC of the station, or AL MAC of the device that it belongs to
//                      +6  2  mediaType       +14 1  signalLevel
//                      +8  2  Rate            +15 1  Band
//                      +10 2  RSSI, signed    +16 4  Tx
//                      +12 2  SNR, signed     +20 4  Rx
#pragma once

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

inline constexpr size_t kStationLen = 24;

// count: at most 255.
constexpr uint16_t wifiStateRespLen(uint32_t count) {
    return static_cast<uint16_t>(1 + count * kStationLen);
}

// The record is a WIFINeighborList that owns its entries; the handler frees them.
uint16_t parseWifiStateRespMsgData(ByteReader &payload, KvVendMsg &msg);

// Writes the first count entries of the list.
int genWifiStateRespMsgData(const KvVendMsg &msg, ByteWriter &writer);

}  // namespace kv
