#include "protocol/kvMAP1905_message.h"

#include <cstring>

#include "frame/log.h"
#include "protocol/byte_writer.h"
#include "protocol/message_row.h"

namespace kv {

namespace {

constexpr uint8_t kMarker[2] = {0x00, 0x01};

int refuseAsMalformed() {
    LOG_MSG(KV_LOG_ERROR, "failed to parse the vendor specific TLV\n");
    return KV_RET_ERR;
}

}  // namespace

int parseKvVendMsg(ByteReader value, KvVendMsg *msg) {
    value.copyTo(msg->oui, sizeof msg->oui);
    if (!value.ok()) return refuseAsMalformed();
    if (std::memcmp(msg->oui, getMAPAlOui(), sizeof msg->oui) != 0) {
        LOG_MSG(KV_LOG_WARNING, "parse unsupported vendor OUI %.2x:%.2x:%.2x\n", msg->oui[0], msg->oui[1], msg->oui[2]);
        return KV_RET_ERR;
    }
    value.copyTo(msg->alMac, sizeof msg->alMac);
    value.copyTo(msg->marker, sizeof msg->marker);
    msg->msgType = value.u16();
    msg->payloadLen = value.u16();
    ByteReader payload = value.take(msg->payloadLen);
    if (!payload.ok()) return refuseAsMalformed();
    const MessageRow *row = findMessageRow(msg->msgType);
    if (row == nullptr) {
        LOG_MSG(KV_LOG_WARNING, "parse vendor msg type %d is unsoppourted\n", msg->msgType);
        return KV_RET_ERR;
    }
    if (row->decode == nullptr || row->decode(payload, *msg) == 0) return refuseAsMalformed();
    return KV_RET_OK;
}

int genKvVendMsg(uint8_t *buffer, uint32_t *totalLen, const KvVendMsg *msg) {
    if (buffer == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "invalid vender specific message data\n");
        return KV_RET_ERR;
    }
    ByteWriter writer(buffer, KV_VEND_MSG_BUFFER_LEN);
    writer.bytes(msg->oui, sizeof msg->oui);
    writer.bytes(msg->alMac, sizeof msg->alMac);
    writer.bytes(msg->marker, sizeof msg->marker);
    writer.u16(msg->msgType);
    writer.u16(msg->payloadLen);
    *totalLen = static_cast<uint32_t>(kEnvelopeLen) + msg->payloadLen;

    const MessageRow *row = findMessageRow(msg->msgType);
    if (row == nullptr) {
        LOG_MSG(KV_LOG_WARNING, "generate vendor msg type %d is unsoppourted\n", msg->msgType);
        return KV_RET_ERR;
    }
    if (row->encode != nullptr && (msg->payload == nullptr || row->encode(*msg, writer) != 0)) return KV_RET_ERR;
    return writer.ok() && *totalLen <= KV_VEND_MSG_BUFFER_LEN ? KV_RET_OK : KV_RET_ERR;
}

KvVendMsg makeVendMsg(uint16_t msgType, uint16_t payloadLen, void *payload) {
    KvVendMsg msg = {};
    std::memcpy(msg.oui, getMAPAlOui(), sizeof msg.oui);
    std::memcpy(msg.alMac, getMAPAlMac(), sizeof msg.alMac);
    std::memcpy(msg.marker, kMarker, sizeof msg.marker);
    msg.msgType = msgType;
    msg.payloadLen = payloadLen;
    msg.payload = payload;
    return msg;
}

}  // namespace kv
