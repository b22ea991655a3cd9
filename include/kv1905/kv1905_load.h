/**
 * @file
 * kv1905_load.h - loads the plug-in at run time, for a host that is not linked with it. Header only; C11 or C++20, with
 * -ldl where the C library needs it.
 */
#ifndef KV1905_KV1905_LOAD_H
#define KV1905_KV1905_LOAD_H

#include <dlfcn.h>
#include <stddef.h>
#include <string.h>

#include "kv1905/kvMAP1905.h"

/** Every exported function and global, as X(name). */
#define KV1905_SYMBOLS(X) \
    X(g_kv1905_bcm_cbs) X(KvDevAlMac) X(controller) X(g_timeStamp) X(data_model_time_stamp) X(I5_MCAST_MAC_ADDRESS) \
    X(download_timeout) X(kvFlags) X(NCAL_state) X(g_MainSSID) X(g_MainBSSID) X(WIFINbrNum) X(WIFINeighborHead) \
    X(State_fw_is_download) X(State_fw_upgrade) X(Download_and_upgrade) X(Time_download) X(State_new_fw) \
    X(FW_file_name) X(FW_file_version_old) X(FW_file_version_new) X(FW_file_date) X(kvMAP1905_Func_reg) \
    X(kvMAP1905_ApCfg_reg) X(kvMAP1905_ApCfg_set) X(kvMAP1905_DmData_get) X(kvMAP1905_JsonDataModel_write) \
    X(kvMAP1905_MainLoop) X(kvMAP1905_param_update) X(kvMAP1905_findController) X(kvMAP1905_DeviceDm_init) \
    X(kvMAP1905_DeviceDm_update) X(kvMAP1905_DevIntfDm_init) X(checkKovanAgent) X(kvMAP1905_CtrlFromNbrCap_get) \
    X(kvMAP1905_WifiChan_get) X(kvMAP1905_VenderSpecMsg_send) X(kvMAP1905_IntelVenderSpecMsg_send) \
    X(kvMAP1905_VenderSpecMcastMsg_send) X(kvMAP1905_VenderSpecRelayMcastMsg_send) X(kvMAP1905_VendSpecTlv_handle) \
    X(kvMAP1905_VendSpecMsg_handle) X(kvMAP1905_VendSpecMsg_handle_Intel) X(kvMAP1905_ConfQuery_send) \
    X(kvMAP1905_ConfRespMsg_send) X(kvMAP1905_WifiStateQuery_send) X(kvMAP1905_RssiMeasurementNotify_send) \
    X(kvMAP1905_IntfPwrStateQuery_send) X(updateKvFWNewfirmware) X(kvMAP1905_SyncCtrlSettingReq_send) \
    X(kvMAP1905_CountryInBcn_update) X(kvMAP1905_TlvMDID_insert) X(kvMAP1905_mdid_update) \
    X(kvMAP1905_TlvBss_Config_insert) X(kvMAP1905_ApCfg_fill) X(kvMAP1905_ApCfg_parse) \
    X(kvMAP1905_ApCfg_parse_check_len) X(kvMAP1905_parameter_init) X(dumpBssInfo) X(kvMAP1905_VendSpecCmd_handle) \
    X(kvMAP1905_RebootQuery_send) X(kvMAP1905_CtrlInftPwrQuery_send) X(kvMAP1905_FWCtrlQuery_send) \
    X(kvMAP1905_ResetDefaultQuery_send) X(kvMAP1905_FwResult_set) X(kvMAP1905_ledStatus_send) \
    X(kvMAP1905_PartialResetDefaultQuery_send) X(kvMAP1905_CmdQuery_send) X(kvMAP1905_SyslogDbg_set) \
    X(kvMAP1905_sync_country_req_send) X(kvMAP1905_CountryInBcn_send)

/** The loaded library: a pointer to each of its functions and globals, under the same name. */
typedef struct {
    void *library; /**< handle of dlopen */
#ifdef __cplusplus
#define KV1905_POINTER(name) __typeof__(::name) *name;
#else
#define KV1905_POINTER(name) __typeof__(name) *name;
#endif
    KV1905_SYMBOLS(KV1905_POINTER)
#undef KV1905_POINTER
} Kv1905Plugin;

/**
 * Loads the plug-in and looks up all its symbols. The library stays loaded: it keeps state and the host's pointers.
 * @param plugin  receives the pointers; incomplete after a failure
 * @param path    file, or a name without "/" for the loader's search path; usually "libkvMAP1905.so". The Debian
 *                package installs it outside that path: pass what pkg-config --variable=plugin kv1905 prints
 * @return null, or the reason of the failure, valid until the next call of dlopen or dlsym
 */
static inline const char *kv1905Load(Kv1905Plugin *plugin, const char *path) {
    void *symbol = NULL;
    plugin->library = dlopen(path, RTLD_NOW);
    if (plugin->library == NULL) return dlerror();
#define KV1905_LOOK_UP(name) \
    symbol = dlsym(plugin->library, #name); \
    if (symbol == NULL) return #name " is missing in the plug-in"; \
    memcpy(&plugin->name, &symbol, sizeof symbol);
    KV1905_SYMBOLS(KV1905_LOOK_UP)
#undef KV1905_LOOK_UP
    return NULL;
}

#endif
