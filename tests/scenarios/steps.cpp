// The actions, preparations and settings of scenarios, in tables by their names; README.md explains them.

#include <sys/stat.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <utility>

#include "features/device_control/firmware.h"
#include "features/device_control/firmware_upgrade_list.h"
#include "features/kvMAP1905_netCtrl.h"
#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "frame/file.h"
#include "frame/local_files.h"
#include "frame/vendor_data.h"
#include "kv1905/vendor_messages.h"
#include "periodic_tasks.h"
#include "protocol/kvMAP1905_message.h"
#include "scenarios/scripted_device.h"
#include "scenarios/words.h"
#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "support/fake_system.h"

namespace kvtest {

namespace {

// A number, or the name of a message type.
uint16_t messageType(Words &in) {
    const std::string word = in.text();
    for (uint16_t type = 0; type < VEND_MSG_TYPE_LIMIT; ++type) {
        const char *name = kvVendorMessageName(type);
        if (name != nullptr && word == name) {
            return type;
        }
    }
    return static_cast<uint16_t>(std::stoul(word));
}

KvDevVendorData &deviceAt(ScriptedDevice &device, const Mac &mac) {
    const auto found = device.host.devices.find(mac);
    return found == device.host.devices.end() ? device.host.addDevice(mac) : *found->second;
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
    Bytes text;
    while (!in.empty()) {
        const std::string record = in.text();
        append(text, record[0] == '{' ? std::to_string(1000 + record.size()).substr(1) + record : record);
    }
    Bytes payload(writer.begin(), writer.end());
    append(payload, std::initializer_list<size_t>{text.size() >> 8, text.size() & 0xFF});
    append(payload, text);
    return message(writer, VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, payload);
}

template <ValueReader readValue>
void receive(ScriptedDevice &device, Words &in) {
    const Mac source = in.accept("from") ? in.mac() : kAgent;
    const Mac writer = in.accept("as") ? in.mac() : source;
    const auto msgId = static_cast<uint32_t>(in.accept("id") ? in.number() : 0xBEEF);
    device.sender = source;
    device.requestId = static_cast<uint16_t>(msgId);
    const bool hasLength = !in.accept("without-length");
    device.host.receive(source, readValue(writer, in), static_cast<uint16_t>(msgId), hasLength);
}

// Each shorter message; those with an envelope also with the true payload length.
void receiveCuts(ScriptedDevice &device, Words &in) {
    const Bytes whole = readMessage(kAgent, in);
    for (size_t length = 0; length < whole.size(); ++length) {
        Bytes cut = head(whole, length);
        device.host.receive(kAgent, cut, 1);
        if (length >= 15) {
            cut[13] = static_cast<uint8_t>((length - 15) >> 8);
            cut[14] = static_cast<uint8_t>(length - 15);
            device.host.receive(kAgent, cut, 1);
        }
    }
    device.repeats = whole.size() + whole.size() - 15;
}

// ---- Calls

using Callee = std::function<long(ScriptedDevice &, Words &)>;

// A function whose arguments are addresses, texts, numbers and the local device's record; "null" is no record, address
// or text.
template <typename Result, typename... Arguments>
Callee plain(Result (*function)(Arguments...)) {
    return [function]([[maybe_unused]] ScriptedDevice &device, [[maybe_unused]] Words &in) -> long {
        std::vector<Mac> macs;
        std::vector<std::string> texts;
        macs.reserve(sizeof...(Arguments));
        texts.reserve(sizeof...(Arguments));
        [[maybe_unused]] const auto read = [&]<typename Argument>(Argument *) -> Argument {
            if constexpr (std::is_same_v<Argument, const uint8_t *>) {
                return in.accept("null") ? nullptr : macs.emplace_back(in.mac()).data();
            } else if constexpr (std::is_same_v<Argument, const char *>) {
                return in.accept("null") ? nullptr : texts.emplace_back(in.text()).c_str();
            } else if constexpr (std::is_same_v<Argument, KvDevVendorData *>) {
                return in.accept("null") ? nullptr : &device.host.local();
            } else {
                return static_cast<Argument>(in.number());
            }
        };
        const std::tuple<Arguments...> arguments{read(static_cast<Arguments *>(nullptr))...};
        if constexpr (std::is_void_v<Result>) {
            std::apply(function, arguments);
            return 0;
        } else {
            return std::apply(function, arguments);
        }
    };
}

// Entries: last byte of the BSSID, interface, "disabled" when it is; "count N" overrides their number.
KvMdidInterfaceList readMdids(Words &in) {
    KvMdidInterfaceList list = {};
    while (!in.empty() && !in.accept("count")) {
        KvMdidInterface &entry = list.interfaces[list.InterfaceNumberOfEntries++];
        entry.bssid[5] = static_cast<uint8_t>(in.number());
        const std::string name = in.text();
        std::memcpy(entry.ifname, name.data(), std::min(name.size(), sizeof entry.ifname));
        entry.mdid = 0x7777;
        entry.enabled = !in.accept("disabled");
    }
    if (!in.empty()) {
        list.InterfaceNumberOfEntries = static_cast<uint32_t>(in.number());
    }
    return list;
}

long insertMdids(ScriptedDevice &, Words &in) {
    KvMdidInterfaceList list = readMdids(in);
    uint8_t buffer[142];
    uint32_t length = 0;
    const long result = kvMAP1905_TlvMDID_insert(buffer, &length, &list);
    if (length > 0) {
        notes().push_back("gives bytes " + hexText(buffer, length));
    }
    return result;
}

long updateMdids(ScriptedDevice &, Words &in) {
    KvMdidInterfaceList list = readMdids(in);
    const long result = kvMAP1905_mdid_update(&list);
    for (size_t i = 0; result == 0 && i < list.InterfaceNumberOfEntries; ++i) {
        notes().push_back("gives " + std::to_string(list.interfaces[i].mdid));
    }
    return result;
}

long notifySignal(ScriptedDevice &, Words &in) {
    const Mac destination = in.mac();
    const Mac station = in.mac();
    KvRssiMeasurement measurement = {{}, 0, 0, 0xB0, 0};
    std::copy(station.begin(), station.end(), measurement.staMac);
    KvIntelVendMsg msg = {};
    std::memcpy(msg.field11, "\x21\x22\x23\x24\x25\x26", sizeof msg.field11);
    std::memcpy(msg.field18, "\x31\x32", sizeof msg.field18);
    msg.payload = in.accept("without") ? nullptr : &measurement;
    return kvMAP1905_RssiMeasurementNotify_send(destination.data(), &msg);
}

int sendToAgent(const KvVendMsg *msg, uint16_t *msgId) {
    return kvMAP1905_VenderSpecMsg_send(kAgent.data(), msgId, msg);
}

// A message of a type and a payload length, without a payload.
template <auto send>
long sendEmpty(ScriptedDevice &, Words &in) {
    const uint16_t type = messageType(in);
    const KvVendMsg msg = kv::makeVendMsg(type, static_cast<uint16_t>(in.number()), nullptr);
    uint16_t msgId = 0;
    const long result = send(&msg, in.accept("untracked") ? nullptr : &msgId);
    if (msgId != 0) {
        notes().push_back("gives id " + std::to_string(msgId));
    }
    return result;
}

long answerQuery(ScriptedDevice &, Words &in) {
    KvRecvVendTlv source = {};
    const bool hasSource = !in.accept("null");
    if (hasSource) {
        const Mac mac = in.mac();
        std::copy(mac.begin(), mac.end(), source.srcMac);
    }
    const auto msgId = static_cast<uint16_t>(in.number());
    return kvMAP1905_ConfRespMsg_send(hasSource ? &source : nullptr, msgId, static_cast<uint8_t>(in.number()));
}

long powerState(ScriptedDevice &, Words &in) {
    KvIntfVendorData intf = {99};
    kvMAP1905_DevIntfDm_init(&intf, static_cast<uint32_t>(in.number()));
    return intf.pwrState;
}

long askWhetherSpeaks(ScriptedDevice &, Words &in) {
    uint8_t speaks = 9;
    const long result = checkKovanAgent(in.mac().data(), &speaks);
    notes().push_back("gives " + std::to_string(speaks));
    return result;
}

long readChannel(ScriptedDevice &, Words &in) {
    char channel[16] = "old";
    kvMAP1905_WifiChan_get(in.text().c_str(), channel);
    notes().push_back(std::string("gives ") + channel);
    return 0;
}

#define PLAIN(name) \
    { #name, plain(name) }
const std::map<std::string, Callee> &calls() {
    using namespace kv;
    static const std::map<std::string, Callee> all = {
        PLAIN(kvMAP1905_ConfQuery_send),
        PLAIN(kvMAP1905_IntfPwrStateQuery_send),
        PLAIN(kvMAP1905_WifiStateQuery_send),
        PLAIN(kvMAP1905_SyncCtrlSettingReq_send),
        PLAIN(kvMAP1905_CtrlFromNbrCap_get),
        PLAIN(kvMAP1905_JsonDataModel_write),
        PLAIN(kvMAP1905_findController),
        PLAIN(kvMAP1905_param_update),
        PLAIN(updateKvFWNewfirmware),
        PLAIN(kvMAP1905_CountryInBcn_update),
        PLAIN(setKvFWresult),
        PLAIN(addKvFWupgradealmac),
        PLAIN(rmKvFWupgradealmac),
        PLAIN(registerMAPNeighbor),
        PLAIN(runNetCtrl),
        PLAIN(kvSendWIFIClientInfo),
        PLAIN(checkWIFIClientInfo),
        PLAIN(checkWIFIChannelInfo),
        PLAIN(kvResetToDefault),
        PLAIN(kvPartialResetToDefault),
        PLAIN(kvMAP1905_DeviceDm_init),
        PLAIN(kvMAP1905_DeviceDm_update),
        PLAIN(updateDeviceConfig),
        {"kvMAP1905_TlvMDID_insert", insertMdids},
        {"kvMAP1905_mdid_update", updateMdids},
        {"kvMAP1905_RssiMeasurementNotify_send", notifySignal},
        {"kvMAP1905_VenderSpecMsg_send", sendEmpty<sendToAgent>},
        {"kvMAP1905_VenderSpecMcastMsg_send", sendEmpty<kvMAP1905_VenderSpecMcastMsg_send>},
        {"kvMAP1905_VenderSpecRelayMcastMsg_send", sendEmpty<kvMAP1905_VenderSpecRelayMcastMsg_send>},
        {"kvMAP1905_ConfRespMsg_send", answerQuery},
        {"kvMAP1905_DevIntfDm_init", powerState},
        {"checkKovanAgent", askWhetherSpeaks},
        {"kvMAP1905_WifiChan_get", readChannel}};
    return all;
}

void call(ScriptedDevice &device, Words &in) {
    const std::string name = in.text();
    const auto found = calls().find(name);
    if (found == calls().end()) {
        misread("no function that can be called", name);
    }
    device.result = found->second(device, in);
}

// "all": with every periodic task due.
void runMainLoop(ScriptedDevice &device, Words &in) {
    if (in.accept("all")) {
        kv::resetPeriodicTasks();
        data_model_time_stamp = 0;
    }
    device.result = kvMAP1905_MainLoop();
}

// ---- Operator commands

const std::map<std::string, int (*)(void *, int, char **)> kToolEntries = {
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

// In a block of its own size, at an odd address: the host guarantees no alignment.
void handleCommand(uint32_t code, const uint8_t *buffer, size_t size) {
    const std::unique_ptr<uint8_t[]> block(new uint8_t[size + 1]);
    std::copy_n(buffer, size, block.get() + 1);
    kvMAP1905_VendSpecCmd_handle(block.get() + 1, code);
}

void command(ScriptedDevice &, Words &in) {
    const auto code = static_cast<uint32_t>(in.number());
    if (in.accept("null")) {
        return kvMAP1905_VendSpecCmd_handle(nullptr, code);
    }
    const Bytes buffer = in.bytes();
    handleCommand(code, buffer.data(), buffer.size());
}

int postResult = 0;

// Does what the daemon does with a post of the tool.
int takePost(uint32_t code, void *buffer, uint32_t size) {
    notes().push_back("posts " + std::to_string(code) + " " + std::to_string(size));
    if (callFails("post")) {
        return -1;
    }
    handleCommand(code, static_cast<const uint8_t *>(buffer), size);
    return postResult;
}

void tool(ScriptedDevice &device, Words &in) {
    const std::string name = in.text();
    const auto entry = kToolEntries.find(name);
    if (entry == kToolEntries.end()) {
        misread("no entry of the tool", name);
    }
    std::vector<std::string> words = {"kv1905App", "N"};
    while (!in.empty()) {
        const std::string word = in.text();
        const bool isRepeated = word.size() > 2 && word[1] == '*';  // x*2048
        words.push_back(isRepeated ? std::string(std::stoul(word.substr(2)), word[0]) : word);
    }
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    g_kv1905_bcm_cbs.cmdSend = g_kv1905_bcm_cbs.dmDataGet == nullptr ? nullptr : takePost;
    device.result = entry->second(nullptr, static_cast<int>(words.size()), argv.data());
}

// ---- Preparations

void writeStations(ScriptedDevice &, Words &in) {
    const auto count = static_cast<uint32_t>(in.number());
    const std::string figures = in.empty() ? "866000 -45 30 1 wl1 123 456 866000 650000 0x10" : in.text();
    std::string text;
    for (uint32_t i = 0; i < count; ++i) {
        char mac[24];
        std::snprintf(mac, sizeof mac, "02:00:00:00:%02x:%02x ", i >> 8, i & 0xFF);
        text += mac + figures + "\n";
    }
    writeFile(kv::kStationFile5G, text);
    kv::runNetCtrl();
}

// The controller's own password, encrypted like the device's other components do.
void encryptPassword(ScriptedDevice &, Words &in) {
    writeFile("/tmp/plain", in.lines());
    const std::string command =
        "openssl enc -aes-256-cbc -pbkdf2 -a -pass pass:Qm7tR2xLp9Vd4Kw8Zs3Hn6Jb1Y -in /tmp/plain -out " +
        scriptPath("password");
    if (std::system(command.c_str()) != 0) {
        misread("cannot run", "openssl");
    }
}

void forgetDevice(ScriptedDevice &device, Words &in) {
    device.host.removeDevice(in.mac());
}

template <size_t size>
void readText(char (&field)[size], Words &in) {
    const std::string text = in.text();
    std::memcpy(field, text.data(), std::min(text.size(), size));
}

void removeAll(ScriptedDevice &, Words &in) {
    if (in.accept("accounts")) {
        return configService().accounts.clear();
    }
    return in.accept("radios") ? configService().radios.clear() : misread("no such records", in.text());
}

void setInterfaces(ScriptedDevice &device, Words &in) {
    for (device.host.interfaces.clear(); !in.empty();) {
        const Mac mac = in.mac();
        device.host.interfaces.emplace_back(mac, static_cast<uint32_t>(in.number()));
    }
}

void addAccount(ScriptedDevice &, Words &in) {
    RdmNatIntfSetting &account = configService().accounts.emplace_back(RdmNatIntfSetting{});
    readText(account.userName, in);
    readText(account.password, in);
}

void addRadio(ScriptedDevice &, Words &in) {
    RdmWifiRadio &radio = configService().radios.emplace_back(RdmWifiRadio{});
    readText(radio.ifName, in);
    readText(radio.countryCode, in);
    readText(radio.countryInBeacon, in);
}

using Undo = std::function<void()>;

template <typename Value>
Undo assign(Value &to, Value value) {
    const Value old = to;
    to = value;
    return [&to, old] { to = old; };
}

Undo setField(ScriptedDevice &device, const Mac &mac, const std::string &name, const std::string &value) {
    const RecordField *field = findRecordField(name);
    if (field == nullptr) {
        misread("no field of a device", name);
    }
    char *at = reinterpret_cast<char *>(&deviceAt(device, mac)) + field->offset;
    const std::string old(at, field->size);
    std::memset(at, 0, field->size);
    if (field->size == 1) {
        *at = static_cast<char>(std::stoi(value, nullptr, 0));
    } else {
        std::memcpy(at, value.data(), std::min(value.size(), field->size - 1));
    }
    return [at, old] { std::memcpy(at, old.data(), old.size()); };
}

Undo setClockTo(std::time_t now) {
    const std::time_t old = std::time(nullptr);  // the fake clock
    setClock(now);
    return [old] { setClock(old); };
}

// Writes a file or a stand-in for a command; "none" removes it, "fifo" puts a FIFO there.
Undo put(const std::string &kind, const std::string &name, const std::string &text) {
    const bool isScript = kind == "script";
    const std::string path = isScript ? commandPath(name) : scriptPath(name);
    const std::string old = std::filesystem::is_regular_file(path) ? readFile(path) : "none";
    std::remove(path.c_str());
    if (text == "fifo") {
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    } else if (isScript && text != "none") {
        fakeCommand(name, text);
    } else if (text != "none") {
        writeFile(path, text);
    }
    return [=] { put(kind, name, old); };
}

template <bool isScript>
void putLines(ScriptedDevice &, Words &in) {
    const std::string name = in.text();
    put(isScript ? "script" : "file", name, in.accept("none") ? "none" : in.lines());
}

Undo setKey(const std::string &value) {
    const RdmSyncKeySource old = std::exchange(configService().key, {});
    std::memcpy(configService().key.key, value.data(), std::min(value.size(), sizeof old.key));
    return [old] { configService().key = old; };
}

// Applies a setting and returns what undoes it.
Undo apply(ScriptedDevice &device, const std::string &name, const std::string &value) {
    if (const size_t dot = name.find('.'); dot != std::string::npos) {
        const std::string owner = name.substr(0, dot), rest = name.substr(dot + 1);
        return owner == "file" || owner == "script" ? put(owner, rest, value)
                                                    : setField(device, namedMacs().at(owner), rest, value);
    }
    const auto number = [&] { return static_cast<int32_t>(std::stol(value, nullptr, 0)); };
    const std::map<std::string, int32_t *> numbers = {{"upgrade", &State_fw_upgrade},
                                                      {"download", &State_fw_is_download},
                                                      {"send", &device.host.sendResult},
                                                      {"json", &device.host.jsonResult},
                                                      {"post", &postResult}};
    if (const auto found = numbers.find(name); found != numbers.end()) {
        return assign(*found->second, number());
    }
    const std::map<std::string, std::function<Undo()>> others = {
        {"clock", [&] { return setClockTo(kScriptStart + number()); }},
        {"stamp", [&] { return assign(data_model_time_stamp, static_cast<uint32_t>(kScriptStart + number())); }},
        {"factory-reset", [&] { return assign(configService().factoryReset, value); }},
        {"key", [&] { return setKey(value); }},
        {"slots", [&] { return assign(g_kv1905_bcm_cbs, Kv1905BcmCbs{}); }}};
    const auto found = others.find(name);
    if (found == others.end()) {
        misread("no such setting", name);
    }
    return found->second();
}

void set(ScriptedDevice &device, Words &in) {
    for (std::string name, value; in.acceptSetting(name, value);) {
        apply(device, name, value);
    }
}

// Sets a file's modification time.
void touch(ScriptedDevice &, Words &in) {
    const std::string path = scriptPath(in.text());
    touchFile(path, in.number());
}

struct Row {
    const char *name;
    void (*play)(ScriptedDevice &device, Words &in);
};

const Row kActions[] = {
    {"call", call},
    {"command", command},
    {"cuts", receiveCuts},
    {"loop", runMainLoop},
    {"raw", receive<readRaw>},
    {"receive", receive<readMessage>},
    {"report", receive<readReport>},
    {"tool", tool},
};

const Row kPreparations[] = {
    {"account", addAccount},
    {"device", [](ScriptedDevice &device, Words &in) { deviceAt(device, in.mac()); }},
    {"file", putLines<false>},
    {"forget", forgetDevice},
    {"interfaces", setInterfaces},
    {"no", removeAll},
    {"owner",
     [](ScriptedDevice &device, Words &in) {
         const Mac mac = in.mac();
         device.host.owners[mac] = in.mac();
     }},
    {"password", encryptPassword},
    {"radio", addRadio},
    {"script", putLines<true>},
    {"set", set},
    {"stations", writeStations},
    {"touch", touch},
};

// Notes what is written to standard output during its lifetime, as one printed text.
class CapturedOutput {
  public:
    CapturedOutput() : stdout_(std::exchange(stdout, open_memstream(&text_, &size_))) {}
    ~CapturedOutput() {
        std::fclose(std::exchange(stdout, stdout_));
        if (size_ > 0) {
            notes().push_back(std::string("prints ") + text_);
        }
        std::free(text_);
    }
    CapturedOutput(const CapturedOutput &) = delete;
    CapturedOutput &operator=(const CapturedOutput &) = delete;

  private:
    char *text_ = nullptr;
    size_t size_ = 0;
    std::FILE *stdout_;
};

const Row *find(const Row *begin, const Row *end, const std::string &name) {
    const Row *row = std::find_if(begin, end, [&](const Row &each) { return name == each.name; });
    return row == end ? nullptr : row;
}

// Has a sanitizer that ends the run in the step name it after its report.
void nameInReports([[maybe_unused]] const std::string &step) {
#if defined(__SANITIZE_ADDRESS__)
    static std::string played;
    played = step;
    __sanitizer_set_death_callback([] { std::fprintf(stderr, "in the step: %s\n", played.c_str()); });
#endif
}

}  // namespace

bool ScriptedDevice::isAction(const std::string &step) {
    const std::string name = Words(step).text();
    return name == "with" || find(std::begin(kActions), std::end(kActions), name) != nullptr;
}

std::vector<Effect> ScriptedDevice::play(const std::string &step) {
    nameInReports(step);
    Words in(step);
    if (!isAction(step)) {
        const std::string name = in.text();
        if (const Row *row = find(std::begin(kPreparations), std::end(kPreparations), name); row != nullptr) {
            row->play(*this, in);
            in.expectEnd();
            return {};
        }
        misread("no such step", name);
    }
    std::vector<Undo> undo;
    std::optional<std::pair<std::string, size_t>> failing;
    std::string setting, value;
    for (bool isWith = in.accept("with"); isWith;) {
        if (in.accept("fail")) {
            const std::string kind = in.text();
            failing.emplace(kind, in.number());
        } else if (in.acceptSetting(setting, value)) {
            undo.push_back(apply(*this, setting, value));
        } else {
            isWith = false;
        }
    }
    const std::string name = in.text();
    const Row *action = find(std::begin(kActions), std::end(kActions), name);
    if (action == nullptr) {
        misread("no action after with", name);
    }
    takeNotes();
    sender.reset();
    repeats = 1;
    result = 0;
    const Values before = observe();
    {
        const CapturedOutput output;
        std::optional<FailingCall> failure;
        if (failing) {
            failure.emplace(failing->first, failing->second);
        }
        action->play(*this, in);
        failureIsMissing = failure && !failure->happened();
    }
    in.expectEnd();
    std::vector<Effect> effects = effectsSince(before);
    for (auto each = undo.rbegin(); each != undo.rend(); ++each) {
        (*each)();
    }
    return effects;
}

}  // namespace kvtest
