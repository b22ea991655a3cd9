// The plug-in: loading it, what the host calls of it and what it calls of the host.
#pragma once

#include <kv1905/kvMAP1905.h>

#include <bit>
#include <string>

#include "ieee1905/mac_address.h"

namespace kv1905d {

// What the plug-in asks of the host; the seven-slot table leads here. Results as kvMAP1905.h says.
class PluginHost {
  public:
    virtual ~PluginHost() = default;
    virtual uintptr_t dataQuery(uint32_t code, void *argument, uintptr_t argument2) = 0;
    virtual int writeDataModel() = 0;
    virtual int sendUnicast(const KvVendMsgDest &dest, uint16_t *msgId) = 0;
    virtual int sendToNeighbours(const KvVendMsgDest &dest, uint16_t *msgId) = 0;
    virtual int sendToNetwork(const KvVendMsgDest &dest, uint16_t *msgId) = 0;
};

// The entry points and globals that the host uses, as found in the library.
struct PluginSymbols {
    decltype(&kvMAP1905_Func_reg) funcReg;
    decltype(&kvMAP1905_ApCfg_reg) apCfgReg;
    decltype(&kvMAP1905_DeviceDm_init) deviceInit;
    decltype(&kvMAP1905_DeviceDm_update) deviceUpdate;
    decltype(&kvMAP1905_DevIntfDm_init) interfaceInit;
    decltype(&kvMAP1905_param_update) paramUpdate;
    decltype(&kvMAP1905_MainLoop) mainLoop;
    decltype(&kvMAP1905_VendSpecTlv_handle) tlvHandle;
    decltype(&kvMAP1905_ConfQuery_send) confQuerySend;
    decltype(&kvMAP1905_ConfRespMsg_send) confRespSend;
    decltype(&checkKovanAgent) checkAgent;
    decltype(&kvMAP1905_VendSpecCmd_handle) commandHandle;
    decltype(&kvMAP1905_TlvMDID_insert) mdidInsert;
    decltype(&kvMAP1905_TlvBss_Config_insert) bssConfigInsert;
    decltype(&kvMAP1905_ApCfg_fill) apCfgFill;
    decltype(&kvMAP1905_ApCfg_parse) apCfgParse;
    decltype(&kvMAP1905_ApCfg_parse_check_len) apCfgParseCheckLen;
    decltype(&kvMAP1905_SyncCtrlSettingReq_send) settingRequestSend;
    decltype(&kvMAP1905_WifiStateQuery_send) wifiStateQuerySend;
    decltype(&kvMAP1905_IntfPwrStateQuery_send) powerQuerySend;
    decltype(&kvMAP1905_RssiMeasurementNotify_send) rssiNotifySend;
    uint8_t (*alMac)[KV_MAC_LEN];
    uint8_t *controller;
    uint32_t *dataModelTimeStamp;
    char (*mainSsid)[66];
    uint8_t (*mainBssid)[12];
    uint32_t *stationCount;
};

/*
 * A name without a slash is looked up like a library of the program's own. The library stays loaded until the process
 * ends: it has no way to be told to let go of what it holds. Both throw std::runtime_error that names the library and
 * what is missing.
 */
class PluginLibrary {
  public:
    explicit PluginLibrary(const std::string &path);

    // Never null.
    void *address(const char *name) const;
    template <typename Pointer>
    Pointer symbol(const char *name) const {
        // POSIX makes dlsym's result convertible to a function pointer; C++ wants its bits.
        return std::bit_cast<Pointer>(address(name));
    }

  private:
    std::string path_;
    void *library_;
};

// All that the daemon uses. Throws like PluginLibrary.
PluginSymbols loadPlugin(const std::string &path);

/*
 * Register `host` and initialise the plug-in for the local device, in the order kvMAP1905.h gives. `host` must outlive
 * every later call into the plug-in, and there is one at a time: the slots carry no context.
 */
void startPlugin(const PluginSymbols &plugin, PluginHost &host, const MacAddress &alMac, KvDevVendorData *local);

}  // namespace kv1905d
