#include "features/device_control/interface_power_codec.h"

#include "frame/log.h"
#include "protocol/shared_payloads.h"

namespace kv {

namespace {

// Reads a list: the count, then per entry interface MAC, media type and what readRest reads. Returns false for a count
// above the record's capacity.
template <typename Record, typename ReadRest>
bool readList(ByteReader &payload, Record &record, ReadRest readRest) {
    record.count = payload.u8();
    if (record.count > kMaxPowerEntries) return false;
    for (unsigned i = 0; i < record.count; ++i) {
        payload.copyTo(record.entries[i].mac, sizeof record.entries[i].mac);
        record.entries[i].mediaType = payload.u16();
        readRest(record.entries[i]);
    }
    return payload.ok();
}

template <typename Record, typename WriteRest>
int writeList(ByteWriter &writer, const Record &record, WriteRest writeRest) {
    if (record.count > kMaxPowerEntries) return KV_RET_ERR;
    writer.u8(record.count);
    for (unsigned i = 0; i < record.count; ++i) {
        writer.bytes(record.entries[i].mac, sizeof record.entries[i].mac);
        writer.u16(record.entries[i].mediaType);
        writeRest(record.entries[i]);
    }
    return KV_RET_OK;
}

void logRequest(const KvIntfPwrCtrlReq &request) {
    LOG_TLV(KV_LOG_DEBUG, "parse Intf Pwr Ctrl Request from AlMac " KV_MAC "\n", KV_MAC_BYTES(request.alMac));
    for (unsigned i = 0; i < request.count; ++i) {
        LOG_PLAIN(KV_LOG_DEBUG, "Interface Mac " KV_MAC ", mediaType %x\n", KV_MAC_BYTES(request.entries[i].mac),
                  request.entries[i].mediaType);
    }
    LOG_PLAIN(KV_LOG_DEBUG, "Power state %x\n", request.pwrState);
}

void logResponse(const KvIntfPwrCtrlResp &response) {
    for (unsigned i = 0; i < response.count; ++i) {
        const KvIntfPwrCtrlResult &entry = response.entries[i];
        LOG_PLAIN(KV_LOG_DEBUG, "Interface Mac " KV_MAC ", mediaType %x, retCode %d\n", KV_MAC_BYTES(entry.mac),
                  entry.mediaType, entry.retCode);
    }
}

}  // namespace

uint16_t parseIntfPwrStateRespMsgData(ByteReader &payload, KvVendMsg &msg) {
    return decodeRecord<KvIntfPwrStateRec>(payload, msg, [&](KvIntfPwrStateRec &record) {
        payload.copyTo(record.alMac, sizeof record.alMac);
        return readList(payload, record, [&](KvIntfPwrStateEntry &entry) { entry.pwrState = payload.u8(); });
    });
}

int genIntfPwrStateRespMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto &record = recordOf<KvIntfPwrStateRec>(msg);
    writer.bytes(record.alMac, sizeof record.alMac);
    return writeList(writer, record, [&](const KvIntfPwrStateEntry &entry) { writer.u8(entry.pwrState); });
}

uint16_t parseIntfPwrCtrlReqMsgData(ByteReader &payload, KvVendMsg &msg) {
    const uint16_t consumed = decodeRecord<KvIntfPwrCtrlReq>(payload, msg, [&](KvIntfPwrCtrlReq &request) {
        payload.copyTo(request.alMac, sizeof request.alMac);
        const bool isListRead = readList(payload, request, [](KvIntfPwrCtrlEntry &) {});
        request.pwrState = payload.u8();
        return isListRead;
    });
    if (consumed > 0) {
        logRequest(recordOf<KvIntfPwrCtrlReq>(msg));
    }
    return consumed;
}

int genIntfPwrCtrlReqMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto &request = recordOf<KvIntfPwrCtrlReq>(msg);
    writer.bytes(request.alMac, sizeof request.alMac);
    const int result = writeList(writer, request, [](const KvIntfPwrCtrlEntry &) {});
    writer.u8(static_cast<uint8_t>(request.pwrState));
    return result;
}

uint16_t parseIntfPwrCtrlRespMsgData(ByteReader &payload, KvVendMsg &msg) {
    const uint16_t consumed = decodeRecord<KvIntfPwrCtrlResp>(payload, msg, [&](KvIntfPwrCtrlResp &response) {
        return readList(payload, response, [&](KvIntfPwrCtrlResult &entry) { entry.retCode = payload.u8(); });
    });
    if (consumed > 0) {
        logResponse(recordOf<KvIntfPwrCtrlResp>(msg));
    }
    return consumed;
}

int genIntfPwrCtrlRespMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    return writeList(writer, recordOf<KvIntfPwrCtrlResp>(msg),
                     [&](const KvIntfPwrCtrlResult &entry) { writer.u8(entry.retCode); });
}

}  // namespace kv
