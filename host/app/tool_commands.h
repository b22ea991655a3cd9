// The operator commands: command line, help, completion and the meaning of results read this one table.
#pragma once

#include <kv1905/kvMAP1905.h>

#include <algorithm>
#include <span>
#include <string_view>

namespace kv1905d {

// The plug-in's entry point for one of them.
using ToolEntry = int (*)(void *context, int argc, char **argv);

enum class Answer {
    None,             // done when the daemon has taken it
    Agent,            // an agent reports a result
    AgentUnlessLocal  // the same, but the daemon's own device acts without a report
};

struct Meaning {
    uint8_t code;
    const char *text;
};

inline constexpr Meaning kCommonMeanings[] = {
    {KV_RET_OK, "success"},
    {KV_RET_NOT_FOUND, "the AL MAC is not this device's"},
    {KV_RET_ERR, "refused or failed"},
};

inline constexpr Meaning kPowerMeanings[] = {
    {1, "the device has no interface of that MAC and media type"},
    {2, "no such power state"},
    {64, "power cannot be set by media type"},
};

struct ToolCommand {
    const char *name;
    const char *number;      // the older name, which the entry point receives too
    const char *entryPoint;  // symbol in the plug-in
    const char *arguments;
    uint32_t code;  // posted to the daemon
    Answer answer;
    std::span<const Meaning> meanings;  // of results beyond the common ones
    const char *help;
    const char *example;  // arguments
};

inline constexpr ToolCommand kToolCommands[] = {
    {"reboot",
     "2",
     "kvMAP1905_RebootQuery_send",
     "AL-MAC",
     KV_CMD_REBOOT,
     Answer::Agent,
     {},
     "Restart a device",
     "02:00:5e:00:02:00"},
    {"power", "3", "kvMAP1905_CtrlInftPwrQuery_send", "AL-MAC INTERFACE-MAC MEDIA-TYPE(hex) STATE(0 on, 2 off)",
     KV_CMD_INTF_PWR_CTRL, Answer::Agent, kPowerMeanings, "Switch a device's interface on or off",
     "02:00:5e:00:02:00 02:00:5e:00:02:20 0103 2"},
    {"firmware",
     "9",
     "kvMAP1905_FWCtrlQuery_send",
     "AL-MAC OPTION(1 to 7) TOPOLOGY-OPTION URL",
     KV_CMD_FW_CTRL,
     Answer::Agent,
     {},
     "Have a device fetch firmware; topology option 0 sends no URL",
     "02:00:5e:00:02:00 1 1 http://192.168.77.11/image.bin"},
    {"reset",
     "10",
     "kvMAP1905_ResetDefaultQuery_send",
     "AL-MAC",
     KV_CMD_RESET_DEFAULT,
     Answer::Agent,
     {},
     "Reset a device to factory default",
     "02:00:5e:00:02:00"},
    {"firmware-result",
     "11",
     "kvMAP1905_FwResult_set",
     "RESULT(0 failed, 2 download begun, 3 downloaded, 4 writing, 5 written)",
     KV_CMD_FW_RESULT,
     Answer::None,
     {},
     "Tell this device's daemon how its firmware upgrade goes",
     "3"},
    {"led",
     "14",
     "kvMAP1905_ledStatus_send",
     "AL-MAC STATE(0 off, else on)",
     KV_CMD_LED_CTRL,
     Answer::AgentUnlessLocal,
     {},
     "Switch a device's LEDs",
     "02:00:5e:00:02:00 1"},
    {"partial-reset",
     "20",
     "kvMAP1905_PartialResetDefaultQuery_send",
     "AL-MAC",
     KV_CMD_PARTIAL_RESET_DEFAULT,
     Answer::Agent,
     {},
     "Reset a device but for what its configuration service keeps",
     "02:00:5e:00:02:00"},
    {"command",
     "100",
     "kvMAP1905_CmdQuery_send",
     "AL-MAC WORD...",
     KV_CMD_COMMAND,
     Answer::Agent,
     {},
     "Have a device run command 2, 3, 9, 10 or 20 as if it had come alone; options go before the word 'command'",
     "02:00:5e:00:02:00 2 02:00:5e:00:02:00"},
    {"log",
     "d",
     "kvMAP1905_SyslogDbg_set",
     "FACILITY(0 all) TARGET(0 stderr, 1 syslog) [LEVEL(0 to 7)]",
     KV_CMD_LOG_SETTING,
     Answer::None,
     {},
     "Set what this device's daemon logs",
     "0 0 6"},
};

// Null when no command posts that code.
inline const ToolCommand *findToolCommand(uint32_t code) {
    const auto found = std::find_if(std::begin(kToolCommands), std::end(kToolCommands),
                                    [code](const ToolCommand &row) { return row.code == code; });
    return found == std::end(kToolCommands) ? nullptr : found;
}

inline const char *meaningOf(const ToolCommand &command, uint8_t code) {
    for (const std::span<const Meaning> rows : {command.meanings, std::span<const Meaning>(kCommonMeanings)}) {
        for (const Meaning &row : rows) {
            if (row.code == code) return row.text;
        }
    }
    return "not a result that is known";
}

}  // namespace kv1905d
