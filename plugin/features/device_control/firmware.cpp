#include "features/device_control/firmware.h"

#include <unistd.h>

#include <cstring>

#include "features/device_control/answer.h"
#include "features/kvMAP1905_netCtrl.h"
#include "frame/file.h"
#include "frame/host_table.h"
#include "frame/log.h"
#include "frame/memory.h"
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

FirmwareUpgradeList upgradeList;

constexpr unsigned kWriteDelay = 1;  // seconds
constexpr char kListLine[] = "%02x:%02x:%02x:%02x:%02x:%02x\n";

// The agent's copy of a URL, its terminator included; a longer one is answered with KV_RET_ERR.
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

// The guard of reboot and reset is entered only after a finished download.
void startUpgrade() {
    Download_and_upgrade = 0;
    if (State_fw_is_download != FW_STATE_FINISH_DOWNLOAD_FW) {
        LOG_DEVICE(KV_LOG_DEBUG, "State_fw_is_download is not FW_STATE_FINISH_DOWNLOAD_FW\n");
        return;
    }
    if (State_fw_upgrade == FW_STATE_FW_UPGRADE) {
        LOG_DEVICE(KV_LOG_DEBUG, "State_fw_upgrade is FW_STATE_FW_UPGRADE\n");
        return;
    }
    State_fw_upgrade = FW_STATE_FW_UPGRADE;
    updateKvFWUpgradeStatus(FW_STATE_FW_UPGRADE);
}

struct UpgradeStep {
    int32_t result;
    const char *name;
    void (*apply)();
};

constexpr UpgradeStep kSteps[] = {
    {FW_STATE_NONE, "Failed",
     [] {
         State_fw_is_download = FW_STATE_NONE;
         State_fw_upgrade = FW_STATE_NONE;
         updateKvFWUpgradeStatus(FW_STATE_NONE);
     }},
    {FW_STATE_DOWNLOAD_FW, "FW finsh start",
     [] {
         State_fw_is_download = FW_STATE_DOWNLOAD_FW;
         updateKvFWUpgradeStatus(FW_STATE_DOWNLOAD_FW);
     }},
    {FW_STATE_FINISH_DOWNLOAD_FW, "FW finsh download",
     [] {
         State_fw_is_download = FW_STATE_FINISH_DOWNLOAD_FW;
         updateKvFWUpgradeStatus(FW_STATE_FINISH_DOWNLOAD_FW);
     }},
    {FW_STATE_FW_UPGRADE, "FW_STATE_FW_UPGRADE", startUpgrade},
    {FW_STATE_FINISH_UPGRADE_FW, "FW finsh upgrade",
     [] {
         State_fw_upgrade = FW_STATE_FINISH_UPGRADE_FW;
         updateKvFWUpgradeStatus(FW_STATE_FINISH_UPGRADE_FW);
     }},
};

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
            LOG_PLAIN(KV_LOG_DEBUG, "Set FW result: %s\n", step.name);
            step.apply();
            break;
        }
    }
    return KV_RET_OK;
}

