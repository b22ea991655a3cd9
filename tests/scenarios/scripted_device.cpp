#include "scenarios/scripted_device.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <tuple>
#include <utility>

#include "features/device_control/firmware.h"
#include "features/device_control/firmware_upgrade_list.h"
#include "features/kvMAP1905_netCtrl.h"
#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "frame/identity.h"
#include "frame/local_files.h"
#include "frame/result_file.h"
#include "frame/vendor_data.h"
#include "kv1905/vendor_messages.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "support/fake_system.h"
#include "transport/outstanding_queries.h"

// Belongs to the sanitizers' runtime; null without one.
extern "C" [[gnu::weak]] void __sanitizer_set_death_callback(void (*callback)());

namespace kvtest {

namespace {

const std::string kCommands = "/tmp/commands/";  // stand-ins for commands
const std::map<std::string, std::string> kPaths = {
    {"conf", "/tmp/.kv1905_conf"},       {"version", "/etc/kv1905/kv1905_Version"},
    {"stations24", kv::kStationFile24G}, {"stations5", kv::kStationFile5G},
    {"result", kv::kResultPath},         {"list", kv::kFirmwareListPath},
    {"password", "/data/FMUBBW3CBI.dat"}};
const std::string kScratchFiles[] = {"/tmp/.kv1905_nvram_tmp", "/tmp/kv1905_IP"};

// Initial state of a device.
const std::string kStart[] = {
    "script reboot 'exit 0'",
    "script ifconfig \"echo '  inet addr:10.1.2.3  Mask:x'\"",
    "script wl \"case $* in *chanspec) echo '36/80' ;; esac\"",
    "set clock=0 stamp=0 ssid24= ssid5= bssids= local.rebootFromNbrCap=1 local.intfPwrCtrlFromNbrCap=1",
    "set local.ipAddr=10.1.2.3 local.channel24G=000 local.channel5G=000 local.channelExtra=000",
    "device agent",
    "owner agent agent",
    "owner radio5 local",
    "interfaces radio24 0x0103 radio5 0x0105"};

// ---- Values

template <typename Number>
Value valueOf(Number &at, int64_t origin = 0) {
    return {
        [&at, origin] { return std::to_string(at - origin); },
        [&at, origin](const std::string &text) { at = static_cast<Number>(std::stoll(text, nullptr, 0) + origin); }};
}

template <size_t size>
Value valueOf(char (&at)[size]) {
    return {[&at] { return std::string(at, strnlen(at, size)); },
            [&at](const std::string &text) {
                std::memset(at, 0, size);
                text.copy(at, size - 1);
            }};
}

// The bytes of a record; digits that are missing are zeros.
template <typename Record>
Value bytesOf(Record &at) {
    return {[&at] { return hexText(&at, sizeof at); },
            [&at](const std::string &text) {
                std::memset(&at, 0, sizeof at);
                const Bytes bytes = fromHex(text);
                std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof at), reinterpret_cast<uint8_t *>(&at));
            }};
}

// The text fields of all records, as one word each.
template <typename Record, size_t... sizes>
Value recordsOf(std::vector<Record> &records, char (Record::*...fields)[sizes]) {
    return {[=, &records] {
                std::string text;
                for (const Record &each : records)
                    ((text += " " + std::string(each.*fields, strnlen(each.*fields, sizes))), ...);
                return text.substr(records.empty() ? 0 : 1);
            },
            [=, &records](const std::string &text) {
                records.clear();
                for (Words in(text); !in.empty();) {
                    Record &record = records.emplace_back();
                    (in.text().copy(record.*fields, sizes), ...);
                }
            }};
}

