#include "features/device_control/answer.h"

#include "frame/log.h"
#include "frame/result_file.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "protocol/shared_payloads.h"
#include "transport/send.h"

namespace kv {

int sendAnswer(const KvRecvVendTlv *source, uint16_t msgId, const KvVendMsg &msg) {
    return sendUnicast(source->srcMac, &msgId, &msg);
}

int sendResultMsg(const KvRecvVendTlv *source, uint16_t msgId, uint16_t responseType, uint32_t result) {
    KvResultData record = result;
    const KvVendMsg msg = makeVendMsg(responseType, kResultLen, &record);
    return sendAnswer(source, msgId, msg);
}

int sendCommandRespMsg(const KvRecvVendTlv *source, uint16_t msgId, uint32_t result) {
    const int sent = sendResultMsg(source, msgId, VEND_MSG_TYPE_COMMAND_RESP, result);
    if (result == KV_RET_OK && sent == KV_RET_OK) return KV_RET_OK;
    LOG_PLAIN(KV_LOG_INFO, "send Command failed\n");
    return KV_RET_ERR;
}

uint32_t resultOf(const KvVendMsg *msg) {
    return *static_cast<const KvResultData *>(msg->payload);
}

void reportResult(uint32_t result) {
    output_ReturnValue(static_cast<uint8_t>(result));
}

}  // namespace kv
