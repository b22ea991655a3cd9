#include "transcripts/scripted_device.h"

#include <algorithm>
#include <cstring>

#include "features/device_control/firmware_upgrade_list.h"
#include "features/wifi_clients/local_stations.h"
#include "frame/identity.h"
#include "frame/result_file.h"
#include "frame/vendor_data.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "transcripts/script_words.h"
#include "transport/outstanding_queries.h"

namespace kvtest {

namespace {

const std::map<std::string, std::string> kPaths = {{"conf", kConfigFile},
                                                   {"version", kVersionFile},
                                                   {"stations24", kv::kStationFile24G},
                                                   {"stations5", kv::kStationFile5G},
                                                   {"result", kv::kResultPath},
                                                   {"list", kv::kFirmwareListPath},
                                                   {"password", "/data/FMUBBW3CBI.dat"}};

constexpr char kPrinted[] = "print ";

#define FIELD(name) \
    { #name, offsetof(KvDevVendorData, name), sizeof(KvDevVendorData::name) }
constexpr RecordField kFields[] = {FIELD(cfgAttrCount), FIELD(rebootFromNbrCap), FIELD(intfPwrCtrlFromNbrCap),
                                   FIELD(fwVersion),    FIELD(newFwVersion),     FIELD(newFwDate),
                                   FIELD(auxStatus),    FIELD(fwUpgradeStatus),  FIELD(modelName),
                                   FIELD(ipAddr),       FIELD(opMode),           FIELD(buildNum),
                                   FIELD(protoVersion), FIELD(ledStatus),        FIELD(appVersion),
                                   FIELD(l2DevCtrl),    FIELD(wifiAutoCfg),      FIELD(wifiOnOff),
                                   FIELD(fwUpgrade),    FIELD(ledOnOff),         FIELD(channel24G),
                                   FIELD(channel5G),    FIELD(channelExtra),     FIELD(uptime)};

void removeFiles() {
    emptyDevice();
    for (const auto &[name, path] : kPaths) {
        std::remove(path.c_str());
    }
}

// Tells long texts apart that are not worth their lines (FNV-1a).
std::string digest(const std::string &text) {
    uint32_t value = 2166136261u;
    for (const char c : text) {
        value = (value ^ static_cast<uint8_t>(c)) * 16777619u;
    }
    char digits[20];
    std::snprintf(digits, sizeof digits, "digest %08x", value);
    return digits;
}

// The whole of what is short, the beginning and a digest of what is long.
std::string brief(const Bytes &bytes) {
    constexpr size_t kWhole = 160, kBeginning = 64;
    const std::string text = hexText(bytes.data(), bytes.size());
    return bytes.size() <= kWhole
               ? text
               : text.substr(0, 2 * kBeginning) + "... " + std::to_string(bytes.size()) + " bytes, " + digest(text);
}

std::string sendText(const Sent &sent) {
    const char *const slots[] = {"to ", "to neighbours", "to all"};
    std::string text = std::string("sends ") + slots[static_cast<int>(sent.slot)];
    text += sent.slot == Slot::Unicast ? macText(sent.destination.data()) : "";
    char id[16] = " no id";
    if (sent.msgIdIn) {
        std::snprintf(id, sizeof id, " id %04x", *sent.msgIdIn);
    }
    text += id;
    constexpr size_t kEnvelope = 15;
    if (sent.value.size() >= kEnvelope) {
        const Bytes payload(sent.value.begin() + kEnvelope, sent.value.end());
        const auto type = static_cast<uint16_t>(sent.value[11] << 8 | sent.value[12]);
        const char *name = kvVendorMessageName(type);
        if (name != nullptr && sent.value == message(kLocal, type, payload)) {
            return text + " " + name + " " + brief(payload);
        }
    }
    return text + " raw " + brief(sent.value);
}

// MAC, media type, rate, RSSI, SNR, level, Tx, Rx, Tx rate, Rx rate, band of each; a digest of many.
std::string stationsText(const WIFINeighborEntry *station, uint32_t told) {
    constexpr size_t kListed = 8;
    std::string text;
    uint32_t count = 0;
    for (; station != nullptr; station = station->next, ++count) {
        char figures[100];
        std::snprintf(figures, sizeof figures, " %04x %u %d %d %u %u %u %u %u %u %s| ", station->mediaType,
                      station->Rate, station->RSSI, station->SNR, station->signalLevel, station->Tx, station->Rx,
                      station->tx_rate, station->rx_rate, station->Band,
                      station->lastSeen == 0 ? "" : (std::to_string(station->lastSeen - kScriptStart) + " ").c_str());
        text += hexText(station->mac, KV_MAC_LEN) + figures;
    }
    if (count > kListed) {
        text = std::to_string(count) + " stations, " + digest(text);
    }
    return told == count ? text : text + "counted as " + std::to_string(told);
}

// Some lines name where in the sources they come from, on which nobody relies.
std::string withoutLineNumber(std::string text) {
    constexpr char kMark[] = "[Line : ";
    const size_t mark = text.find(kMark);
    const size_t open = text.find_first_of(" ([", std::strlen(kPrinted));
    const size_t at = mark != std::string::npos ? mark + std::strlen(kMark)
                      : open != std::string::npos && text.starts_with(kPrinted) && text[open] != ' ' ? open + 1
                                                                                                     : text.size();
    const size_t end = std::min(text.find_first_not_of("0123456789", at), text.size());
    return end > at ? text.replace(at, end - at, "N") : text;
}

std::string eventText(const std::string &event) {
    const bool isEnded = event.ends_with('\n');
    const bool isLogLine = event.starts_with(kPrinted) || event[1] == '.';
    const std::string text = escapedText(isEnded ? event.substr(0, event.size() - 1) : event);
    return withoutLineNumber(text) + (isLogLine && !isEnded ? "\\c" : "");
}

// Lines, of which equal ones behind each other are counted, and many that tell of details are put together.
class Lines {
  public:
    void add(const std::string &line) {
        constexpr size_t kDetails = 10;
        if (line == last_) {
            all_.back() = line + "  (x" + std::to_string(++repeats_) + ")";
        } else if (line.compare(1, 3, ".7 ") == 0 && ++details_ > kDetails) {
            more_ += line;
        } else {
            all_.push_back(line);
            last_ = line;
            repeats_ = 1;
        }
    }
    void endEvents() {
        if (!more_.empty()) {
            add("more details, " + digest(more_));
        }
    }
    std::vector<std::string> all_;

  private:
    std::string last_;
    std::string more_;
    size_t repeats_ = 1;
    size_t details_ = 0;
};

}  // namespace

std::string scriptPath(const std::string &name) {
    const auto known = kPaths.find(name);
    return known == kPaths.end() ? name : known->second;
}

const RecordField *findRecordField(const std::string &name) {
    const auto *field = std::find_if(std::begin(kFields), std::end(kFields),
                                     [&](const RecordField &each) { return name == each.name; });
    return field == std::end(kFields) ? nullptr : field;
}

const std::map<std::string, Call> &namedFailures() {
    static const std::map<std::string, Call> failures = {
        {"allocation", Call::Allocation}, {"fopen", Call::OpenFile}, {"popen", Call::OpenPipe},
        {"system", Call::RunCommand},     {"send", Call::Send},      {"query", Call::Query},
        {"JSON", Call::JsonWrite},        {"kcfg", Call::Config},    {"post", Call::Post}};
    return failures;
}

ScriptedDevice::ScriptedDevice() {
    removeFiles();
    fakeCommand("reboot", "exit 0\n");
    fakeCommand("ifconfig", "echo '  inet addr:10.1.2.3  Mask:x'\n");
    fakeCommand("wl", "case $* in *chanspec) echo '36/80' ;; esac\n");
    host.local().rebootFromNbrCap = 1;
    host.local().intfPwrCtrlFromNbrCap = 1;
    host.addDevice(kAgent);
    host.owners = {{kAgent, kAgent}, {namedMacs().at("radio5"), kLocal}};
    host.interfaces = {{namedMacs().at("radio24"), 0x0103}, {namedMacs().at("radio5"), 0x0105}};
    configService() = ConfigService();
    setClock(kScriptStart);
    data_model_time_stamp = kScriptStart;
    std::memset(g_MainSSID, 0, sizeof g_MainSSID);
    std::memset(g_MainBSSID, 0, sizeof g_MainBSSID);
}

ScriptedDevice::~ScriptedDevice() {
    removeFiles();
}

ScriptedDevice::State ScriptedDevice::observe() const {
    State state;
    const auto put = [&](const std::string &name, const std::string &value) {
        if (!value.empty()) {
            state[name] = escapedText(value);
        }
    };
    for (const auto &[mac, dev] : host.devices) {
        const std::string owner = macText(mac.data()) + ".";
        for (const RecordField &field : kFields) {
            const char *at = reinterpret_cast<const char *>(dev.get()) + field.offset;
            const bool isMachines = mac == kLocal && std::strcmp(field.name, "uptime") == 0;
            if (*at != '\0' && !isMachines) {
                put(owner + field.name, field.size == 1 ? std::to_string(static_cast<uint8_t>(*at))
                                                        : std::string(at, strnlen(at, field.size)));
            }
        }
        put(owner + "stations", stationsText(dev->wifiNbrHead, mac == kLocal ? WIFINbrNum : dev->wifiNbrNum));
        if (mac != kLocal && dev->uptimeRecvTime != 0) {
            put(owner + "uptimeRecvTime", std::to_string(dev->uptimeRecvTime - kScriptStart));
        }
    }
    for (size_t i = 0; i < kv::OutstandingQueries::kCapacity; ++i) {
        const kv::KvVendQueryEntry &entry = kv::outstandingQueries().at(i);
        char text[80];
        std::snprintf(text, sizeof text, " id %04x type %u retry %u at %d", entry.msgId, entry.vendMsgType, entry.retry,
                      static_cast<int>(entry.sent - kScriptStart));
        put("query " + std::to_string(i), kv::isZeroMac(entry.alMac) ? "" : macText(entry.alMac) + text);
    }
    for (size_t i = 0; i < kv::RegisteredNeighbors::kCapacity; ++i) {
        const uint8_t *mac = kv::registeredNeighbors().at(i);
        put("neighbour " + std::to_string(i), kv::isZeroMac(mac) ? "" : macText(mac));
    }
    const ConfigService &service = configService();
    for (size_t i = 0; i < service.accounts.size(); ++i) {
        put("account " + std::to_string(i),
            std::string(service.accounts[i].userName) + " " + service.accounts[i].password);
    }
    for (size_t i = 0; i < service.radios.size(); ++i) {
        const auto &beacon = service.radios[i].countryInBeacon;
        put("radio " + std::to_string(i), std::string(beacon, strnlen(beacon, sizeof beacon)));
    }
    const std::pair<const char *, long> numbers[] = {
        {"led", service.led.enable},
        {"unpurged", service.unpurged},
        {"upgrade list", kv::FWalmacDataHead == nullptr ? 0u : kv::FWalmacDataHead->count},
        {"download", State_fw_is_download},
        {"upgrade", State_fw_upgrade},
        {"flags", kvFlags},
        {"controller", controller},
        {"scratch files", exists("/tmp/.kv1905_nvram_tmp") + exists("/tmp/kv1905_IP")}};
    for (const auto &[name, number] : numbers) {
        put(name, std::to_string(number));
    }
    put("ssid 2.4", g_MainSSID);
    put("ssid 5", g_MainSSID + 33);
    put("bssids", hexText(g_MainBSSID, sizeof g_MainBSSID));
    for (const char *name : {"list", "result"}) {
        put(std::string("file ") + name, readFile(scriptPath(name)));
    }
    return state;
}

std::vector<std::string> ScriptedDevice::outcomeSince(const State &before) {
    Lines lines;
    size_t send = 0;
    for (const std::string &event : takeNotes()) {
        lines.add(event == "send" ? sendText(host.sent[send++]) : eventText(event));
    }
    lines.endEvents();
    host.sent.clear();
    if (result) {
        lines.add("returns " + std::to_string(*result));
    }
    if (failure && !failure->happened()) {
        lines.add("the failure did not happen");
    }
    failure.reset();
    const State now = observe();
    for (const auto &[name, value] : now) {
        if (const auto old = before.find(name); old == before.end() || old->second != value) {
            lines.add(name + " = " + value);
        }
    }
    for (const auto &[name, value] : before) {
        if (!now.contains(name)) {
            lines.add(name + " is gone");
        }
    }
    return lines.all_;
}

}  // namespace kvtest
