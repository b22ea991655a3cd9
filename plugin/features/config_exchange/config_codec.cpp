#include "features/config_exchange/config_codec.h"

#include <algorithm>

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

uint16_t parseConfQueryMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto query = allocateRecord<KvConfQueryData>();
    if (query == nullptr) {
        return 0;
    }
    payload.copyTo(query->alMac, sizeof query->alMac);
    if (!payload.ok()) {
        return 0;
    }
    msg.payload = query.release();
    return kConfQueryLen;
}

int genConfQueryMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *query = static_cast<const KvConfQueryData *>(msg.payload);
    if (query == nullptr) {
        return KV_RET_ERR;
    }
    writer.bytes(query->alMac, sizeof query->alMac);
    return KV_RET_OK;
}

uint16_t parseConfRespMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto response = allocateRecord<KvConfRespData>();
    if (response == nullptr) {
        return 0;
    }
    const size_t available = payload.remaining();
    payload.copyTo(response->alMac, sizeof response->alMac);
    response->count = payload.u8();
    for (unsigned i = 0; i < response->count && payload.ok(); ++i) {
        readAttribute(payload, response->attributes[i]);
    }
    if (!payload.ok()) {
        return 0;
    }
    msg.payload = response.release();
    return static_cast<uint16_t>(available - payload.remaining());
}

int genConfRespMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *response = static_cast<const KvConfRespData *>(msg.payload);
    if (response == nullptr) {
        return KV_RET_ERR;
    }
    writer.bytes(response->alMac, sizeof response->alMac);
    writer.u8(response->count);
    for (unsigned i = 0; i < response->count; ++i) {
        const KvConfAttr &attribute = response->attributes[i];
        if (attribute.attrLen > sizeof attribute.attrValue) {
            return KV_RET_ERR;
        }
        writer.u8(attribute.attrType);
        writer.u16(attribute.attrLen);
        writer.bytes(attribute.attrValue, attribute.attrLen);
    }
    return KV_RET_OK;
}

}  // namespace kv
