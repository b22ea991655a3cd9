#include "common/device_world.h"

#include <cerrno>
#include <cstring>
#include <fstream>

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
using kvtest::configService;

DeviceWorld *current = nullptr;

// The plug-in's commands; a star stands for one value. output: what a pipe reads. file: where the shell would put it.
struct CommandForm {
    const char *form;
    std::string DeviceWorld::*output;
    const char *file;
};

constexpr CommandForm kCommands[] = {
    {"reboot", nullptr, nullptr},
    {"echo * > /tmp/1905ReturnValue", nullptr, nullptr},
    {"wl -i * country_abbrev_override \"*\"", nullptr, nullptr},
    {"wl -i * chanspec", &DeviceWorld::channel, nullptr},
    {"nvram show | grep multiap_mode > /tmp/.kv1905_nvram_tmp", &DeviceWorld::nvramDump, "/tmp/.kv1905_nvram_tmp"},
    {"nvram show | grep mdid > /tmp/.kv1905_nvram_tmp", &DeviceWorld::nvramDump, "/tmp/.kv1905_nvram_tmp"},
    {"ifconfig br0 | grep -w inet | sed 's/.*inet addr:\\([0-9.]*\\).*/\\1/' > /tmp/kv1905_IP", &DeviceWorld::address,
     "/tmp/kv1905_IP"},
    {"cat /data/FMUBBW3CBI.dat | openssl enc -aes-256-cbc -pbkdf2 -a -d -pass pass:*", &DeviceWorld::password, nullptr},
};

bool isHarmless(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           (c != '\0' && std::strchr("._:/-", c) != nullptr);
}

bool matches(const char *form, const char *command) {
    if (*form == '*') {
        return matches(form + 1, command) || (isHarmless(*command) && matches(form, command + 1));
    }
    return *form == *command && (*form == '\0' || matches(form + 1, command + 1));
}

const CommandForm &formOf(const char *command) {
    for (const CommandForm &row : kCommands) {
        if (std::strcmp(row.form, command) == 0 || matches(row.form, command)) {
            return row;
        }
    }
    std::fprintf(stderr, "command: %s\n", command);
    require(false, "only the plug-in's own commands with harmless values reach a shell");
    std::abort();
}

// FNV-1a over everything added.
class Digest {
  public:
    void add(const void *data, size_t size) {
        const auto *bytes = static_cast<const uint8_t *>(data);
        for (size_t i = 0; i < size; ++i) {
            value_ = (value_ ^ bytes[i]) * 0x100000001B3u;
        }
    }
    template <typename Record>
    void addRecord(const Record &record) {
        add(&record, sizeof record);
    }
    template <typename Record>
    void addAll(const std::vector<Record> &records) {
        for (const Record &record : records) {
            addRecord(record);
        }
    }
    uint64_t value() const { return value_; }

  private:
    uint64_t value_ = 0xCBF29CE484222325u;
};

void addStations(Digest &digest, const WIFINeighborEntry *station) {
    for (; station != nullptr; station = station->next) {
        digest.addRecord(*station);
    }
}

uint32_t stationCount(const WIFINeighborEntry *station) {
    uint32_t count = 0;
    for (; station != nullptr; station = station->next) {
        ++count;
    }
    return count;
}

template <size_t N>
void checkText(const char (&text)[N]) {
    require(std::memchr(text, '\0', N) != nullptr, "a record's text ends inside its field");
}

void checkRecord(const KvDevVendorData &dev, bool isLocal) {
    checkText(dev.fwVersion), checkText(dev.newFwVersion), checkText(dev.newFwDate), checkText(dev.modelName);
    checkText(dev.ipAddr), checkText(dev.opMode), checkText(dev.buildNum), checkText(dev.protoVersion);
    checkText(dev.ledStatus), checkText(dev.appVersion), checkText(dev.l2DevCtrl), checkText(dev.wifiAutoCfg);
    checkText(dev.wifiOnOff), checkText(dev.fwUpgrade), checkText(dev.ledOnOff), checkText(dev.channel24G);
    checkText(dev.channel5G), checkText(dev.channelExtra), checkText(dev.uptime);
    require((dev.security.secLen == 0) == (dev.security.secData == nullptr), "security data and its length agree");
    if (!isLocal) {
        require(dev.wifiNbrNum == stationCount(dev.wifiNbrHead), "a device's stations are as many as it counts");
        require(dev.wifiNbrNum <= kv::kMaxTableStations, "a device's stations are bounded");
    }
}

// A message owns its payload, a state response its stations as well.
void release(KvVendMsg &msg) {
    if (msg.msgType == kv::VEND_MSG_TYPE_WIFI_STATE_RESP) {
        kv::freeWIFINeighborList(static_cast<WIFINeighborList *>(msg.payload));
    } else {
        std::free(msg.payload);
    }
}

// Those whose decoder puts a setting in force.
bool actsWhenDecoded(unsigned type) {
    return type == kv::VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP || type == kv::VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP;
}

RdmNatIntfSetting account(const char *name) {
    RdmNatIntfSetting setting = {};
    std::strcpy(setting.userName, name);
    std::strcpy(setting.password, "old");
    return setting;
}

RdmWifiRadio radio(const char *ifName) {
    RdmWifiRadio setting = {};
    std::strcpy(setting.ifName, ifName);
    std::strcpy(setting.countryCode, "DE/0");
    std::strcpy(setting.countryInBeacon, "DE");
    return setting;
}

}  // namespace

