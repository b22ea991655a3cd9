// C entry points. Each forwards to the layers below.
#include "commands/command_table.h"
#include "commands/tool_entries.h"
#include "features/config_exchange/config_exchange.h"
#include "features/device_control/firmware.h"
#include "features/device_control/interface_power.h"
#include "features/multiap/ap_cfg.h"
#include "features/multiap/bss_config_tlv.h"
#include "features/multiap/country_sync.h"
#include "features/multiap/mdid_tlv.h"
#include "features/multiap/settings_sync_request.h"
#include "features/wifi_clients/rssi_measurement.h"
#include "features/wifi_clients/wifi_state.h"
#include "frame/host_table.h"
#include "frame/local_files.h"
#include "frame/parameters.h"
#include "frame/vendor_data.h"
#include "kv1905/kvMAP1905.h"
#include "periodic_tasks.h"
#include "transport/receive.h"
#include "transport/send.h"

using namespace kv;

// clang-format off
// Registration and data model
void kvMAP1905_Func_reg(const Kv1905BcmCbs *table, uint8_t flag) { registerHost(table, flag); }
void kvMAP1905_ApCfg_reg(void *) { g_kv1905_bcm_cbs.apCfgSet = kvMAP1905_ApCfg_set; }
int kvMAP1905_ApCfg_set(void *argument) { return setApConfiguration(argument); }
uintptr_t kvMAP1905_DmData_get(uint32_t code, void *argument, uintptr_t argument2) {
    return queryDataModel(code, argument, argument2);
}
int kvMAP1905_JsonDataModel_write(void) { return writeJsonDataModel(); }

// Periodic work, role, local record
int kvMAP1905_MainLoop(void) { return mainLoop(); }
int kvMAP1905_param_update(void) { return updateParameters(); }
int kvMAP1905_findController(void) { return findController(); }
void kvMAP1905_DeviceDm_init(KvDevVendorData *dev) { initDevice(dev); }
void kvMAP1905_DeviceDm_update(KvDevVendorData *dev) { updateDevice(dev); }
void kvMAP1905_DevIntfDm_init(KvIntfVendorData *intf, uint32_t mediaType) { initInterface(intf, mediaType); }
int checkKovanAgent(const uint8_t *alMac, uint8_t *isKovan) { return checkAgentSpeaksProtocol(alMac, isKovan); }
int kvMAP1905_CtrlFromNbrCap_get(int which) { return capabilityFromController(which); }
void kvMAP1905_WifiChan_get(const char *ifname, char *channelOut) { readWifiChannel(ifname, channelOut); }

// Sending
int kvMAP1905_VenderSpecMsg_send(const uint8_t *destinationMac, uint16_t *msgId, const KvVendMsg *msg) {
    return sendUnicast(destinationMac, msgId, msg);
}
int kvMAP1905_IntelVenderSpecMsg_send(const uint8_t *destinationMac, uint16_t *msgId, const KvIntelVendMsg *msg) {
    return sendIntelUnicast(destinationMac, msgId, msg);
}
int kvMAP1905_VenderSpecMcastMsg_send(const KvVendMsg *msg, uint16_t *msgId) { return sendMulticast(msg, msgId); }
int kvMAP1905_VenderSpecRelayMcastMsg_send(const KvVendMsg *msg, uint16_t *msgId) {
    return sendRelayedMulticast(msg, msgId);
}

// Receiving
void kvMAP1905_VendSpecTlv_handle(const KvRecvVendTlv *tlv, uint32_t length, uint32_t msgId) {
    receiveTlv(tlv, length, static_cast<uint16_t>(msgId));
}
void kvMAP1905_VendSpecMsg_handle(const KvRecvVendTlv *tlv, uint32_t msgId) {
    receiveVendorTlv(tlv, static_cast<uint16_t>(msgId));
}
void kvMAP1905_VendSpecMsg_handle_Intel(const KvRecvVendTlv *tlv, uint32_t msgId) {
    receiveIntelTlv(tlv, static_cast<uint16_t>(msgId));
}

