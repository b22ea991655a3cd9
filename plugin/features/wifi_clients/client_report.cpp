#include "features/wifi_clients/client_report.h"

#include <cstring>

#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "transport/send.h"

namespace kv {

namespace {

constexpr size_t kMaxFramedRecord = 150;
constexpr size_t kMaxBatchText = 1299;
static_assert(kMaxBatchText <= kMaxReportText);

// A framed record in the queue of a report.
struct WIFIClientMsgChunk {
    WIFIClientMsgChunk *next;
    uint16_t length;
    char text[kMaxFramedRecord + 1];
};

using Queue = std::unique_ptr<WIFIClientMsgChunk, FreeLinked>;

// Frames the record of each station. False when memory runs out.
bool fillQueue(Queue &queue, const WIFINeighborEntry *station) {
    WIFIClientMsgChunk *tail = nullptr;
    for (; station != nullptr; station = station->next) {
        char record[512];
        const int recordLength = formatStation(record, sizeof record, *station);
        LOG_DEVICE(KV_LOG_DEBUG, "send WiFi client information %s\n", record);
        char framed[sizeof record + 8];
        const int length = kos_snprintf(framed, sizeof framed, "%03d%s", recordLength, record);
        if (length < 0 || static_cast<size_t>(length) > kMaxFramedRecord) continue;
        auto chunk = allocateRecord<WIFIClientMsgChunk>();
        if (chunk == nullptr) return false;
        chunk->length = static_cast<uint16_t>(length);
        std::memcpy(chunk->text, framed, chunk->length);
        WIFIClientMsgChunk *added = chunk.release();
        if (tail == nullptr) {
            queue.reset(added);
        } else {
            tail->next = added;
        }
        tail = added;
    }
    return true;
}

// Sends one batch and empties it.
int sendmsgfunc(uint16_t &batchLen, const char *batchText) {
    KvWifiClientMsg record = {};
    std::memcpy(record.alMac, getMAPAlMac(), sizeof record.alMac);
    record.dataLen = batchLen;
    std::memcpy(record.text, batchText, batchLen);
    const KvVendMsg msg =
        makeVendMsg(VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, static_cast<uint16_t>(batchLen + kReportHeaderLen), &record);
    batchLen = 0;
    return sendRelayedMulticast(&msg, nullptr);
}

void sendQueue(const WIFIClientMsgChunk *chunk) {
    char batch[kMaxBatchText];
    uint16_t length = 0;
    for (; chunk != nullptr; chunk = chunk->next) {
        if (chunk->length + length > static_cast<int>(kMaxBatchText)) {
            sendmsgfunc(length, batch);
        }
        std::memcpy(batch + length, chunk->text, chunk->length);
        length = static_cast<uint16_t>(length + chunk->length);
        if (chunk->next == nullptr) {
            sendmsgfunc(length, batch);
        }
    }
}

}  // namespace

int kvSendWIFIClientInfo() {
    const OwnedStations stations = newStations();
    if (stations == nullptr) return KV_RET_ERR;
    kvGetWIFIConfdata(stations.get());
    Queue queue;
    if (stations->count == 0 || !fillQueue(queue, stations->head)) return KV_RET_ERR;
    sendQueue(queue.get());
    return KV_RET_OK;
}

int handleWifiClientMcastMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg) {
    LOG_MSG(KV_LOG_NOTICE, "received VEND_MSG_TYPE_WIFI_CLIENT_MCAST2 msgId %04x\n", msgId);
    uint8_t alMac[KV_MAC_LEN] = {};
    if (msg == nullptr || findReporter(source, alMac) != KV_RET_OK || msg->payload == nullptr) return KV_RET_ERR;
    const auto *report = static_cast<const KvWifiClientMsg *>(msg->payload);
    LOG_PLAIN(KV_LOG_DEBUG, "WiFiClient Mcast AlMac " KV_MAC ", send number %d, value %s\n",
              KV_MAC_BYTES(report->alMac), report->dataLen, report->text);
    const OwnedStations stations = newStations();
    if (stations == nullptr || copyWIFIclientMsgDataTokvWIFINeighborTable(stations.get(), report) != KV_RET_OK) {
        return KV_RET_ERR;
    }
    return mergeReport(alMac, stations.get());
}

}  // namespace kv
