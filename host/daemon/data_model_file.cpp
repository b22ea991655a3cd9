#include "daemon/data_model_file.h"

#include <algorithm>
#include <cstring>

#include "daemon/json.h"

namespace kv1905d {
namespace {

template <typename Range, typename ToJson>
JsonList listOf(const Range &entries, ToJson toJson) {
    JsonList list;
    for (const auto &entry : entries)
        list.add(toJson(entry));
    return list;
}

Json timeJson(time_t when) {
    if (when == 0) return Json("");
    tm parts{};
    char text[32] = "";
    if (gmtime_r(&when, &parts) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return Json(text);
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
    if (row.kind == FieldKind::Text) return Json(fixedText(field, row.size));
    if (row.size == 1) {
        const auto byte = static_cast<uint8_t>(*field);
        if (row.kind == FieldKind::Flag) return byte != 0;
        return byte;
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
    return Json(megabits * 1000);  // kbit/s, as Data Elements has it
}

// The local list carries no time: its stations were there when it was made.
JsonObject stationJson(const WIFINeighborEntry &station, time_t now) {
    JsonObject json{{"MACAddress", MacAddress::copyOf(station.mac)},
                    {"LastDataDownlinkRate", rateJson(station.tx_rate)},
                    {"LastDataUplinkRate", rateJson(station.rx_rate)},
                    {"SignalStrength", signalCode(station.RSSI)},
                    {"BytesSent", station.Tx},
                    {"BytesReceived", station.Rx},
                    {"TimeStamp", timeJson(station.lastSeen != 0 ? static_cast<time_t>(station.lastSeen) : now)}};
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

// The radio under which the device's stations of that band are shown; null when none has a network.
const DeviceInterface *stationRadio(const DataModelView &view, const Device &device, Band band) {
    const auto isIt = [&](const DeviceInterface &each) {
        return isWifi(each) && bandOfMediaType(each.facts.mediaType) == band && bssOf(view, device, each, band);
    };
    const auto found = std::find_if(device.interfaces.begin(), device.interfaces.end(), isIt);
    return found == device.interfaces.end() ? nullptr : &*found;
}

JsonObject radioJson(const DataModelView &view, const Device &device, const DeviceInterface &radio) {
    const Band band = bandOfMediaType(radio.facts.mediaType);
    JsonList networks;
    if (const std::optional<Bss> bss = bssOf(view, device, radio, band)) {
        JsonObject network{{"BSSID", bss->bssid}, {"SSID", bss->ssid}, {"Enabled", radio.vendor.pwrState == 0}};
        const bool hasStations = stationRadio(view, device, band) == &radio;
        network.addCounted("NumberOfSTA", "STAList",
                           hasStations ? stationsJson(device, band, view.wallClock) : JsonList());
        networks.add(network);
    }
    JsonObject json{{"ID", radio.facts.mac}, {"Enabled", radio.vendor.pwrState == 0}};
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
        JsonObject json = stationJson(*at, view.wallClock);
        json.add({{"Device", device.alMac},
                  {"BSSID", networks[band] ? Json(networks[band]->bssid) : Json(nullptr)},
                  {"Band", bandName(band)},
                  {"MediaType", at->mediaType},
                  {"RSSI", at->RSSI},  // dBm
                  {"SNR", at->SNR},    // dB
                  {"SignalLevel", at->signalLevel},
                  {"Rate", rateJson(at->Rate)}});
        list.add(json);
    }
}

// ---- BSSs as devices describe them

JsonObject mdidJson(const MdidEntry &entry) {
    return {{"BSSID", entry.bssid}, {"Mdid", entry.mdid}, {"Enabled", entry.enabled}};
}

JsonObject bssConfigurationJson(const BssConfiguration &entry) {
    return {{"BandIndex", entry.bandIndex}, {"Attribute", entry.attribute},
            {"Mdid", entry.mdid},           {"Tci", entry.tci},
            {"WlMode", entry.wlMode},       {"ExtAttribute", entry.extAttribute}};
}

JsonObject apConfigurationJson(const std::pair<const Band, KvBssInfo> &entry) {
    const auto &[band, bss] = entry;
    return {
        {"Band", bandName(band)}, {"BandIndex", bss.BandIndex},      {"Attribute", bss.Attribute}, {"Mdid", bss.MDID},
        {"Tci", bss.TCI},         {"ExtAttribute", bss.ExtAttribute}};
}

// ---- The two roots

JsonObject deviceJson(const DataModelView &view, const Device &device) {
    const KvDevVendorData &record = *device.vendor.data();
    JsonList radios;
    for (const DeviceInterface &interface : device.interfaces) {
        if (isWifi(interface)) radios.add(radioJson(view, device, interface));
    }
    JsonObject json{{"ID", device.alMac},
                    {"Manufacturer", ""},
                    {"ManufacturerModel", fixedText(record.modelName, sizeof record.modelName)},
                    {"SoftwareVersion", fixedText(record.fwVersion, sizeof record.fwVersion)}};
    json.addCounted("NumberOfRadios", "RadioList", radios);
    return json;
}

JsonObject networkJson(const DataModelView &view) {
    JsonList devices;
    for (const auto &[alMac, device] : view.topology.devices())
        devices.add(deviceJson(view, *device));
    JsonObject json{{"ID", view.topology.local().alMac}, {"TimeStamp", timeJson(view.wallClock)}};
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
            JsonObject json{{"ID", neighbour.alMac}, {"Interface", link.localInterface}};
            const bool isListed = interface != device.interfaces.end();
            json.add({{"MediaType", isListed ? Json(interface->facts.mediaType) : Json(nullptr)},
                      {"ViaBridge", neighbour.viaBridge}});
            list.add(json);
        }
    }
    return list;
}

JsonObject vendorDeviceJson(const DataModelView &view, const Device &device,
                            const std::map<MacAddress, unsigned> &hops) {
    JsonObject json{{"ID", device.alMac}, {"Local", device.local}, {"SpeaksProtocol", device.speaksProtocol()}};
    const auto distance = hops.find(device.alMac);
    json.add({{"Hops", distance != hops.end() ? Json(distance->second) : Json(nullptr)}});
    const auto silence = device.local ? Duration{} : view.now - device.lastHeard;
    json.add({{"SecondsSinceHeard", static_cast<uint64_t>(silence.count() / 1000)}});
    for (const FieldRow &row : kVendorFields)
        json.add({{row.name, fieldJson(*device.vendor.data(), row)}});
    json.add({{"WifiNeighborCount", device.local ? view.localStations : device.vendor.data()->wifiNbrNum},
              {"NeighborList", neighboursJson(device)},
              {"MdidList", listOf(device.bss.mdids, mdidJson)},
              {"BssConfigList", listOf(device.bss.configurations, bssConfigurationJson)}});
    const auto known = view.apConfigurations.find(device.alMac);
    const bool isKnown = known != view.apConfigurations.end();
    json.add({{"ApConfigurationList", isKnown ? listOf(known->second, apConfigurationJson) : JsonList()}});
    return json;
}

JsonObject ownJson(const DataModelView &view) {
    JsonObject counters;
    for (const CounterRow &row : kCounterRows)
        counters.add({{row.name, view.counters.*row.field}});
    JsonList devices;
    JsonList stations;
    const std::map<MacAddress, unsigned> hops = view.topology.hops();
    for (const auto &[alMac, device] : view.topology.devices()) {
        devices.add(vendorDeviceJson(view, *device, hops));
        addStations(stations, view, *device);
    }
    JsonObject json{
        {"Role", view.role}, {"Controller", view.controller ? view.controller->text() : ""}, {"Counters", counters}};
    json.addCounted("NumberOfDevices", "DeviceList", devices);
    json.addCounted("NumberOfStations", "StationList", stations);
    return json;
}

}  // namespace

std::string dataModelJson(const DataModelView &view) {
    const JsonObject root{{"wfa-dataelements:Network", networkJson(view)}, {"kv1905", ownJson(view)}};
    return Json(root).text() + '\n';
}

}  // namespace kv1905d
