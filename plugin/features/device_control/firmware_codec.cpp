#include "features/device_control/firmware_codec.h"

#include "protocol/shared_payloads.h"

namespace kv {

namespace {
constexpr uint16_t kFixedLen = 3;  // option and L
}

uint32_t fwCtrlReqLen(const KvFWCtrlReq &request) {
    return request.FWTopoOption != 0 ? kFixedLen + 1u + request.FWURLcount : kFixedLen;
}

uint16_t parseFWCtrlReqMsgData(ByteReader &payload, KvVendMsg &msg) {
    return decodeRecord<KvFWCtrlReq>(payload, msg, [&](KvFWCtrlReq &request) {
        request.FWOption = payload.u8();
        const uint16_t length = payload.u16();
        if (length == 0) return true;
        request.FWTopoOption = payload.u8();
        request.FWURLcount = static_cast<uint16_t>(length - 1);
        if (request.FWURLcount > sizeof request.FWURL) return false;
        payload.copyTo(request.FWURL, request.FWURLcount);
        return true;
    });
}

int genFWCtrlReqMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto &request = recordOf<KvFWCtrlReq>(msg);
    writer.u8(static_cast<uint8_t>(request.FWOption));
    if (request.FWTopoOption == 0) {
        writer.u16(0);
        return KV_RET_OK;
    }
    if (request.FWURLcount > sizeof request.FWURL) return KV_RET_ERR;
    writer.u16(static_cast<uint16_t>(request.FWURLcount + 1));
    writer.u8(static_cast<uint8_t>(request.FWTopoOption));
    writer.bytes(request.FWURL, request.FWURLcount);
    return KV_RET_OK;
}

}  // namespace kv
