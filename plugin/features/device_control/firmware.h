// Firmware: control requests and this device's upgrade state.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

enum : int32_t {
    FW_STATE_NONE = 0,
    FW_STATE_DOWNLOAD_FW = 2,
    FW_STATE_FINISH_DOWNLOAD_FW = 3,
    FW_STATE_FW_UPGRADE = 4,  // an image is being written: reboot and reset are refused
    FW_STATE_FINISH_UPGRADE_FW = 5,
};

int handleFWCtrlReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin);
int handleFWCtrlRespMsg(uint16_t msgId, KvVendMsg *msg);

// Runs one step of a local upgrade: FW_STATE_*; other values do nothing. Returns 0.
int setKvFWresult(int32_t result);

// Publishes a status in the local record; requests a JSON write when it changed. Returns 0.
int updateKvFWUpgradeStatus(int32_t status);

// Records that a newer firmware is known (result 1). Returns KV_RET_ERR without a local record.
int recordNewFirmware(int result);

// Returns the upgrade state, State_fw_upgrade.
int32_t checkFWIsUpgradeNow();

}  // namespace kv
