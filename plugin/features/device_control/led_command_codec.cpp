#include "features/device_control/led_command_codec.h"

#include "frame/memory.h"

namespace kv {

uint16_t parseLedCtrlMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto request = allocateRecord<KvLedCtrlReq>();
    if (request == nullptr) {
        return 0;
    }
    payload.copyTo(request->alMac, sizeof request->alMac);
    request->ledOption = payload.u8();
    if (!payload.ok()) {
        return 0;
    }
    msg.payload = request.release();
    return kLedCtrlLen;
}

int genLedCtrlMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *request = static_cast<const KvLedCtrlReq *>(msg.payload);
    if (request == nullptr) {
        return KV_RET_ERR;
    }
    writer.bytes(request->alMac, sizeof request->alMac);
    writer.u8(static_cast<uint8_t>(request->ledOption));
    return KV_RET_OK;
}

uint16_t parseCommandReqMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto request = allocateRecord<KvCommandReq>();
    if (request == nullptr) {
        return 0;
    }
    request->CommandDatacount = payload.u16();
    request->CommandURLcount = payload.u16();
    if (request->CommandURLcount > sizeof request->CommandURL) {
        return 0;
    }
    payload.copyTo(request->CommandURL, request->CommandURLcount);
    if (!payload.ok()) {
        return 0;
    }
    const auto consumed = static_cast<uint16_t>(commandReqLen(*request));
    msg.payload = request.release();
    return consumed;
}

int genCommandReqMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *request = static_cast<const KvCommandReq *>(msg.payload);
    if (request == nullptr || request->CommandURLcount > sizeof request->CommandURL) {
        return KV_RET_ERR;
    }
    writer.u16(request->CommandDatacount);
    writer.u16(request->CommandURLcount);
    writer.bytes(request->CommandURL, request->CommandURLcount);
    return KV_RET_OK;
}

}  // namespace kv
