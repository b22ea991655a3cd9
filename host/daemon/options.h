// The command line and the configuration file of kv1905d.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command/client.h"
#include "daemon/radio.h"
#include "daemon/settings_guard.h"
#include "defaults.h"

namespace kv1905d {

struct Options {
    MacAddress alMac;  // given, or derived from the first interface's MAC
    std::vector<std::string> interfaces;
    std::vector<uint16_t> mediaTypes;  // of the interfaces; missing ones are Ethernet
    std::string bridge;                // empty: none
    std::vector<Radio> radios;
    std::string plugin = kDefaultPlugin;  // empty: none
    std::string dataModel = kDefaultDataModel;
    std::string socket = newSocketPath();  // where operator commands arrive
    unsigned discoveryInterval = 60;       // seconds
    unsigned queryInterval = 60;           // seconds
    SettingsFrom settingsFrom = SettingsFrom::Any;
    bool trace = false;  // print every vendor message on standard output
};

// Returns nothing after printing help or version. Throws support::BadOption.
std::optional<Options> parseOptions(int argc, const char *const *argv);

}  // namespace kv1905d