int updateKvFWUpgradeStatus(int32_t status) {
    LOG_DEVICE(KV_LOG_INFO, "update FW upgrade status %d\n", status);
    KvDevVendorData *dev = deviceVendorData(nullptr);
    if (dev == nullptr) {
        return KV_RET_OK;
    }
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

int FirmwareUpgradeList::add(const uint8_t *alMac, int32_t status) {
    writeFile();
    if (alMac == nullptr) {
        return KV_RET_ERR;
    }
    LOG_DEVICE(KV_LOG_DEBUG, "the new firmware upgrade status %d\n", status);
    if (status != FW_STATE_FW_UPGRADE && status != FW_STATE_FINISH_UPGRADE_FW) {
        return KV_RET_ERR;
    }
    if (find(alMac) != nullptr) {
        LOG_PLAIN(KV_LOG_DEBUG, "Find AlMac " KV_MAC "\n", KV_MAC_BYTES(alMac));
        return KV_RET_ERR;
    }
    FWalmacEntry *entry = append();
    if (entry == nullptr) {
        return KV_RET_ERR;
    }
    std::memcpy(entry->alMac, alMac, sizeof entry->alMac);
    writeFile();
    return KV_RET_OK;
}

// A new entry at the tail, or null when memory or the count runs out.
FWalmacEntry *FirmwareUpgradeList::append() {
    if (head_ == nullptr) {
        head_ = allocateRecord<FWalmacHead>().release();
    }
    if (head_ == nullptr || head_->count == UINT16_MAX) {
        return nullptr;
    }
    FWalmacEntry *entry = allocateRecord<FWalmacEntry>().release();
    if (entry == nullptr) {
        return nullptr;
    }
    FWalmacEntry **link = &head_->first;
    while (*link != nullptr) {
        entry->previous = *link;
        link = &(*link)->next;
    }
    *link = entry;
    ++head_->count;
    return entry;
}

int FirmwareUpgradeList::remove(const uint8_t *alMac) {
    writeFile();
    if (alMac == nullptr) {
        return KV_RET_ERR;
    }
    LOG_DEVICE(KV_LOG_DEBUG, "remove firmware upgrade AlMac " KV_MAC "\n", KV_MAC_BYTES(alMac));
    FWalmacEntry *entry = find(alMac);
    if (entry == nullptr) {
        LOG_PLAIN(KV_LOG_DEBUG, "Not find AlMac " KV_MAC "\n", KV_MAC_BYTES(alMac));
        writeFile();
        return KV_RET_ERR;
    }
    (entry->previous == nullptr ? head_->first : entry->previous->next) = entry->next;
    if (entry->next != nullptr) {
        entry->next->previous = entry->previous;
    }
    std::free(entry);
    --head_->count;
    writeFile();
    return KV_RET_OK;
}

FWalmacEntry *FirmwareUpgradeList::find(const uint8_t *alMac) const {
    if (alMac == nullptr || head_ == nullptr) {
        return nullptr;
    }
    FWalmacEntry *entry = head_->first;
    while (entry != nullptr && !sameMac(entry->alMac, alMac)) {
        entry = entry->next;
    }
    return entry;
}

void FirmwareUpgradeList::clear() {
    while (head_ != nullptr && head_->first != nullptr) {
        FWalmacEntry *entry = head_->first;
        head_->first = entry->next;
        std::free(entry);
    }
    std::free(head_);
    head_ = nullptr;
}

void FirmwareUpgradeList::writeFile() const {
    if (head_ == nullptr || head_->first == nullptr) {
        std::remove(kFirmwareListPath);
        return;
    }
    if (isWritten()) {
        return;
    }
    sleep(kWriteDelay);
    const File file = openFile(kFirmwareListPath, "w");
    if (file == nullptr) {
        return;
    }
    LOG_DEVICE(KV_LOG_INFO, "update firmware file %s\n", kFirmwareListPath);
    for (const FWalmacEntry *entry = head_->first; entry != nullptr; entry = entry->next) {
        kos_fpk(file.get(), kListLine, KV_MAC_BYTES(entry->alMac));
    }
}

// Every configuration response asks for a write: a neighbour that repeats itself must not stop the host each time.
bool FirmwareUpgradeList::isWritten() const {
    const File file = openFile(kFirmwareListPath, "r");
    if (file == nullptr) {
        return false;
    }
    ConfigLine line;
    for (const FWalmacEntry *entry = head_->first; entry != nullptr; entry = entry->next) {
        char expected[sizeof line];
        kos_snprintf(expected, sizeof expected, kListLine, KV_MAC_BYTES(entry->alMac));
        if (!readLine(file.get(), line) || std::strcmp(line, expected) != 0) {
            return false;
        }
    }
    return !readLine(file.get(), line);
}

FirmwareUpgradeList &firmwareUpgradeList() {
    return upgradeList;
}

int addKvFWupgradealmac(const uint8_t *alMac, int32_t status) {
    return upgradeList.add(alMac, status);
}

int rmKvFWupgradealmac(const uint8_t *alMac) {
    return upgradeList.remove(alMac);
}

}  // namespace kv
