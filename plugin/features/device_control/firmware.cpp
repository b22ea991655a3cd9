#include "features/device_control/firmware.h"

#include <cstring>

#include "features/device_control/answer.h"
#include "features/kvMAP1905_netCtrl.h"
#include "frame/file.h"
#include "frame/host_table.h"
#include "frame/log.h"
#include "protocol/message_row.h"

int32_t State_fw_is_download = kv::FW_STATE_NONE;
int32_t State_fw_upgrade = kv::FW_STATE_NONE;
int32_t Download_and_upgrade = 0;
int32_t Time_download = 0;
int32_t State_new_fw = 0;
char FW_file_name[128] = {};
char FW_file_version_old[128] = {};
char FW_file_version_new[128] = {};
char FW_file_date[128] = {};

namespace kv {

namespace {

// The agent's copy of a URL, terminator included. A longer one is answered with KV_RET_ERR.
constexpr size_t kUrlTextLen = 1024;

uint32_t carryOut(const KvFWCtrlReq &request) {
    char url[kUrlTextLen] = {};
    if (request.FWTopoOption != 0) {
        if (request.FWURLcount >= sizeof url) {
            LOG_DEVICE(KV_LOG_WARNING, "FWURL of %d characters is too long\n", request.FWURLcount);
            return KV_RET_ERR;
        }
        std::memcpy(url, request.FWURL, request.FWURLcount);
        LOG_PLAIN(KV_LOG_DEBUG, "FWCtrlReq: FWURL %s\n", url);
    }
    return static_cast<uint32_t>(kvFWCtrl(request.FWOption, request.FWTopoOption, url));
}

// Enters the guard of reboot and reset only after a finished download.
bool mayStartUpgrade() {
    if (State_fw_is_download != FW_STATE_FINISH_DOWNLOAD_FW) {
        LOG_DEVICE(KV_LOG_DEBUG, "State_fw_is_download is not FW_STATE_FINISH_DOWNLOAD_FW\n");
        return false;
    }
    if (State_fw_upgrade == FW_STATE_FW_UPGRADE) {
        LOG_DEVICE(KV_LOG_DEBUG, "State_fw_upgrade is FW_STATE_FW_UPGRADE\n");
        return false;
    }
    return true;
}

// A step of an upgrade and the states that it sets to its result.
struct UpgradeStep {
    int32_t result;
    const char *name;
    bool setsDownload;
    bool setsUpgrade;
};

constexpr UpgradeStep kSteps[] = {
    {FW_STATE_NONE, "Failed", true, true},
    {FW_STATE_DOWNLOAD_FW, "FW finsh start", true, false},
    {FW_STATE_FINISH_DOWNLOAD_FW, "FW finsh download", true, false},
    {FW_STATE_FW_UPGRADE, "FW_STATE_FW_UPGRADE", false, true},
    {FW_STATE_FINISH_UPGRADE_FW, "FW finsh upgrade", false, true},
};

void applyStep(const UpgradeStep &step) {
    LOG_PLAIN(KV_LOG_DEBUG, "Set FW result: %s\n", step.name);
    if (step.result == FW_STATE_FW_UPGRADE) {
        Download_and_upgrade = 0;
        if (!mayStartUpgrade()) return;
    }
    if (step.setsDownload) {
        State_fw_is_download = step.result;
    }
    if (step.setsUpgrade) {
        State_fw_upgrade = step.result;
    }
    updateKvFWUpgradeStatus(step.result);
}

}  // namespace

int handleFWCtrlReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin) {
    const auto &request = *static_cast<const KvFWCtrlReq *>(msg->payload);
    LOG_MSG(KV_LOG_DEBUG, "FWCtrlReq: FWOption %d, FWTopoOption %d, FWURLcount %d\n", request.FWOption,
            request.FWTopoOption, request.FWURLcount);
    const uint32_t result = carryOut(request);
    const int answered = origin == kOriginCommand ? sendCommandRespMsg(source, msgId, result)
                                                  : sendResultMsg(source, msgId, VEND_MSG_TYPE_FW_CTRL_RESP, result);
    if (result != KV_RET_OK || answered != KV_RET_OK) {
        LOG_PLAIN(KV_LOG_WARNING, "FW control failed\n");
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

int handleFWCtrlRespMsg(uint16_t msgId, KvVendMsg *msg) {
    const uint32_t result = resultOf(msg);
    LOG_MSG(KV_LOG_INFO, "received FW control response msgId %04x, result %d\n", msgId, static_cast<int>(result));
    reportResult(result);
    return KV_RET_OK;
}

int setKvFWresult(int32_t result) {
    for (const UpgradeStep &step : kSteps) {
        if (step.result == result) {
            applyStep(step);
        }
    }
    return KV_RET_OK;
}

int updateKvFWUpgradeStatus(int32_t status) {
    LOG_DEVICE(KV_LOG_INFO, "update FW upgrade status %d\n", status);
    KvDevVendorData *dev = deviceVendorData(nullptr);
    if (dev == nullptr) return KV_RET_OK;
    const auto stored = static_cast<uint8_t>(status);
    if (dev->fwUpgradeStatus != stored) {
        dev->fwUpgradeStatus = stored;
        LOG_PLAIN(KV_LOG_INFO, "Firemware upgrade status has changed, update the json file\n");
        writeJsonDataModel();
    }
    return KV_RET_OK;
}

int recordNewFirmware(int result) {
    LOG_DEVICE(KV_LOG_INFO, "update new firmware result %d\n", result);
    KvDevVendorData *dev = deviceVendorData(nullptr);
    if (dev == nullptr) {
        LOG_DEVICE(KV_LOG_WARNING, "configuration data is null\n");
        return KV_RET_ERR;
    }
    if (result == 1) {
        dev->fwUpgradeStatus = 1;
        char version[128] = {};
        if (kvGetNewFWversion(version) == KV_RET_OK) {
            setText(dev->newFwVersion, version);
            LOG_PLAIN(KV_LOG_DEBUG, "Device Newfirmwareversion %s\n", dev->newFwVersion);
        }
        char date[128] = {};
        if (kvGetNewFWdate(date) == KV_RET_OK) {
            setText(dev->newFwDate, date);
            LOG_PLAIN(KV_LOG_DEBUG, "Device Newfirmwaredate %s\n", dev->newFwDate);
        }
    }
    writeJsonDataModel();
    return KV_RET_OK;
}

int32_t checkFWIsUpgradeNow() {
    return State_fw_upgrade;
}

}  // namespace kv
