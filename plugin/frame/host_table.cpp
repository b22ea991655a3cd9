#include "frame/host_table.h"

#include <ctime>

#include "frame/log.h"

Kv1905BcmCbs g_kv1905_bcm_cbs = {};
uint32_t g_timeStamp = 0;
uint32_t data_model_time_stamp = 0;

namespace kv {

namespace {
constexpr uint8_t kCommandToolOnly = 1;
}

void registerHost(const Kv1905BcmCbs *table, uint8_t flag) {
    g_timeStamp = static_cast<uint32_t>(std::time(nullptr));
    if (table == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "registration without a callback table\n");
        return;
    }
    if (flag == kCommandToolOnly) {
        g_kv1905_bcm_cbs.cmdSend = table->cmdSend;
        return;
    }
    g_kv1905_bcm_cbs.dmDataGet = table->dmDataGet;
    g_kv1905_bcm_cbs.jsonDataModelWrite = table->jsonDataModelWrite;
    g_kv1905_bcm_cbs.vendMsgSend = table->vendMsgSend;
    g_kv1905_bcm_cbs.vendMcastMsgSend = table->vendMcastMsgSend;
    g_kv1905_bcm_cbs.vendRelayMcastMsgSend = table->vendRelayMcastMsgSend;
}

uintptr_t queryDataModel(uint32_t code, const void *argument, uintptr_t argument2) {
    if (g_kv1905_bcm_cbs.dmDataGet == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "NULL registar function\n");
        return 0;
    }
    // The slot has a non-const pointer for every code; no query writes through it.
    return g_kv1905_bcm_cbs.dmDataGet(code, const_cast<void *>(argument), argument2);
}

KvDevVendorData *deviceVendorData(const uint8_t *alMac) {
    return reinterpret_cast<KvDevVendorData *>(queryDataModel(DM_QUERY_DEV_VENDOR_DATA, alMac, 0));
}

KvDevVendorData *wifiNeighborData(const uint8_t *alMac) {
    return reinterpret_cast<KvDevVendorData *>(queryDataModel(DM_QUERY_DEV_WIFI_NBR, alMac, 0));
}

bool isInTopology(const uint8_t *alMac) {
    return queryDataModel(DM_QUERY_DEVICE, alMac, 0) != KV_RET_ERR;
}

InterfaceList interfacesOf(const uint8_t *alMac) {
    return InterfaceList(reinterpret_cast<KvIntfList *>(queryDataModel(DM_QUERY_INTF_LIST, alMac, 0)));
}

int getalMacOfDevTableByIfMac(uint8_t *alMacOut, const uint8_t *ifMac) {
    if (alMacOut == nullptr || ifMac == nullptr) {
        LOG_MSG(KV_LOG_WARNING, "invalid intfMac\n");
        return KV_RET_ERR;
    }
    return static_cast<int>(queryDataModel(DM_QUERY_ALMAC_BY_IFMAC, ifMac, reinterpret_cast<uintptr_t>(alMacOut)));
}

int writeJsonDataModel() {
    if (g_kv1905_bcm_cbs.jsonDataModelWrite == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "NULL registar function\n");
        return KV_RET_ERR;
    }
    return g_kv1905_bcm_cbs.jsonDataModelWrite(0);
}

}  // namespace kv
