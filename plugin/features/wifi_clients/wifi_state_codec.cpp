#include "features/wifi_clients/wifi_state_codec.h"

#include "features/wifi_clients/station_list.h"
#include "frame/memory.h"

namespace kv {

namespace {

// Fields that are not carried stay 0.
void readStation(ByteReader &payload, WIFINeighborEntry &station) {
    payload.copyTo(station.mac, sizeof station.mac);
    station.mediaType = payload.u16();
    station.Rate = payload.u16();
    station.RSSI = static_cast<int16_t>(payload.u16());
    station.SNR = static_cast<int16_t>(payload.u16());
    station.signalLevel = payload.u8();
    station.Band = payload.u8();
    station.Tx = payload.u32();
    station.Rx = payload.u32();
}

void writeStation(const WIFINeighborEntry &station, ByteWriter &writer) {
    writer.bytes(station.mac, sizeof station.mac);
    writer.u16(station.mediaType);
    writer.u16(station.Rate);
    writer.u16(static_cast<uint16_t>(station.RSSI));
    writer.u16(static_cast<uint16_t>(station.SNR));
    writer.u8(static_cast<uint8_t>(station.signalLevel));
    writer.u8(station.Band);
    writer.u32(station.Tx);
    writer.u32(station.Rx);
}

}  // namespace

uint16_t parseWifiStateRespMsgData(ByteReader &payload, KvVendMsg &msg) {
    OwnedStations list = newStations();
    if (list == nullptr) return 0;
    list->count = payload.u8();
    if (!payload.ok() || payload.remaining() < list->count * kStationLen) {
        return 0;  // allocate no memory for stations that are missing
    }
    WIFINeighborEntry **end = &list->head;
    for (uint32_t i = 0; i < list->count; ++i) {
        auto station = allocateRecord<WIFINeighborEntry>();
        if (station == nullptr) return 0;
        readStation(payload, *station);
        *end = station.release();
        end = &(*end)->next;
    }
    const uint16_t consumed = wifiStateRespLen(list->count);
    msg.payload = list.release();
    return consumed;
}

int genWifiStateRespMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *list = static_cast<const WIFINeighborList *>(msg.payload);
    writer.u8(static_cast<uint8_t>(list->count));
    const WIFINeighborEntry *station = list->head;
    for (uint32_t i = 0; i < list->count && writer.ok(); ++i, station = station->next) {
        if (station == nullptr) return KV_RET_ERR;
        writeStation(*station, writer);
    }
    return KV_RET_OK;
}

}  // namespace kv
