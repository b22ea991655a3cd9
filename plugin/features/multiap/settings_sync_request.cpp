#include "features/multiap/settings_sync_request.h"

#include "frame/log.h"
#include "transport/send.h"

namespace kv {

int sendSyncCtrlSettingReq(const uint8_t *alMac, int command) {
    if (command != kSyncPassword && command != kSyncCountry) {
        LOG_MSG(KV_LOG_DEBUG, "unsupport command %d\n", command);
        return KV_RET_ERR;
    }
    if (alMac == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "sync setting request without an AL MAC\n");
        return KV_RET_ERR;
    }
    const uint16_t type =
        command == kSyncPassword ? VEND_MSG_TYPE_SYNC_CTRL_PWD_REQ : VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_REQ;
    LOG_MSG(KV_LOG_DEBUG, "send vendor msg %04x to " KV_MAC "\n", type, KV_MAC_BYTES(alMac));
    uint16_t msgId = 0;
    if (sendTarget(alMac, type, &msgId) != KV_RET_OK) {
        LOG_MSG(KV_LOG_WARNING, "fail send vendor msg %04x to " KV_MAC "\n", type, KV_MAC_BYTES(alMac));
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

}  // namespace kv
