#include "features/device_control/interface_power_codec.h"

#include "frame/log.h"
#include "frame/memory.h"

namespace kv {

namespace {

// Interface and media type, which every entry of every list begins with.
template <typename Entry>
void readInterface(ByteReader &payload, Entry &entry) {
    payload.copyTo(entry.mac, sizeof entry.mac);
    entry.mediaType = payload.u16();
}

template <typename Entry>
void writeInterface(ByteWriter &writer, const Entry &entry) {
    writer.bytes(entry.mac, sizeof entry.mac);
    writer.u16(entry.mediaType);
}

// False for a count that no record has room for.
template <typename Record>
bool readCount(ByteReader &payload, Record &record) {
    record.count = payload.u8();
    return record.count <= kMaxPowerEntries;
}

void logRequest(const KvIntfPwrCtrlReq &request) {
    LOG_TLV(KV_LOG_DEBUG, "parse Intf Pwr Ctrl Request from AlMac " KV_MAC "\n", KV_MAC_BYTES(request.alMac));
    for (unsigned i = 0; i < request.count; ++i) {
        LOG_PLAIN(KV_LOG_DEBUG, "Interface Mac " KV_MAC ", mediaType %x\n", KV_MAC_BYTES(request.entries[i].mac),
                  request.entries[i].mediaType);
    }
    LOG_PLAIN(KV_LOG_DEBUG, "Power state %x\n", request.pwrState);
}

}  // namespace

uint16_t parseIntfPwrStateRespMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto record = allocateRecord<KvIntfPwrStateRec>();
    if (record == nullptr) {
        return 0;
    }
    payload.copyTo(record->alMac, sizeof record->alMac);
    if (!readCount(payload, *record)) {
        return 0;
    }
    for (unsigned i = 0; i < record->count; ++i) {
        readInterface(payload, record->entries[i]);
        record->entries[i].pwrState = payload.u8();
    }
    if (!payload.ok()) {
        return 0;
    }
    const uint16_t consumed = powerStateRespLen(record->count);
    msg.payload = record.release();
    return consumed;
}

int genIntfPwrStateRespMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *record = static_cast<const KvIntfPwrStateRec *>(msg.payload);
    if (record == nullptr || record->count > kMaxPowerEntries) {
        return KV_RET_ERR;
    }
    writer.bytes(record->alMac, sizeof record->alMac);
    writer.u8(record->count);
    for (unsigned i = 0; i < record->count; ++i) {
        writeInterface(writer, record->entries[i]);
        writer.u8(record->entries[i].pwrState);
    }
    return KV_RET_OK;
}

uint16_t parseIntfPwrCtrlReqMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto request = allocateRecord<KvIntfPwrCtrlReq>();
    if (request == nullptr) {
        return 0;
    }
    payload.copyTo(request->alMac, sizeof request->alMac);
    if (!readCount(payload, *request)) {
        return 0;
    }
    for (unsigned i = 0; i < request->count; ++i) {
        readInterface(payload, request->entries[i]);
    }
    request->pwrState = payload.u8();
    if (!payload.ok()) {
        return 0;
    }
    logRequest(*request);
    const uint16_t consumed = powerCtrlReqLen(request->count);
    msg.payload = request.release();
    return consumed;
}

int genIntfPwrCtrlReqMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *request = static_cast<const KvIntfPwrCtrlReq *>(msg.payload);
    if (request == nullptr || request->count > kMaxPowerEntries) {
        return KV_RET_ERR;
    }
    writer.bytes(request->alMac, sizeof request->alMac);
    writer.u8(request->count);
    for (unsigned i = 0; i < request->count; ++i) {
        writeInterface(writer, request->entries[i]);
    }
    writer.u8(static_cast<uint8_t>(request->pwrState));
    return KV_RET_OK;
}

uint16_t parseIntfPwrCtrlRespMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto response = allocateRecord<KvIntfPwrCtrlResp>();
    if (response == nullptr || !readCount(payload, *response)) {
        return 0;
    }
    for (unsigned i = 0; i < response->count; ++i) {
        readInterface(payload, response->entries[i]);
        response->entries[i].retCode = payload.u8();
    }
    if (!payload.ok()) {
        return 0;
    }
    for (unsigned i = 0; i < response->count; ++i) {
        const KvIntfPwrCtrlResult &entry = response->entries[i];
        LOG_PLAIN(KV_LOG_DEBUG, "Interface Mac " KV_MAC ", mediaType %x, retCode %d\n", KV_MAC_BYTES(entry.mac),
                  entry.mediaType, entry.retCode);
    }
    const uint16_t consumed = powerCtrlRespLen(response->count);
    msg.payload = response.release();
    return consumed;
}

int genIntfPwrCtrlRespMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *response = static_cast<const KvIntfPwrCtrlResp *>(msg.payload);
    if (response == nullptr || response->count > kMaxPowerEntries) {
        return KV_RET_ERR;
    }
    writer.u8(response->count);
    for (unsigned i = 0; i < response->count; ++i) {
        writeInterface(writer, response->entries[i]);
        writer.u8(response->entries[i].retCode);
    }
    return KV_RET_OK;
}

}  // namespace kv
