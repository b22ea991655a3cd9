#include "daemon/data_model_file.h"

#include <fcntl.h>
#include <json-c/json.h>
#include <json-c/printbuf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>
#include <system_error>

#include "daemon/ethernet_port.h"

namespace kv1905d {
namespace {

// ---- JSON values. A value belongs to the one that holds it; handing it to add() passes it on.

class JsonList;

class Json {
  public:
    static Json object() { return Json(json_object_new_object()); }
    static Json text(const std::string &value) {
        const std::string valid = validUtf8(value);
        return Json(json_object_new_string_len(valid.data(), static_cast<int>(valid.size())));
    }
    static Json number(uint64_t value) { return Json(json_object_new_uint64(value)); }
    static Json integer(int64_t value) { return Json(json_object_new_int64(value)); }
    static Json boolean(bool value) { return Json(json_object_new_boolean(value)); }
    static Json mac(const MacAddress &value) { return text(value.text()); }

    Json(Json &&other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
    Json &operator=(Json &&) = delete;
    ~Json() { json_object_put(value_); }

    Json &add(const char *key, Json value) {
        if (json_object_object_add(value_, key, value.value_) != 0) throw std::bad_alloc();
        value.value_ = nullptr;
        return *this;
    }
    Json &addNull(const char *key) {
        if (json_object_object_add(value_, key, nullptr) != 0) throw std::bad_alloc();
        return *this;
    }
    Json &add(const char *key, const JsonList &list);
    // A list and the number of its entries, which must agree.
    Json &addCounted(const char *countKey, const char *listKey, const JsonList &list);
    // Belongs to the value.
    const char *print(int flags) const {
        const char *printed = json_object_to_json_string_ext(value_, flags);
        if (printed == nullptr) throw std::bad_alloc();
        return printed;
    }

  private:
    explicit Json(json_object *value) : value_(value) {
        if (value == nullptr) throw std::bad_alloc();
    }
    static int printAsIs(json_object *text, printbuf *out, int, int) {
        return printbuf_memappend(out, json_object_get_string(text), json_object_get_string_len(text));
    }
    json_object *value_;
};

// The text of a list, an entry a line. Entries are printed as they come: stations by the thousand take ten times as
// much memory as values than as text.
class JsonList {
  public:
    void add(const Json &entry) {
        text_ += count_++ == 0 ? "[\n" : ",\n";
        text_ += entry.print(JSON_C_TO_STRING_SPACED);
    }
    size_t count() const { return count_; }
    std::string text() const { return count_ == 0 ? "[]" : text_ + "\n]"; }

