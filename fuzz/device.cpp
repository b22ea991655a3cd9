// The tests' fake device with the live plug-in: messages of other devices, the operator's commands, files of other
// components, the clock and failing calls. Each step starts from the state that the one before left.
#include <fnmatch.h>

#include <cstring>
#include <optional>
#include <utility>

#include "command/protocol.h"
#include "features/wifi_clients/neighbor_table.h"
#include "features/wifi_clients/station_list.h"
#include "fuzz.h"
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

using kvtest::Mac;

std::optional<std::string> nextOutput;  // of the next command

struct Device : kvtest::ScriptedDevice {
    Device() {
        host.interfaces.emplace_back(kvtest::kAgent, 0x0001);
        kvtest::configService.accounts = {{"admin", "old"}, {"user", "old"}};
        kvtest::configService.radios = {{"wl0", "DE/0", "DE"}, {"wl1", "DE/0", "DE"}};
        kvtest::configService.key = {"scrambling"};
    }
    void check();

    std::time_t now = kvtest::kScriptStart;
    Mac peer = kvtest::kAgent;  // sends the messages
    uint16_t msgId = 0x1000;    // of its messages; requests of the plug-in count from there
};

// The commands of the plug-in and their outputs: literal, or a pattern of harmless values.
#define HARMLESS "*([A-Za-z0-9._:/-])"
constexpr const char *kCommands[][2] = {
    {"reboot", ""},
    {"echo " HARMLESS " > /tmp/1905ReturnValue", ""},
    {"wl -i " HARMLESS " country_abbrev_override \"" HARMLESS "\"", ""},
    {"wl -i " HARMLESS " chanspec", "36/80\n"},
    {"nvram show | grep multiap_mode > /tmp/.kv1905_nvram_tmp", "multiap_mode=1\n"},
    {"nvram show | grep mdid > /tmp/.kv1905_nvram_tmp", "wl0_mdid=4660\nwl0.5_mdid=77\n"},
    {"ifconfig br0 | grep -w inet | sed 's/.*inet addr:\\([0-9.]*\\).*/\\1/' > /tmp/kv1905_IP", "192.168.77.11\n"},
    {"cat /data/FMUBBW3CBI.dat | openssl enc -aes-256-cbc -pbkdf2 -a -d -pass pass:" HARMLESS, "secret\n"}};

// Returns the output, which the shell also puts into the file after ">".
std::string run(const char *command) {
    for (const auto &[pattern, output] : kCommands) {
        if (std::strcmp(pattern, command) != 0 && fnmatch(pattern, command, FNM_EXTMATCH) != 0) continue;
        const std::string text = std::exchange(nextOutput, std::nullopt).value_or(output);
        if (const char *file = std::strchr(command, '>')) kvtest::writeFile(file + 2, text);
        return text;
    }
    require(false, "only the plug-in's own commands with harmless values reach a shell");
    return "";
}

}  // namespace

// Receive the plug-in's calls through the linker's --wrap.
extern "C" int __wrap_system(const char *command) {
    if (kvtest::callFails("system")) return -1;
    run(command);
    return 0;
}

extern "C" std::FILE *__wrap_popen(const char *command, const char *) {
    if (kvtest::callFails("popen")) return nullptr;
    std::FILE *pipe = std::tmpfile();
    std::fputs(run(command).c_str(), pipe);
    std::rewind(pipe);
    return pipe;
}

extern "C" int __wrap_pclose(std::FILE *pipe) {
    return std::fclose(pipe);
}

namespace {

// ---- Invariants

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
    uint32_t count = 0;
    for (auto *station = isLocal ? WIFINeighborHead : dev.wifiNbrHead; station != nullptr; station = station->next)
        ++count;
    require(count == (isLocal ? WIFINbrNum : dev.wifiNbrNum), "all stations are counted");
    require(isLocal || count <= kv::kMaxTableStations, "a device's stations are bounded");
}

// Leaves out two decoders, which apply a setting.
void checkSent(const Bytes &value) {
    if (value.at(0) == 0x00) return require(value.size() == 39, "only whole messages of Intel's are sent");
    require(value.size() >= kv::kEnvelopeLen && value.size() <= KV_VEND_MSG_BUFFER_LEN &&
                kv::kEnvelopeLen + (256u * value[13] + value[14]) == value.size(),
            "a sent value fits a TLV and holds its length");
    const int type = value[11] << 8 | value[12];
    if (type == VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP || type == VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP) return;
    KvVendMsg msg = {};
    require(value.size() == kv::kEnvelopeLen ||
                kv::parseKvVendMsg(kv::ByteReader(value.data(), value.size()), &msg) == KV_RET_OK,
            "the plug-in's decoder accepts what the plug-in sends");
    if (type == VEND_MSG_TYPE_WIFI_STATE_RESP) return kv::freewifiMsgData(static_cast<WIFINeighborList *>(msg.payload));
    std::free(msg.payload);
}

