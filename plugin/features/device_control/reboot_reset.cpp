#include "features/device_control/reboot_reset.h"

#include "features/device_control/answer.h"
#include "features/kvMAP1905_netCtrl.h"
#include "frame/log.h"
#include "frame/vendor_data.h"
#include "protocol/message_row.h"
#include "protocol/shared_payloads.h"

namespace kv {

namespace {

const uint8_t *targetOf(const KvVendMsg *msg) {
    return static_cast<const KvTargetData *>(msg->payload)->alMac;
}

uint32_t checkRebootAllowed(const uint8_t *target) {
    if (!sameMac(target, getMAPAlMac())) {
        PRINT_DEVICE("reboot request unmatched AlMac\n");
        return KV_RET_NOT_FOUND;
    }
    if (getEnableRebootFromNbrCap() == 0) {
        PRINT_DEVICE("unsupport reboot function\n");
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

// Response, name and action of a reset.
struct Reset {
    uint16_t responseType;
    const char *name;
    int (*act)();
};

constexpr Reset kReset = {VEND_MSG_TYPE_RESET_DEFAULT_RESP, "reset", kvResetToDefault};
constexpr Reset kPartialReset = {VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_RESP, "partial reset", kvPartialResetToDefault};

uint32_t checkResetAllowed(const Reset &reset, const uint8_t *target) {
    if (!sameMac(target, getMAPAlMac())) {
        LOG_PLAIN(KV_LOG_WARNING, "Requested AL MAC is unmatched " KV_MAC "\n", KV_MAC_BYTES(target));
        return KV_RET_NOT_FOUND;
    }
    if (getEnableRebootFromNbrCap() == 0) {  // one capability for reboot and resets
        PRINT_DEVICE("unsupport %s function\n", reset.name);
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

int answerReset(const Reset &reset, const KvRecvVendTlv *source, uint16_t msgId, unsigned origin, uint32_t result) {
    if (origin == kOriginCommand) return sendCommandRespMsg(source, msgId, result);
    const int sent = sendResultMsg(source, msgId, reset.responseType, result);
    LOG_MSG(KV_LOG_DEBUG, "transmit vendor msgId %04x\n", msgId);
    return sent;
}

int handleReset(const Reset &reset, const KvRecvVendTlv *source, uint16_t msgId, const KvVendMsg *msg,
                unsigned origin) {
    LOG_MSG(KV_LOG_DEBUG, "received Reset to Default Request msgId %04x\n", msgId);
    const uint32_t result = checkResetAllowed(reset, targetOf(msg));
    const int answered = answerReset(reset, source, msgId, origin, result);
    if (result != KV_RET_OK || answered != KV_RET_OK) {
        LOG_PLAIN(KV_LOG_NOTICE, "Reset to default failed\n");
        return KV_RET_ERR;
    }
    return reset.act();
}

int handleResetResponse(const Reset &reset, uint16_t msgId, const KvVendMsg *msg) {
    const uint32_t result = resultOf(msg);
    LOG_MSG(KV_LOG_DEBUG, "received %s to default response msgId %04x, result %d\n", reset.name, msgId,
            static_cast<int>(result));
    reportResult(result);
    return KV_RET_OK;
}

}  // namespace

int handleRebootReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin) {
    PRINT_MSG("received Reboot Request msgId %04x\n", msgId);
    const uint32_t result = checkRebootAllowed(targetOf(msg));
    int answered = KV_RET_OK;
    if (origin == kOriginCommand) {
        answered = sendCommandRespMsg(source, msgId, result);
    } else {
        answered = sendResultMsg(source, msgId, VEND_MSG_TYPE_REBOOT_RESP, result);
        PRINT_MSG("transmit Reboot Response msgId %04x\n", msgId);
    }
    if (result == KV_RET_OK && answered == KV_RET_OK) {
        kvReboot();
    } else {
        PRINT_DEVICE("failed to reboot\n");
    }
    return KV_RET_OK;
}

int handleRebootRespMsg(uint16_t msgId, KvVendMsg *msg) {
    const uint32_t result = resultOf(msg);
    PRINT_MSG("received Reboot Response msgId %04x, result %d\n", msgId, static_cast<int>(result));
    reportResult(result);
    return KV_RET_OK;
}

int handleResetDefaultReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin) {
    return handleReset(kReset, source, msgId, msg, origin);
}

int handleResetDefaultRespMsg(uint16_t msgId, KvVendMsg *msg) {
    return handleResetResponse(kReset, msgId, msg);
}

int handlePartialResetDefaultReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin) {
    return handleReset(kPartialReset, source, msgId, msg, origin);
}

int handlePartialResetDefaultRespMsg(uint16_t msgId, KvVendMsg *msg) {
    return handleResetResponse(kPartialReset, msgId, msg);
}

}  // namespace kv
