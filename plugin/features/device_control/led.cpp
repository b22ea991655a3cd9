#include "features/device_control/led.h"

#include "features/device_control/answer.h"
#include "frame/config_service.h"
#include "frame/log.h"
#include "protocol/message_row.h"

namespace kv {

namespace {

uint16_t optionOf(const KvVendMsg *msg) {
    return static_cast<const KvLedCtrlReq *>(msg->payload)->ledOption;
}

int answer(const KvRecvVendTlv *source, uint16_t msgId, unsigned origin) {
    if (origin == kOriginCommand) return sendCommandRespMsg(source, msgId, KV_RET_OK);
    const int sent = sendResultMsg(source, msgId, VEND_MSG_TYPE_LED_CTRL_RESP, KV_RET_OK);
    LOG_MSG(KV_LOG_DEBUG, "transmit vendor msgId %04x\n", msgId);
    return sent;
}

int applyOption(uint16_t option, uint16_t msgId) {
    const Owned<RdmLedCtrl> led = readConfigObject<RdmLedCtrl>(RDM_OID_LED_CTRL);
    if (led == nullptr) {
        LOG_MSG(KV_LOG_DEBUG, "Apply to RDM_OID_LED_CTRL fail  %04x\n", msgId);
        return KV_RET_ERR;
    }
    if (led->enable == option) return KV_RET_OK;
    led->enable = option != 0 ? 1 : 0;
    if (writeConfigObject(RDM_OID_LED_CTRL, *led) != 0) {
        LOG_MSG(KV_LOG_DEBUG, "Apply to RDM_OID_LED_CTRL fail %04x\n", msgId);
    }
    return KV_RET_OK;
}

}  // namespace

int handleLedCtrlReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin) {
    LOG_MSG(KV_LOG_DEBUG, "received vendor msgId %04x\n", msgId);
    LOG_PLAIN(KV_LOG_DEBUG, "Control LED option %d\n", optionOf(msg));
    if (answer(source, msgId, origin) != KV_RET_OK) {
        LOG_PLAIN(KV_LOG_WARNING, "LED control error\n");
        return KV_RET_ERR;
    }
    return applyOption(optionOf(msg), msgId);
}

int handleLedCtrlMcastMsg(KvVendMsg *msg) {
    LOG_PLAIN(KV_LOG_DEBUG, "Mcast control LED option %d\n", optionOf(msg));
    return KV_RET_OK;
}

int handleLedCtrlRespMsg(uint16_t msgId, KvVendMsg *msg) {
    const uint32_t result = resultOf(msg);
    LOG_MSG(KV_LOG_DEBUG, "received LED control response msgId %04x, result %d\n", msgId, static_cast<int>(result));
    reportResult(result);
    return KV_RET_OK;
}

}  // namespace kv