void Device::check() {
    for (const auto &[mac, device] : host.devices)
        checkRecord(*device, mac == kvtest::kLocal);
    require(std::memchr(g_MainSSID, 0, 33) != nullptr && std::memchr(g_MainSSID + 33, 0, 33) != nullptr, "SSIDs end");
    require(kvFlags <= 0xF && controller <= 1, "flags and role are known ones");
    const kvtest::Failure pending = std::exchange(kvtest::failure, {});  // for the plug-in's calls, not for these
    for (const kvtest::Sent &sent : std::exchange(host.sent, {}))
        checkSent(Bytes(sent.value));
    kvtest::failure = pending;
    kvtest::notes.clear();
}

// ---- Messages

void deliver(Device &device, const Bytes &value, bool hasLength = true) {
    kvtest::notes.clear();
    const auto before = device.observe();
    device.host.receive(device.peer, value, device.msgId, hasLength);
    const auto &notes = kvtest::notes;
    const bool isReport = value.size() > 12 && value[0] == 0x02 && value[12] == VEND_MSG_TYPE_WIFI_CLIENT_MCAST2;
    const bool isIgnored = isReport && std::find(notes.begin(), notes.end(), "writes json") == notes.end();
    const bool isRefused = kvtest::logCount(KV_LOG_ERROR, "failed to parse the vendor specific TLV\n") != 0;
    require(!(isRefused || isIgnored) || device.observe() == before, "a refused message changes nothing");
}

// Passes the message with or without its TLV's length, first without its last byte. The last type is a request of
// Intel's set.
template <bool hasLength>
void runMessage(Device &device, const Step &step) {
    const uint16_t type = step.argument % (VEND_MSG_TYPE_LIMIT + 1);
    for (size_t cut = std::min<size_t>(1, step.body.size()) + 1; cut-- > 0;) {
        const Bytes body(step.body.begin(), step.body.end() - static_cast<ptrdiff_t>(cut));
        deliver(device,
                type != VEND_MSG_TYPE_LIMIT ? kvtest::message(device.peer, type, body)
                                            : join(Bytes{0x00, 0x03, 0x47}, body, Bytes(kv::kIntelRequestLen)),
                hasLength);
    }
}

// The text of a report of stations.
void runReport(Device &device, const Step &step) {
    const Bytes length = {static_cast<uint8_t>(step.body.size() >> 8), static_cast<uint8_t>(step.body.size())};
    const Bytes payload = join(device.peer, length, step.body);
    deliver(device, kvtest::message(device.peer, VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, payload));
}

// A BSS of a neighbour's onboarding, from the vendor ID on. A BSS that was read is the same after writing and reading.
void runBss(Device &, const Step &step) {
    constexpr size_t kInOrderLen = 18;  // the parser without a length may read so far
    KvBssInfo bss = {}, again = {}, inOrder = {};
    Bytes first(24), second(24);
    kvMAP1905_ApCfg_parse(join(step.body, Bytes(kInOrderLen)).data(), &inOrder);
    if (kvMAP1905_ApCfg_parse_check_len(step.body.data(), static_cast<uint32_t>(step.body.size()), &bss) != 0) return;
    require(kvMAP1905_ApCfg_fill(first.data(), 0, &bss) == 24 &&
                kvMAP1905_ApCfg_parse_check_len(first.data() + 4, 20, &again) == 0 &&
                kvMAP1905_ApCfg_fill(second.data(), 0, &again) == 24 && first == second,
            "a BSS survives writing and reading");
}

// ---- The host and its calls

