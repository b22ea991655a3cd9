#include "transport/tracked_query.h"

#include <cstring>

#include "frame/log.h"
#include "protocol/kvMAP1905_message.h"
#include "transport/outstanding_queries.h"
#include "transport/send.h"

namespace kv {

int sendTrackedQuery(uint16_t type, const char *name, const uint8_t *alMac, uint8_t retry) {
    if (alMac == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "%s without an AL MAC\n", name);
        return KV_RET_ERR;
    }
    LOG_MSG(KV_LOG_DEBUG, "send %s to " KV_MAC "\n", name, KV_MAC_BYTES(alMac));
    uint8_t payload[KV_MAC_LEN];
    std::memcpy(payload, alMac, sizeof payload);
    const KvVendMsg msg = makeVendMsg(type, sizeof payload, payload);
    uint16_t msgId = 0;
    if (sendUnicast(alMac, &msgId, &msg) != KV_RET_OK) {
        LOG_MSG(KV_LOG_WARNING, "fail send %s to " KV_MAC "\n", name, KV_MAC_BYTES(alMac));
        return KV_RET_ERR;
    }
    registerKvVendQueryMsg(alMac, msgId, type, retry);
    return KV_RET_OK;
}

}  // namespace kv
