// Operator commands in the daemon: a code and a buffer, turned into one request or a local action.
#pragma once

#include <cstdint>

namespace kv {

// Runs the code's handler on the buffer and logs its result.
void runCommandCode(const void *buffer, uint32_t code);

// The handlers. buffer: any alignment, laid out as KV_CMD_* in kvMAP1905.h. Each returns 0, KV_RET_NOT_FOUND for a
// target that is not in the topology, or KV_RET_ERR.
int handleRebootCmd(const void *buffer);
int handleIntfPwrCtrlCmd(const void *buffer);
int handleFWCtrlCmd(const void *buffer);
int handleResetDefaultCmd(const void *buffer);
int handleFWResultCmd(const void *buffer);
int handleLedCtrlCmd(const void *buffer);
int handlePartialResetDefaultCmd(const void *buffer);
int handleRemoteCommandCmd(const void *buffer);
int handleLogSettingCmd(const void *buffer);
int handleSyncCtrlPwdCmd(const void *buffer);
int handleSyncCountryBcnReqCmd(const void *buffer);
int handleCountryInBcnCmd(const void *buffer);
int handleDeviceInfoUpdateCmd(const void *buffer);

}  // namespace kv
