#include "features/wifi_clients/rssi_measurement.h"

#include <cstring>

#include "features/wifi_clients/local_stations.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "protocol/shared_payloads.h"
#include "transport/send.h"

namespace kv {

namespace {

constexpr size_t kMeasurementLen = 17;
constexpr uint8_t kUnknownRssi = 0xA6;  // -90 dBm
constexpr uint8_t kInResponse = 0x00;
constexpr uint8_t kInNotification = 0x64;

// Constants of a notification, defined by Intel.
constexpr uint8_t kNotifyField3[4] = {0x55, 0xCD, 0xAB, 0xEF};
constexpr uint8_t kNotifyField7[2] = {0x06, 0x0A};

size_t writeMeasurement(const KvRssiMeasurement &measurement, uint8_t kind, ByteWriter &writer) {
    writer.bytes(measurement.staMac, sizeof measurement.staMac);
    writer.u16(0);
    writer.u16(measurement.rxRate10);
    writer.u16(measurement.txRate10);
    writer.u8(measurement.rssi);
    writer.u8(measurement.snr);
    writer.u8(kind);
    writer.u16(0);
    return kMeasurementLen;
}

// Fills in the values of a station in the local list; otherwise leaves the measurement unchanged. result: the lookup's.
// Returns false if memory ran out.
bool measure(KvRssiMeasurement &measurement, int &result) {
    const auto entry = allocateRecord<WIFINeighborEntry>();
    if (entry == nullptr) return false;
    result = kvGetWIFIStaData(measurement.staMac, entry.get());
    if (result == KV_RET_OK) {
        measurement.rxRate10 = static_cast<uint16_t>(entry->rx_rate * 10);
        measurement.txRate10 = static_cast<uint16_t>(entry->tx_rate * 10);
        measurement.rssi = static_cast<uint8_t>(entry->RSSI);
        measurement.snr = static_cast<uint8_t>(entry->SNR);
    }
    return true;
}

}  // namespace

uint16_t parseRssiMeasurementReq(ByteReader &payload, KvIntelVendMsg &msg) {
    return decodeRecord<KvRssiMeasurement>(payload, msg, [&](KvRssiMeasurement &request) {
        payload.copyTo(request.staMac, sizeof request.staMac);
        return true;
    });
}

size_t genRssiMeasurementResp(const KvRssiMeasurement *payload, ByteWriter &writer) {
    return writeMeasurement(*payload, kInResponse, writer);
}

size_t genRssiMeasurementNotify(const KvRssiMeasurement *payload, ByteWriter &writer) {
    return writeMeasurement(*payload, kInNotification, writer);
}

int handleIntelRssiMeasurementReq(const KvRecvVendTlv *source, uint16_t msgId, KvIntelVendMsg *msg) {
    KvRssiMeasurement measurement = {};
    std::memcpy(measurement.staMac, msg->payload->staMac, sizeof measurement.staMac);
    measurement.rssi = kUnknownRssi;

    KvIntelVendMsg answer = *msg;
    std::memcpy(answer.oui, kIntelOui, sizeof answer.oui);
    answer.msgType = INTEL_MSG_TYPE_RSSI_MEASUREMENT_RESP;
    answer.field10 = 0;
    answer.payload = &measurement;
    if (int found = KV_RET_ERR; !measure(measurement, found)) return KV_RET_ERR;
    if (sendIntelUnicast(source->srcMac, &msgId, &answer) != KV_RET_OK) {
        LOG_MSG(KV_LOG_WARNING, "fail send rssi measurement response to " KV_MAC "\n", KV_MAC_BYTES(source->srcMac));
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

int sendRssiMeasurementNotify(const uint8_t *destination, KvIntelVendMsg *msg) {
    if (destination == nullptr || msg == nullptr || msg->payload == nullptr) {
        LOG_MSG(KV_LOG_WARNING, "rssi measurement notify without a destination or a station\n");
        return KV_RET_ERR;
    }
    std::memcpy(msg->oui, kIntelOui, sizeof msg->oui);
    std::memcpy(msg->field3, kNotifyField3, sizeof msg->field3);
    std::memcpy(msg->field7, kNotifyField7, sizeof msg->field7);
    msg->msgType = INTEL_MSG_TYPE_RSSI_MEASUREMENT_NOTIFY;
    msg->field10 = 0;

    int result = KV_RET_ERR;
    if (!measure(*msg->payload, result)) return KV_RET_ERR;
    uint16_t msgId = 0;
    if (sendIntelUnicast(destination, &msgId, msg) != KV_RET_OK) {
        LOG_MSG(KV_LOG_WARNING, "fail send rssi measurement notify to " KV_MAC "\n", KV_MAC_BYTES(destination));
        return KV_RET_ERR;
    }
    return result;
}

}  // namespace kv
