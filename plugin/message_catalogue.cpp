// ONE table: message type -> payload decoder, payload encoder, handler, resend. A new message is one row here
// and one file in features/. Types without a row are unknown to encoder, decoder and dispatcher alike.
#include <array>
#include <iterator>

#include "features/config_exchange/config_codec.h"
#include "features/config_exchange/config_exchange.h"
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
#include "protocol/shared_payloads.h"

namespace kv {

namespace {

// Handles types whose decoder has already done the work.
int acceptDecoded(const KvVendMsg *) {
    return KV_RET_OK;
}

#define MESSAGE(name, decode, encode, handle, resend) \
    { VEND_MSG_TYPE_##name, decode, encode, handledBy<handle>, resend }
// Reserved types encode to the bare envelope and are refused on receipt.
#define RESERVED(number) \
    { VEND_MSG_TYPE_RESERVED_##number, nullptr, nullptr, nullptr, nullptr }

// clang-format off
constexpr MessageRow kRows[] = {
    MESSAGE(CONF_QUERY, parseTargetMsgData, genTargetMsgData, handleConfQueryMsg, sendConfQuery),
    MESSAGE(CONF_RESP, parseConfRespMsgData, genConfRespMsgData, handleConfRespMsg, nullptr),
    MESSAGE(INTF_PWR_STATE_QUERY, parseTargetMsgData, genTargetMsgData,
            handleIntfPwrStateQueryMsg, sendIntfPwrStateQuery),
    MESSAGE(INTF_PWR_STATE_RESP, parseIntfPwrStateRespMsgData, genIntfPwrStateRespMsgData,
            handleIntfPwrStateRespMsg, nullptr),
    MESSAGE(REBOOT_REQ, parseRebootTargetMsgData, genTargetMsgData, handleRebootReqMsg, nullptr),
    MESSAGE(REBOOT_RESP, parseResultMsgData, genResultMsgData, handleRebootRespMsg, nullptr),
    MESSAGE(INTF_PWR_CTRL_REQ, parseIntfPwrCtrlReqMsgData, genIntfPwrCtrlReqMsgData, handleIntfPwrCtrlReqMsg, nullptr),
    MESSAGE(INTF_PWR_CTRL_RESP, parseIntfPwrCtrlRespMsgData, genIntfPwrCtrlRespMsgData,
            handleIntfPwrCtrlRespMsg, nullptr),
    MESSAGE(WIFI_STATE_REQ, parseNamedTargetMsgData, genTargetMsgData, handleWifiStateReqMsg, nullptr),
    MESSAGE(WIFI_STATE_RESP, parseWifiStateRespMsgData, genWifiStateRespMsgData, handleWifiStateRespMsg, nullptr),
    RESERVED(10), RESERVED(11), RESERVED(12), RESERVED(16), RESERVED(17), RESERVED(18), RESERVED(19),
    MESSAGE(FW_CTRL_REQ, parseFWCtrlReqMsgData, genFWCtrlReqMsgData, handleFWCtrlReqMsg, nullptr),
    MESSAGE(FW_CTRL_RESP, parseResultMsgData, genResultMsgData, handleFWCtrlRespMsg, nullptr),
    MESSAGE(RESET_DEFAULT_REQ, parseNamedTargetMsgData, genTargetMsgData, handleResetDefaultReqMsg, nullptr),
    MESSAGE(RESET_DEFAULT_RESP, parseResultMsgData, genResultMsgData, handleResetDefaultRespMsg, nullptr),
    MESSAGE(COMMAND_REQ, parseCommandReqMsgData, genCommandReqMsgData, handleCommandReqMsg, nullptr),
    MESSAGE(PARTIAL_RESET_DEFAULT_REQ, parseNamedTargetMsgData, genTargetMsgData,
            handlePartialResetDefaultReqMsg, nullptr),
    MESSAGE(PARTIAL_RESET_DEFAULT_RESP, parseResultMsgData, genResultMsgData,
            handlePartialResetDefaultRespMsg, nullptr),
    MESSAGE(COMMAND_RESP, parseResultMsgData, genResultMsgData, handleCommandRespMsg, nullptr),
    MESSAGE(LED_CTRL_REQ, parseLedCtrlMsgData, genLedCtrlMsgData, handleLedCtrlReqMsg, nullptr),
    MESSAGE(LED_CTRL_MCAST, parseLedCtrlMsgData, genLedCtrlMsgData, handleLedCtrlMcastMsg, nullptr),
    MESSAGE(LED_CTRL_RESP, parseResultMsgData, genResultMsgData, handleLedCtrlRespMsg, nullptr),
    MESSAGE(WIFI_CLIENT_MCAST2, parseWifiClientMsgData, genWifiClientMsgData, handleWifiClientMcastMsg, nullptr),
    RESERVED(42), RESERVED(43), RESERVED(44), RESERVED(49), RESERVED(50),
    MESSAGE(SYNC_CTRL_PWD_RESP, parseSyncCtrlerPwdMsgData, genSyncCtrlerPwdMsgData, acceptDecoded, nullptr),
    MESSAGE(SYNC_CTRL_PWD_REQ, parseTargetMsgData, genTargetMsgData, handleSyncControllerPwdReqMsg, nullptr),
    MESSAGE(SYNC_CTRL_COUNTRY_BCN_REQ, parseTargetMsgData, genTargetMsgData,
            handleSyncControllerCountryBcnReqMsg, nullptr),
    MESSAGE(SYNC_CTRL_COUNTRY_BCN_RESP, parseSyncCtrlerCountryMsgData, genSyncCtrlerCountryMsgData,
            acceptDecoded, nullptr),
};

// Intel's set.
constexpr IntelMessageRow kIntelRows[] = {
    // type, decode, encode, handle
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_REQ, parseRssiMeasurementReq, nullptr, handleIntelRssiMeasurementReq},
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_RESP, nullptr, genRssiMeasurementResp, nullptr},
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_NOTIFY, nullptr, genRssiMeasurementNotify, nullptr},
};
// clang-format on

#undef MESSAGE
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
        if (kRows[i - 1].type >= kRows[i].type) return false;
    }
    return std::size(kRows) < kNoRow;
}
static_assert(isSorted(), "rows rise by type and are unique");

}  // namespace

const MessageRow *findMessageRow(uint16_t type) {
    if (type >= VEND_MSG_TYPE_LIMIT || kRowOfType[type] == kNoRow) return nullptr;
    return &kRows[kRowOfType[type]];
}

const IntelMessageRow *findIntelMessageRow(uint8_t type) {
    for (const IntelMessageRow &row : kIntelRows) {
        if (row.type == type) return &row;
    }
    return nullptr;
}

}  // namespace kv
