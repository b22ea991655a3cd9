#include "scenarios/scripted_device.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "features/device_control/firmware_upgrade_list.h"
#include "features/wifi_clients/local_stations.h"
#include "frame/identity.h"
#include "frame/result_file.h"
#include "frame/vendor_data.h"
#include "protocol/message_row.h"
#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "support/fake_system.h"
#include "transport/outstanding_queries.h"

namespace kvtest {

namespace {

const std::string kCommands = "/tmp/commands/";  // stand-ins for commands
const std::map<std::string, std::string> kPaths = {
    {"conf", "/tmp/.kv1905_conf"},       {"version", "/etc/kv1905/kv1905_Version"},
    {"stations24", kv::kStationFile24G}, {"stations5", kv::kStationFile5G},
    {"result", kv::kResultPath},         {"list", kv::kFirmwareListPath},
    {"password", "/data/FMUBBW3CBI.dat"}};
const std::string kScratchFiles[] = {"/tmp/.kv1905_nvram_tmp", "/tmp/kv1905_IP"};

// What a device starts with.
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
                for (const Record &each : records) {
                    ((text += " " + std::string(each.*fields, strnlen(each.*fields, sizes))), ...);
                }
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
    if (note.starts_with("logs ") || note.starts_with("prints ")) {
        return text + (isEnded ? "" : "\\c");
    }
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
        if (name != nullptr && sent.value == message(kLocal, type, payload)) {
            return begin + name + " " + hexText(payload.data(), payload.size());
        }
    }
    return begin + "raw " + hexText(sent.value.data(), sent.value.size());
}

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
    for (const std::string &step : kStart) {
        play(step);
    }
}

ScriptedDevice::~ScriptedDevice() {
    removeFiles();
}

void ScriptedDevice::removeFiles() {
    std::filesystem::remove_all(kCommands);
    for (const auto &[name, path] : kPaths) {
        std::filesystem::remove(path);
    }
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
    if (!isFile && !name.starts_with("script.")) {
        misread("no such setting", name);
    }
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
    for (const auto &[name, value] : values()) {
        seen[name] = value.get();
    }
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
    for (auto &[name, value] : seen) {
        value = value.empty() ? "nothing" : escapedText(value);
    }
    return seen;
}

Effects ScriptedDevice::effectsSince(const std::map<std::string, std::string> &before) {
    Effects effects;
    size_t sends = 0;
    for (const std::string &note : notes) {
        effects.ordered.push_back(note == "send" ? sentText(host.sent[sends++]) : effectOf(note));
    }
    notes.clear();
    host.sent.clear();
    if (result != 0) {
        effects.state.push_back(std::to_string(result));
    }
    for (const auto &[name, value] : observe()) {
        if (before.at(name) != value) {
            effects.state.push_back(name + " = " + value);
        }
    }
    return effects;
}

}  // namespace kvtest