  private:
    std::string text_;
    size_t count_ = 0;
};

Json &Json::add(const char *key, const JsonList &list) {
    const std::string printed = list.text();
    Json value(json_object_new_string_len(printed.data(), static_cast<int>(printed.size())));
    json_object_set_serializer(value.value_, printAsIs, nullptr, nullptr);
    return add(key, std::move(value));
}

Json &Json::addCounted(const char *countKey, const char *listKey, const JsonList &list) {
    add(countKey, number(list.count()));
    return add(listKey, list);
}

// fill(json, entry) says what is told of an entry.
template <typename Range, typename Fill>
JsonList listOf(const Range &entries, Fill fill) {
    JsonList list;
    for (const auto &entry : entries) {
        Json json = Json::object();
        fill(json, entry);
        list.add(json);
    }
    return list;
}

Json timeJson(time_t when) {
    if (when == 0) return Json::text("");
    tm parts{};
    char text[32] = "";
    if (gmtime_r(&when, &parts) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return Json::text(text);
}

// ---- Fields of the plug-in's record

enum class FieldKind { Text, Byte, Flag, Time };

struct FieldRow {
    const char *name;
    size_t offset;
    size_t size;  // of the field, in bytes
    FieldKind kind;
};

#define KV_FIELD(name, field, kind) \
    { name, offsetof(KvDevVendorData, field), sizeof(KvDevVendorData::field), FieldKind::kind }
constexpr FieldRow kVendorFields[] = {
    KV_FIELD("AttributeCount", cfgAttrCount, Byte),
    KV_FIELD("RebootAllowed", rebootFromNbrCap, Flag),
    KV_FIELD("InterfacePowerAllowed", intfPwrCtrlFromNbrCap, Flag),
    KV_FIELD("FirmwareVersion", fwVersion, Text),
    KV_FIELD("NewFirmwareVersion", newFwVersion, Text),
    KV_FIELD("NewFirmwareDate", newFwDate, Text),
    KV_FIELD("AuxStatus", auxStatus, Byte),
    KV_FIELD("FirmwareUpgradeStatus", fwUpgradeStatus, Byte),
    KV_FIELD("ModelName", modelName, Text),
    KV_FIELD("IpAddress", ipAddr, Text),
    KV_FIELD("Mode", opMode, Text),
    KV_FIELD("BuildNumber", buildNum, Text),
    KV_FIELD("LedStatus", ledStatus, Text),
    KV_FIELD("Channel24G", channel24G, Text),
    KV_FIELD("Channel5G", channel5G, Text),
    KV_FIELD("ChannelExtra", channelExtra, Text),
    KV_FIELD("ProtocolVersion", protoVersion, Text),
    KV_FIELD("AppVersion", appVersion, Text),
    KV_FIELD("L2DevCtrl", l2DevCtrl, Text),
    KV_FIELD("WifiAutoCfg", wifiAutoCfg, Text),
    KV_FIELD("WifiOnOff", wifiOnOff, Text),
    KV_FIELD("FwUpgrade", fwUpgrade, Text),
    KV_FIELD("LedOnOff", ledOnOff, Text),
    KV_FIELD("Uptime", uptime, Text),
    KV_FIELD("UptimeReceived", uptimeRecvTime, Time),
};
#undef KV_FIELD

std::string fixedText(const char *field, size_t size) {
    return {field, strnlen(field, size)};
}

Json fieldJson(const KvDevVendorData &record, const FieldRow &row) {
    const char *field = reinterpret_cast<const char *>(&record) + row.offset;
    if (row.kind == FieldKind::Text) return Json::text(fixedText(field, row.size));
    if (row.size == 1) {
        const auto byte = static_cast<uint8_t>(*field);
        return row.kind == FieldKind::Flag ? Json::boolean(byte != 0) : Json::number(byte);
    }
    uint32_t when = 0;
    static_assert(std::all_of(std::begin(kVendorFields), std::end(kVendorFields), [](const FieldRow &r) {
        return r.kind == FieldKind::Text || r.size == (r.kind == FieldKind::Time ? sizeof(when) : 1);
    }));
    std::memcpy(&when, field, sizeof when);
    return timeJson(static_cast<time_t>(when));
}

// ---- Wi-Fi

bool isWifi(const DeviceInterface &interface) {
    return (interface.facts.mediaType & 0xFF00) == 0x0100;
}

// The code of Data Elements: 0 is -110 dBm or weaker, 220 is 0 dBm, one step is half a dB.
uint8_t signalCode(int dBm) {
    return static_cast<uint8_t>(std::clamp(2 * (dBm + 110), 0, 220));
}

Json rateJson(uint16_t megabits) {
    return Json::number(uint64_t{megabits} * 1000);  // kbit/s, as Data Elements has it
}

// The local list carries no time: its stations were there when it was made.
Json stationJson(const WIFINeighborEntry &station, time_t now) {
    Json json = Json::object();
    json.add("MACAddress", Json::mac(MacAddress::copyOf(station.mac)));
    json.add("LastDataDownlinkRate", rateJson(station.tx_rate));
    json.add("LastDataUplinkRate", rateJson(station.rx_rate));
    json.add("SignalStrength", Json::number(signalCode(station.RSSI)));
    json.add("BytesSent", Json::number(station.Tx));
    json.add("BytesReceived", Json::number(station.Rx));
    json.add("TimeStamp", timeJson(station.lastSeen != 0 ? static_cast<time_t>(station.lastSeen) : now));
    return json;
}

JsonList stationsJson(const Device &device, Band band, time_t now) {
    JsonList list;
    for (const WIFINeighborEntry *at = device.vendor.data()->wifiNbrHead; at != nullptr; at = at->next) {
        if (bandOf(&BandRow::stationBand, at->Band) == band) list.add(stationJson(*at, now));
    }
    return list;
}

struct Bss {
    MacAddress bssid;
    std::string ssid;
};

// The network of a radio: from the configuration for the local device, from the topology report for others.
std::optional<Bss> bssOf(const DataModelView &view, const Device &device, const DeviceInterface &radio, Band band) {
    if (device.local) {
        if (band == kBandOther || view.networks.bssid[band].isZero()) return std::nullopt;
        return Bss{view.networks.bssid[band], view.networks.ssid[band]};
    }
    WireReader info(radio.facts.specialInfo);
    const MacAddress bssid = info.mac();
    if (bssid.isZero()) return std::nullopt;
    return Bss{bssid, ""};
}

// The radio that stands for the device's stations of that band; null when none has a network.
const DeviceInterface *stationRadio(const DataModelView &view, const Device &device, Band band) {
    const auto isIt = [&](const DeviceInterface &each) {
        return isWifi(each) && bandOfMediaType(each.facts.mediaType) == band && bssOf(view, device, each, band);
    };
    const auto found = std::find_if(device.interfaces.begin(), device.interfaces.end(), isIt);
    return found == device.interfaces.end() ? nullptr : &*found;
}

Json radioJson(const DataModelView &view, const Device &device, const DeviceInterface &radio) {
    const Band band = bandOfMediaType(radio.facts.mediaType);
    JsonList networks;
    if (const std::optional<Bss> bss = bssOf(view, device, radio, band)) {
        Json network = Json::object();
        network.add("BSSID", Json::mac(bss->bssid));
        network.add("SSID", Json::text(bss->ssid));
        network.add("Enabled", Json::boolean(radio.vendor.pwrState == 0));
        const bool hasStations = stationRadio(view, device, band) == &radio;
        network.addCounted("NumberOfSTA", "STAList",
                           hasStations ? stationsJson(device, band, view.wallClock) : JsonList());
        networks.add(network);
    }
    Json json = Json::object();
    json.add("ID", Json::mac(radio.facts.mac));
    json.add("Enabled", Json::boolean(radio.vendor.pwrState == 0));
    json.addCounted("NumberOfBSS", "BSSList", networks);
    return json;
}

// ---- Every station, also of devices whose networks are not known

void addStations(JsonList &list, const DataModelView &view, const Device &device) {
    std::optional<Bss> networks[kBandOther + 1];
    for (const Band band : {kBand24, kBand5}) {
        if (const DeviceInterface *radio = stationRadio(view, device, band)) {
            networks[band] = bssOf(view, device, *radio, band);
        }
    }
    for (const WIFINeighborEntry *at = device.vendor.data()->wifiNbrHead; at != nullptr; at = at->next) {
        const Band band = bandOf(&BandRow::stationBand, at->Band);
        Json json = stationJson(*at, view.wallClock);
        json.add("Device", Json::mac(device.alMac));
        if (networks[band]) {
            json.add("BSSID", Json::mac(networks[band]->bssid));
        } else {
            json.addNull("BSSID");
        }
        json.add("Band", Json::text(bandName(band)));
        json.add("MediaType", Json::number(at->mediaType));
        json.add("RSSI", Json::integer(at->RSSI));  // dBm
        json.add("SNR", Json::integer(at->SNR));    // dB
        json.add("SignalLevel", Json::number(at->signalLevel));
        json.add("Rate", rateJson(at->Rate));
        list.add(json);
    }
}

// ---- BSSs as devices told of them

void fillMdid(Json &json, const MdidEntry &entry) {
    json.add("BSSID", Json::mac(entry.bssid));
    json.add("Mdid", Json::number(entry.mdid));
    json.add("Enabled", Json::boolean(entry.enabled));
}

void fillBssConfiguration(Json &json, const BssConfiguration &entry) {
    json.add("BandIndex", Json::number(entry.bandIndex));
    json.add("Attribute", Json::number(entry.attribute));
    json.add("Mdid", Json::number(entry.mdid));
    json.add("Tci", Json::number(entry.tci));
    json.add("WlMode", Json::number(entry.wlMode));
    json.add("ExtAttribute", Json::number(entry.extAttribute));
}

void fillApConfiguration(Json &json, const std::pair<const Band, KvBssInfo> &entry) {
    const auto &[band, bss] = entry;
    json.add("Band", Json::text(bandName(band)));
    json.add("BandIndex", Json::number(bss.BandIndex));
    json.add("Attribute", Json::number(bss.Attribute));
    json.add("Mdid", Json::number(bss.MDID));
    json.add("Tci", Json::number(bss.TCI));
    json.add("ExtAttribute", Json::number(bss.ExtAttribute));
}

// ---- The two roots

Json deviceJson(const DataModelView &view, const Device &device) {
    const KvDevVendorData &record = *device.vendor.data();
    JsonList radios;
    for (const DeviceInterface &interface : device.interfaces) {
        if (isWifi(interface)) radios.add(radioJson(view, device, interface));
    }
    Json json = Json::object();
    json.add("ID", Json::mac(device.alMac));
    json.add("Manufacturer", Json::text(""));
    json.add("ManufacturerModel", Json::text(fixedText(record.modelName, sizeof record.modelName)));
    json.add("SoftwareVersion", Json::text(fixedText(record.fwVersion, sizeof record.fwVersion)));
    json.addCounted("NumberOfRadios", "RadioList", radios);
    return json;
}

Json networkJson(const DataModelView &view) {
    JsonList devices;
    for (const auto &[alMac, device] : view.topology.devices())
        devices.add(deviceJson(view, *device));
    Json json = Json::object();
    json.add("ID", Json::mac(view.topology.local().alMac));
    json.add("TimeStamp", timeJson(view.wallClock));
    json.addCounted("NumberOfDevices", "DeviceList", devices);
    return json;
}

// Who the device says are its neighbours, and over which of its interfaces.
JsonList neighboursJson(const Device &device) {
    JsonList list;
    for (const Ieee1905Neighbours &link : device.neighbours) {
        const auto isIt = [&](const DeviceInterface &each) { return each.facts.mac == link.localInterface; };
        const auto interface = std::find_if(device.interfaces.begin(), device.interfaces.end(), isIt);
        for (const Neighbour &neighbour : link.neighbours) {
            Json json = Json::object();
            json.add("ID", Json::mac(neighbour.alMac));
            json.add("Interface", Json::mac(link.localInterface));
            if (interface != device.interfaces.end()) {
                json.add("MediaType", Json::number(interface->facts.mediaType));
            } else {
                json.addNull("MediaType");  // an interface that the device does not list
            }
            json.add("ViaBridge", Json::boolean(neighbour.viaBridge));
            list.add(json);
        }
    }
    return list;
}

Json vendorDeviceJson(const DataModelView &view, const Device &device, const std::map<MacAddress, unsigned> &hops) {
    Json json = Json::object();
    json.add("ID", Json::mac(device.alMac));
    json.add("Local", Json::boolean(device.local));
    json.add("SpeaksProtocol", Json::boolean(device.speaksProtocol()));
    const auto distance = hops.find(device.alMac);
    if (distance != hops.end()) {
        json.add("Hops", Json::number(distance->second));
    } else {
        json.addNull("Hops");  // no path is known
    }
    const auto silence = device.local ? Duration{} : view.now - device.lastHeard;
    json.add("SecondsSinceHeard", Json::number(static_cast<uint64_t>(silence.count() / 1000)));
    for (const FieldRow &row : kVendorFields)
        json.add(row.name, fieldJson(*device.vendor.data(), row));
    json.add("WifiNeighborCount", Json::number(device.local ? view.localStations : device.vendor.data()->wifiNbrNum));
    json.add("NeighborList", neighboursJson(device));
    json.add("MdidList", listOf(device.bss.mdids, fillMdid));
    json.add("BssConfigList", listOf(device.bss.configurations, fillBssConfiguration));
    const auto known = view.apConfigurations.find(device.alMac);
    json.add("ApConfigurationList",
             known == view.apConfigurations.end() ? JsonList() : listOf(known->second, fillApConfiguration));
    return json;
}

Json ownJson(const DataModelView &view) {
    Json counters = Json::object();
    for (const CounterRow &row : kCounterRows)
        counters.add(row.name, Json::number(view.counters.*row.field));
    JsonList devices;
    JsonList stations;
    const std::map<MacAddress, unsigned> hops = view.topology.hops();
    for (const auto &[alMac, device] : view.topology.devices()) {
        devices.add(vendorDeviceJson(view, *device, hops));
        addStations(stations, view, *device);
    }
    Json json = Json::object();
    json.add("Role", Json::text(view.role));
    json.add("Controller", Json::text(view.controller ? view.controller->text() : ""));
    json.add("Counters", std::move(counters));
    json.addCounted("NumberOfDevices", "DeviceList", devices);
    json.addCounted("NumberOfStations", "StationList", stations);
    return json;
}

// Bytes of the well-formed UTF-8 character at the start of the text; 0 when there is none.
size_t utf8Length(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byte(0);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    const uint8_t second = byte(1);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool surrogate = first == 0xED && second > 0x9F;
    const bool tooLarge = first == 0xF4 && second > 0x8F;
    return overlong || surrogate || tooLarge ? 0 : length;
}

}  // namespace

std::string validUtf8(const std::string &text) {
    std::string out;
    for (std::string_view rest = text; !rest.empty();) {
        const size_t length = utf8Length(rest);
        out += length > 0 ? rest.substr(0, length) : std::string_view("\xEF\xBF\xBD");
        rest.remove_prefix(std::max<size_t>(length, 1));
    }
    return out;
}

std::string dataModelJson(const DataModelView &view) {
    Json root = Json::object();
    root.add("wfa-dataelements:Network", networkJson(view));
    root.add("kv1905", ownJson(view));
    return root.print(JSON_C_TO_STRING_PRETTY) + std::string("\n");
}

void replaceFile(const std::string &path, const std::string &text) {
    // In the same directory: only there a rename is one step. One writer per file, so the name can be fixed; a file or
    // link that somebody left under it is removed, never followed.
    const std::string temporary = path + ".new";
    const auto fail = [&](const char *step) {
        const int error = errno;
        unlink(temporary.c_str());
        throw std::system_error(error, std::generic_category(), path + ": " + step);
    };
    unlink(temporary.c_str());
    const FileDescriptor fd(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!fd.valid()) fail("create a temporary file beside it");
    for (std::string_view rest = text; !rest.empty();) {
        const ssize_t written = write(fd.get(), rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail("write");
        rest.remove_prefix(static_cast<size_t>(written));
    }
    if (rename(temporary.c_str(), path.c_str()) != 0) fail("replace");
}

}  // namespace kv1905d
