// The plug-in: loads it and passes calls in both directions.
#pragma once

#include <kv1905/kvMAP1905.h>

#include <cstdint>
#include <string>

#include "daemon/frame_sender.h"
#include "ieee1905/mac_address.h"

namespace kv1905d {

// Receives the plug-in's calls of the seven-slot table. Results are those of kvMAP1905.h.
class PluginHost {
  public:
    virtual ~PluginHost() = default;
    virtual uintptr_t dataQuery(uint32_t code, void *argument, uintptr_t argument2) = 0;
    virtual int writeDataModel() = 0;  // may be delayed; the last result
    virtual int sendVendor(Reach reach, const KvVendMsgDest &dest, uint16_t *msgId) = 0;
};

// The entry points and globals that the host uses: X(MEMBER, SYMBOL) for each.
#define KV_PLUGIN_SYMBOLS(X)                                 \
    X(funcReg, kvMAP1905_Func_reg)                           \
    X(apCfgReg, kvMAP1905_ApCfg_reg)                         \
    X(deviceInit, kvMAP1905_DeviceDm_init)                   \
    X(deviceUpdate, kvMAP1905_DeviceDm_update)               \
    X(interfaceInit, kvMAP1905_DevIntfDm_init)               \
    X(paramUpdate, kvMAP1905_param_update)                   \
    X(mainLoop, kvMAP1905_MainLoop)                          \
    X(tlvHandle, kvMAP1905_VendSpecTlv_handle)               \
    X(confQuerySend, kvMAP1905_ConfQuery_send)               \
    X(confRespSend, kvMAP1905_ConfRespMsg_send)              \
    X(commandHandle, kvMAP1905_VendSpecCmd_handle)           \
    X(mdidInsert, kvMAP1905_TlvMDID_insert)                  \
    X(bssConfigInsert, kvMAP1905_TlvBss_Config_insert)       \
    X(apCfgFill, kvMAP1905_ApCfg_fill)                       \
    X(apCfgParse, kvMAP1905_ApCfg_parse)                     \
    X(apCfgParseCheckLen, kvMAP1905_ApCfg_parse_check_len)   \
    X(settingRequestSend, kvMAP1905_SyncCtrlSettingReq_send) \
    X(wifiStateQuerySend, kvMAP1905_WifiStateQuery_send)     \
    X(powerQuerySend, kvMAP1905_IntfPwrStateQuery_send)      \
    X(rssiNotifySend, kvMAP1905_RssiMeasurementNotify_send)  \
    X(alMac, KvDevAlMac)                                     \
    X(controller, controller)                                \
    X(dataModelTimeStamp, data_model_time_stamp)             \
    X(mainSsid, g_MainSSID)                                  \
    X(mainBssid, g_MainBSSID)                                \
    X(stationCount, WIFINbrNum)

struct PluginSymbols {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a member's name
#define KV_DECLARE_SYMBOL(member, symbol) decltype(&::symbol) member;
    KV_PLUGIN_SYMBOLS(KV_DECLARE_SYMBOL)
#undef KV_DECLARE_SYMBOL
};

// Calls of the host that threw, since the start.
uint64_t failedCallbacks();

// Loads the plug-in with all functions that the daemon uses. Throws like support::PluginLibrary.
PluginSymbols loadPlugin(const std::string &path);

/*
 * Register `host` and initialise the plug-in for the local device, in the order kvMAP1905.h gives. `host` must outlive
 * every later call into the plug-in, and there is one at a time: the slots carry no context.
 */
void startPlugin(const PluginSymbols &plugin, PluginHost &host, const MacAddress &alMac, KvDevVendorData *local);

}  // namespace kv1905d
