#include "features/device_control/firmware_codec.h"

#include "frame/memory.h"

namespace kv {

namespace {
constexpr uint16_t kFixedLen = 3;  // option and L
}

uint32_t fwCtrlReqLen(const KvFWCtrlReq &request) {
    return request.FWTopoOption != 0 ? kFixedLen + 1u + request.FWURLcount : kFixedLen;
}

uint16_t parseFWCtrlReqMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto request = allocateRecord<KvFWCtrlReq>();
    if (request == nullptr) {
        return 0;
    }
    request->FWOption = payload.u8();
    const uint16_t length = payload.u16();
    if (length != 0) {
        request->FWTopoOption = payload.u8();
        request->FWURLcount = static_cast<uint16_t>(length - 1);
        if (request->FWURLcount > sizeof request->FWURL) {
            return 0;
        }
        payload.copyTo(request->FWURL, request->FWURLcount);
    }
    if (!payload.ok()) {
        return 0;
    }
    msg.payload = request.release();
    return static_cast<uint16_t>(kFixedLen + length);
}

int genFWCtrlReqMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *request = static_cast<const KvFWCtrlReq *>(msg.payload);
    if (request == nullptr || request->FWURLcount > sizeof request->FWURL) {
        return KV_RET_ERR;
    }
    writer.u8(static_cast<uint8_t>(request->FWOption));
    if (request->FWTopoOption == 0) {
        writer.u16(0);
        return KV_RET_OK;
    }
    writer.u16(static_cast<uint16_t>(request->FWURLcount + 1));
    writer.u8(static_cast<uint8_t>(request->FWTopoOption));
    writer.bytes(request->FWURL, request->FWURLcount);
    return KV_RET_OK;
}

}  // namespace kv
