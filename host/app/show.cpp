#include "show.h"

#include <json-c/json.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <span>
#include <vector>

#include "defaults.h"
#include "outcome.h"
#include "table.h"

namespace kv1905d {
namespace {

using support::JsonPtr;

constexpr Column kDeviceColumns[] = {
    {"AL MAC", "ID"},
    {"MODEL", "ModelName"},
    {"MODE", "Mode"},
    {"IP", "IpAddress"},
    {"FIRMWARE", "FirmwareVersion"},
    {"LED", "LedStatus"},
    {"HOPS", "Hops"},
    {"HEARD (s ago)", "SecondsSinceHeard"},
};
constexpr Column kStationColumns[] = {
    {"DEVICE", "Device", nameCell},
    {"BAND", "Band"},
    {"STATION", "MACAddress"},
    {"SIGNAL dBm", "RSSI"},
    {"LEVEL 0-5", "SignalLevel"},
    {"RATE Mbit/s", "Rate", megabitsCell},
    {"DOWN", "LastDataDownlinkRate", megabitsCell},
    {"UP", "LastDataUplinkRate", megabitsCell},
    {"SEEN (s ago)", "TimeStamp", ageCell},
};
constexpr Column kLinkColumns[] = {
    {"DEVICE", "Device", nameCell}, {"INTERFACE", "Interface"},  {"NAME", "MediaType", mediaCell},
    {"NEIGHBOUR", "ID", nameCell},  {"VIA BRIDGE", "ViaBridge"},
};
constexpr Column kInterfaceColumns[] = {
    {"DEVICE", "Device", nameCell},
    {"INTERFACE", "MACAddress"},
    {"NAME", "MediaType", mediaCell},
    {"MEDIA TYPE", "MediaType", digitsCell},
};

// Returns all fields of the objects in the list, one a line.
std::string fieldLines(json_object *list) {
    std::string out;
    forEach(list, [&](json_object *entry) {
        json_object_object_foreach(entry, key, value) out += std::string(key) + ": " + plain(value) + "\n";
    });
    return out;
}

// ---- Lists

void add(const JsonPtr &list, json_object *entry) {
    json_object_array_add(list.get(), entry);
}

// Returns the entries of one list of the file.
JsonPtr listOf(Network &network, const char *key) {
    JsonPtr list(json_object_new_array());
    forEach(member(network.data(), key), [&](json_object *each) { add(list, json_object_get(each)); });
    return list;
}

// Returns the entries of one list of every device, each with its device.
JsonPtr partsOf(Network &network, const char *key) {
    JsonPtr list(json_object_new_array());
    forEach(member(network.data(), "DeviceList"), [&](json_object *device) {
        forEach(member(device, key), [&](json_object *each) {
            json_object *entry = nullptr;
            if (json_object_deep_copy(each, &entry, nullptr) != 0) return;
            json_object_object_add(entry, "Device", json_object_get(member(device, "ID")));
            add(list, entry);
        });
    });
    return list;
}

// Returns a list of one object.
JsonPtr countersOf(Network &network, const char *key) {
    JsonPtr list(json_object_new_array());
    add(list, json_object_get(member(network.data(), key)));
    return list;
}

JsonPtr statusOf(Network &network, const char *) {
    JsonPtr list(json_object_new_array());
    json_object *status = json_object_new_object();
    json_object_object_foreach(network.data(), key, value) {
        const bool isPart = json_object_is_type(value, json_type_array) || json_object_is_type(value, json_type_object);
        if (!isPart) json_object_object_add(status, key, json_object_get(value));
    }
    add(list, status);
    return list;
}

struct Subject {
    std::string_view what;
    JsonPtr (*list)(Network &network, const char *key);
    const char *key;
    const char *owner;                  // field with the AL MAC that a filter compares; null: no filter
    std::span<const Column> columns{};  // none: one object, whose fields are printed
};

constexpr Subject kShowable[] = {
    {"devices", listOf, "DeviceList", nullptr, kDeviceColumns},
    {"device", listOf, "DeviceList", "ID"},
    {"stations", listOf, "StationList", "Device", kStationColumns},
    {"links", partsOf, "NeighborList", "Device", kLinkColumns},
    {"interfaces", partsOf, "InterfaceList", "Device", kInterfaceColumns},
    {"counters", countersOf, "Counters", nullptr},
    {"status", statusOf, nullptr, nullptr},
};

JsonPtr filtered(JsonPtr list, const char *owner, const std::string &alMac) {
    JsonPtr kept(json_object_new_array());
    forEach(list.get(), [&](json_object *each) {
        if (plain(member(each, owner)) == alMac) add(kept, json_object_get(each));
    });
    return kept;
}

}  // namespace

time_t ageOf(const std::string &path, time_t now) {
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 ? std::max<time_t>(now - facts.st_mtime, 0) : 0;
}

std::string staleness(const std::string &path, time_t now) {
    const time_t seconds = ageOf(path, now);
    if (seconds <= time_t{2} * kDataModelInterval) return "";
    return "the daemon last wrote " + path + " " + std::to_string(seconds) + " s ago; is it hung?";
}

std::string show(Network &network, const ShowRequest &request) {
    const auto isIt = [&](const Subject &each) { return each.what == request.what; };
    const Subject &subject = *std::find_if(std::begin(kShowable), std::end(kShowable), isIt);
    const bool isFiltered = !request.alMac.empty();
    if (isFiltered && subject.owner == nullptr)
        throw Failure(Status::BadArguments, "unexpected argument: 'show " + request.what + "' accepts no DEVICE");
    if (!isFiltered && subject.what == "device")
        throw Failure(Status::BadArguments, "DEVICE is missing; usage: kv1905App show device DEVICE");
    JsonPtr list = subject.list(network, subject.key);
    if (isFiltered) {
        if (network.device(request.alMac) == nullptr)
            throw Failure(Status::NoDevice, "no such device in the network: " + request.alMac);
        list = filtered(std::move(list), subject.owner, request.alMac);
    }
    const bool isOne = subject.owner == nullptr && subject.columns.empty();
    if (request.json) return jsonText(isOne ? json_object_array_get_idx(list.get(), 0) : list.get());
    if (subject.columns.empty()) return fieldLines(list.get());
    if (json_object_array_length(list.get()) == 0) return "no " + request.what + "\n";
    return tableText(list.get(), subject.columns, {network, request.now});
}

}  // namespace kv1905d
