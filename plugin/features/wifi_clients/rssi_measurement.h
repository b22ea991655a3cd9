// Intel's RSSI messages: the signal of one station of this device, requested by a peer or pushed by the host.
//
// Request, 6 bytes: the station's MAC. Response and notification, 17 bytes, big-endian:
//   offset 0   6   station's MAC        12  1   RSSI, low 8 bits
//          6   2   zero                 13  1   SNR, low 8 bits
//          8   2   rxRate10             14  1   0x00 in a response, 0x64 in a notification
//          10  2   txRate10             15  2   zero
#pragma once

#include <cstddef>
#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "kv1905/vendor_messages.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

uint16_t parseRssiMeasurementReq(ByteReader &payload, KvIntelVendMsg &msg);
size_t genRssiMeasurementResp(const KvRssiMeasurement *payload, ByteWriter &writer);
size_t genRssiMeasurementNotify(const KvRssiMeasurement *payload, ByteWriter &writer);

int handleIntelRssiMeasurementReq(const KvRecvVendTlv *source, uint16_t msgId, KvIntelVendMsg *msg);

int sendRssiMeasurementNotify(const uint8_t *destination, KvIntelVendMsg *msg);

}  // namespace kv