// Configuration exchange
int kvMAP1905_ConfQuery_send(const uint8_t *alMac, uint8_t retry) { return sendConfQuery(alMac, retry); }
int kvMAP1905_ConfRespMsg_send(const KvRecvVendTlv *source, uint16_t msgId, uint8_t mcast) {
    return sendConfResp(source, msgId, mcast);
}

// Wi-Fi stations
int kvMAP1905_WifiStateQuery_send(const uint8_t *alMac, uint8_t) { return sendWifiStateQuery(alMac); }
int kvMAP1905_RssiMeasurementNotify_send(const uint8_t *destination, KvIntelVendMsg *msg) {
    return sendRssiMeasurementNotify(destination, msg);
}

// Device control
int kvMAP1905_IntfPwrStateQuery_send(const uint8_t *alMac, uint8_t retry) {
    return sendIntfPwrStateQuery(alMac, retry);
}
int updateKvFWNewfirmware(int result) { return recordNewFirmware(result); }

// Multi-AP extensions
int kvMAP1905_TlvMDID_insert(uint8_t *buffer, uint32_t *length, KvMdidInterfaceList *list) {
    return insertMdidTlv(buffer, length, list);
}
int kvMAP1905_mdid_update(KvMdidInterfaceList *list) { return updateMdid(list); }
int kvMAP1905_TlvBss_Config_insert(uint8_t *buffer, uint32_t *length, const void *list) {
    return insertBssConfigTlv(buffer, length, list);
}
int kvMAP1905_ApCfg_fill(uint8_t *buffer, uint32_t offset, const KvBssInfo *bss) {
    return fillApConfiguration(buffer == nullptr ? nullptr : buffer + offset, bss);
}
int kvMAP1905_ApCfg_parse(const uint8_t *data, KvBssInfo *bss) { return parseInOrder(data, bss); }
int kvMAP1905_ApCfg_parse_check_len(const uint8_t *data, uint32_t len, KvBssInfo *bss) {
    return parseWithLength(data, len, bss);
}
int kvMAP1905_parameter_init(const uint8_t *subElements, KvBssInfo *bss) { return initParameters(subElements, bss); }
void dumpBssInfo(const KvBssInfo *bss) { logBssInfo(bss); }

// Settings sync
int kvMAP1905_SyncCtrlSettingReq_send(const uint8_t *alMac, int command) {
    return sendSyncCtrlSettingReq(alMac, command);
}
int kvMAP1905_CountryInBcn_update(const char *ifname, const char *countryCode, const char *beaconCountry) {
    return updateCountryInBeacon(ifname, countryCode, beaconCountry);
}

// Operator commands
void kvMAP1905_VendSpecCmd_handle(void *buffer, uint32_t code) { runCommandCode(buffer, code); }
int kvMAP1905_RebootQuery_send(void *, int argc, char **argv) { return postReboot(argc, argv); }
int kvMAP1905_CtrlInftPwrQuery_send(void *, int argc, char **argv) { return postIntfPwrCtrl(argc, argv); }
int kvMAP1905_FWCtrlQuery_send(void *, int argc, char **argv) { return postFWCtrl(argc, argv); }
int kvMAP1905_ResetDefaultQuery_send(void *, int argc, char **argv) { return postResetDefault(argc, argv); }
int kvMAP1905_FwResult_set(void *, int argc, char **argv) { return postFWResult(argc, argv); }
int kvMAP1905_ledStatus_send(void *, int argc, char **argv) { return postLedCtrl(argc, argv); }
int kvMAP1905_PartialResetDefaultQuery_send(void *, int argc, char **argv) {
    return postPartialResetDefault(argc, argv);
}
int kvMAP1905_CmdQuery_send(void *, int argc, char **argv) { return postRemoteCommand(argc, argv); }
int kvMAP1905_sync_country_req_send(void *, int argc, char **argv) { return postSyncCountryReq(argc, argv); }
int kvMAP1905_CountryInBcn_send(void *, int argc, char **argv) { return postCountry(argc, argv); }
int kvMAP1905_SyslogDbg_set(void *, int argc, char **argv) { return postLogSetting(argc, argv); }
// clang-format on
