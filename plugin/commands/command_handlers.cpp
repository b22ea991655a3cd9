// The command handlers: each checks its target and sends its family's request, or acts locally.
#include <algorithm>
#include <cstring>

#include "commands/command_table.h"
#include "features/device_control/firmware.h"
#include "features/device_control/firmware_codec.h"
#include "features/device_control/firmware_upgrade_list.h"
#include "features/device_control/interface_power_codec.h"
#include "features/device_control/led_command_codec.h"
#include "features/multiap/settings_sync_codec.h"
#include "frame/file.h"
#include "frame/host_table.h"
#include "frame/local_files.h"
#include "frame/log.h"
#include "frame/mac_text.h"
#include "frame/memory.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "protocol/shared_payloads.h"
#include "transport/send.h"

namespace kv {

namespace {

// The buffer may lie anywhere; the record is its aligned copy.
template <typename Record>
void readBuffer(const void *buffer, Record &record) {
    std::memcpy(&record, buffer, sizeof record);
}

// Does the same for records that are too large for a stack.
template <typename Record>
Owned<Record> copyBuffer(const void *buffer) {
    auto record = allocateRecord<Record>();
    if (record == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "allocate memory fail for a command\n");
        return nullptr;
    }
    readBuffer(buffer, *record);
    return record;
}

// Returns the AL MAC that every buffer with a target begins with.
int checkTarget(const void *buffer) {
    const auto *alMac = static_cast<const uint8_t *>(buffer);
    if (isInTopology(alMac)) return KV_RET_OK;
    LOG_DEVICE(KV_LOG_WARNING, "Not found " KV_MAC " in network topology\n", KV_MAC_BYTES(alMac));
    return KV_RET_NOT_FOUND;
}

int sendRequest(const uint8_t *alMac, uint16_t type, uint32_t payloadLen, void *payload) {
    const KvVendMsg msg = makeVendMsg(type, static_cast<uint16_t>(payloadLen), payload);
    uint16_t msgId = 0;
    if (sendUnicast(alMac, &msgId, &msg) != KV_RET_OK) return KV_RET_ERR;
    LOG_MSG(KV_LOG_DEBUG, "transmit vendor msgId %04x\n", msgId);
    return KV_RET_OK;
}

int sendTargetRequest(const void *buffer, uint16_t type) {
    if (const int missing = checkTarget(buffer); missing != KV_RET_OK) return missing;
    KvTargetData target;
    readBuffer(buffer, target);
    return sendRequest(target.alMac, type, kTargetLen, &target);
}

void recordLedState(const uint8_t *alMac, bool isLocal, bool on) {
    KvDevVendorData *dev = deviceVendorData(isLocal ? nullptr : alMac);
    if (dev == nullptr) return;
    setText(dev->ledStatus, on ? "ON" : "OFF");
    writeJsonDataModel();
}

// Returns the value of an upper-case hexadecimal digit, or -1.
int passwordDigit(char digit) {
    return digit >= 'a' ? -1 : hexadecimalDigit(digit);
}

// Parses "COUNT DIGITS...", two digits per byte. Returns false at the first error and reads no further.
bool readPassword(const char *text, SyncCtrlerPwdMsgData &data) {
    unsigned count = 0;
    const char *at = text;
    for (; *at >= '0' && *at <= '9' && count <= kMaxPwdLen; ++at) {
        count = count * 10 + static_cast<unsigned>(*at - '0');
    }
    if (at == text || *at != ' ' || count > kMaxPwdLen) return false;
    ++at;
    for (unsigned i = 0; i < count; ++i, at += 2) {
        const int high = passwordDigit(at[0]);
        const int low = high < 0 ? -1 : passwordDigit(at[1]);
        if (low < 0) return false;
        data.pwd[i] = static_cast<uint8_t>(high << 4 | low);
    }
    data.pwdLen = static_cast<uint16_t>(count);
    return true;
}

int sendToAllDevices(uint16_t type, uint16_t payloadLen, void *payload) {
    const KvVendMsg msg = makeVendMsg(type, payloadLen, payload);
    return sendRelayedMulticast(&msg, nullptr);
}

}  // namespace

int handleRebootCmd(const void *buffer) {
    return sendTargetRequest(buffer, VEND_MSG_TYPE_REBOOT_REQ);
}

int handleResetDefaultCmd(const void *buffer) {
    return sendTargetRequest(buffer, VEND_MSG_TYPE_RESET_DEFAULT_REQ);
}

int handlePartialResetDefaultCmd(const void *buffer) {
    return sendTargetRequest(buffer, VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_REQ);
}

