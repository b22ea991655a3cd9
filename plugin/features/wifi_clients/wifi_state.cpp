#include "features/wifi_clients/wifi_state.h"

#include <algorithm>

#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "features/wifi_clients/wifi_state_codec.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "transport/send.h"

namespace kv {

namespace {

constexpr uint32_t kStationsPerResponse = 32;

// Sends a part of the list. msgId 0 lets the host choose an identifier. After a failure the next part is still sent.
void sendChunk(const uint8_t *destinationMac, uint16_t msgId, WIFINeighborList *chunk) {
    const KvVendMsg msg = makeVendMsg(VEND_MSG_TYPE_WIFI_STATE_RESP, wifiStateRespLen(chunk->count), chunk);
    sendUnicast(destinationMac, &msgId, &msg);
    LOG_MSG(KV_LOG_NOTICE, "transmit VEND_MSG_TYPE_WIFI_STATE_RESP msgId %04x\n", msgId);
}

}  // namespace

int sendWifiStateQuery(const uint8_t *alMac) {
    if (alMac == nullptr) {
        LOG_MSG(KV_LOG_WARNING, "WiFi state query without an AL MAC\n");
        return KV_RET_ERR;
    }
    LOG_MSG(KV_LOG_DEBUG, "send WiFi state query to " KV_MAC "\n", KV_MAC_BYTES(alMac));
    uint16_t msgId = 0;
    if (sendTarget(alMac, VEND_MSG_TYPE_WIFI_STATE_REQ, &msgId) != KV_RET_OK) {
        LOG_MSG(KV_LOG_WARNING, "fail send WiFi state query to " KV_MAC "\n", KV_MAC_BYTES(alMac));
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

int handleWifiStateReqMsg(const KvRecvVendTlv *source, uint16_t msgId) {
    LOG_MSG(KV_LOG_NOTICE, "received VEND_MSG_TYPE_WIFI_STATE_REQ msgId %04x\n", msgId);
    const OwnedStations stations = newStations();
    if (stations == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Allocate memory failed for WiFiStateReq\n");
        return KV_RET_ERR;
    }
    const auto chunk = allocateRecord<WIFINeighborList>();
    if (chunk == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Allocate memory failed for split_linklist\n");
        return KV_RET_ERR;
    }
    if (kvGetWIFIConfdata(stations.get()) != KV_RET_OK) {
        LOG_PLAIN(KV_LOG_ERROR, "Allocate memory failed for WiFiStateReq\n");
        return KV_RET_ERR;  // a partial list is not sent
    }
    uint32_t rest = stations->count;
    chunk->head = stations->head;
    while (true) {
        chunk->count = std::min(rest, kStationsPerResponse);
        rest -= chunk->count;
        sendChunk(source->srcMac, msgId, chunk.get());
        if (rest == 0) return KV_RET_OK;
        msgId = 0;
        for (uint32_t i = 0; i < kStationsPerResponse; ++i) {
            chunk->head = chunk->head->next;
        }
    }
}

int handleWifiStateRespMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg) {
    LOG_MSG(KV_LOG_NOTICE, "received VEND_MSG_TYPE_WIFI_STATE_RESP msgId %04x\n", msgId);
    // Owns the entries of the view from here on.
    const OwnedStations stations(static_cast<WIFINeighborList *>(msg->payload));
    msg->payload = nullptr;
    uint8_t alMac[KV_MAC_LEN] = {};
    if (stations == nullptr || findReporter(source, alMac) != KV_RET_OK) return KV_RET_ERR;
    return mergeReport(alMac, stations.get());
}

}  // namespace kv
