#include "daemon/data_model_file.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "daemon/json.h"
#include "kv1905/version.h"

namespace kv1905d {
namespace {

// Returns RFC 3339 in UTC; empty for 0 and for years of more than four digits.
class TimeText {
  public:
    explicit TimeText(time_t when) {
        if (when == 0) return;
        using namespace std::chrono;
        const sys_seconds time{seconds(when)};
        const auto day = floor<days>(time);
        const year_month_day date(day);
        const hh_mm_ss clock(time - day);
        put(static_cast<unsigned>(int{date.year()}), 4, '-');
        put(unsigned{date.month()}, 2, '-');
        put(unsigned{date.day()}, 2, 'T');
        put(static_cast<unsigned>(clock.hours().count()), 2, ':');
        put(static_cast<unsigned>(clock.minutes().count()), 2, ':');
        put(static_cast<unsigned>(clock.seconds().count()), 2, 'Z');
    }
    operator std::string_view() const { return {text_, size_}; }

  private:
    void put(unsigned number, size_t digits, char end) {
        for (size_t i = digits; i-- > 0; number /= 10)
            text_[size_ + i] = static_cast<char>('0' + number % 10);
        size_ += digits;
        text_[size_++] = end;
    }

    char text_[20];
    size_t size_ = 0;
};

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

std::string_view fixedText(const char *field, size_t size) {
    return {field, strnlen(field, size)};
}

void writeField(JsonWriter &out, const KvDevVendorData &record, const FieldRow &row) {
    const char *field = reinterpret_cast<const char *>(&record) + row.offset;
    if (row.kind == FieldKind::Text) return out.member(row.name, fixedText(field, row.size));
    const auto byte = static_cast<uint8_t>(*field);
    if (row.kind == FieldKind::Flag) return out.member(row.name, byte != 0);
    if (row.kind == FieldKind::Byte) return out.member(row.name, byte);
    uint32_t when = 0;
    static_assert(std::all_of(std::begin(kVendorFields), std::end(kVendorFields), [](const FieldRow &r) {
        return r.kind == FieldKind::Text || r.size == (r.kind == FieldKind::Time ? sizeof(when) : 1);
    }));
    std::memcpy(&when, field, sizeof when);
    out.member(row.name, TimeText(static_cast<time_t>(when)));
}

// ---- Wi-Fi

bool isWifi(const DeviceInterface &interface) {
    return (interface.facts.mediaType & 0xFF00) == 0x0100;
}

// The code of Data Elements: 0 is -110 dBm or weaker, 220 is 0 dBm, one step is half a dB.
int signalCode(int dBm) {
    return std::clamp(2 * (dBm + 110), 0, 220);
}

// Converts to kbit/s, the unit of Data Elements.
uint32_t kilobits(uint16_t megabits) {
    return megabits * uint32_t{1000};
}

struct Bss {
    MacAddress bssid;
    std::string_view ssid;
};

// Prints the file. The view owns everything that it shows.
class DataModelPrinter {
  public:
    explicit DataModelPrinter(const DataModelView &view) : view_(view), written_(view.wallClock) {}

    std::string print();

  private:
    std::optional<Bss> bssOf(const Device &device, const DeviceInterface &radio, Band band) const;
    const DeviceInterface *stationRadio(const Device &device, Band band) const;

    void printNetwork();
    void printDevice(const Device &device);
    void printRadio(const Device &device, const DeviceInterface &radio);
    void printStation(const WIFINeighborEntry &station);
    void printOwn();
    void printOwnDevice(const Device &device, const std::map<MacAddress, unsigned> &hops);
    void printInterfaces(const Device &device);
    void printNeighbours(const Device &device);
    void printBss(const BssElements &bss);
    void printApConfigurations(const MacAddress &alMac);
    void printStations(const Device &device);

