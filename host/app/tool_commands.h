// The operator commands: command line, help, completion and the meaning of results read this one table.
#pragma once

#include <kv1905/kvMAP1905.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "command/protocol.h"
#include "result_names.h"

namespace kv1905d {

// The plug-in's entry point for one of them.
using ToolEntry = int (*)(void *context, int argc, char **argv);

// What ends a command.
enum class Completion {
    Accepted,         // the daemon accepted it
    Sent,             // the daemon sent it
    Agent,            // an agent reports a result
    AgentUnlessLocal  // the same, but the daemon's own device acts without a report
};

inline constexpr Meaning kPowerMeanings[] = {
    {1, "the device has no interface of that MAC and media type"},
    {2, "no such power state"},
    {64, "power cannot be set by media type"},
};

enum class ArgumentKind { Mac, Number, MediaType, Remote, Text };
enum class ArgumentCount { One, Optional, Any };

// What may be typed instead of a number.
struct NamedNumber {
    const char *text;
    const char *number;
};

struct Argument {
    const char *name;
    const char *values;  // that are accepted, for people
    ArgumentKind kind;
    uint32_t lowest = 0;  // of a number, or of a text's length
    uint32_t highest = 0;
    std::span<const NamedNumber> words = {};  // accepted as well
    ArgumentCount count = ArgumentCount::One;
};

inline constexpr NamedNumber kPowerWords[] = {{"on", "0"}, {"off", "2"}};
inline constexpr NamedNumber kLedWords[] = {{"on", "1"}, {"off", "0"}};
inline constexpr NamedNumber kFailedWords[] = {{"0", "0"}};
inline constexpr NamedNumber kRemoteWords[] = {
    {"reboot", "2"}, {"power", "3"}, {"firmware", "9"}, {"reset", "10"}, {"partial-reset", "20"},
};

inline constexpr Argument kAlMac{"AL-MAC", "a MAC address such as 02:00:5e:00:02:00", ArgumentKind::Mac};
inline constexpr Argument kTargetArguments[] = {kAlMac};
inline constexpr Argument kRssiArguments[] = {
    kAlMac,
    {"STATION-MAC", "a MAC address such as 02:00:5e:0a:01:01", ArgumentKind::Mac},
};
inline constexpr Argument kPowerArguments[] = {
    kAlMac,
    {"INTERFACE-MAC", "a MAC address such as 02:00:5e:00:02:20", ArgumentKind::Mac},
    {"MEDIA-TYPE", "1 to 4 hexadecimal digits such as 0103", ArgumentKind::MediaType},
    {"STATE", "on (0), off (2) or a number from 0 to 255", ArgumentKind::Number, 0, 255, kPowerWords},
};
inline constexpr Argument kFirmwareArguments[] = {
    kAlMac,
    {"OPTION", "1 to 7", ArgumentKind::Number, 0, UINT16_MAX},  // the plug-in refuses the others
    {"TOPOLOGY-OPTION", "a number from 0 to 255", ArgumentKind::Number, 0, UINT8_MAX},
    {"URL", "at most 1023 characters, as agents take", ArgumentKind::Text, 0, 1023},
};
inline constexpr Argument kResultArguments[] = {
    {"RESULT", "0 (failed), 2 (download begun), 3 (downloaded), 4 (writing) or 5 (written)", ArgumentKind::Number, 2, 5,
     kFailedWords},
};
inline constexpr Argument kLedArguments[] = {
    kAlMac,
    {"STATE", "on, off or a number from 0 (off) to 255", ArgumentKind::Number, 0, UINT8_MAX,
     kLedWords},  // of a byte on the wire
};
inline constexpr Argument kCountryArguments[] = {{"COUNTRY", "at most 4 characters", ArgumentKind::Text, 0, 4}};
inline constexpr Argument kRemoteArguments[] = {
    kAlMac,
    {"COMMAND", "reboot, power, firmware, reset, partial-reset or a command's number", ArgumentKind::Remote, 0, 0,
     kRemoteWords},
    {"WORD", "that command's arguments, its AL MAC first", ArgumentKind::Text, 0, UINT32_MAX, {}, ArgumentCount::Any},
};
inline constexpr Argument kLogArguments[] = {
    {"FACILITY", "a number from 0 (all) to 15", ArgumentKind::Number, 0, 15},
    {"TARGET", "0 (stderr) or 1 (syslog)", ArgumentKind::Number, 0, 1},
    {"LEVEL", "a number from 0 to 7", ArgumentKind::Number, 0, 7, {}, ArgumentCount::Optional},
};

struct ToolCommand {
    const char *name;
    const char *number;  // the older name, which the entry point receives too; empty: none
    const char *help;
    const char *example;     // arguments
    const char *entryPoint;  // symbol in the plug-in; null: the buffer is the arguments, MAC addresses all
    uint32_t code;           // posted to the daemon
    Completion completion;
    std::span<const Argument> arguments = {};
    const char *limit = nullptr;             // which the plug-in alone checks
    std::span<const Meaning> meanings = {};  // of results beyond the common ones
};

inline constexpr ToolCommand kToolCommands[] = {
    {"reboot", "2", "Restart a device", "02:00:5e:00:02:00", "kvMAP1905_RebootQuery_send", KV_CMD_REBOOT,
     Completion::Agent, kTargetArguments},
    {"power", "3", "Switch a device's interface on or off", "02:00:5e:00:02:00 02:00:5e:00:02:20 0103 off",
     "kvMAP1905_CtrlInftPwrQuery_send", KV_CMD_INTF_PWR_CTRL, Completion::Agent, kPowerArguments, nullptr,
     kPowerMeanings},
    {"firmware", "9", "Have a device fetch firmware; topology option 0 sends no URL",
     "02:00:5e:00:02:00 1 1 http://192.168.77.11/image.bin", "kvMAP1905_FWCtrlQuery_send", KV_CMD_FW_CTRL,
     Completion::Agent, kFirmwareArguments, "OPTION must be 1 to 7"},
    {"reset", "10", "Reset a device to factory default", "02:00:5e:00:02:00", "kvMAP1905_ResetDefaultQuery_send",
     KV_CMD_RESET_DEFAULT, Completion::Agent, kTargetArguments},
    {"firmware-result", "11", "Tell this device's daemon how its firmware upgrade goes", "3", "kvMAP1905_FwResult_set",
     KV_CMD_FW_RESULT, Completion::Accepted, kResultArguments},
    {"led", "14", "Switch a device's LEDs", "02:00:5e:00:02:00 on", "kvMAP1905_ledStatus_send", KV_CMD_LED_CTRL,
     Completion::AgentUnlessLocal, kLedArguments},
    {"sync-country", "16", "Have this device's daemon ask for the country that radios announce in their beacons", "",
     "kvMAP1905_sync_country_req_send", KV_CMD_SYNC_COUNTRY_BCN_REQ, Completion::Accepted},
    {"country", "17",
     "Tell every other device the country that its radios are to announce; who joins later asks for this device's own",
     "DE", "kvMAP1905_CountryInBcn_send", KV_CMD_COUNTRY_IN_BCN, Completion::Accepted, kCountryArguments},
    {"partial-reset", "20", "Reset a device but for what its configuration service keeps", "02:00:5e:00:02:00",
     "kvMAP1905_PartialResetDefaultQuery_send", KV_CMD_PARTIAL_RESET_DEFAULT, Completion::Agent, kTargetArguments},
    {"command", "100",
     "Have a device run a command as a separate message; its AL MAC is repeated after the command, and options go "
     "before the word 'command'",
     "02:00:5e:00:02:00 reboot 02:00:5e:00:02:00", "kvMAP1905_CmdQuery_send", KV_CMD_COMMAND, Completion::Agent,
     kRemoteArguments, "COMMAND and its WORDs are too long: 2048 characters is the limit"},
    {"log", "d", "Set what this device's daemon logs", "0 0 6", "kvMAP1905_SyslogDbg_set", KV_CMD_LOG_SETTING,
     Completion::Accepted, kLogArguments},
    {"query-stations", "", "Ask a device for its Wi-Fi stations; 'show stations' prints its answer",
     "02:00:5e:00:02:00", nullptr, kCommandQueryStations, Completion::Sent, kTargetArguments},
    {"query-power", "", "Ask a device for the power states of its interfaces; the daemon logs them at level 7",
     "02:00:5e:00:02:00", nullptr, kCommandQueryPower, Completion::Sent, kTargetArguments},
    {"rssi", "", "Tell a device how well this device receives one of its own Wi-Fi stations",
     "02:00:5e:00:02:00 02:00:5e:0a:01:01", nullptr, kCommandRssi, Completion::Sent, kRssiArguments},
};

// Null when no command posts that code.
inline const ToolCommand *findToolCommand(uint32_t code) {
    const auto found = std::find_if(std::begin(kToolCommands), std::end(kToolCommands),
                                    [code](const ToolCommand &row) { return row.code == code; });
    return found == std::end(kToolCommands) ? nullptr : found;
}

// Null when that is no number of a command that agents run for others.
inline const ToolCommand *findRemoteCommand(std::string_view number) {
    const auto isRow = [number](const ToolCommand &row) { return row.number == number; };
    const auto isWord = [number](const NamedNumber &word) { return word.number == number; };
    if (std::none_of(std::begin(kRemoteWords), std::end(kRemoteWords), isWord)) return nullptr;
    return std::find_if(std::begin(kToolCommands), std::end(kToolCommands), isRow);
}

inline const char *meaningOf(const ToolCommand &command, uint8_t code) {
    for (const std::span<const Meaning> rows : {command.meanings, std::span<const Meaning>(kResultMeanings)}) {
        for (const Meaning &row : rows) {
            if (row.code == code) return row.text;
        }
    }
    return "not a result that is known";
}

}  // namespace kv1905d