// Chooses the peer: a known device, or one that the host adds, removes or knows only by an interface. The body sets
// what this device may do.
void runHost(Device &device, const Step &step) {
    constexpr Mac kMacs[] = {kvtest::kAgent, kvtest::kLocal, kvtest::kUnknown};
    device.peer = kMacs[step.argument % std::size(kMacs)];
    device.msgId = static_cast<uint16_t>(0x1000 + step.argument / 4 % 8);
    const bool isKnown = device.host.devices.contains(device.peer);
    const int change = step.argument / 32;
    if (change == 1) device.host.owners[device.peer] = kvtest::kAgent;
    if (change == 2) device.host.owners.erase(device.peer);
    if (change == 3) device.host.owners[device.peer] = device.peer;
    if (change == 3 && !isKnown) device.host.addDevice(device.peer);
    if (change == 4 && isKnown && device.peer != kvtest::kLocal) device.host.removeDevice(device.peer);
    device.host.local().rebootFromNbrCap = step.first() >> 2 & 1;
    device.host.local().intfPwrCtrlFromNbrCap = step.first() >> 3 & 1;
}

// Moves the clock up to six minutes ahead, or to another time, and runs the main loop.
void runClock(Device &device, const Step &step) {
    constexpr std::time_t kTimes[] = {1, INT32_MAX, UINT32_MAX, kvtest::kScriptStart};
    device.now = step.argument < 128 ? device.now + 3 * step.argument : kTimes[step.argument % std::size(kTimes)];
    kvtest::setClock(device.now);
    kvMAP1905_MainLoop();
}

// Reads the device's files and commands again.
void load(Device &device) {
    KvMdidInterfaceList list = {2, {{{}, "wl0", 0, 0}, {{}, "wl0.5", 0, 0}}};
    uint8_t buffer[7 + 9 * 2];
    uint32_t length = 0;
    kvMAP1905_TlvMDID_insert(buffer, &length, &list);
    kvMAP1905_param_update();
    kvMAP1905_DeviceDm_init(&device.host.local());
    runClock(device, {44, {}});
    kvMAP1905_ConfRespMsg_send(nullptr, 0, 1);
}

// The body's first byte: how many times more. Open queries fill a table.
void runQueries(Device &device, const Step &step) {
    for (int more = step.first() % 96; more >= 0; --more) {
        kvMAP1905_ConfQuery_send(device.peer.data(), step.argument);
        kvMAP1905_IntfPwrStateQuery_send(device.peer.data(), step.argument);
        kvMAP1905_WifiStateQuery_send(device.peer.data(), step.argument);
        kvMAP1905_SyncCtrlSettingReq_send(device.peer.data(), step.argument % 3);
    }
}

// The buffer has the size of the code's record.
void runCommand(Device &, const Step &step) {
    const kv1905d::CommandRow *row = kv1905d::findCommandRow(100u + step.argument);
    Bytes buffer = step.body;
    buffer.resize(row != nullptr && row->code != KV_CMD_SYNC_CTRL_PWD ? row->size : buffer.size() + 1);
    kvMAP1905_VendSpecCmd_handle(Bytes(buffer).data(), 100u + step.argument);
}

// Words of the operator's tool. A word x*N repeats a character any number of times.
void runTool(Device &device, const Step &step) {
    if (step.text().find('*') != std::string::npos) return;
    try {
        device.run("tool " + step.text());
    } catch (const std::exception &) {  // no words
    }
}

// Sets the text of a file, or a setting.
void runText(Device &device, const Step &step) {
    constexpr const char *kFiles[] = {"conf", "version", "stations24", "stations5", "list"};
    KvBssInfo bss = {};
    const Bytes elements = {1, 1, step.argument};
    kvtest::nvram = {{"wl0_extattr", step.text().c_str()}, {"wl1.2_extattr", step.text().c_str()}};
    kvMAP1905_parameter_init(elements.data(), &bss);
    kvtest::writeFile(kvtest::scriptPath(kFiles[step.argument % std::size(kFiles)]), step.text());
    load(device);
}

// The index is the step's kind.
constexpr void (*kSteps[])(Device &, const Step &) = {
    runMessage<true>,
    runMessage<false>,
    [](Device &device, const Step &step) { deliver(device, step.body); },
    runReport,
    runBss,
    runHost,
    runClock,
    runQueries,
    [](Device &, const Step &step) {
        kvtest::failure = {kvtest::kFailures[step.argument % 9], 1u + step.argument / 9 % 8};
    },
    [](Device &, const Step &step) { nextOutput = step.text(); },
    runCommand,
    runTool,
    runText};

}  // namespace

void runInput(const Bytes &input) {
    nextOutput.reset();
    kvtest::failure = {};
    Device device;
    runSteps(input, device, kSteps);
}

}  // namespace kvfuzz
