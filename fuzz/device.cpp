// The tests' fake device with the live plug-in: messages of other devices, the operator's commands, files of other
// components, the clock and failing calls. Each step starts from the state that the one before left.
#include <fnmatch.h>

#include <cstring>
#include <optional>
#include <sstream>
#include <utility>

#include "command/server.h"
#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/neighbor_table.h"
#include "features/wifi_clients/station_list.h"
#include "fuzz.h"
#include "ieee1905/bss_elements.h"
#include "kv1905/kvlog.h"
#include "protocol/intel_message.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "scenarios/scripted_device.h"
#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "support/fake_system.h"

namespace kvfuzz {

namespace {

using kvtest::FakeHost;
using kvtest::Mac;

struct Device : kvtest::ScriptedDevice {
    Device();
    ~Device();
    void check();

    std::time_t now = kvtest::kScriptStart;
    Mac peer = kvtest::kAgent;          // sends the messages
    uint16_t msgId = 0x1000;            // of its messages; requests of the plug-in count from there
    std::optional<std::string> output;  // of every command in the next step
    std::optional<kvtest::FailingCall> failing;
    bool isPrepared = false;  // the step only set output or failing, for the next one
};
Device *current = nullptr;

constexpr std::array<uint8_t, 3> kIntelOui = {0x00, 0x03, 0x47};

// The commands of the plug-in: literal, or a pattern of harmless values. file: where the shell puts the output.
#define HARMLESS "*([A-Za-z0-9._:/-])"
struct Command {
    const char *pattern;
    const char *output = "";
    const char *file = nullptr;
};
constexpr Command kCommands[] = {
    {"reboot"},
    {"echo " HARMLESS " > /tmp/1905ReturnValue"},
    {"wl -i " HARMLESS " country_abbrev_override \"" HARMLESS "\""},
    {"wl -i " HARMLESS " chanspec", "36/80\n"},
    {"nvram show | grep multiap_mode > /tmp/.kv1905_nvram_tmp", "multiap_mode=1\n", "/tmp/.kv1905_nvram_tmp"},
    {"nvram show | grep mdid > /tmp/.kv1905_nvram_tmp", "wl0_mdid=4660\nwl0.5_mdid=77\n", "/tmp/.kv1905_nvram_tmp"},
    {"ifconfig br0 | grep -w inet | sed 's/.*inet addr:\\([0-9.]*\\).*/\\1/' > /tmp/kv1905_IP", "192.168.77.11\n",
     "/tmp/kv1905_IP"},
    {"cat /data/FMUBBW3CBI.dat | openssl enc -aes-256-cbc -pbkdf2 -a -d -pass pass:" HARMLESS, "secret\n"}};

std::string outputOf(const char *command, bool toFile) {
    for (const Command &row : kCommands) {
        if (std::strcmp(row.pattern, command) != 0 && fnmatch(row.pattern, command, FNM_EXTMATCH) != 0) continue;
        const std::string text = current->output.value_or(row.output);
        if (toFile && row.file != nullptr) kvtest::writeFile(row.file, text);
        return text;
    }
    require(false, "only the plug-in's own commands with harmless values reach a shell");
    return "";
}

}  // namespace

extern "C" {

int __real_system(const char *command);
std::FILE *__real_popen(const char *command, const char *mode);
int __real_pclose(std::FILE *pipe);

// The linker's --wrap leads calls here. The fuzzer itself runs commands, too, while there is no device.
int __wrap_system(const char *command) {
    if (current == nullptr) return __real_system(command);
    if (kvtest::callFails("system")) return -1;
    outputOf(command, true);
    return 0;
}

std::FILE *__wrap_popen(const char *command, const char *mode) {
    if (current == nullptr) return __real_popen(command, mode);
    if (kvtest::callFails("popen")) return nullptr;
    std::FILE *pipe = std::tmpfile();
    std::fputs(outputOf(command, false).c_str(), pipe);
    std::rewind(pipe);
    return pipe;
}

int __wrap_pclose(std::FILE *pipe) {
    return current != nullptr ? std::fclose(pipe) : __real_pclose(pipe);
}

}  // extern "C"

namespace {

// ---- The device

Device::Device() {
    current = this;
    host.interfaces.emplace_back(kvtest::kAgent, 0x0001);
    kvtest::configService().accounts = {{"admin", "old"}, {"user", "old"}};
    kvtest::configService().radios = {{"wl0", "DE/0", "DE"}, {"wl1", "DE/0", "DE"}};
    kvtest::configService().key = {"scrambling"};
}

Device::~Device() {
    current = nullptr;
}

uint32_t stationCount(const WIFINeighborEntry *station) {
    uint32_t count = 0;
    for (; station != nullptr; station = station->next)
        ++count;
    return count;
}

template <size_t... sizes>
bool end(const char (&...texts)[sizes]) {
    return ((std::memchr(texts, '\0', sizes) != nullptr) && ...);
}

void checkRecord(const KvDevVendorData &dev, bool isLocal) {
    require(end(dev.fwVersion, dev.newFwVersion, dev.newFwDate, dev.modelName, dev.ipAddr, dev.opMode, dev.buildNum,
                dev.protoVersion, dev.ledStatus, dev.appVersion, dev.l2DevCtrl, dev.wifiAutoCfg, dev.wifiOnOff,
                dev.fwUpgrade, dev.ledOnOff, dev.channel24G, dev.channel5G, dev.channelExtra, dev.uptime),
            "a record's texts end inside their fields");
    require((dev.security.secLen == 0) == (dev.security.secData == nullptr), "security data and its length agree");
    const uint32_t counted = isLocal ? WIFINbrNum : dev.wifiNbrNum;
    require(counted == stationCount(isLocal ? WIFINeighborHead : dev.wifiNbrHead), "all stations are counted");
    require(isLocal || counted <= kv::kMaxTableStations, "a device's stations are bounded");
}

// Two decoders are left out, because they apply a setting.
void checkSent(const Bytes &value) {
    if (value.at(0) == kIntelOui[0]) return require(value.size() == 39, "only whole messages of Intel's are sent");
    require(value.size() >= kv::kEnvelopeLen && value.size() <= KV_VEND_MSG_BUFFER_LEN, "a sent value fits a TLV");
    const int type = value[11] << 8 | value[12];
    require(kv::kEnvelopeLen + (256u * value[13] + value[14]) == value.size(), "a sent value holds its length");
    if (type == VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP || type == VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP ||
        value.size() == kv::kEnvelopeLen) {
        return;
    }
    KvVendMsg msg = {};
    require(kv::parseKvVendMsg(kv::ByteReader(value.data(), value.size()), &msg) == KV_RET_OK,
            "the plug-in's decoder accepts what the plug-in sends");
    if (type == VEND_MSG_TYPE_WIFI_STATE_RESP) {
        return kv::freeWIFINeighborList(static_cast<WIFINeighborList *>(msg.payload));
    }
    const kv::OwnedStations read = kv::newStations();
    require(type != VEND_MSG_TYPE_WIFI_CLIENT_MCAST2 ||
                (kv::copyWIFIclientMsgDataTokvWIFINeighborTable(
                     read.get(), static_cast<kv::KvWifiClientMsg *>(msg.payload)) == KV_RET_OK &&
                 read->count != 0),
            "the plug-in can read its own reports");
    std::free(msg.payload);
}

void Device::check() {
    if (!std::exchange(isPrepared, false)) {
        failing.reset();
        output.reset();
    }
    for (const auto &[mac, device] : host.devices)
        checkRecord(*device, mac == kvtest::kLocal);
    require(std::memchr(g_MainSSID, 0, 33) != nullptr && std::memchr(g_MainSSID + 33, 0, 33) != nullptr, "SSIDs end");
    require(kvFlags <= 0xF && controller <= 1, "flags and role are known ones");
    for (const kvtest::Sent &sent : std::exchange(host.sent, {}))
        checkSent(Bytes(sent.value));
    kvtest::notes().clear();
}

// ---- Messages

// An answer to Intel's request carries the request's fields and station.
void checkIntelAnswer(const Bytes &request, const Bytes &answer) {
    constexpr ptrdiff_t kCopied[][2] = {{3, 9}, {11, 17}, {18, 20}, {22, 28}};  // first byte, end
    if (answer[0] != kIntelOui[0]) return;
    require(request.size() >= kv::kIntelRequestLen, "a short request is not answered");
    for (const auto &[from, to] : kCopied) {
        require(std::equal(request.begin() + from, request.begin() + to, answer.begin() + from), "fields are copied");
    }
}

template <typename Entry>
void deliver(Device &device, const Bytes &value, Entry entry) {
    Bytes exact(value);
    KvRecvVendTlv tlv = {{}, exact.data()};
    std::copy(device.peer.begin(), device.peer.end(), tlv.srcMac);
    const auto before = device.observe();
    entry(&tlv, static_cast<uint32_t>(exact.size()), device.msgId);
    const bool isReport = exact.size() > 12 && exact[0] == 0x02 && exact[12] == VEND_MSG_TYPE_WIFI_CLIENT_MCAST2;
    const bool isRefused = kvtest::logCount(KV_LOG_ERROR, "failed to parse the vendor specific TLV\n") != 0;
    require(
        !(isRefused || (isReport && std::count(kvtest::notes().begin(), kvtest::notes().end(), "writes json") == 0)) ||
            device.observe() == before,
        "a refused message changes nothing");
    for (const kvtest::Sent &sent : device.host.sent)
        checkIntelAnswer(exact, sent.value);
}

// With or without the length of the TLV; the last number is a request of Intel's set.
template <bool hasLength>
void playMessage(Device &device, const Step &step) {
    constexpr uint16_t kIntel = VEND_MSG_TYPE_LIMIT + 1;
    const uint16_t type = step.argument % (kIntel + 1);
    Bytes value = kvtest::message(device.peer, type, step.body);
    if (type == kIntel) value = join(kIntelOui, step.body, Bytes(kv::kIntelRequestLen));
    deliver(device, value, [type](const KvRecvVendTlv *tlv, uint32_t length, uint32_t msgId) {
        if (hasLength) return kvMAP1905_VendSpecTlv_handle(tlv, length, msgId);
        if (type == kIntel) return kvMAP1905_VendSpecMsg_handle_Intel(tlv, msgId);
        kvMAP1905_VendSpecMsg_handle(tlv, msgId);
    });
}

void playIntelSend(Device &device, const Step &step) {
    struct {
        KvIntelVendMsg msg;
        KvRssiMeasurement measurement;
    } records = {};
    std::copy_n(step.body.begin(), std::min(step.body.size(), sizeof records), reinterpret_cast<uint8_t *>(&records));
    std::memcpy(records.msg.oui, kIntelOui.data(), sizeof records.msg.oui);
    records.msg.payload = (step.argument & 2) != 0 ? nullptr : &records.measurement;
    kvMAP1905_IntelVenderSpecMsg_send(device.peer.data(), &device.msgId, &records.msg);
    if ((step.argument & 1) != 0) kvMAP1905_RssiMeasurementNotify_send(device.peer.data(), &records.msg);
}

// The text of a report of stations.
void playReport(Device &device, const Step &step) {
    const Bytes text = Input(step.body).bytes(kv::kMaxReportText);
    const Bytes length = {static_cast<uint8_t>(text.size() >> 8), static_cast<uint8_t>(text.size())};
    const Bytes payload = join(device.peer, length, text);
    deliver(device, kvtest::message(device.peer, VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, payload),
            kvMAP1905_VendSpecTlv_handle);
}

Bytes attributeOf(const KvBssInfo &bss) {
    Bytes written(24);
    require(kvMAP1905_ApCfg_fill(written.data(), 0, &bss) == 24u, "a BSS is written");
    return written;
}

// A BSS of a neighbour's onboarding, from the vendor ID on. A BSS that was read is the same after writing and reading.
void playBss(Device &, const Step &step) {
    constexpr size_t kHeader = 4, kInOrderLen = 18;  // the parser without a length may read so far
    KvBssInfo bss = {}, again = {}, inOrder = {};
    kvMAP1905_ApCfg_parse(join(step.body, Bytes(kInOrderLen)).data(), &inOrder);
    if (kvMAP1905_ApCfg_parse_check_len(step.body.data(), static_cast<uint32_t>(step.body.size()), &bss) != 0) return;
    const Bytes first = attributeOf(bss), value(first.begin() + kHeader, first.end());
    require(kvMAP1905_ApCfg_parse_check_len(value.data(), static_cast<uint32_t>(value.size()), &again) == 0 &&
                attributeOf(again) == first,
            "a BSS survives writing and reading");
}

// ---- The host and its calls

// Chooses the peer: a known device, or one that the host adds, removes or knows by an interface alone. The body sets
// what the host answers.
void playHost(Device &device, const Step &step) {
    constexpr Mac kMacs[] = {kvtest::kAgent, kvtest::kLocal, kvtest::kStranger};
    device.peer = kMacs[step.argument % std::size(kMacs)];
    device.msgId = static_cast<uint16_t>(0x1000 + step.argument / 4 % 8);
    auto &devices = device.host.devices;
    const auto known = devices.find(device.peer);
    const int change = step.argument / 32;
    if (change == 1) device.host.owners[device.peer] = kvtest::kAgent;
    if (change == 2) device.host.owners.erase(device.peer);
    if (change == 3) device.host.owners[device.peer] = device.peer;
    if (change == 3 && known == devices.end()) device.host.addDevice(device.peer);
    if (change == 4 && known != devices.end() && device.peer != kvtest::kLocal) {
        device.host.removeDevice(device.peer);
    }
    const uint8_t answers = Input(step.body).u8();
    device.host.sendResult = answers & 1;
    device.host.jsonResult = answers >> 1 & 1;
    device.host.local().rebootFromNbrCap = answers >> 2 & 1;
    device.host.local().intfPwrCtrlFromNbrCap = answers >> 3 & 1;
}

// Up to six minutes later, or another time; then the main loop.
void playClock(Device &device, const Step &step) {
    constexpr std::time_t kTimes[] = {1, INT32_MAX, UINT32_MAX, kvtest::kScriptStart};
    device.now = step.argument < 128 ? device.now + 3 * step.argument : kTimes[step.argument % std::size(kTimes)];
    kvtest::setClock(device.now);
    kvMAP1905_MainLoop();
}

using Entry = void (*)(Device &, uint8_t choice);
constexpr Entry kEntries[] = {
    [](Device &device, uint8_t retry) { kvMAP1905_ConfQuery_send(device.peer.data(), retry); },
    [](Device &device, uint8_t retry) { kvMAP1905_IntfPwrStateQuery_send(device.peer.data(), retry); },
    [](Device &device, uint8_t retry) { kvMAP1905_WifiStateQuery_send(device.peer.data(), retry); },
    [](Device &device, uint8_t command) { kvMAP1905_SyncCtrlSettingReq_send(device.peer.data(), command % 3); },
    [](Device &device, uint8_t) {
        const KvRecvVendTlv source = {{0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB}, nullptr};
        kvMAP1905_ConfRespMsg_send(&source, device.msgId, 0);
    },
    [](Device &device, uint8_t) { kvMAP1905_DeviceDm_update(&device.host.local()); }};

// The body's first byte: how many times more. Open queries fill a table.
void playEntry(Device &device, const Step &step) {
    for (int more = Input(step.body).u8() % 96; more >= 0; --more) {
        kEntries[step.argument % 8 % std::size(kEntries)](device, step.argument / 8);
    }
}

void playFailure(Device &device, const Step &step) {
    constexpr const char *kCalls[] = {"allocation", "send", "system", "popen", "JSON", "kcfg", "query"};
    device.failing.emplace(kCalls[step.argument % std::size(kCalls)], 1 + step.argument / std::size(kCalls) % 8);
    device.isPrepared = true;
}

// ---- Operator commands

// The buffer is as long as the code's record; a shorter body is filled with zeros, and a text ends.
void playCommand(Device &, const Step &step) {
    const uint32_t code = 100u + step.argument;
    const kv1905d::CommandRow *row = kv1905d::findCommandRow(code);
    Bytes buffer = step.body;
    buffer.resize(row != nullptr && code != KV_CMD_SYNC_CTRL_PWD ? row->size : buffer.size() + 1);
    kvMAP1905_VendSpecCmd_handle(Bytes(buffer).data(), code);
}

int post(kv1905d::ByteView message) {
    using namespace kv1905d;
    const CommandActions actions{[](const MacAddress &mac) {
                                     return current->host.devices.count(mac.bytes) == 0 ? Presence::Unknown
                                            : mac.bytes == kvtest::kLocal               ? Presence::Local
                                                                                        : Presence::Known;
                                 },
                                 [](uint32_t code, void *buffer) {
                                     kvMAP1905_VendSpecCmd_handle(buffer, code);
                                     return CommandEffect{1};
                                 }};
    return static_cast<int>(handlePost(message, actions).verdict);
}

int postFromTool(uint32_t code, void *buffer, uint32_t size) {
    const kv1905d::CommandRow *row = kv1905d::findCommandRow(code);
    require(row != nullptr && size >= row->size, "the tool posts whole records of known codes");
    return post(kv1905d::encodePost({code, {static_cast<const uint8_t *>(buffer), size}}));
}

// The body holds an argument per line. Nobody reads the program's and the command's name before them.
void playTool(Device &, const Step &step) {
    constexpr int (*kTools[])(void *, int, char **) = {kvMAP1905_RebootQuery_send,
                                                       kvMAP1905_CtrlInftPwrQuery_send,
                                                       kvMAP1905_FWCtrlQuery_send,
                                                       kvMAP1905_ResetDefaultQuery_send,
                                                       kvMAP1905_FwResult_set,
                                                       kvMAP1905_ledStatus_send,
                                                       kvMAP1905_PartialResetDefaultQuery_send,
                                                       kvMAP1905_CmdQuery_send,
                                                       kvMAP1905_SyslogDbg_set,
                                                       kvMAP1905_sync_country_req_send,
                                                       kvMAP1905_CountryInBcn_send};
    constexpr size_t kMaxArguments = 16;
    std::vector<Bytes> texts = {{0}, {0}};
    std::istringstream lines(step.text());
    for (std::string line; texts.size() < kMaxArguments && std::getline(lines, line);) {
        texts.emplace_back(line.c_str(), line.c_str() + std::strlen(line.c_str()) + 1);
    }
    std::vector<char *> argv;
    for (Bytes &text : texts)
        argv.push_back(reinterpret_cast<char *>(text.data()));
    argv.push_back(nullptr);
    g_kv1905_bcm_cbs.cmdSend = postFromTool;
    kTools[step.argument % std::size(kTools)](nullptr, static_cast<int>(texts.size()), argv.data());
}

// ---- Files, settings and outputs of other components

// The element for the host's BSSs is one that the host reads.
void playMdids(Device &, const Step &step) {
    KvMdidInterfaceList list = {};
    list.InterfaceNumberOfEntries = step.argument % (KV_MAX_MDID_INTERFACES + 2);
    const size_t count = list.InterfaceNumberOfEntries;
    for (size_t i = 0; i < std::min(count, std::size(list.interfaces)); ++i) {
        std::strcpy(list.interfaces[i].ifname, ("wl" + std::to_string(i % 2) + "." + std::to_string(i)).c_str());
    }
    Bytes buffer(7 + 9 * KV_MAX_MDID_INTERFACES);
    uint32_t length = 0;
    kv1905d::BssElements elements;
    require(kvMAP1905_TlvMDID_insert(buffer.data(), &length, &list) != 0 ||
                (kv1905d::readBssElement({buffer.data(), length}, elements) && elements.mdids.size() == count),
            "the host can read the plug-in's MDIDs");
}

void playLoad(Device &device, const Step &) {
    kvMAP1905_param_update();
    kvMAP1905_DeviceDm_init(&device.host.local());
    for (const uint32_t mediaType : {0x0103u, 0x0105u, 0x0001u}) {
        KvIntfVendorData intf = {};
        kvMAP1905_DevIntfDm_init(&intf, mediaType);
        require(intf.pwrState == 0 || intf.pwrState == 2 || intf.pwrState == 255, "a power state is a known one");
    }
    playClock(device, {0, 44, {}});
    kvMAP1905_ConfRespMsg_send(nullptr, 0, 1);
    kvMAP1905_VendSpecCmd_handle(nullptr, KV_CMD_UPDATE_DEVICE_INFO);
}

// Of a file, of the commands in the next step, or of a setting.
void playText(Device &device, const Step &step) {
    constexpr const char *kFiles[] = {"conf", "version", "stations24", "stations5", "list"};
    const std::string text = step.text();
    const size_t choice = step.argument % (std::size(kFiles) + 2);
    if (choice < std::size(kFiles)) {
        kvtest::writeFile(kvtest::scriptPath(kFiles[choice]), text);
        return playLoad(device, step);
    }
    if (choice == std::size(kFiles)) {
        device.output = text;
        device.isPrepared = true;
        return;
    }
    KvBssInfo bss = {};
    const Bytes elements = {1, 1, step.argument};
    kvtest::nvram() = {{"wl0_extattr", text.c_str()}, {"wl1.2_extattr", text.c_str()}};
    kvMAP1905_parameter_init(elements.data(), &bss);
}

// The index is the step's kind.
constexpr void (*kPlays[])(Device &, const Step &) = {
    playMessage<true>,
    playMessage<false>,
    [](Device &device, const Step &step) { deliver(device, step.body, kvMAP1905_VendSpecTlv_handle); },
    playIntelSend,
    playReport,
    playBss,
    playHost,
    playClock,
    playEntry,
    playFailure,
    playCommand,
    playTool,
    [](Device &, const Step &step) { post(step.body); },
    playMdids,
    playLoad,
    playText};

}  // namespace

void playInput(Input in) {
    Device device;
    playSteps(in, device, kPlays);
}

}  // namespace kvfuzz