// Number of stations, then of each: MAC, media type, rate, RSSI, SNR, level, Tx, Rx, Tx rate, Rx rate, band, last seen.
std::string stationsText(const WIFINeighborEntry *station, uint32_t count) {
    std::string text = station == nullptr && count == 0 ? "" : std::to_string(count);
    for (; station != nullptr; station = station->next) {
        char figures[100];
        std::snprintf(figures, sizeof figures, " %04x %u %d %d %u %u %u %u %u %u", station->mediaType, station->Rate,
                      station->RSSI, station->SNR, station->signalLevel, station->Tx, station->Rx, station->tx_rate,
                      station->rx_rate, station->Band);
        text += " | " + hexText(station->mac, KV_MAC_LEN) + figures;
        text += station->lastSeen == 0 ? "" : " " + std::to_string(station->lastSeen - kScriptStart);
    }
    return text;
}

// ---- Effects

// Turns what a fake noted into an effect. Commands that only fill a file are read.
std::string effectOf(const std::string &note) {
    const bool isEnded = note.ends_with('\n');
    const std::string text = escapedText(isEnded ? note.substr(0, note.size() - 1) : note);
    if (note.starts_with("logs ") || note.starts_with("prints ")) return text + (isEnded ? "" : "\\c");
    const auto isWrittenBy = [&](const std::string &path) { return text.ends_with(" > " + path); };
    return isWrittenBy(kScratchFiles[0]) || isWrittenBy(kScratchFiles[1]) || isWrittenBy(kv::kResultPath)
               ? "reads " + text.substr(text.find(' ') + 1)
               : text;
}

std::string sentText(const Sent &sent) {
    const bool isMulticast = std::memcmp(sent.destination.data(), I5_MCAST_MAC_ADDRESS, KV_MAC_LEN) == 0;
    const std::string to = isMulticast && sent.slot == Slot::Multicast          ? "neighbours"
                           : isMulticast && sent.slot == Slot::RelayedMulticast ? "all"
                                                                                : macText(sent.destination.data());
    const std::string begin = "to " + to + " " + idText(sent.msgIdIn) + " ";
    constexpr size_t kEnvelope = 15;
    if (sent.value.size() >= kEnvelope) {
        const Bytes payload(sent.value.begin() + kEnvelope, sent.value.end());
        const auto type = static_cast<uint16_t>(sent.value[11] << 8 | sent.value[12]);
        const char *name = kvVendorMessageName(type);
        if (name != nullptr && sent.value == message(kLocal, type, payload))
            return begin + name + " " + hexText(payload.data(), payload.size());
    }
    return begin + "raw " + hexText(sent.value.data(), sent.value.size());
}

// Returns a number, or the type of a message by its name.
uint16_t messageType(Words &in) {
    const std::string word = in.text();
    for (uint16_t type = 0; type < VEND_MSG_TYPE_LIMIT; ++type) {
        const char *name = kvVendorMessageName(type);
        if (name != nullptr && word == name) return type;
    }
    return static_cast<uint16_t>(std::stoul(word));
}

// ---- Messages of other devices

using ValueReader = Bytes (*)(const Mac &writer, Words &in);

Bytes readMessage(const Mac &writer, Words &in) {
    const uint16_t type = messageType(in);
    return message(writer, type, in.bytes());
}

Bytes readRaw(const Mac &, Words &in) {
    return in.bytes();
}

Bytes readReport(const Mac &writer, Words &in) {
    std::string text;
    while (!in.empty()) {
        const std::string record = in.text();
        text += record[0] == '{' ? std::to_string(1000 + record.size()).substr(1) + record : record;
    }
    Bytes payload(writer.begin(), writer.end());
    append(payload, std::initializer_list<size_t>{text.size() >> 8, text.size() & 0xFF});
    append(payload, text);
    return message(writer, VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, payload);
}

template <ValueReader readValue>
void receive(ScriptedDevice &device, Words &in) {
    device.sender = in.accept("from") ? in.mac() : kAgent;
    const Mac writer = in.accept("as") ? in.mac() : *device.sender;
    device.requestId = static_cast<uint16_t>(in.accept("id") ? in.number() : 0xBEEF);
    const bool hasLength = !in.accept("without-length");
    const Bytes value = readValue(writer, in);
    device.host.receive(*device.sender, value, device.requestId, hasLength);
    device.received = Bytes(value.begin() + std::min<ptrdiff_t>(11, std::ssize(value)), value.end());
}

