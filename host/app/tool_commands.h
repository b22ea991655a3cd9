// The operator commands: command line, help, completion and the meaning of results read this one table.
#pragma once

#include <kv1905/kvMAP1905.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "command_socket.h"
#include "result_names.h"

namespace kv1905d {

// The plug-in's entry point for one of them.
using ToolEntry = int (*)(void *context, int argc, char **argv);

enum class Answer {
    None,             // done when the daemon has taken it
    Sent,             // done when the daemon has sent it
    Agent,            // an agent reports a result
    AgentUnlessLocal  // the same, but the daemon's own device acts without a report
};

inline constexpr Meaning kPowerMeanings[] = {
    {1, "the device has no interface of that MAC and media type"},
    {2, "no such power state"},
    {64, "power cannot be set by media type"},
};

enum class Kind { Mac, Number, MediaType, Remote, Text };
enum class Count { One, Optional, Any };

// What may be typed instead of a number.
struct Word {
    const char *text;
    const char *number;
};

struct Argument {
    const char *name;
    const char *values;  // that are accepted, for people
    Kind kind;
    uint32_t lowest = 0;  // of a number, or of a text's length
    uint32_t highest = 0;
    std::span<const Word> words = {};  // accepted as well
    Count count = Count::One;
};

inline constexpr Word kPowerWords[] = {{"on", "0"}, {"off", "2"}};
inline constexpr Word kLedWords[] = {{"on", "1"}, {"off", "0"}};
inline constexpr Word kFailedWords[] = {{"0", "0"}};
inline constexpr Word kRemoteWords[] = {
    {"reboot", "2"}, {"power", "3"}, {"firmware", "9"}, {"reset", "10"}, {"partial-reset", "20"},
};

inline constexpr Argument kAlMac{"AL-MAC", "a MAC address such as 02:00:5e:00:02:00", Kind::Mac};
inline constexpr Argument kTargetArguments[] = {kAlMac};
inline constexpr Argument kRssiArguments[] = {
    kAlMac,
    {"STATION-MAC", "a MAC address such as 02:00:5e:0a:01:01", Kind::Mac},
};
inline constexpr Argument kPowerArguments[] = {
    kAlMac,
    {"INTERFACE-MAC", "a MAC address such as 02:00:5e:00:02:20", Kind::Mac},
    {"MEDIA-TYPE", "1 to 4 hexadecimal digits such as 0103", Kind::MediaType},
    {"STATE", "on (0), off (2) or a number from 0 to 255", Kind::Number, 0, 255, kPowerWords},
};
inline constexpr Argument kFirmwareArguments[] = {
    kAlMac,
    {"OPTION", "1 to 7", Kind::Number, 0, UINT16_MAX},  // the plug-in refuses the others
    {"TOPOLOGY-OPTION", "a number from 0 to 255", Kind::Number, 0, UINT8_MAX},
    {"URL", "at most 1023 characters, as agents take", Kind::Text, 0, 1023},
};
inline constexpr Argument kResultArguments[] = {
    {"RESULT", "0 (failed), 2 (download begun), 3 (downloaded), 4 (writing) or 5 (written)", Kind::Number, 2, 5,
     kFailedWords},
};
inline constexpr Argument kLedArguments[] = {
    kAlMac,
    {"STATE", "on, off or a number from 0 (off) to 255", Kind::Number, 0, UINT8_MAX,
     kLedWords},  // of a byte on the wire
};
inline constexpr Argument kCountryArguments[] = {{"COUNTRY", "at most 4 characters", Kind::Text, 0, 4}};
inline constexpr Argument kRemoteArguments[] = {
    kAlMac,
    {"COMMAND", "reboot, power, firmware, reset, partial-reset or a command's number", Kind::Remote, 0, 0,
     kRemoteWords},
    {"WORD", "that command's arguments, its AL MAC first", Kind::Text, 0, UINT32_MAX, {}, Count::Any},
};
inline constexpr Argument kLogArguments[] = {
    {"FACILITY", "a number from 0 (all) to 15", Kind::Number, 0, 15},
    {"TARGET", "0 (stderr) or 1 (syslog)", Kind::Number, 0, 1},
    {"LEVEL", "a number from 0 to 7", Kind::Number, 0, 7, {}, Count::Optional},
};

struct ToolCommand {
    const char *name;
    const char *number;      // the older name, which the entry point receives too; empty: none
    const char *entryPoint;  // symbol in the plug-in; null: the buffer is the arguments, MAC addresses all
    std::span<const Argument> arguments;
    uint32_t code;  // posted to the daemon
    Answer answer;
    std::span<const Meaning> meanings;  // of results beyond the common ones
    const char *help;
    const char *example;           // arguments
    const char *unread = nullptr;  // passed to an entry point that wants an argument and reads none
    const char *limit = nullptr;   // which the plug-in alone checks
};

inline constexpr ToolCommand kToolCommands[] = {
    {"reboot",
     "2",
     "kvMAP1905_RebootQuery_send",
     kTargetArguments,
     KV_CMD_REBOOT,
     Answer::Agent,
     {},
     "Restart a device",
     "02:00:5e:00:02:00"},
    {"power", "3", "kvMAP1905_CtrlInftPwrQuery_send", kPowerArguments, KV_CMD_INTF_PWR_CTRL, Answer::Agent,
     kPowerMeanings, "Switch a device's interface on or off", "02:00:5e:00:02:00 02:00:5e:00:02:20 0103 off"},
    {"firmware",
     "9",
     "kvMAP1905_FWCtrlQuery_send",
     kFirmwareArguments,
     KV_CMD_FW_CTRL,
     Answer::Agent,
     {},
     "Have a device fetch firmware; topology option 0 sends no URL",
     "02:00:5e:00:02:00 1 1 http://192.168.77.11/image.bin",
     nullptr,
     "OPTION must be 1 to 7"},
    {"reset",
     "10",
     "kvMAP1905_ResetDefaultQuery_send",
     kTargetArguments,
     KV_CMD_RESET_DEFAULT,
     Answer::Agent,
     {},
     "Reset a device to factory default",
     "02:00:5e:00:02:00"},
    {"firmware-result",
     "11",
     "kvMAP1905_FwResult_set",
     kResultArguments,
     KV_CMD_FW_RESULT,
     Answer::None,
     {},
     "Tell this device's daemon how its firmware upgrade goes",
     "3"},
    {"led",
     "14",
     "kvMAP1905_ledStatus_send",
     kLedArguments,
     KV_CMD_LED_CTRL,
     Answer::AgentUnlessLocal,
     {},
     "Switch a device's LEDs",
     "02:00:5e:00:02:00 on"},
    {"sync-country",
     "16",
     "kvMAP1905_sync_country_req_send",
     {},
     KV_CMD_SYNC_COUNTRY_BCN_REQ,
     Answer::None,
     {},
     "Have this device's daemon ask for the country that radios announce in their beacons",
     "",
     "-"},
    {"country",
     "17",
     "kvMAP1905_CountryInBcn_send",
     kCountryArguments,
     KV_CMD_COUNTRY_IN_BCN,
     Answer::None,
     {},
     "Tell every other device the country that its radios are to announce; who joins later asks for this device's own",
     "DE"},
    {"partial-reset",
     "20",
     "kvMAP1905_PartialResetDefaultQuery_send",
     kTargetArguments,
     KV_CMD_PARTIAL_RESET_DEFAULT,
     Answer::Agent,
     {},
     "Reset a device but for what its configuration service keeps",
     "02:00:5e:00:02:00"},
    {"command",
     "100",
     "kvMAP1905_CmdQuery_send",
     kRemoteArguments,
     KV_CMD_COMMAND,
     Answer::Agent,
     {},
     "Have a device run a command as if it had come alone; its AL MAC is repeated behind the command, and options go "
     "before the word 'command'",
     "02:00:5e:00:02:00 reboot 02:00:5e:00:02:00",
     nullptr,
     "COMMAND and its WORDs are too long: 2048 characters is the limit"},
    {"log",
     "d",
     "kvMAP1905_SyslogDbg_set",
     kLogArguments,
     KV_CMD_LOG_SETTING,
     Answer::None,
     {},
     "Set what this device's daemon logs",
     "0 0 6"},
    {"query-stations",
     "",
     nullptr,
     kTargetArguments,
     kCommandQueryStations,
     Answer::Sent,
     {},
     "Ask a device for its Wi-Fi stations; 'show stations' tells what came back",
     "02:00:5e:00:02:00"},
    {"query-power",
     "",
     nullptr,
     kTargetArguments,
     kCommandQueryPower,
     Answer::Sent,
     {},
     "Ask a device for the power states of its interfaces; the daemon's log tells them at level 7",
     "02:00:5e:00:02:00"},
    {"rssi",
     "",
     nullptr,
     kRssiArguments,
     kCommandRssi,
     Answer::Sent,
     {},
     "Tell a device how well this device receives one of its own Wi-Fi stations",
     "02:00:5e:00:02:00 02:00:5e:0a:01:01"},
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
    const auto isWord = [number](const Word &word) { return word.number == number; };
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
