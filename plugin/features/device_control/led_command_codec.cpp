#include "features/device_control/led_command_codec.h"

#include "protocol/shared_payloads.h"

namespace kv {

uint16_t parseLedCtrlMsgData(ByteReader &payload, KvVendMsg &msg) {
    return decodeRecord<KvLedCtrlReq>(payload, msg, [&](KvLedCtrlReq &request) {
        payload.copyTo(request.alMac, sizeof request.alMac);
        request.ledOption = payload.u8();
        return true;
    });
}

int genLedCtrlMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto &request = recordOf<KvLedCtrlReq>(msg);
    writer.bytes(request.alMac, sizeof request.alMac);
    writer.u8(static_cast<uint8_t>(request.ledOption));
    return KV_RET_OK;
}

uint16_t parseCommandReqMsgData(ByteReader &payload, KvVendMsg &msg) {
    return decodeRecord<KvCommandReq>(payload, msg, [&](KvCommandReq &request) {
        request.CommandDatacount = payload.u16();
        request.CommandURLcount = payload.u16();
        if (request.CommandURLcount > sizeof request.CommandURL) return false;
        payload.copyTo(request.CommandURL, request.CommandURLcount);
        return true;
    });
}

int genCommandReqMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto &request = recordOf<KvCommandReq>(msg);
    if (request.CommandURLcount > sizeof request.CommandURL) return KV_RET_ERR;
    writer.u16(request.CommandDatacount);
    writer.u16(request.CommandURLcount);
    writer.bytes(request.CommandURL, request.CommandURLcount);
    return KV_RET_OK;
}

}  // namespace kv