// ---- Calls

// Entries: last byte of the BSSID, interface, "disabled" when it is; "count N" overrides their number.
void readMdids(KvMdidInterfaceList &list, Words &in) {
    while (!in.empty() && !in.accept("count")) {
        KvMdidInterface &entry = list.interfaces[list.InterfaceNumberOfEntries++];
        entry.bssid[5] = static_cast<uint8_t>(in.number());
        const std::string name = in.text();
        name.copy(entry.ifname, sizeof entry.ifname);
        entry.mdid = 0x7777;
        entry.enabled = !in.accept("disabled");
    }
    if (!in.empty()) list.InterfaceNumberOfEntries = static_cast<uint32_t>(in.number());
}

// The arguments of one call.
struct Arguments {
    ScriptedDevice &device;
    Words &in;
    std::deque<Mac> macs = {};
    std::deque<std::string> texts = {};
    KvRecvVendTlv source = {};
    KvVendMsg msg = {};
    KvRssiMeasurement signal = {{}, 0, 0, 0xB0, 0};
    KvIntelVendMsg intel = {{}, {}, {}, 0, 0, {0x21, 0x22, 0x23, 0x24, 0x25, 0x26}, {0x31, 0x32}, &signal};
    KvMdidInterfaceList mdids = {};
    KvIntfVendorData interface = {99};
    uint16_t id = 0;
    char text[16] = "old";
    Bytes bytes = Bytes(142, 9);
    uint32_t length = 1;
    std::vector<std::function<void()>> outputs = {};  // note what the function writes

    void give(const std::string &what) { notes.push_back("gives " + what); }

    // Reads one argument by its C type; "null" is a null pointer.
    template <typename Argument>
    Argument read() {
        if constexpr (std::is_integral_v<Argument>) {
            return static_cast<Argument>(in.number());
        } else if (in.accept("null")) {
            return nullptr;
        } else if constexpr (std::is_same_v<Argument, const uint8_t *>) {
            return macs.emplace_back(in.mac()).data();
        } else if constexpr (std::is_same_v<Argument, const char *>) {
            return texts.emplace_back(in.text()).c_str();
        } else if constexpr (std::is_same_v<Argument, KvDevVendorData *>) {
            return &device.host.local();
        } else if constexpr (std::is_same_v<Argument, const KvRecvVendTlv *>) {
            std::memcpy(source.srcMac, in.mac().data(), KV_MAC_LEN);
            return &source;
        } else if constexpr (std::is_same_v<Argument, const KvVendMsg *>) {
            const uint16_t type = messageType(in);
            msg = kv::makeVendMsg(type, static_cast<uint16_t>(in.number()), nullptr);
            return &msg;
        } else if constexpr (std::is_same_v<Argument, KvIntelVendMsg *>) {
            std::memcpy(signal.staMac, in.mac().data(), KV_MAC_LEN);
            return &intel;
        } else if constexpr (std::is_same_v<Argument, KvMdidInterfaceList *>) {
            readMdids(mdids, in);
            outputs.push_back([this] {
                for (size_t i = 0; device.result == 0 && length == 1 && i < mdids.InterfaceNumberOfEntries; ++i)
                    give(std::to_string(mdids.interfaces[i].mdid));
            });
            return &mdids;
        } else if constexpr (std::is_same_v<Argument, KvIntfVendorData *>) {
            outputs.push_back([this] { give(std::to_string(interface.pwrState)); });
            return &interface;
        } else if constexpr (std::is_same_v<Argument, char *>) {
            outputs.push_back([this] { give(text); });
            return text;
        } else if constexpr (std::is_same_v<Argument, uint16_t *>) {
            outputs.push_back([this] { id == 0 ? void() : give(idText(id)); });
            return &id;
        } else if constexpr (std::is_same_v<Argument, uint8_t *>) {
            outputs.push_back([this] { length == 0 ? void() : give("bytes " + hexText(bytes.data(), length)); });
            return bytes.data();
        } else {
            static_assert(std::is_same_v<Argument, uint32_t *>);
            length = 0;
            return &length;
        }
    }
};

