// The tool's commands: parser, help, manual, completion and the meaning of results read this one table.
#pragma once

#include <kv1905/kvMAP1905.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "command/protocol.h"
#include "result_names.h"

namespace kv1905d {

// The plug-in's entry point of a command.
using ToolEntry = int (*)(void *context, int argc, char **argv);

enum class Action { Run, Post, Show, Monitor, View, Help, Manual, Completion };

// Condition that ends a command.
enum class Completion {
    Accepted,          // the daemon accepted it
    Message,           // a vendor message was received from the target or sent to it
    Agent,             // an agent reports a result
    AgentUnlessLocal,  // the same, but the daemon's own device acts without a report
};

enum class ArgumentKind { Device, Interface, Mac, MediaType, Number, Country, Text, Remote, Choice };
enum class ArgumentCount { One, Optional, Any };

// An accepted word and the plug-in's number for it.
struct NamedNumber {
    const char *text;
    const char *number;
};

struct Argument {
    const char *name;    // in a usage line
    const char *values;  // that are accepted, for people
    ArgumentKind kind;
    uint32_t lowest = 0;  // of a number, or of a text's length
    uint32_t highest = 0;
    std::span<const NamedNumber> words = {};  // accepted as well; the only ones of a choice
    ArgumentCount count = ArgumentCount::One;
};

inline constexpr NamedNumber kPowerWords[] = {{"on", "0"}, {"off", "2"}};
inline constexpr NamedNumber kLedWords[] = {{"on", "1"}, {"off", "0"}};
inline constexpr NamedNumber kUpgradeSteps[] = {{"0", "0"}, {"2", "2"}, {"3", "3"}, {"4", "4"}, {"5", "5"}};
inline constexpr NamedNumber kRemoteWords[] = {
    {"reboot", "2"}, {"power", "3"}, {"firmware", "9"}, {"reset", "10"}, {"partial-reset", "20"},
};
inline constexpr NamedNumber kSubjects[] = {
    {"devices", "devices"},       {"device", "device"},     {"stations", "stations"}, {"links", "links"},
    {"interfaces", "interfaces"}, {"counters", "counters"}, {"status", "status"}};
inline constexpr NamedNumber kShells[] = {{"bash", "bash"}, {"zsh", "zsh"}, {"words", "words"}};

inline constexpr Argument kDevice{"DEVICE", "a device's AL MAC or the end of it, its model name or its IP address",
                                  ArgumentKind::Device};
inline constexpr Argument kTargetArguments[] = {kDevice};
inline constexpr Argument kRssiArguments[] = {
    kDevice,
    {"STATION-MAC", "a MAC address such as 02:00:5e:0a:01:01", ArgumentKind::Mac},
};
inline constexpr Argument kPowerArguments[] = {
    kDevice,
    {"INTERFACE", "an interface's MAC or the end of it, or 2.4GHz or 5GHz where the device has one such radio",
     ArgumentKind::Interface},
    {"MEDIA-TYPE",
     "1 to 4 hexadecimal digits such as 0103; known for a listed interface",
     ArgumentKind::MediaType,
     0,
     0,
     {},
     ArgumentCount::Optional},
    {"on|off", "on (0), off (2) or a number from 0 to 255", ArgumentKind::Number, 0, UINT8_MAX, kPowerWords},
};
inline constexpr Argument kFirmwareArguments[] = {
    kDevice,
    {"OPTION", "a number from 1 to 7", ArgumentKind::Number, 1, 7},
    {"TOPOLOGY-OPTION", "a number from 0 to 255", ArgumentKind::Number, 0, UINT8_MAX},
    {"URL", "at most 1023 characters", ArgumentKind::Text, 0, 1023},
};
inline constexpr Argument kResultArguments[] = {
    {"RESULT", "0 (failed), 2 (download begun), 3 (downloaded), 4 (writing) or 5 (written)", ArgumentKind::Choice, 0, 0,
     kUpgradeSteps},
};
inline constexpr Argument kLedArguments[] = {
    kDevice,
    {"on|off", "on, off or a number from 0 (off) to 255", ArgumentKind::Number, 0, UINT8_MAX, kLedWords},
};
inline constexpr Argument kCountryArguments[] = {
    {"COUNTRY", "at most 4 letters, digits or '/', as agents accept; '' for each device's own", ArgumentKind::Country,
     0, 4},
};
inline constexpr Argument kRemoteArguments[] = {
    kDevice,
    {"COMMAND", "reboot, power, firmware, reset, partial-reset or a command's number", ArgumentKind::Remote, 0, 0,
     kRemoteWords},
    {"WORD", "that command's arguments, its DEVICE first", ArgumentKind::Text, 0, UINT32_MAX, {}, ArgumentCount::Any},
};
inline constexpr Argument kLogArguments[] = {
    {"FACILITY", "a number from 0 (all) to 15", ArgumentKind::Number, 0, 15},
    {"TARGET", "0 (stderr) or 1 (syslog)", ArgumentKind::Number, 0, 1},
    {"LEVEL", "a number from 0 to 7", ArgumentKind::Number, 0, 7, {}, ArgumentCount::Optional},
};
inline constexpr Argument kShowArguments[] = {
    {"WHAT", "devices, device, stations, links, interfaces, counters or status", ArgumentKind::Choice, 0, 0, kSubjects},
    {"DEVICE",
     "as in other commands; required for 'device', a filter for stations, links and interfaces",
     ArgumentKind::Device,
     0,
     0,
     {},
     ArgumentCount::Optional},
};
inline constexpr Argument kPostArguments[] = {
    {"CODE", "a command code of the daemon", ArgumentKind::Number, 0, UINT32_MAX},
    {"FILE",
     "the file with the buffer; standard input where the code reads one",
     ArgumentKind::Text,
     0,
     UINT32_MAX,
     {},
     ArgumentCount::Optional},
};
inline constexpr Argument kViewArguments[] = {
    {"OPTION", "options of kv1905-view", ArgumentKind::Text, 0, UINT32_MAX, {}, ArgumentCount::Any},
};
inline constexpr Argument kHelpArguments[] = {
    {"COMMAND", "a command's name", ArgumentKind::Text, 0, UINT32_MAX, {}, ArgumentCount::Optional},
};
inline constexpr Argument kCompletionArguments[] = {
    {"SHELL", "bash or zsh", ArgumentKind::Choice, 0, 0, kShells},
    {"WORD", "what the scripts pass after the word 'words'", ArgumentKind::Text, 0, UINT32_MAX, {}, ArgumentCount::Any},
};

inline constexpr std::span<const Argument> kNoArguments = {};
inline constexpr std::span<const Meaning> kCommonMeanings = {};
inline constexpr Meaning kPowerMeanings[] = {
    {0, "acknowledged, but agents of this build switch no radio"},
    {1, "the device has no interface of that MAC and media type"},
    {2, "no such power state"},
    {64, "power cannot be set by media type"},
};
inline constexpr Meaning kFirmwareMeanings[] = {
    {16, "not supported: agents of this build fetch no firmware"},
};

inline constexpr Meaning kLedMeanings[] = {
    {16, "refused or failed, see its log; agents of this build accept every request"},
};

struct ToolCommand {
    const char *name;
    const char *number;  // the older name, which the entry point receives too; empty: none
    const char *help;
    const char *example;  // arguments
    std::span<const Argument> arguments;
    Action action;
    uint32_t code = 0;            // posted to the daemon by Action::Run
    const char *entry = nullptr;  // symbol in the plug-in; null: the buffer is the arguments, all MAC addresses
    Completion completion = Completion::Accepted;
    const char *permission = nullptr;        // the device's field in the JSON file: whether it allows this
    std::span<const Meaning> meanings = {};  // of results beyond the common ones
    const char *limit = nullptr;             // checked only by the plug-in
};

inline constexpr ToolCommand kToolCommands[] = {
    {"show", "", "Show the network as reported to this device; most complete on the controller", "devices",
     kShowArguments, Action::Show},
    {"monitor", "", "Print vendor messages and changes of the network as they happen", "", kNoArguments,
     Action::Monitor},
    {"reboot", "2", "Restart a device", "agent1", kTargetArguments, Action::Run, KV_CMD_REBOOT,
     "kvMAP1905_RebootQuery_send", Completion::Agent, "RebootAllowed"},
    {"power", "3", "Request the power state of a device's interface", "agent1 5GHz off", kPowerArguments, Action::Run,
     KV_CMD_INTF_PWR_CTRL, "kvMAP1905_CtrlInftPwrQuery_send", Completion::Agent, "InterfacePowerAllowed",
     kPowerMeanings},
    {"firmware", "9", "Request that a device fetch and install firmware", "agent1 1 1 http://192.168.77.11/image.bin",
     kFirmwareArguments, Action::Run, KV_CMD_FW_CTRL, "kvMAP1905_FWCtrlQuery_send", Completion::Agent, nullptr,
     kFirmwareMeanings},
    {"reset", "10", "Reset a device to factory defaults", "agent1", kTargetArguments, Action::Run, KV_CMD_RESET_DEFAULT,
     "kvMAP1905_ResetDefaultQuery_send", Completion::Agent, "RebootAllowed"},
    {"firmware-result", "11", "Report a step of this device's own firmware upgrade to its daemon", "3",
     kResultArguments, Action::Run, KV_CMD_FW_RESULT, "kvMAP1905_FwResult_set"},
    {"led", "14", "Switch a device's LEDs", "agent1 off", kLedArguments, Action::Run, KV_CMD_LED_CTRL,
     "kvMAP1905_ledStatus_send", Completion::AgentUnlessLocal, nullptr, kLedMeanings},
    {"sync-country", "16", "Handle a country request on this device (code 203)", "", kNoArguments, Action::Run,
     KV_CMD_SYNC_COUNTRY_BCN_REQ, "kvMAP1905_sync_country_req_send"},
    {"country", "17", "Set the country that all other devices announce in their beacons", "DE", kCountryArguments,
     Action::Run, KV_CMD_COUNTRY_IN_BCN, "kvMAP1905_CountryInBcn_send"},
    {"partial-reset", "20", "Reset a device, except for what its configuration service keeps", "agent1",
     kTargetArguments, Action::Run, KV_CMD_PARTIAL_RESET_DEFAULT, "kvMAP1905_PartialResetDefaultQuery_send",
     Completion::Agent, "RebootAllowed"},
    {"command", "100", "Send another command to a device inside a remote command (type 25)", "agent1 reboot agent1",
     kRemoteArguments, Action::Run, KV_CMD_COMMAND, "kvMAP1905_CmdQuery_send", Completion::Agent, nullptr,
     kCommonMeanings, "COMMAND and its WORDs are too long: 2048 characters is the limit"},
    {"log", "d", "Set what this device's daemon logs", "0 0 6", kLogArguments, Action::Run, KV_CMD_LOG_SETTING,
     "kvMAP1905_SyslogDbg_set"},
    {"query-stations", "", "Request a device's Wi-Fi stations and print them", "agent1", kTargetArguments, Action::Run,
     kCommandQueryStations, nullptr, Completion::Message},
    {"query-power", "", "Request the power states of a device's interfaces and print them", "agent1", kTargetArguments,
     Action::Run, kCommandQueryPower, nullptr, Completion::Message},
    {"rssi", "", "Report to a device the signal strength of a station associated with this device",
     "agent1 02:00:5e:41:00:01", kRssiArguments, Action::Run, kCommandRssi, nullptr, Completion::Message},
    {"post", "", "Post a raw command buffer to the daemon", "301", kPostArguments, Action::Post},
    {"view", "", "Draw the network as a web page with kv1905-view", "--output mesh.html", kViewArguments, Action::View},
    {"help", "", "Explain a command", "led", kHelpArguments, Action::Help},
    {"manual", "", "Print the manual page for man", "| man -l -", kNoArguments, Action::Manual},
    {"completion", "", "Print a completion script for a shell", "bash", kCompletionArguments, Action::Completion},
};

// Notes on commands, for help and manual page.
struct Note {
    std::string_view name;
    const char *text;
};
inline constexpr Note kNotes[] = {
    {"show", "Prints the age of the data. Ends with status 6 when no daemon runs, unless --file names a file to show."},
    {"power",
     "INTERFACE 00:00:00:00:00:00 means every interface of the MEDIA-TYPE, which is then required.\n"
     "Agents of this build acknowledge the request, but switch no radio."},
    {"firmware",
     "OPTION selects what the device does: the protocol allows 1 to 7 and leaves their meaning to the device.\n"
     "TOPOLOGY-OPTION 0 sends no URL. Any other value is sent with the URL. Its meaning depends on the device.\n"
     "Agents of this build fetch no firmware and answer every request with result 16."},
    {"country", "Devices that join later request this device's own setting, which does not change."},
    {"command", "The DEVICE is repeated after COMMAND. Options of the tool go before the word 'command'."},
    {"rssi", "Devices do not answer this report; the tool prints the values that were sent."},
    {"completion",
     "In bash: source <(kv1905App completion bash)\nIn zsh: eval \"$(kv1905App completion zsh)\"\n"
     "The package kv1905-host installs both."},
    {"post", "Interfaces of one power request are answered one by one: the last result counts."},
};

// Returns whether the words after the command's name may look like options of the tool.
inline bool isRaw(const ToolCommand &command) {
    return command.code == KV_CMD_COMMAND || command.action == Action::View || command.action == Action::Completion;
}

// Returns the first row that meets the condition, or null.
template <typename Condition>
const ToolCommand *findCommand(const Condition &condition) {
    const auto found = std::find_if(std::begin(kToolCommands), std::end(kToolCommands), condition);
    return found == std::end(kToolCommands) ? nullptr : found;
}

// Returns the command with that name or number, or null.
inline const ToolCommand *findToolCommand(std::string_view name) {
    return findCommand(
        [name](const ToolCommand &row) { return row.name == name || (!name.empty() && row.number == name); });
}

// Returns the command that posts that code, or null.
inline const ToolCommand *findToolCommand(uint32_t code) {
    return findCommand([code](const ToolCommand &row) { return row.code == code && code != 0; });
}

inline const char *meaningOf(const ToolCommand &command, uint8_t code) {
    const char *own = meaningOf(command.meanings, code);
    const char *common = meaningOf(kResultMeanings, code);
    return own != nullptr ? own : common != nullptr ? common : "not a result that is known";
}

}  // namespace kv1905d