void writeFile(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

DeviceWorld::DeviceWorld() {
    require(current == nullptr, "one world at a time");
    current = this;
    host.addDevice(kvtest::kAgent);
    host.addDevice(kSecondAgent);
    for (const Mac &mac : {kvtest::kLocal, kvtest::kAgent, kSecondAgent}) {
        host.owners[mac] = mac;
    }
    host.interfaces = {{kvtest::kLocal, 0x0103}, {kSecondAgent, 0x0105}, {kvtest::kAgent, 0x0001}};
    configService() = {};
    configService().accounts = {account("admin"), account("user")};
    configService().radios = {radio("wl0"), radio("wl1")};
    configService().keys.resize(1);
    std::strcpy(configService().keys[0].key, "scrambling");
    kvtest::nvram() = {{"wl0_extattr", "7"}, {"wl1.2_extattr", "129"}};
    setClock(kStart);
}

DeviceWorld::~DeviceWorld() {
    failing_.reset();
    current = nullptr;
}

void DeviceWorld::setClock(std::time_t value) {
    now = value;
    kvtest::setClock(now);
}

void DeviceWorld::advance(unsigned seconds) {
    setClock(now + static_cast<std::time_t>(seconds));
    kvMAP1905_MainLoop();
}

uint64_t DeviceWorld::digest() const {
    Digest digest;
    for (const auto &[mac, device] : host.devices) {
        digest.addRecord(*device);
        digest.add(device->security.secData, device->security.secLen);
        addStations(digest, device->wifiNbrHead);
    }
    digest.addRecord(configService().led);
    digest.addAll(configService().accounts);
    digest.addAll(configService().radios);
    digest.addAll(configService().keys);
    for (size_t i = 0; i < kv::OutstandingQueries::kCapacity; ++i) {
        digest.addRecord(kv::outstandingQueries().at(i));
    }
    digest.addRecord(State_fw_upgrade);
    digest.addRecord(host.jsonWrites);
    digest.addRecord(host.sent.size());
    return digest.value();
}

bool DeviceWorld::refused() {
    constexpr char kLine[] = "failed to parse the vendor specific TLV\n";
    for (const kvtest::LogLine &line : kvtest::logLines()) {
        if (line.level == KV_LOG_ERROR && line.text.ends_with(kLine)) {
            return true;
        }
    }
    return false;
}

void DeviceWorld::check() {
    endFailure();
    for (const auto &[mac, device] : host.devices) {
        checkRecord(*device, mac == kvtest::kLocal);
    }
    require(WIFINbrNum == stationCount(WIFINeighborHead), "this device's stations are as many as it counts");
    require(std::memchr(g_MainSSID, '\0', 33) != nullptr && std::memchr(g_MainSSID + 33, '\0', 33) != nullptr,
            "both SSIDs end");
    const std::vector<kvtest::Sent> sent = std::move(host.sent);
    host.sent.clear();
    for (const kvtest::Sent &each : sent) {
        checkSent(each);
    }
    kvtest::clearLog();
}

void checkSent(const kvtest::Sent &sent) {
    require(sent.value.size() >= KV_OUI_LEN && sent.value.size() <= KV_VEND_MSG_BUFFER_LEN, "a sent value fits a TLV");
    ExactBlock value(sent.value);
    if (sent.value[0] == 0x00) {  // Intel's
        return;
    }
    KvVendMsg msg = {};
    kv::ByteReader header(value.data(), value.size());
    header.skip(11);
    const unsigned type = header.u16();
    require(header.u16() + kv::kEnvelopeLen == value.size(), "a sent value is as long as it says");
    if (actsWhenDecoded(type) || value.size() == kv::kEnvelopeLen) {
        return;
    }
    require(kv::parseKvVendMsg(kv::ByteReader(value.data(), value.size()), &msg) == KV_RET_OK,
            "what the plug-in sends, its own decoder accepts");
    release(msg);
}

void DeviceWorld::failNext(Call call, size_t nth) {
    failing_.reset();
    failing_.emplace(call, nth);
}

int DeviceWorld::runCommand(const char *command) {
    const CommandForm &row = formOf(command);
    if (kvtest::callFails(Call::RunCommand)) {
        errno = EAGAIN;
        return -1;
    }
    if (row.file != nullptr) {
        writeFile(row.file, this->*row.output);
    }
    return 0;
}

std::FILE *DeviceWorld::openCommand(const char *command) {
    const CommandForm &row = formOf(command);
    require(row.output != nullptr && row.file == nullptr, "only commands with an output are read");
    if (kvtest::callFails(Call::OpenPipe)) {
        errno = EAGAIN;
        return nullptr;
    }
    std::string &text = this->*row.output;
    return text.empty() ? std::fopen("/dev/null", "r") : fmemopen(text.data(), text.size(), "r");
}

}  // namespace kvfuzz

// In a program's own symbol table before the C library's. The fuzzer itself runs commands, outside of any world.
extern "C" int system(const char *command) {
    return kvfuzz::current != nullptr ? kvfuzz::current->runCommand(command)
                                      : kvtest::callReal<int(const char *)>("system", command);
}

extern "C" std::FILE *popen(const char *command, const char *mode) {
    return kvfuzz::current != nullptr
               ? kvfuzz::current->openCommand(command)
               : kvtest::callReal<std::FILE *(const char *, const char *)>("popen", command, mode);
}

extern "C" int pclose(std::FILE *pipe) {
    return kvfuzz::current != nullptr ? std::fclose(pipe) : kvtest::callReal<int(std::FILE *)>("pclose", pipe);
}

// The fuzzer's watch over its memory sleeps with sleep(), which costs no time here and would spin.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    static std::vector<char *> arguments(*argv, *argv + *argc);
    static char noWatch[] = "-rss_limit_mb=0";
    arguments.insert(arguments.begin() + 1, noWatch);
    *argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}