using Callee = std::function<void(ScriptedDevice &, Words &)>;

template <typename Result, typename... Parameters>
Callee callee(Result (*function)(Parameters...)) {
    return [function](ScriptedDevice &device, Words &in) {
        Arguments arguments{device, in};
        const std::tuple<Parameters...> values{arguments.read<Parameters>()...};
        if constexpr (std::is_void_v<Result>) {
            std::apply(function, values);
        } else {
            device.result = std::apply(function, values);
        }
        for (const auto &output : arguments.outputs)
            output();
    };
}

// clang-format off
#define FUNCTIONS(X) \
    X(kvMAP1905_ConfQuery_send) X(kvMAP1905_ConfRespMsg_send) X(kvMAP1905_IntfPwrStateQuery_send) \
    X(kvMAP1905_WifiStateQuery_send) X(kvMAP1905_SyncCtrlSettingReq_send) X(kvMAP1905_RssiMeasurementNotify_send) \
    X(kvMAP1905_VenderSpecMsg_send) X(kvMAP1905_VenderSpecMcastMsg_send) X(kvMAP1905_VenderSpecRelayMcastMsg_send) \
    X(kvMAP1905_CtrlFromNbrCap_get) X(kvMAP1905_JsonDataModel_write) X(kvMAP1905_findController) \
    X(kvMAP1905_param_update) X(kvMAP1905_DeviceDm_init) X(kvMAP1905_DeviceDm_update) X(kvMAP1905_DevIntfDm_init) \
    X(kvMAP1905_WifiChan_get) X(kvMAP1905_CountryInBcn_update) X(kvMAP1905_TlvMDID_insert) \
    X(kvMAP1905_mdid_update) X(checkKovanAgent) X(updateKvFWNewfirmware) X(updateDeviceConfig) X(setKvFWresult) \
    X(addKvFWupgradealmac) X(rmKvFWupgradealmac) X(registerMAPNeighbor) X(runNetCtrl) X(kvSendWIFIClientInfo) \
    X(checkWIFIClientInfo) X(checkWIFIChannelInfo) X(kvResetToDefault) X(kvPartialResetToDefault)
// clang-format on

void call(ScriptedDevice &device, Words &in) {
    using namespace kv;
#define FUNCTION(name) {#name, callee(name)},
    static const std::map<std::string, Callee> callees = {FUNCTIONS(FUNCTION)};
    const std::string name = in.text();
    if (!callees.contains(name)) misread("no function that can be called", name);
    callees.at(name)(device, in);
}

// ---- Operator commands

void command(ScriptedDevice &device, Words &in) {
    const auto code = static_cast<uint32_t>(in.number());
    in.accept("null") ? kvMAP1905_VendSpecCmd_handle(nullptr, code) : device.host.command(code, in.bytes());
}

void tool(ScriptedDevice &device, Words &in) {
    static const std::map<std::string, int (*)(void *, int, char **)> entries = {
        {"reboot", kvMAP1905_RebootQuery_send},
        {"power", kvMAP1905_CtrlInftPwrQuery_send},
        {"firmware", kvMAP1905_FWCtrlQuery_send},
        {"reset", kvMAP1905_ResetDefaultQuery_send},
        {"firmware-result", kvMAP1905_FwResult_set},
        {"led", kvMAP1905_ledStatus_send},
        {"partial-reset", kvMAP1905_PartialResetDefaultQuery_send},
        {"command", kvMAP1905_CmdQuery_send},
        {"log", kvMAP1905_SyslogDbg_set},
        {"country-request", kvMAP1905_sync_country_req_send},
        {"country", kvMAP1905_CountryInBcn_send}};
    const std::string name = in.text();
    if (!entries.contains(name)) misread("no entry of the tool", name);
    std::vector<std::string> words = {"kv1905App", "N"};
    while (!in.empty())
        words.push_back(in.text());
    std::vector<char *> argv(words.size() + 1);
    std::transform(words.begin(), words.end(), argv.begin(), [](std::string &word) { return word.data(); });
    device.result = entries.at(name)(nullptr, static_cast<int>(words.size()), argv.data());
}