int handleIntfPwrCtrlCmd(const void *buffer) {
    if (const int missing = checkTarget(buffer); missing != KV_RET_OK) return missing;
    KvIntfPwrCtrlReq posted;
    readBuffer(buffer, posted);
    KvIntfPwrCtrlReq request = {};
    std::memcpy(request.alMac, posted.alMac, sizeof request.alMac);
    request.count = static_cast<uint8_t>(std::min<unsigned>(posted.count, kMaxPowerEntries));
    std::memcpy(request.entries, posted.entries, request.count * sizeof request.entries[0]);
    request.pwrState = posted.pwrState;
    return sendRequest(request.alMac, VEND_MSG_TYPE_INTF_PWR_CTRL_REQ, powerCtrlReqLen(request.count), &request);
}

int handleFWCtrlCmd(const void *buffer) {
    if (const int missing = checkTarget(buffer); missing != KV_RET_OK) return missing;
    const auto request = copyBuffer<KvFWCtrlReq>(buffer);
    if (request == nullptr) return KV_RET_ERR;
    if (request->FWTopoOption == 0) {
        request->FWURLcount = 0;
    }
    rmKvFWupgradealmac(request->alMac);
    return sendRequest(request->alMac, VEND_MSG_TYPE_FW_CTRL_REQ, fwCtrlReqLen(*request), request.get());
}

int handleLedCtrlCmd(const void *buffer) {
    KvLedCtrlReq request;
    readBuffer(buffer, request);
    if (isZeroMac(request.alMac)) {
        return KV_RET_OK;  // for all devices: agents would only log it, so nothing is sent
    }
    if (const int missing = checkTarget(buffer); missing != KV_RET_OK) return missing;
    const bool isLocal = sameMac(request.alMac, getMAPAlMac());
    recordLedState(request.alMac, isLocal, request.ledOption != 0);
    return isLocal ? KV_RET_OK : sendRequest(request.alMac, VEND_MSG_TYPE_LED_CTRL_REQ, kLedCtrlLen, &request);
}

int handleRemoteCommandCmd(const void *buffer) {
    if (const int missing = checkTarget(buffer); missing != KV_RET_OK) return missing;
    const auto request = copyBuffer<KvCommandReq>(buffer);
    if (request == nullptr) return KV_RET_ERR;
    return sendRequest(request->alMac, VEND_MSG_TYPE_COMMAND_REQ, commandReqLen(*request), request.get());
}

int handleFWResultCmd(const void *buffer) {
    int32_t result;
    readBuffer(buffer, result);
    setKvFWresult(result);
    return KV_RET_OK;
}

int handleLogSettingCmd(const void *buffer) {
    int32_t values[3];
    readBuffer(buffer, values);
    kvMAP_log_setting(values[0], values[1], values[2]);
    return KV_RET_OK;
}

int handleSyncCtrlPwdCmd(const void *buffer) {
    SyncCtrlerPwdMsgData data = {};
    std::memcpy(data.alMac, getMAPAlMac(), sizeof data.alMac);
    int result = KV_RET_ERR;
    if (readPassword(static_cast<const char *>(buffer), data)) {
        result = sendToAllDevices(VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP, kSyncPwdLen, &data);
    } else {
        LOG_DEVICE(KV_LOG_WARNING, "password command is not COUNT, a blank and two digits 0-9 A-F per byte\n");
    }
    explicit_bzero(&data, sizeof data);
    return result;
}

int handleSyncCountryBcnReqCmd(const void *) {
    KvTargetData self;
    std::memcpy(self.alMac, getMAPAlMac(), sizeof self.alMac);
    return sendRequest(self.alMac, VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_REQ, kTargetLen, &self);
}

int handleCountryInBcnCmd(const void *buffer) {
    SyncCtrlerCountryMsgData data;
    readBuffer(buffer, data);
    std::memcpy(data.alMac, getMAPAlMac(), sizeof data.alMac);
    data.countryLen = static_cast<uint8_t>(strnlen(data.country, sizeof data.country));
    return sendToAllDevices(VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP, syncCountryLen(data.countryLen), &data);
}

int handleDeviceInfoUpdateCmd(const void *) {
    LOG_DEVICE(KV_LOG_INFO, "update device information\n");
    KvDevVendorData *dev = deviceVendorData(nullptr);
    if (dev == nullptr) {
        LOG_DEVICE(KV_LOG_WARNING, "configuration data is null\n");
        return KV_RET_ERR;
    }
    updateDeviceConfig(dev);
    return KV_RET_OK;
}

}  // namespace kv
