#include "daemon/plugin.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "daemon/log.h"

namespace kv1905d {
namespace {

// One row per symbol: its name and where its address goes.
struct SymbolRow {
    const char *name;
    void (*store)(PluginSymbols &plugin, void *address);
};

template <auto Member>
void store(PluginSymbols &plugin, void *address) {
    static_assert(sizeof(plugin.*Member) == sizeof address);
    std::memcpy(&(plugin.*Member), &address, sizeof address);
}

constexpr SymbolRow kSymbols[] = {
    {"kvMAP1905_Func_reg", store<&PluginSymbols::funcReg>},
    {"kvMAP1905_ApCfg_reg", store<&PluginSymbols::apCfgReg>},
    {"kvMAP1905_DeviceDm_init", store<&PluginSymbols::deviceInit>},
    {"kvMAP1905_DeviceDm_update", store<&PluginSymbols::deviceUpdate>},
    {"kvMAP1905_DevIntfDm_init", store<&PluginSymbols::interfaceInit>},
    {"kvMAP1905_param_update", store<&PluginSymbols::paramUpdate>},
    {"kvMAP1905_MainLoop", store<&PluginSymbols::mainLoop>},
    {"kvMAP1905_VendSpecTlv_handle", store<&PluginSymbols::tlvHandle>},
    {"kvMAP1905_ConfQuery_send", store<&PluginSymbols::confQuerySend>},
    {"kvMAP1905_ConfRespMsg_send", store<&PluginSymbols::confRespSend>},
    {"checkKovanAgent", store<&PluginSymbols::checkAgent>},
    {"kvMAP1905_VendSpecCmd_handle", store<&PluginSymbols::commandHandle>},
    {"kvMAP1905_TlvMDID_insert", store<&PluginSymbols::mdidInsert>},
    {"kvMAP1905_TlvBss_Config_insert", store<&PluginSymbols::bssConfigInsert>},
    {"kvMAP1905_ApCfg_fill", store<&PluginSymbols::apCfgFill>},
    {"kvMAP1905_ApCfg_parse", store<&PluginSymbols::apCfgParse>},
    {"kvMAP1905_ApCfg_parse_check_len", store<&PluginSymbols::apCfgParseCheckLen>},
    {"kvMAP1905_SyncCtrlSettingReq_send", store<&PluginSymbols::settingRequestSend>},
    {"kvMAP1905_WifiStateQuery_send", store<&PluginSymbols::wifiStateQuerySend>},
    {"kvMAP1905_IntfPwrStateQuery_send", store<&PluginSymbols::powerQuerySend>},
    {"kvMAP1905_RssiMeasurementNotify_send", store<&PluginSymbols::rssiNotifySend>},
    {"KvDevAlMac", store<&PluginSymbols::alMac>},
    {"controller", store<&PluginSymbols::controller>},
    {"data_model_time_stamp", store<&PluginSymbols::dataModelTimeStamp>},
    {"g_MainSSID", store<&PluginSymbols::mainSsid>},
    {"g_MainBSSID", store<&PluginSymbols::mainBssid>},
    {"WIFINbrNum", store<&PluginSymbols::stationCount>},
};
static_assert(std::size(kSymbols) * sizeof(void *) == sizeof(PluginSymbols), "every symbol has a row");

PluginHost *theHost = nullptr;

using SendMember = int (PluginHost::*)(const KvVendMsgDest &, uint16_t *);

// The caller's frames know no exceptions: running out of memory is a failed callback to them.
template <typename Result, typename Call>
Result guarded(Result failure, const Call &call) noexcept {
    try {
        return theHost == nullptr ? failure : call();
    } catch (const std::exception &error) {
        KV_HOST_LOG(KV_LOG_ERROR, "callback failed: %s", error.what());
        return failure;
    }
}

template <SendMember Send>
int sendSlot(KvVendMsgDest *dest, uint16_t *msgId) {
    if (dest == nullptr || (dest->buffer == nullptr && dest->length > 0)) return KV_RET_ERR;
    return guarded(KV_RET_ERR, [&] { return (theHost->*Send)(*dest, msgId); });
}

uintptr_t dataSlot(uint32_t code, void *argument, uintptr_t argument2) {
    // 0 is "no record" to the queries for records, but success to the first two.
    const uintptr_t failure = code <= DM_QUERY_ALMAC_BY_IFMAC ? KV_RET_ERR : 0;
    return guarded(failure, [&] { return theHost->dataQuery(code, argument, argument2); });
}

int writeSlot(uint32_t) {
    return guarded(KV_RET_ERR, [] { return theHost->writeDataModel(); });
}

}  // namespace

PluginLibrary::PluginLibrary(const std::string &path)
    : path_(path), library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) throw std::runtime_error(std::string("plug-in: ") + dlerror());
}

void *PluginLibrary::address(const char *name) const {
    void *found = dlsym(library_, name);
    if (found == nullptr) throw std::runtime_error("plug-in " + path_ + " lacks " + name);
    return found;
}

PluginSymbols loadPlugin(const std::string &path) {
    const PluginLibrary library(path);
    PluginSymbols plugin{};
    for (const SymbolRow &row : kSymbols)
        row.store(plugin, library.address(row.name));
    return plugin;
}

void startPlugin(const PluginSymbols &plugin, PluginHost &host, const MacAddress &alMac, KvDevVendorData *local) {
    theHost = &host;
    const Kv1905BcmCbs slots{
        dataSlot,
        writeSlot,
        sendSlot<&PluginHost::sendUnicast>,
        sendSlot<&PluginHost::sendToNeighbours>,
        sendSlot<&PluginHost::sendToNetwork>,
        nullptr,  // commands are posted by the command tool
        nullptr,  // filled by the plug-in in its own table
    };
    plugin.funcReg(&slots, 0);
    plugin.apCfgReg(nullptr);
    std::copy(alMac.bytes.begin(), alMac.bytes.end(), *plugin.alMac);
    plugin.deviceInit(local);
}

}  // namespace kv1905d