// ---- Preparations

// Lines, of which a last "$" leaves out the last newline, or "none".
template <bool isScript>
void putLines(ScriptedDevice &device, Words &in) {
    const std::string name = (isScript ? "script." : "file.") + in.text();
    const std::string text = in.accept("none") ? "none" : in.join("\n") + "\n";
    device.change(name, text.ends_with("$\n") ? text.substr(0, text.size() - 2) : text);
}

void writeStations(ScriptedDevice &, Words &in) {
    const int64_t count = in.number();
    const std::string figures = in.empty() ? "866000 -45 30 1 wl1 123 456 866000 650000 0x10" : in.text();
    std::string text;
    for (uint8_t i = 0; i < count; ++i)
        text += "02:00:00:00:00:" + hexText(&i, 1) + " " + figures + "\n";
    writeFile(kv::kStationFile5G, text);
    kv::runNetCtrl();
}

void setInterfaces(ScriptedDevice &device, Words &in) {
    for (device.host.interfaces.clear(); !in.empty();) {
        const Mac mac = in.mac();
        device.host.interfaces.emplace_back(mac, static_cast<uint32_t>(in.number()));
    }
}

void set(ScriptedDevice &device, Words &in) {
    for (std::string name, value; in.acceptSetting(name, value);)
        device.change(name, value);
}

struct Row {
    const char *name;
    bool isAction;
    void (*run)(ScriptedDevice &device, Words &in);
};

const Row kRows[] = {
    {"call", true, call},
    {"command", true, command},
    {"loop", true, [](ScriptedDevice &device, Words &) { device.result = kvMAP1905_MainLoop(); }},
    {"raw", true, receive<readRaw>},
    {"receive", true, receive<readMessage>},
    {"report", true, receive<readReport>},
    {"tool", true, tool},
    {"device", false, [](ScriptedDevice &device, Words &in) { device.host.addDevice(in.mac()); }},
    {"file", false, putLines<false>},
    {"forget", false, [](ScriptedDevice &device, Words &in) { device.host.removeDevice(in.mac()); }},
    {"interfaces", false, setInterfaces},
    {"owner", false,
     [](ScriptedDevice &device, Words &in) {
         device.host.owners.insert(std::pair<Mac, Mac>{in.mac(), in.mac()});
     }},
    {"script", false, putLines<true>},
    {"set", false, set},
    {"stations", false, writeStations},
};

// Notes what is written to standard output during its lifetime, as one printed text.
struct CapturedOutput {
    ~CapturedOutput() {
        std::fclose(std::exchange(stdout, before));
        if (size > 0) notes.push_back(std::string("prints ") + text);
        std::free(text);
    }

    char *text = nullptr;
    size_t size = 0;
    std::FILE *before = std::exchange(stdout, open_memstream(&text, &size));
};

}  // namespace

std::string scriptPath(const std::string &name) {
    return kPaths.contains(name) ? kPaths.at(name) : name;
}

std::string idText(std::optional<uint16_t> id) {
    char text[8];
    std::snprintf(text, sizeof text, "id %04x", id.value_or(0));
    return !id ? "no-id" : *id == 0 ? "new-id" : text;
}

ScriptedDevice::ScriptedDevice() {
    [[maybe_unused]] static const int isInPath = setenv("PATH", (kCommands + ":" + std::getenv("PATH")).c_str(), 1);
    removeFiles();
    std::filesystem::create_directory(kCommands);
    configService = {};
    for (const std::string &step : kStart)
        run(step);
}

