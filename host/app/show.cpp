#include "show.h"

#include <json-c/json.h>
#include <sys/stat.h>

#include <span>
#include <vector>

#include "ieee1905/mac_address.h"
#include "outcome.h"

namespace kv1905d {
namespace {

constexpr time_t kFreshFor = 30;  // seconds; a daemon that runs writes every few

using support::JsonPtr;

json_object *member(json_object *object, const char *key) {
    return json_object_is_type(object, json_type_object) ? json_object_object_get(object, key) : nullptr;
}

// Calls `visit` for each entry of the list; a list that is missing is empty.
template <typename Visit>
void forEach(json_object *list, const Visit &visit) {
    if (!json_object_is_type(list, json_type_array)) return;
    for (size_t i = 0; i < json_object_array_length(list); ++i)
        visit(json_object_array_get_idx(list, i));
}

// For a terminal: the file repeats what neighbours said, which must not drive it.
std::string plain(json_object *value) {
    std::string out;
    for (const char *at = value == nullptr ? "-" : json_object_get_string(value); *at != '\0'; ++at)
        out += *at >= ' ' && *at <= '~' ? *at : '?';
    return out.empty() ? "-" : out;
}

std::string age(json_object *when, time_t now) {
    const std::string text = plain(when);
    tm parts{};
    const char *end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    if (end == nullptr || *end != '\0') return "-";
    return std::to_string(std::max<time_t>(now - timegm(&parts), 0));  // a clock may have stepped back since
}

std::string megabits(json_object *kilobits, time_t) {
    return kilobits == nullptr ? "-" : std::to_string(json_object_get_int64(kilobits) / 1000);
}

struct Column {
    const char *title;
    const char *key;
    std::string (*format)(json_object *value, time_t now) = [](json_object *value, time_t) { return plain(value); };
};

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
    {"DEVICE", "Device"},
    {"BAND", "Band"},
    {"STATION", "MACAddress"},
    {"SIGNAL dBm", "RSSI"},
    {"LEVEL 0-5", "SignalLevel"},
    {"RATE Mbit/s", "Rate", megabits},
    {"DOWN", "LastDataDownlinkRate", megabits},
    {"UP", "LastDataUplinkRate", megabits},
    {"SEEN (s ago)", "TimeStamp", age},
};

std::string table(json_object *list, std::span<const Column> columns, time_t now) {
    std::vector<std::vector<std::string>> rows(1);
    for (const Column &column : columns)
        rows[0].push_back(column.title);
    forEach(list, [&](json_object *entry) {
        std::vector<std::string> &row = rows.emplace_back();
        for (const Column &column : columns)
            row.push_back(column.format(member(entry, column.key), now));
    });
    std::vector<size_t> widths(columns.size());
    for (const auto &row : rows) {
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    std::string out;
    for (auto &row : rows) {
        for (size_t i = 0; i + 1 < row.size(); ++i)
            row[i].resize(widths[i] + 2, ' ');
        for (const std::string &cell : row)
            out += cell;
        out += '\n';
    }
    return out;
}

// All fields of the devices in the list, one a line.
std::string fieldLines(json_object *list) {
    std::string out;
    forEach(list, [&](json_object *device) {
        json_object_object_foreach(device, key, value) out += std::string(key) + ": " + plain(value) + "\n";
    });
    return out;
}

JsonPtr devices(json_object *root, const MacAddress *only) {
    JsonPtr list(json_object_new_array());
    forEach(member(member(root, "kv1905"), "DeviceList"), [&](json_object *device) {
        if (only == nullptr || plain(member(device, "ID")) == only->text()) {
            json_object_array_add(list.get(), json_object_get(device));
        }
    });
    return list;
}

JsonPtr stations(json_object *root) {
    json_object *list = member(member(root, "kv1905"), "StationList");
    return JsonPtr(json_object_is_type(list, json_type_array) ? json_object_get(list) : json_object_new_array());
}

std::string printed(const JsonPtr &list) {
    const int flags = JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;
    return std::string(json_object_to_json_string_ext(list.get(), flags)) + "\n";
}

}  // namespace

std::string staleness(const std::string &path, time_t now) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0 || now - facts.st_mtime <= kFreshFor) return "";
    return "the daemon last wrote " + path + " " + std::to_string(now - facts.st_mtime) + " s ago; is it running?";
}

JsonPtr readModel(const std::string &path) {
    constexpr size_t kLimit = size_t{64} << 20;  // bytes, far beyond the largest network
    return support::readJsonObject(path, kLimit);
}

std::string show(const std::string &path, const Question &question) {
    const auto &[what, alMac, json, now] = question;
    const std::optional<MacAddress> only = MacAddress::parse(alMac);
    if ((what == "device") != only.has_value() || alMac.empty() != (what != "device")) {
        throw Failure(Status::BadArguments, "'device', and it alone, takes an AL MAC such as 02:00:5e:00:01:00");
    }
    const JsonPtr root = readModel(path);
    const JsonPtr list = what == "stations" ? stations(root.get()) : devices(root.get(), only ? &*only : nullptr);
    if (only && json_object_array_length(list.get()) == 0) {
        throw Failure(Status::NoDevice, only->text() + ": no such device in the network");
    }
    if (json) return printed(list);
    if (json_object_array_length(list.get()) == 0) return "no " + what + "\n";
    if (only) return fieldLines(list.get());
    return what == "stations" ? table(list.get(), kStationColumns, now) : table(list.get(), kDeviceColumns, now);
}

}  // namespace kv1905d
