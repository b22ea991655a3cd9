// ONE table: message type -> name, payload decoder, payload encoder, handler, resend. A new message is one row here
// and one file in features/. Types without a row are unknown to encoder, decoder and dispatcher alike.
#include <array>
#include <iterator>

#include "features/config_exchange/config_codec.h"
#include "features/config_exchange/config_exchange.h"
#include "features/device_control/control_codec.h"
#include "features/device_control/firmware.h"
#include "features/device_control/firmware_codec.h"
#include "features/device_control/interface_power.h"
#include "features/device_control/interface_power_codec.h"
#include "features/device_control/led.h"
#include "features/device_control/led_command_codec.h"
#include "features/device_control/reboot_reset.h"
#include "features/device_control/remote_command.h"
#include "features/multiap/country_sync.h"
#include "features/multiap/password_sync.h"
#include "features/multiap/settings_sync_codec.h"
#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/rssi_measurement.h"
#include "features/wifi_clients/wifi_state.h"
#include "features/wifi_clients/wifi_state_codec.h"
#include "protocol/intel_message.h"
#include "protocol/message_row.h"

namespace kv {

namespace {

// Reserved types have no payload: they encode to the bare envelope and are refused on receipt.
uint16_t refuseReserved(ByteReader &, KvVendMsg &) {
    return 0;
}
// Types whose decoder has already done the work.
int acceptDecoded(const Dispatch &) {
    return KV_RET_OK;
}
int encodeNothing(const KvVendMsg &, ByteWriter &) {
    return KV_RET_OK;
}

#define RESERVED(number) \
    { VEND_MSG_TYPE_RESERVED_##number, "RESERVED_" #number, refuseReserved, encodeNothing, nullptr, nullptr }

// clang-format off
constexpr MessageRow kRows[] = {
    // type, name, decode, encode, handle, resend
    {VEND_MSG_TYPE_CONF_QUERY, "CONF_QUERY", parseConfQueryMsgData, genConfQueryMsgData, handledBy<handleConfQueryMsg>, sendConfQuery},
    {VEND_MSG_TYPE_CONF_RESP,  "CONF_RESP",  parseConfRespMsgData,  genConfRespMsgData,  handledBy<handleConfRespMsg>,  nullptr},
    {VEND_MSG_TYPE_INTF_PWR_STATE_QUERY, "INTF_PWR_STATE_QUERY", parseTargetMsgData, genTargetMsgData, handledBy<handleIntfPwrStateQueryMsg>, sendIntfPwrStateQuery},
    {VEND_MSG_TYPE_INTF_PWR_STATE_RESP, "INTF_PWR_STATE_RESP", parseIntfPwrStateRespMsgData, genIntfPwrStateRespMsgData, handledBy<handleIntfPwrStateRespMsg>, nullptr},
    {VEND_MSG_TYPE_REBOOT_REQ, "REBOOT_REQ", parseRebootTargetMsgData, genTargetMsgData, handledBy<handleRebootReqMsg>, nullptr},
    {VEND_MSG_TYPE_REBOOT_RESP, "REBOOT_RESP", parseResultMsgData, genResultMsgData, handledBy<handleRebootRespMsg>, nullptr},
    {VEND_MSG_TYPE_INTF_PWR_CTRL_REQ, "INTF_PWR_CTRL_REQ", parseIntfPwrCtrlReqMsgData, genIntfPwrCtrlReqMsgData, handledBy<handleIntfPwrCtrlReqMsg>, nullptr},
    {VEND_MSG_TYPE_INTF_PWR_CTRL_RESP, "INTF_PWR_CTRL_RESP", parseIntfPwrCtrlRespMsgData, genIntfPwrCtrlRespMsgData, handledBy<handleIntfPwrCtrlRespMsg>, nullptr},
    {VEND_MSG_TYPE_WIFI_STATE_REQ, "WIFI_STATE_REQ", parseNamedTargetMsgData, genTargetMsgData, handledBy<handleWifiStateReqMsg>, nullptr},
    {VEND_MSG_TYPE_WIFI_STATE_RESP, "WIFI_STATE_RESP", parseWifiStateRespMsgData, genWifiStateRespMsgData, handledBy<handleWifiStateRespMsg>, nullptr},
    RESERVED(10), RESERVED(11), RESERVED(12), RESERVED(16), RESERVED(17), RESERVED(18), RESERVED(19),
    {VEND_MSG_TYPE_FW_CTRL_REQ, "FW_CTRL_REQ", parseFWCtrlReqMsgData, genFWCtrlReqMsgData, handledBy<handleFWCtrlReqMsg>, nullptr},
    {VEND_MSG_TYPE_FW_CTRL_RESP, "FW_CTRL_RESP", parseResultMsgData, genResultMsgData, handledBy<handleFWCtrlRespMsg>, nullptr},
    {VEND_MSG_TYPE_RESET_DEFAULT_REQ, "RESET_DEFAULT_REQ", parseNamedTargetMsgData, genTargetMsgData, handledBy<handleResetDefaultReqMsg>, nullptr},
    {VEND_MSG_TYPE_RESET_DEFAULT_RESP, "RESET_DEFAULT_RESP", parseResultMsgData, genResultMsgData, handledBy<handleResetDefaultRespMsg>, nullptr},
    {VEND_MSG_TYPE_COMMAND_REQ, "COMMAND_REQ", parseCommandReqMsgData, genCommandReqMsgData, handledBy<handleCommandReqMsg>, nullptr},
    {VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_REQ, "PARTIAL_RESET_DEFAULT_REQ", parseNamedTargetMsgData, genTargetMsgData, handledBy<handlePartialResetDefaultReqMsg>, nullptr},
    {VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_RESP, "PARTIAL_RESET_DEFAULT_RESP", parseResultMsgData, genResultMsgData, handledBy<handlePartialResetDefaultRespMsg>, nullptr},
    {VEND_MSG_TYPE_COMMAND_RESP, "COMMAND_RESP", parseResultMsgData, genResultMsgData, handledBy<handleCommandRespMsg>, nullptr},
    {VEND_MSG_TYPE_LED_CTRL_REQ, "LED_CTRL_REQ", parseLedCtrlMsgData, genLedCtrlMsgData, handledBy<handleLedCtrlReqMsg>, nullptr},
    {VEND_MSG_TYPE_LED_CTRL_MCAST, "LED_CTRL_MCAST", parseLedCtrlMsgData, genLedCtrlMsgData, handledBy<handleLedCtrlMcastMsg>, nullptr},
    {VEND_MSG_TYPE_LED_CTRL_RESP, "LED_CTRL_RESP", parseResultMsgData, genResultMsgData, handledBy<handleLedCtrlRespMsg>, nullptr},
    {VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, "WIFI_CLIENT_MCAST2", parseWifiClientMsgData, genWifiClientMsgData, handledBy<handleWifiClientMcastMsg>, nullptr},
    RESERVED(42), RESERVED(43), RESERVED(44), RESERVED(49), RESERVED(50),
    {VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP, "SYNC_CTRL_PWD_RESP", parseSyncCtrlerPwdMsgData, genSyncCtrlerPwdMsgData, acceptDecoded, nullptr},
    {VEND_MSG_TYPE_SYNC_CTRL_PWD_REQ, "SYNC_CTRL_PWD_REQ", parseTargetMsgData, genTargetMsgData, handledBy<handleSyncControllerPwdReqMsg>, nullptr},
    {VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_REQ, "SYNC_CTRL_COUNTRY_BCN_REQ", parseTargetMsgData, genTargetMsgData, handledBy<handleSyncControllerCountryBcnReqMsg>, nullptr},
    {VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP, "SYNC_CTRL_COUNTRY_BCN_RESP", parseSyncCtrlerCountryMsgData, genSyncCtrlerCountryMsgData, acceptDecoded, nullptr},
};

// Intel's set.
constexpr IntelMessageRow kIntelRows[] = {
    // type, name, decode, encode, handle
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_REQ, "RSSI_MEASUREMENT_REQ", parseRssiMeasurementReq, nullptr, handleIntelRssiMeasurementReq},
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_RESP, "RSSI_MEASUREMENT_RESP", nullptr, genRssiMeasurementResp, nullptr},
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_NOTIFY, "RSSI_MEASUREMENT_NOTIFY", nullptr, genRssiMeasurementNotify, nullptr},
};
// clang-format on

#undef RESERVED

constexpr uint8_t kNoRow = 0xFF;

constexpr auto kRowOfType = [] {
    std::array<uint8_t, VEND_MSG_TYPE_LIMIT> index{};
    index.fill(kNoRow);
    for (size_t i = 0; i < std::size(kRows); ++i) {
        index[kRows[i].type] = static_cast<uint8_t>(i);
    }
    return index;
}();

constexpr bool isSorted() {
    for (size_t i = 1; i < std::size(kRows); ++i) {
        if (kRows[i - 1].type >= kRows[i].type) {
            return false;
        }
    }
    return std::size(kRows) < kNoRow;
}
static_assert(isSorted(), "rows rise by type and are unique");

}  // namespace

const MessageRow *findMessageRow(uint16_t type) {
    if (type >= VEND_MSG_TYPE_LIMIT || kRowOfType[type] == kNoRow) {
        return nullptr;
    }
    return &kRows[kRowOfType[type]];
}

const IntelMessageRow *findIntelMessageRow(uint8_t type) {
    for (const IntelMessageRow &row : kIntelRows) {
        if (row.type == type) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace kv
