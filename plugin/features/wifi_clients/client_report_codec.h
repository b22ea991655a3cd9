// The report that a device sends of its stations: payload and text.
//
// Payload:  offset 0  6  AL MAC of the reporting device, as in the envelope
//                  6  2  number of text bytes, big-endian, at most 1300
//                  8     the text: framed records in a row, without separator or terminator
//
// Framed record:  "078{0=AA:BB:CC:00:11:22,1=0105,2=866,3=-45,10=30,4=5,5=123,6=456,7=866,8=650,9=6}"
//   three decimal digits are the record's length, braces included; pairs of field number and value follow. The fields
//   are rows of one table in client_report_codec.cpp; pairs may come in any order, unknown numbers are skipped.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

inline constexpr size_t kMaxReportText = 1300;
inline constexpr uint16_t kReportHeaderLen = KV_MAC_LEN + sizeof(uint16_t);

struct KvWifiClientMsg {
    uint8_t alMac[KV_MAC_LEN];
    uint16_t dataLen;
    char text[1500];  // NUL-terminated when decoded
};

uint16_t parseWifiClientMsgData(ByteReader &payload, KvVendMsg &msg);
int genWifiClientMsgData(const KvVendMsg &msg, ByteWriter &writer);

// Writes the record of a station, braces included, as snprintf does: the text is cut to size, the full length returned.
int formatStation(char *text, size_t size, const WIFINeighborEntry &station);

// Appends an entry to list for each record of the text. list: empty. Returns 0, or 16 for a malformed text, which is
// printed, or without memory. The entries made so far then belong to list, whose count stays 0.
int copyWIFIclientMsgDataTokvWIFINeighborTable(WIFINeighborList *list, const KvWifiClientMsg *record);

}  // namespace kv
