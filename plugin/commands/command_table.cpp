#include "commands/command_table.h"

#include "frame/log.h"

namespace kv {

namespace {

struct CommandRow {
    uint32_t code;
    int (*handle)(const void *buffer);
    bool readsBuffer = true;
};

constexpr CommandRow kCommands[] = {
    {KV_CMD_REBOOT, handleRebootCmd},
    {KV_CMD_INTF_PWR_CTRL, handleIntfPwrCtrlCmd},
    {KV_CMD_FW_CTRL, handleFWCtrlCmd},
    {KV_CMD_RESET_DEFAULT, handleResetDefaultCmd},
    {KV_CMD_FW_RESULT, handleFWResultCmd},
    {KV_CMD_LED_CTRL, handleLedCtrlCmd},
    {KV_CMD_PARTIAL_RESET_DEFAULT, handlePartialResetDefaultCmd},
    {KV_CMD_COMMAND, handleRemoteCommandCmd},
    {KV_CMD_LOG_SETTING, handleLogSettingCmd},
    {KV_CMD_SYNC_CTRL_PWD, handleSyncCtrlPwdCmd},
    {KV_CMD_SYNC_COUNTRY_BCN_REQ, handleSyncCountryBcnReqCmd, false},
    {KV_CMD_COUNTRY_IN_BCN, handleCountryInBcnCmd},
    {KV_CMD_UPDATE_DEVICE_INFO, handleDeviceInfoUpdateCmd, false},
};

int dispatch(const void *buffer, uint32_t code) {
    for (const CommandRow &row : kCommands) {
        if (row.code != code) continue;
        if (buffer == nullptr && row.readsBuffer) {
            LOG_DEVICE(KV_LOG_ERROR, "command %u without a buffer\n", code);
            return KV_RET_ERR;
        }
        return row.handle(buffer);
    }
    LOG_PLAIN(KV_LOG_WARNING, "Unknown command type received\n");
    return KV_RET_ERR;
}

}  // namespace

void runCommandCode(const void *buffer, uint32_t code) {
    const int result = dispatch(buffer, code);
    LOG_PLAIN(KV_LOG_DEBUG, "Check kv1905App return value = (%d)\n", result);
}

}  // namespace kv
