#include "common/device_world.h"

#include <fnmatch.h>
#include <utime.h>

#include <cstring>
#include <fstream>
#include <utility>

#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/neighbor_table.h"
#include "features/wifi_clients/station_list.h"
#include "kv1905/kvlog.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"
#include "support/fake_config_service.h"
#include "support/real_call.h"
#include "transport/outstanding_queries.h"

namespace kvfuzz {

namespace {

using kvtest::Call;
using kvtest::callReal;
using kvtest::configService;

DeviceWorld *current = nullptr;

// The plug-in's commands, literally or as a pattern of harmless values. output: what it prints. file: where the shell
// would put that.
struct CommandForm {
    const char *form;
    std::string DeviceWorld::*output;
    const char *file;
};

constexpr CommandForm kCommands[] = {
    {"reboot", nullptr, nullptr},
    {"echo *([A-Za-z0-9._:/-]) > /tmp/1905ReturnValue", nullptr, nullptr},
    {"wl -i *([A-Za-z0-9._:/-]) country_abbrev_override \"*([A-Za-z0-9._:/-])\"", nullptr, nullptr},
    {"wl -i *([A-Za-z0-9._:/-]) chanspec", &DeviceWorld::channel, nullptr},
    {"nvram show | grep multiap_mode > /tmp/.kv1905_nvram_tmp", &DeviceWorld::nvramDump, "/tmp/.kv1905_nvram_tmp"},
    {"nvram show | grep mdid > /tmp/.kv1905_nvram_tmp", &DeviceWorld::nvramDump, "/tmp/.kv1905_nvram_tmp"},
    {"ifconfig br0 | grep -w inet | sed 's/.*inet addr:\\([0-9.]*\\).*/\\1/' > /tmp/kv1905_IP", &DeviceWorld::address,
     "/tmp/kv1905_IP"},
    {"cat /data/FMUBBW3CBI.dat | openssl enc -aes-256-cbc -pbkdf2 -a -d -pass pass:*([A-Za-z0-9._:/-])",
     &DeviceWorld::password, nullptr},
};

const CommandForm &formOf(const char *command) {
    const auto row = std::find_if(std::begin(kCommands), std::end(kCommands), [&](const CommandForm &each) {
        return std::strcmp(each.form, command) == 0 || fnmatch(each.form, command, FNM_EXTMATCH) == 0;
    });
    require(row != std::end(kCommands), "only the plug-in's own commands with harmless values reach a shell");
    return *row;
}

uint32_t stationCount(const WIFINeighborEntry *station) {
    uint32_t count = 0;
    for (; station != nullptr; station = station->next) {
        ++count;
    }
    return count;
}

template <size_t... sizes>
void checkTexts(const char (&...texts)[sizes]) {
    require(((std::memchr(texts, '\0', sizes) != nullptr) && ...), "a record's text ends inside its field");
}

void checkRecord(const KvDevVendorData &dev, bool isLocal) {
    checkTexts(dev.fwVersion, dev.newFwVersion, dev.newFwDate, dev.modelName, dev.ipAddr, dev.opMode, dev.buildNum,
               dev.protoVersion, dev.ledStatus, dev.appVersion, dev.l2DevCtrl, dev.wifiAutoCfg, dev.wifiOnOff,
               dev.fwUpgrade, dev.ledOnOff, dev.channel24G, dev.channel5G, dev.channelExtra, dev.uptime);
    require((dev.security.secLen == 0) == (dev.security.secData == nullptr), "security data and its length agree");
    if (isLocal) return;
    require(dev.wifiNbrNum == stationCount(dev.wifiNbrHead), "a device's stations are as many as it counts");
    require(dev.wifiNbrNum <= kv::kMaxTableStations, "a device's stations are bounded");
}

// A decoder that puts a setting in force is left out.
void checkSent(const Bytes &sent) {
    require(sent.size() >= KV_OUI_LEN && sent.size() <= KV_VEND_MSG_BUFFER_LEN, "a sent value fits a TLV");
    ExactBlock value(sent);
    if (sent[0] == 0x00) return require(sent.size() == 39, "only whole messages of Intel's are sent");
    kv::ByteReader header(value.data(), value.size());
    header.skip(11);
    const unsigned type = header.u16();
    require(header.u16() + kv::kEnvelopeLen == value.size(), "a sent value is as long as it says");
    if (type == VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP || type == VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP ||
        value.size() == kv::kEnvelopeLen) {
        return;
    }
    KvVendMsg msg = {};
    require(kv::parseKvVendMsg(kv::ByteReader(value.data(), value.size()), &msg) == KV_RET_OK,
            "what the plug-in sends, its own decoder accepts");
    if (type == VEND_MSG_TYPE_WIFI_STATE_RESP) {
        return kv::freeWIFINeighborList(static_cast<WIFINeighborList *>(msg.payload));
    }
    const kv::OwnedStations read = kv::newStations();
    require(type != VEND_MSG_TYPE_WIFI_CLIENT_MCAST2 ||
                (kv::copyWIFIclientMsgDataTokvWIFINeighborTable(
                     read.get(), static_cast<kv::KvWifiClientMsg *>(msg.payload)) == KV_RET_OK &&
                 read->count != 0),
            "what the plug-in reports of its stations, it can read");
    std::free(msg.payload);
}

}  // namespace

// In a program's own symbol table before the C library's. The fuzzer itself runs commands, outside of any world.
extern "C" int system(const char *command) {
    if (current == nullptr) return callReal<int(const char *)>("system", command);
    const CommandForm &row = formOf(command);
    if (kvtest::callFails(Call::RunCommand)) return -1;
    if (row.file != nullptr) writeFile(row.file, current->*row.output);
    return 0;
}

extern "C" std::FILE *popen(const char *command, const char *mode) {
    if (current == nullptr) return callReal<std::FILE *(const char *, const char *)>("popen", command, mode);
    const CommandForm &row = formOf(command);
    require(row.output != nullptr && row.file == nullptr, "only commands with an output are read");
    if (kvtest::callFails(Call::OpenPipe)) return nullptr;
    std::string &text = current->*row.output;
    return text.empty() ? std::fopen("/dev/null", "r") : fmemopen(text.data(), text.size(), "r");
}

extern "C" int pclose(std::FILE *pipe) {
    return current != nullptr ? std::fclose(pipe) : callReal<int(std::FILE *)>("pclose", pipe);
}

// With a modification time that no file had before.
void writeFile(const std::string &path, const std::string &text) {
    static std::time_t stamp = kStart;
    ++stamp;
    const utimbuf times = {stamp, stamp};
    std::ofstream(path, std::ios::binary) << text;
    utime(path.c_str(), &times);
}

DeviceWorld::DeviceWorld() {
    current = this;
    host.addDevice(kvtest::kAgent);
    host.addDevice(kSecondAgent);
    for (const auto &[mac, device] : host.devices) {
        host.owners[mac] = mac;
    }
    host.interfaces = {{kvtest::kLocal, 0x0103}, {kSecondAgent, 0x0105}, {kvtest::kAgent, 0x0001}};
    configService() = {};
    configService().accounts = {{"admin", "old"}, {"user", "old"}};
    configService().radios = {{"wl0", "DE/0", "DE"}, {"wl1", "DE/0", "DE"}};
    configService().keys = {{"scrambling"}};
    kvtest::nvram() = {{"wl0_extattr", "7"}, {"wl1.2_extattr", "129"}};
    kvtest::setClock(now);
}

DeviceWorld::~DeviceWorld() {
    current = nullptr;
}

void DeviceWorld::advance(std::time_t seconds) {
    now += seconds;
    kvtest::setClock(now);
    kvMAP1905_MainLoop();
}

std::string DeviceWorld::state() const {
    std::string all;
    const auto add = [&all](const auto &record) { all.append(reinterpret_cast<const char *>(&record), sizeof record); };
    const auto addAll = [&add](const auto &records) { std::for_each(records.begin(), records.end(), add); };
    for (const auto &[mac, device] : host.devices) {
        add(*device);
        all.append(reinterpret_cast<const char *>(device->security.secData), device->security.secLen);
        for (const WIFINeighborEntry *station = device->wifiNbrHead; station != nullptr; station = station->next) {
            add(*station);
        }
    }
    addAll(configService().accounts);
    addAll(configService().radios);
    addAll(configService().keys);
    for (size_t i = 0; i < kv::OutstandingQueries::kCapacity; ++i) {
        add(kv::outstandingQueries().at(i));
    }
    add(configService().led);
    add(State_fw_upgrade);
    add(host.jsonWrites);
    add(host.sent.size());
    return all;
}

bool DeviceWorld::refused() {
    return kvtest::logCount(KV_LOG_ERROR, "failed to parse the vendor specific TLV\n") != 0;
}

void DeviceWorld::check() {
    if (!std::exchange(failureIsNew_, false)) failing_.reset();
    for (const auto &[mac, device] : host.devices) {
        checkRecord(*device, mac == kvtest::kLocal);
    }
    require(WIFINbrNum == stationCount(WIFINeighborHead), "this device's stations are as many as it counts");
    require(std::memchr(g_MainSSID, '\0', 33) != nullptr && std::memchr(g_MainSSID + 33, '\0', 33) != nullptr,
            "both SSIDs end");
    for (const kvtest::Sent &sent : std::exchange(host.sent, {})) {
        checkSent(sent.value);
    }
    kvtest::clearLog();
}

void DeviceWorld::failNext(Call call, size_t nth) {
    failing_.emplace(call, nth);
    failureIsNew_ = true;
}

}  // namespace kvfuzz