    const DataModelView &view_;
    const TimeText written_;
    JsonWriter out_;
};

// Returns the network of a radio: from the configuration for the local device, from the topology report for others.
std::optional<Bss> DataModelPrinter::bssOf(const Device &device, const DeviceInterface &radio, Band band) const {
    if (device.local) {
        if (band == kBandOther || view_.networks.bssid[band].isZero()) return std::nullopt;
        return Bss{view_.networks.bssid[band], view_.networks.ssid[band]};
    }
    WireReader info(radio.facts.specialInfo);
    const MacAddress bssid = info.mac();
    if (bssid.isZero()) return std::nullopt;
    return Bss{bssid, ""};
}

// Returns the radio under which the device's stations of that band are listed; null if none has a network.
const DeviceInterface *DataModelPrinter::stationRadio(const Device &device, Band band) const {
    const auto isIt = [&](const DeviceInterface &each) {
        return isWifi(each) && bandOfMediaType(each.facts.mediaType) == band && bssOf(device, each, band);
    };
    const auto found = std::find_if(device.interfaces.begin(), device.interfaces.end(), isIt);
    return found == device.interfaces.end() ? nullptr : &*found;
}

// The local list carries no time: its stations were there when it was made.
void DataModelPrinter::printStation(const WIFINeighborEntry &station) {
    out_.member("MACAddress", MacAddress::copyOf(station.mac));
    out_.member("LastDataDownlinkRate", kilobits(station.tx_rate));
    out_.member("LastDataUplinkRate", kilobits(station.rx_rate));
    out_.member("SignalStrength", signalCode(station.RSSI));
    out_.member("BytesSent", station.Tx);
    out_.member("BytesReceived", station.Rx);
    out_.member("TimeStamp", station.lastSeen != 0 ? TimeText(static_cast<time_t>(station.lastSeen)) : written_);
}

// ---- wfa-dataelements:Network

void DataModelPrinter::printRadio(const Device &device, const DeviceInterface &radio) {
    const Band band = bandOfMediaType(radio.facts.mediaType);
    const bool isEnabled = radio.vendor.pwrState == 0;
    out_.member("ID", radio.facts.mac);
    out_.member("Enabled", isEnabled);
    out_.countedList("NumberOfBSS", "BSSList", [&] {
        const std::optional<Bss> bss = bssOf(device, radio, band);
        if (!bss) return;
        out_.entry([&] {
            out_.member("BSSID", bss->bssid);
            out_.member("SSID", bss->ssid);
            out_.member("Enabled", isEnabled);
            out_.countedList("NumberOfSTA", "STAList", [&] {
                if (stationRadio(device, band) != &radio) return;
                for (const WIFINeighborEntry *at = device.vendor.data()->wifiNbrHead; at != nullptr; at = at->next) {
                    if (bandOf(&BandRow::stationBand, at->Band) == band) out_.entry([&] { printStation(*at); });
                }
            });
        });
    });
}

void DataModelPrinter::printDevice(const Device &device) {
    const KvDevVendorData &record = *device.vendor.data();
    out_.member("ID", device.alMac);
    out_.member("Manufacturer", "");
    out_.member("ManufacturerModel", fixedText(record.modelName, sizeof record.modelName));
    out_.member("SoftwareVersion", fixedText(record.fwVersion, sizeof record.fwVersion));
    out_.countedList("NumberOfRadios", "RadioList", [&] {
        for (const DeviceInterface &interface : device.interfaces) {
            if (isWifi(interface)) out_.entry([&] { printRadio(device, interface); });
        }
    });
}

void DataModelPrinter::printNetwork() {
    out_.member("ID", view_.topology.local().alMac);
    out_.member("TimeStamp", written_);
    out_.countedList("NumberOfDevices", "DeviceList", [&] {
        for (const auto &entry : view_.topology.devices())
            out_.entry([&] { printDevice(*entry.second); });
    });
}

// ---- kv1905

void DataModelPrinter::printInterfaces(const Device &device) {
    for (const DeviceInterface &interface : device.interfaces) {
        out_.entry([&] {
            out_.member("MACAddress", interface.facts.mac);
            out_.member("MediaType", interface.facts.mediaType);
        });
    }
}

// Prints the neighbours that the device reported, and over which of its interfaces.
void DataModelPrinter::printNeighbours(const Device &device) {
    for (const Ieee1905Neighbours &link : device.neighbours) {
        std::optional<uint16_t> mediaType;
        for (const DeviceInterface &each : device.interfaces) {
            if (each.facts.mac == link.localInterface) mediaType = each.facts.mediaType;
        }
        for (const Neighbour &neighbour : link.neighbours) {
            out_.entry([&] {
                out_.member("ID", neighbour.alMac);
                out_.member("Interface", link.localInterface);
                out_.member("MediaType", mediaType);
                out_.member("ViaBridge", neighbour.viaBridge);
            });
        }
    }
}

void DataModelPrinter::printBss(const BssElements &bss) {
    out_.list("MdidList", [&] {
        for (const MdidEntry &entry : bss.mdids) {
            out_.entry([&] {
                out_.member("BSSID", entry.bssid);
                out_.member("Mdid", entry.mdid);
                out_.member("Enabled", entry.enabled);
            });
        }
    });
    out_.list("BssConfigList", [&] {
        for (const BssConfiguration &entry : bss.configurations) {
            out_.entry([&] {
                out_.member("BandIndex", entry.bandIndex);
                out_.member("Attribute", entry.attribute);
                out_.member("Mdid", entry.mdid);
                out_.member("Tci", entry.tci);
                out_.member("WlMode", entry.wlMode);
                out_.member("ExtAttribute", entry.extAttribute);
            });
        }
    });
}

void DataModelPrinter::printApConfigurations(const MacAddress &alMac) {
    const auto known = view_.apConfigurations.find(alMac);
    if (known == view_.apConfigurations.end()) return;
    for (const auto &[band, bss] : known->second) {
        out_.entry([&, band = band, &bss = bss] {
            out_.member("Band", bandName(band));
            out_.member("BandIndex", bss.BandIndex);
            out_.member("Attribute", bss.Attribute);
            out_.member("Mdid", bss.MDID);
            out_.member("Tci", bss.TCI);
            out_.member("ExtAttribute", bss.ExtAttribute);
        });
    }
}

void DataModelPrinter::printOwnDevice(const Device &device, const std::map<MacAddress, unsigned> &hops) {
    const KvDevVendorData &record = *device.vendor.data();
    const auto distance = hops.find(device.alMac);
    const auto silence = device.local ? Duration{} : view_.now - device.lastHeard;
    out_.member("ID", device.alMac);
    out_.member("Local", device.local);
    out_.member("SpeaksProtocol", device.speaksProtocol());
    out_.member("Hops", distance != hops.end() ? std::optional(distance->second) : std::nullopt);
    out_.member("SecondsSinceHeard", silence.count() / 1000);
    for (const FieldRow &row : kVendorFields)
        writeField(out_, record, row);
    out_.member("WifiNeighborCount", device.local ? view_.localStations : record.wifiNbrNum);
    out_.list("InterfaceList", [&] { printInterfaces(device); });
    out_.list("NeighborList", [&] { printNeighbours(device); });
    printBss(device.bss);
    out_.list("ApConfigurationList", [&] { printApConfigurations(device.alMac); });
}

// Prints every station, including those of devices with unknown networks.
void DataModelPrinter::printStations(const Device &device) {
    std::optional<MacAddress> bssids[kBandOther + 1];
    for (const Band band : {kBand24, kBand5}) {
        if (const DeviceInterface *radio = stationRadio(device, band))
            bssids[band] = bssOf(device, *radio, band)->bssid;
    }
    for (const WIFINeighborEntry *at = device.vendor.data()->wifiNbrHead; at != nullptr; at = at->next) {
        const Band band = bandOf(&BandRow::stationBand, at->Band);
        out_.entry([&] {
            printStation(*at);
            out_.member("Device", device.alMac);
            out_.member("BSSID", bssids[band]);
            out_.member("Band", bandName(band));
            out_.member("MediaType", at->mediaType);
            out_.member("RSSI", at->RSSI);  // dBm
            out_.member("SNR", at->SNR);    // dB
            out_.member("SignalLevel", at->signalLevel);
            out_.member("Rate", kilobits(at->Rate));
        });
    }
}

void DataModelPrinter::printOwn() {
    const auto &devices = view_.topology.devices();
    const std::map<MacAddress, unsigned> hops = view_.topology.hops();
    out_.member("Version", KV1905_VERSION);
    out_.member("Role", view_.role);
    out_.member("SecondsRunning", view_.running.count() / 1000);
    out_.member("Controller", view_.controller ? view_.controller->text() : "");
    out_.object("Counters", [&] {
        for (const CounterRow &row : kCounterRows)
            out_.member(row.name, view_.counters.*row.field);
    });
    out_.list("UnhandledMessageList", [&] {
        for (const auto &[type, count] : view_.unhandledMessages) {
            out_.entry([&, type = type, count = count] {
                out_.member("Type", type);
                out_.member("Count", count);
            });
        }
    });
    out_.countedList("NumberOfDevices", "DeviceList", [&] {
        for (const auto &entry : devices)
            out_.entry([&] { printOwnDevice(*entry.second, hops); });
    });
    out_.countedList("NumberOfStations", "StationList", [&] {
        for (const auto &[alMac, device] : devices)
            printStations(*device);
    });
}

std::string DataModelPrinter::print() {
    out_.object([&] {
        out_.object("wfa-dataelements:Network", [&] { printNetwork(); });
        out_.object("kv1905", [&] { printOwn(); });
    });
    return out_.take() + '\n';
}

}  // namespace

std::string dataModelJson(const DataModelView &view) {
    return DataModelPrinter(view).print();
}

}  // namespace kv1905d
