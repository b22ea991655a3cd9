#include "features/kvMAP1905_netCtrl.h"

#include "features/device_control/firmware.h"
#include "frame/config_service.h"
#include "frame/log.h"
#include "frame/shell.h"

namespace kv {

namespace {

// Selects the objects that survive a partial reset. The configuration service defines the numbers.
constexpr char kUnpurgedList[] = "FactoryResetUnpurgedList";
constexpr int kKeepOnPartialReset = 2;

bool isResetForbidden() {
    if (checkFWIsUpgradeNow() != FW_STATE_FW_UPGRADE) return false;
    LOG_DEVICE(KV_LOG_WARNING, "reset to default failed, FW upgeade now\n");
    return true;
}

int requestReset(uint32_t request) {
    if (kcfgFeReqSend(request, nullptr, 0) != 0) {
        kos_pk("Fail to reset to default.\n");
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

// Best effort. If the object is missing, the reset continues and the service applies its own selection.
void selectObjectsToKeep() {
    KcfgInstanceIndex index = {};
    json_object *copy = nullptr;
    const int result = kcfgFeObjJsonGet(RDM_OID_FACTORY_RESET, &index, &copy);
    const JsonObject object(copy);
    // json-c aborts when a member is added to anything but an object.
    if (result != 0 || !json_object_is_type(object.get(), json_type_object)) return;
    json_object *value = json_object_new_int(kKeepOnPartialReset);
    if (value == nullptr || json_object_object_add(object.get(), kUnpurgedList, value) != 0) {
        json_object_put(value);
        return;
    }
    kcfgFeObjJsonSetWithoutApply(RDM_OID_FACTORY_RESET, &index, object.get(), nullptr);
}

}  // namespace

int kvReboot() {
    LOG_DEVICE(KV_LOG_NOTICE, "reboot system\n");
    if (checkFWIsUpgradeNow() == FW_STATE_FW_UPGRADE) {
        LOG_DEVICE(KV_LOG_WARNING, "reboot failed, FW upgeade now\n");
        return KV_RET_ERR;
    }
    runCommand("reboot");
    return KV_RET_OK;
}

int kvResetToDefault() {
    return isResetForbidden() ? KV_RET_ERR : requestReset(KCFG_REQ_RESET_DEFAULT);
}

int kvPartialResetToDefault() {
    if (isResetForbidden()) return KV_RET_ERR;
    selectObjectsToKeep();
    return requestReset(KCFG_REQ_PARTIAL_RESET_DEFAULT);
}

int kvFWCtrl(uint16_t, uint16_t, const char *) {
    LOG_DEVICE(KV_LOG_NOTICE, "not support FW control\n");
    return KV_RET_ERR;
}

int kvGetNewFWversion(char *) {
    LOG_DEVICE(KV_LOG_NOTICE, "Not support FW control\n");
    return KV_RET_ERR;
}

int kvGetNewFWdate(char *) {
    LOG_DEVICE(KV_LOG_NOTICE, "Not support FW control\n");
    return KV_RET_ERR;
}

uint8_t setKvIntfPwrStateById(const uint8_t *interfaceMac, uint16_t mediaType, uint32_t pwrState) {
    LOG_DEVICE(KV_LOG_DEBUG, "set intfMac " KV_MAC " pwrState %d, mediaType 0x%04x\n", KV_MAC_BYTES(interfaceMac),
               static_cast<int>(pwrState), mediaType);
    return pwrState <= kHighestPowerState ? kPowerApplied : kPowerStateUnsupported;
}

uint8_t setKvIntfPwrStateByMedia(uint16_t mediaType, uint32_t pwrState) {
    LOG_DEVICE(KV_LOG_DEBUG, "set intf pwrState %d, mediaType 0x%04x\n", static_cast<int>(pwrState), mediaType);
    return kPowerByMediaUnavailable;
}

}  // namespace kv
