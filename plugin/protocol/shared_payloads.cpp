#include "protocol/shared_payloads.h"

#include "frame/log.h"

namespace kv {

uint16_t parseTargetMsgData(ByteReader &payload, KvVendMsg &msg) {
    return decodeRecord<KvTargetData>(payload, msg, [&](KvTargetData &target) {
        payload.copyTo(target.alMac, sizeof target.alMac);
        return true;
    });
}

uint16_t parseRebootTargetMsgData(ByteReader &payload, KvVendMsg &msg) {
    const uint16_t consumed = parseTargetMsgData(payload, msg);
    if (consumed > 0) {
        PRINT_TLV("parse Reboot Request from AlMac " KV_MAC "\n", KV_MAC_BYTES(recordOf<KvTargetData>(msg).alMac));
    }
    return consumed;
}

uint16_t parseNamedTargetMsgData(ByteReader &payload, KvVendMsg &msg) {
    const uint16_t consumed = parseTargetMsgData(payload, msg);
    if (consumed > 0) {
        LOG_TLV(KV_LOG_DEBUG, "parse vendor msg data from AlMac " KV_MAC "\n",
                KV_MAC_BYTES(recordOf<KvTargetData>(msg).alMac));
    }
    return consumed;
}

int genTargetMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    writer.bytes(recordOf<KvTargetData>(msg).alMac, KV_MAC_LEN);
    return KV_RET_OK;
}

uint16_t parseResultMsgData(ByteReader &payload, KvVendMsg &msg) {
    return decodeRecord<KvResultData>(payload, msg, [&](KvResultData &result) {
        result = payload.u8();
        return true;
    });
}

int genResultMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    writer.u8(static_cast<uint8_t>(recordOf<KvResultData>(msg)));
    return KV_RET_OK;
}

}  // namespace kv
