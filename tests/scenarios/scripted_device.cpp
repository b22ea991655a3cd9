#include "scenarios/scripted_device.h"

#include <algorithm>
#include <cstring>
#include <utility>

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

const std::map<std::string, std::string> kPaths = {{"conf", kConfigFile},
                                                   {"version", kVersionFile},
                                                   {"stations24", kv::kStationFile24G},
                                                   {"stations5", kv::kStationFile5G},
                                                   {"result", kv::kResultPath},
                                                   {"list", kv::kFirmwareListPath},
                                                   {"password", "/data/FMUBBW3CBI.dat"}};
const std::string kScratchFiles[] = {"/tmp/.kv1905_nvram_tmp", "/tmp/kv1905_IP"};

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

// Turns what a fake noted into an effect.
Effect effectOf(const std::string &note) {
    const bool isLine = note.starts_with("logs ") || note.starts_with("prints ");
    const bool isEnded = note.ends_with('\n');
    const std::string text = escapedText(isEnded ? note.substr(0, note.size() - 1) : note);
    if (isLine) {
        const bool isUrgent = note[0] == 'l' && text[text.find(' ', 5) - 1] <= '4';
        return {isUrgent ? Effect::Ordered : Effect::Optional, text + (isEnded ? "" : "\\c")};
    }
    if (text.starts_with("reads ")) {
        return {Effect::Optional, text};
    }
    for (const std::string &path : kScratchFiles) {
        if (text.ends_with(" > " + path)) {
            return {Effect::Optional, "reads " + text.substr(std::strlen("runs "))};
        }
    }
    if (const std::string echo = "runs echo "; text.starts_with(echo) && text.ends_with(kv::kResultPath)) {
        return {Effect::Ordered, "result " + text.substr(echo.size(), text.find(' ', echo.size()) - echo.size())};
    }
    return {Effect::Ordered, text};
}

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

ScriptedDevice::ScriptedDevice() {
    removeFiles();
    fakeCommand("reboot", "exit 0\n");
    fakeCommand("ifconfig", "echo '  inet addr:10.1.2.3  Mask:x'\n");
    fakeCommand("wl", "case $* in *chanspec) echo '36/80' ;; esac\n");
    KvDevVendorData &local = host.local();
    local.rebootFromNbrCap = 1;
    local.intfPwrCtrlFromNbrCap = 1;
    std::strcpy(local.ipAddr, "10.1.2.3");
    std::strcpy(local.channel24G, "000");
    std::strcpy(local.channel5G, "000");
    std::strcpy(local.channelExtra, "000");
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

ScriptedDevice::Values ScriptedDevice::observe() const {
    Values values;
    const auto put = [&](const std::string &name, const std::string &value) {
        if (!value.empty()) {
            values[name] = escapedText(value);
        }
    };
    for (const auto &[mac, dev] : host.devices) {
        const std::string owner = macText(mac.data()) + ".";
        for (const RecordField &field : kFields) {
            const char *at = reinterpret_cast<const char *>(dev.get()) + field.offset;
            if (*at != '\0') {
                put(owner + field.name, field.size == 1 ? std::to_string(static_cast<uint8_t>(*at))
                                                        : std::string(at, strnlen(at, field.size)));
            }
        }
        put(owner + "stations", stationsText(dev->wifiNbrHead, mac == kLocal ? WIFINbrNum : dev->wifiNbrNum));
        if (dev->uptimeRecvTime != 0) {
            put(owner + "uptimeRecvTime", std::to_string(dev->uptimeRecvTime - kScriptStart));
        }
    }
    values.erase("local.uptime");
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
        {"upgrade list", kv::FWalmacDataHead == nullptr ? 0u : kv::FWalmacDataHead->count},
        {"download", State_fw_is_download},
        {"upgrade", State_fw_upgrade},
        {"flags", kvFlags},
        {"controller", controller},
        {"scratch files", exists(kScratchFiles[0]) + exists(kScratchFiles[1])}};
    for (const auto &[name, number] : numbers) {
        put(name, std::to_string(number));
    }
    put("factory-reset", service.factoryReset);
    put("ssid24", g_MainSSID);
    put("ssid5", g_MainSSID + 33);
    put("bssids", hexText(g_MainBSSID, sizeof g_MainBSSID));
    for (const char *name : {"list", "result"}) {
        put(name, readFile(scriptPath(name)));
    }
    return values;
}

std::string ScriptedDevice::messageText(const std::string &slot, const std::string &id, const std::string &rest) const {
    char requested[8];
    std::snprintf(requested, sizeof requested, "%04x", requestId);
    const std::string to = sender ? macText(sender->data()) : "agent";
    const bool isDefaultId = id == (sender ? requested : "0000");
    return (slot == to ? "" : "to " + slot + " ") +
           (isDefaultId    ? ""
            : id.empty()   ? "no-id "
            : id == "0000" ? "new-id "
                           : "id " + id + " ") +
           rest;
}

std::string ScriptedDevice::sentText(const Sent &sent) const {
    const std::string slot = sent.slot == Slot::Multicast          ? "neighbours"
                             : sent.slot == Slot::RelayedMulticast ? "all"
                                                                   : macText(sent.destination.data());
    const bool isMulticast = sent.slot != Slot::Unicast;
    if (isMulticast && std::memcmp(sent.destination.data(), I5_MCAST_MAC_ADDRESS, KV_MAC_LEN) != 0) {
        return "a multicast to " + macText(sent.destination.data());
    }
    char id[8] = "";
    if (sent.msgIdIn) {
        std::snprintf(id, sizeof id, "%04x", *sent.msgIdIn);
    }
    constexpr size_t kEnvelope = 15;
    if (sent.value.size() >= kEnvelope) {
        const Bytes payload(sent.value.begin() + kEnvelope, sent.value.end());
        const auto type = static_cast<uint16_t>(sent.value[11] << 8 | sent.value[12]);
        const char *name = kvVendorMessageName(type);
        if (name != nullptr && sent.value == message(kLocal, type, payload)) {
            return messageText(slot, id, std::string(name) + " " + hexText(payload.data(), payload.size()));
        }
    }
    return messageText(slot, id, "raw " + hexText(sent.value.data(), sent.value.size()));
}

std::vector<Effect> ScriptedDevice::effectsSince(const Values &before) {
    std::vector<Effect> effects;
    size_t sends = 0;
    std::string written = readFile(kv::kResultPath);  // what the result file is to hold
    for (const std::string &note : takeNotes()) {
        effects.push_back(note == "send" ? Effect{Effect::Message, sentText(host.sent[sends++])} : effectOf(note));
        const std::string &text = effects.back().text;
        written = text.starts_with("result ") ? text.substr(7) + "\n" : written;
    }
    host.sent.clear();
    if (result != 0) {
        effects.push_back({Effect::State, std::to_string(result)});
    }
    if (const std::string content = readFile(kv::kResultPath); content != written) {
        effects.push_back({Effect::State, "result = " + escapedText(content)});
    }
    const Values now = observe();
    for (const auto &[name, value] : now) {
        const auto old = before.find(name);
        if (name != "result" && (old == before.end() || old->second != value)) {
            effects.push_back({Effect::State, name + " = " + value});
        }
    }
    for (const auto &[name, value] : before) {
        if (!now.contains(name)) {
            effects.push_back({Effect::State, name + " = nothing"});
        }
    }
    return effects;
}

}  // namespace kvtest