ScriptedDevice::~ScriptedDevice() {
    removeFiles();
}

void ScriptedDevice::removeFiles() {
    std::filesystem::remove_all(kCommands);
    for (const auto &[name, path] : kPaths)
        std::filesystem::remove(path);
}

// clang-format off
#define FIELDS(X) \
    X(cfgAttrCount) X(rebootFromNbrCap) X(intfPwrCtrlFromNbrCap) X(fwVersion) X(newFwVersion) X(newFwDate) \
    X(auxStatus) X(fwUpgradeStatus) X(modelName) X(ipAddr) X(opMode) X(buildNum) X(protoVersion) X(ledStatus) \
    X(appVersion) X(l2DevCtrl) X(wifiAutoCfg) X(wifiOnOff) X(fwUpgrade) X(ledOnOff) X(channel24G) X(channel5G) \
    X(channelExtra) X(uptime)
// clang-format on

std::map<std::string, Value> ScriptedDevice::values() {
    std::map<std::string, Value> all = {
        {"stamp", valueOf(data_model_time_stamp, kScriptStart)},
        {"slots", bytesOf(g_kv1905_bcm_cbs)},
        {"send", valueOf(host.sendResult)},
        {"json", valueOf(host.jsonResult)},
        {"post", valueOf(host.postResult)},
        {"key", valueOf(configService.key.key)},
        {"led", valueOf(configService.led.enable)},
        {"factory-reset", valueOf(configService.factoryReset)},
        {"download", valueOf(State_fw_is_download)},
        {"upgrade", valueOf(State_fw_upgrade)},
        {"flags", valueOf(kvFlags)},
        {"controller", valueOf(controller)},
        {"ssid24", valueOf(reinterpret_cast<char(&)[33]>(g_MainSSID[0]))},
        {"ssid5", valueOf(reinterpret_cast<char(&)[33]>(g_MainSSID[33]))},
        {"bssids", bytesOf(g_MainBSSID)},
        {"accounts", recordsOf(configService.accounts, &RdmNatIntfSetting::userName, &RdmNatIntfSetting::password)},
        {"radios", recordsOf(configService.radios, &RdmWifiRadio::ifName, &RdmWifiRadio::countryCode,
                             &RdmWifiRadio::countryInBeacon)},
    };
    all["clock"] = {[] { return std::to_string(std::time(nullptr) - kScriptStart); },
                    [](const std::string &text) { setClock(kScriptStart + std::stol(text)); }};
    for (const auto &[mac, record] : host.devices) {
        KvDevVendorData &dev = *record;
        const std::string owner = macText(mac.data()) + ".";
#define FIELD(name) all[owner + #name] = valueOf(dev.name);
        FIELDS(FIELD)
        all[owner + "uptimeRecvTime"] = valueOf(dev.uptimeRecvTime, kScriptStart);
    }
    return all;
}

std::string ScriptedDevice::change(const std::string &name, const std::string &value) {
    const auto all = values();
    if (const auto found = all.find(name); found != all.end()) {
        const std::string old = found->second.get();
        found->second.set(value);
        return old;
    }
    const bool isFile = name.starts_with("file.");
    if (!isFile && !name.starts_with("script.")) misread("no such setting", name);
    const std::string path = isFile ? scriptPath(name.substr(5)) : kCommands + name.substr(7);
    const std::string old = exists(path) ? readFile(path) : "none";
    std::remove(path.c_str());
    if (value == "fifo") {
        mkfifo(path.c_str(), 0600);
    } else if (value != "none") {
        writeFile(path, (isFile ? "" : "#!/bin/sh\n") + value);
    }
    return old;
}

