#include "protocol/intel_message.h"

#include <cstring>

#include "frame/identity.h"
#include "frame/log.h"

namespace kv {

int parseIntelVendMsg(ByteReader value, KvIntelVendMsg *msg) {
    value.copyTo(msg->oui, sizeof msg->oui);
    if (value.ok() && std::memcmp(msg->oui, kIntelOui, sizeof msg->oui) != 0) {
        LOG_MSG(KV_LOG_WARNING, "parse unsupported vendor OUI %.2x:%.2x:%.2x\n", msg->oui[0], msg->oui[1], msg->oui[2]);
        return KV_RET_ERR;
    }
    value.copyTo(msg->field3, sizeof msg->field3);
    value.copyTo(msg->field7, sizeof msg->field7);
    msg->msgType = value.u8();
    msg->field10 = value.u8();
    value.copyTo(msg->field11, sizeof msg->field11);
    value.skip(1);
    value.copyTo(msg->field18, sizeof msg->field18);
    value.skip(2);
    const IntelMessageRow *row = value.ok() ? findIntelMessageRow(msg->msgType) : nullptr;
    if (value.ok() && (row == nullptr || row->decode == nullptr)) {
        LOG_MSG(KV_LOG_WARNING, "parse vendor msg type %d is unsoppourted\n", msg->msgType);
        return KV_RET_ERR;
    }
    if (!value.ok() || row->decode(value, *msg) == 0) {
        LOG_MSG(KV_LOG_ERROR, "failed to parse the vendor specific TLV\n");
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

int genIntelVendMsg(uint8_t *buffer, uint32_t *totalLen, const KvIntelVendMsg *msg) {
    if (buffer == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "invalid vender specific message data\n");
        return KV_RET_ERR;
    }
    constexpr uint8_t kZero[2] = {};
    ByteWriter writer(buffer, KV_VEND_MSG_BUFFER_LEN);
    writer.bytes(msg->oui, sizeof msg->oui);
    writer.bytes(msg->field3, sizeof msg->field3);
    writer.bytes(msg->field7, sizeof msg->field7);
    writer.u8(msg->msgType);
    writer.u8(msg->field10);
    writer.bytes(msg->field11, sizeof msg->field11);
    writer.u8(0);
    writer.bytes(msg->field18, sizeof msg->field18);
    writer.bytes(kZero, sizeof kZero);

    size_t payloadLen = 0;
    const IntelMessageRow *row = findIntelMessageRow(msg->msgType);
    if (row == nullptr || row->encode == nullptr) {
        LOG_MSG(KV_LOG_WARNING, "generate vendor msg type %d is unsoppourted\n", msg->msgType);
    } else if (msg->payload != nullptr) {
        payloadLen = row->encode(msg->payload, writer);
    }
    *totalLen = static_cast<uint32_t>(kIntelEnvelopeLen + payloadLen);
    return payloadLen > 0 && writer.ok() ? KV_RET_OK : KV_RET_ERR;
}

}  // namespace kv
