// The JSON data-model file: the network as this device sees it, for people and other programs.
#pragma once

#include <ctime>
#include <optional>
#include <string>

#include "daemon/counters.h"
#include "daemon/topology.h"

namespace kv1905d {

// The local device's main networks; 2.4 GHz first, 5 GHz second.
struct MainNetworks {
    std::string ssid[2];
    MacAddress bssid[2];
};

struct DataModelView {
    const Topology &topology;
    const Counters &counters;
    const char *role;  // "Controller", "Agent" or "Member"
    MainNetworks networks;
    TimePoint now;     // the clock of the topology
    time_t wallClock;  // seconds since the epoch
    std::optional<MacAddress> controller{};
    uint32_t localStations = 0;  // entries of the local device's list, which its record does not count
    ApConfigurations apConfigurations{};
    std::map<uint16_t, uint64_t> unhandledMessages{};  // by type
    Duration running{};                                // since the daemon's start
};

/*
 * Two views of the network: "wfa-dataelements:Network" as other programs expect it, and "kv1905", the complete
 * one. A station reports its band but not its network: the first shows it under the first radio of that band with a
 * known BSSID, or not at all; StationList of the second holds every station of every device.
 */
std::string dataModelJson(const DataModelView &view);

}  // namespace kv1905d