std::map<std::string, std::string> ScriptedDevice::observe() {
    std::map<std::string, std::string> seen;
    for (const auto &[name, value] : values())
        seen[name] = value.get();
    seen.erase("local.uptime");  // the test machine's
    for (const auto &[mac, dev] : host.devices) {
        seen[macText(mac.data()) + ".stations"] =
            stationsText(dev->wifiNbrHead, mac == kLocal ? WIFINbrNum : dev->wifiNbrNum);
    }
    for (size_t i = 0; i < kv::OutstandingQueries::kCapacity; ++i) {
        const kv::KvVendQueryEntry &entry = kv::outstandingQueries().at(i);
        char text[80];
        std::snprintf(text, sizeof text, " id %04x type %u retry %u at %d", entry.msgId, entry.vendMsgType, entry.retry,
                      static_cast<int>(entry.sent - kScriptStart));
        seen["query " + std::to_string(i)] = kv::isZeroMac(entry.alMac) ? "" : macText(entry.alMac) + text;
    }
    for (size_t i = 0; i < kv::RegisteredNeighbors::kCapacity; ++i) {
        const uint8_t *mac = kv::registeredNeighbors().at(i);
        seen["neighbour " + std::to_string(i)] = kv::isZeroMac(mac) ? "" : macText(mac);
    }
    seen["upgrade list"] = std::to_string(kv::FWalmacDataHead == nullptr ? 0u : kv::FWalmacDataHead->count);
    seen["scratch files"] = std::to_string(exists(kScratchFiles[0]) + exists(kScratchFiles[1]));
    seen["list"] = readFile(kv::kFirmwareListPath);
    seen["result"] = readFile(kv::kResultPath);
    for (auto &[name, value] : seen)
        value = value.empty() ? "nothing" : escapedText(value);
    return seen;
}

Effects ScriptedDevice::effectsSince(const std::map<std::string, std::string> &before) {
    Effects effects;
    size_t sends = 0;
    for (const std::string &note : notes)
        effects.ordered.push_back(note == "send" ? sentText(host.sent[sends++]) : effectOf(note));
    notes.clear();
    host.sent.clear();
    if (result != 0) effects.state.push_back(std::to_string(result));
    for (const auto &[name, value] : observe()) {
        if (before.at(name) != value) effects.state.push_back(name + " = " + value);
    }
    return effects;
}

std::optional<Effects> ScriptedDevice::run(Words in) {
    static std::string step;
    step = Words(in).join();
    if (&__sanitizer_set_death_callback != nullptr) {  // a report that ends the run names the step
        __sanitizer_set_death_callback([] { std::fprintf(stderr, "in the step: %s\n", step.c_str()); });
    }
    std::vector<std::pair<std::string, std::string>> changed;  // with their old values
    Failure failing;
    const bool isWith = in.accept("with");
    for (std::string name, value; isWith;) {
        if (in.accept("fail")) {
            const std::string kind = in.text();
            failing = {kind, static_cast<size_t>(in.number())};
        } else if (in.acceptSetting(name, value)) {
            changed.emplace_back(name, change(name, value));
        } else {
            break;
        }
    }
    const std::string name = in.text();
    const Row *row =
        std::find_if(std::begin(kRows), std::end(kRows), [&](const Row &each) { return name == each.name; });
    if (row == std::end(kRows) || (isWith && !row->isAction)) misread(isWith ? "no such action" : "no such step", name);
    const auto run = [&] {
        row->run(*this, in);
        if (!in.empty()) misread("unexpected word", in.text());
    };
    if (!row->isAction) {
        run();
        return {};
    }
    std::remove(scriptPath("result").c_str());
    notes.clear();
    sender.reset();
    result = 0;
    const auto before = observe();
    {
        const CapturedOutput output;
        failure = failing;
        run();
        failureIsMissing = std::exchange(failure, {}).nth != 0;
    }
    const Effects effects = effectsSince(before);
    for (; !changed.empty(); changed.pop_back())
        change(changed.back().first, changed.back().second);
    return effects;
}

}  // namespace kvtest
