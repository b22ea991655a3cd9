#include "features/config_exchange/config_codec.h"

#include <algorithm>

#include "protocol/shared_payloads.h"

namespace kv {

namespace {

constexpr uint32_t kRespHeaderLen = KV_MAC_LEN + 1;
constexpr uint32_t kAttrHeaderLen = 3;

void readAttribute(ByteReader &payload, KvConfAttr &attribute) {
    attribute.attrType = payload.u8();
    ByteReader value = payload.take(payload.u16());
    attribute.attrLen = static_cast<uint16_t>(std::min(value.remaining(), sizeof attribute.attrValue));
    value.copyTo(attribute.attrValue, attribute.attrLen);
}

}  // namespace

uint32_t confRespLen(const KvConfRespData &response) {
    uint32_t length = kRespHeaderLen;
    for (unsigned i = 0; i < response.count; ++i) {
        length += kAttrHeaderLen + response.attributes[i].attrLen;
    }
    return length;
}

uint16_t parseConfRespMsgData(ByteReader &payload, KvVendMsg &msg) {
    return decodeRecord<KvConfRespData>(payload, msg, [&](KvConfRespData &response) {
        payload.copyTo(response.alMac, sizeof response.alMac);
        response.count = payload.u8();
        for (unsigned i = 0; i < response.count && payload.ok(); ++i) {
            readAttribute(payload, response.attributes[i]);
        }
        return true;
    });
}

int genConfRespMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto &response = recordOf<KvConfRespData>(msg);
    writer.bytes(response.alMac, sizeof response.alMac);
    writer.u8(response.count);
    for (unsigned i = 0; i < response.count; ++i) {
        const KvConfAttr &attribute = response.attributes[i];
        if (attribute.attrLen > sizeof attribute.attrValue) return KV_RET_ERR;
        writer.u8(attribute.attrType);
        writer.u16(attribute.attrLen);
        writer.bytes(attribute.attrValue, attribute.attrLen);
    }
    return KV_RET_OK;
}

}  // namespace kv
