#include "features/device_control/control_codec.h"

#include "frame/log.h"
#include "frame/memory.h"

namespace kv {

uint16_t parseTargetMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto target = allocateRecord<KvTargetData>();
    if (target == nullptr) {
        return 0;
    }
    payload.copyTo(target->alMac, sizeof target->alMac);
    if (!payload.ok()) {
        return 0;
    }
    msg.payload = target.release();
    return kTargetLen;
}

uint16_t parseRebootTargetMsgData(ByteReader &payload, KvVendMsg &msg) {
    const uint16_t consumed = parseTargetMsgData(payload, msg);
    if (consumed > 0) {
        const uint8_t *alMac = static_cast<const KvTargetData *>(msg.payload)->alMac;
        PRINT_TLV("parse Reboot Request from AlMac " KV_MAC "\n", KV_MAC_BYTES(alMac));
    }
    return consumed;
}

uint16_t parseNamedTargetMsgData(ByteReader &payload, KvVendMsg &msg) {
    const uint16_t consumed = parseTargetMsgData(payload, msg);
    if (consumed > 0) {
        const uint8_t *alMac = static_cast<const KvTargetData *>(msg.payload)->alMac;
        LOG_TLV(KV_LOG_DEBUG, "parse vendor msg data from AlMac " KV_MAC "\n", KV_MAC_BYTES(alMac));
    }
    return consumed;
}

int genTargetMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *target = static_cast<const KvTargetData *>(msg.payload);
    if (target == nullptr) {
        return KV_RET_ERR;
    }
    writer.bytes(target->alMac, sizeof target->alMac);
    return KV_RET_OK;
}

uint16_t parseResultMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto result = allocateRecord<KvResultData>();
    if (result == nullptr) {
        return 0;
    }
    *result = payload.u8();
    if (!payload.ok()) {
        return 0;
    }
    msg.payload = result.release();
    return kResultLen;
}

int genResultMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *result = static_cast<const KvResultData *>(msg.payload);
    if (result == nullptr) {
        return KV_RET_ERR;
    }
    writer.u8(static_cast<uint8_t>(*result));
    return KV_RET_OK;
}

}  // namespace kv
