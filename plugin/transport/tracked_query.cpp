#include "transport/tracked_query.h"

#include "frame/log.h"
#include "transport/outstanding_queries.h"
#include "transport/send.h"

namespace kv {

int sendTrackedQuery(uint16_t type, const char *name, const uint8_t *alMac, uint8_t retry) {
    if (alMac == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "%s without an AL MAC\n", name);
        return KV_RET_ERR;
    }
    LOG_MSG(KV_LOG_DEBUG, "send %s to " KV_MAC "\n", name, KV_MAC_BYTES(alMac));
    uint16_t msgId = 0;
    if (sendTarget(alMac, type, &msgId) != KV_RET_OK) {
        LOG_MSG(KV_LOG_WARNING, "fail send %s to " KV_MAC "\n", name, KV_MAC_BYTES(alMac));
        return KV_RET_ERR;
    }
    registerKvVendQueryMsg(alMac, msgId, type, retry);
    return KV_RET_OK;
}

}  // namespace kv
