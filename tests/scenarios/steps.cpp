// The actions and preparations of scenarios, in a table by their names; docs/scenarios.md explains them.
#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <tuple>
#include <utility>

#include "features/device_control/firmware.h"
#include "features/device_control/firmware_upgrade_list.h"
#include "features/kvMAP1905_netCtrl.h"
#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "frame/local_files.h"
#include "frame/vendor_data.h"
#include "kv1905/vendor_messages.h"
#include "protocol/kvMAP1905_message.h"
#include "scenarios/scripted_device.h"
#include "support/device_files.h"
#include "support/fake_system.h"

// Of the sanitizers' runtime; null without one.
extern "C" [[gnu::weak]] void __sanitizer_set_death_callback(void (*callback)());

namespace kvtest {

namespace {

// Returns a number, or the type of a message by its name.
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
    device.host.receive(*device.sender, readValue(writer, in), device.requestId, hasLength);
}

// Each shorter message, and each shorter payload with its true length.
void receiveCuts(ScriptedDevice &device, Words &in) {
    const uint16_t type = messageType(in);
    const Bytes payload = in.bytes(), whole = message(kAgent, type, payload);
    for (size_t length = 0; length < whole.size(); ++length) {
        device.host.receive(kAgent, head(whole, length), 1);
    }
    for (size_t length = 0; length < payload.size(); ++length) {
        device.host.receive(kAgent, message(kAgent, type, head(payload, length)), 1);
    }
    device.repeats = static_cast<int>(whole.size() + payload.size());
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
    if (!in.empty()) {
        list.InterfaceNumberOfEntries = static_cast<uint32_t>(in.number());
    }
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
    KvIntelVendMsg intel = {{}, {}, {}, 0, 0, {0x21, 0x22, 0x23, 0x24, 0x25, 0x26}, {0x31, 0x32}, nullptr};
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
            intel.payload = in.accept("without") ? nullptr : &signal;
            return &intel;
        } else if constexpr (std::is_same_v<Argument, KvMdidInterfaceList *>) {
            readMdids(mdids, in);
            outputs.push_back([this] {
                for (size_t i = 0; device.result == 0 && length == 1 && i < mdids.InterfaceNumberOfEntries; ++i) {
                    give(std::to_string(mdids.interfaces[i].mdid));
                }
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
        for (const auto &output : arguments.outputs) {
            output();
        }
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
    if (!callees.contains(name)) {
        misread("no function that can be called", name);
    }
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
    if (!entries.contains(name)) {
        misread("no entry of the tool", name);
    }
    std::vector<std::string> words = {"kv1905App", "N"};
    while (!in.empty()) {
        words.push_back(in.text());
    }
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
    for (uint8_t i = 0; i < count; ++i) {
        text += "02:00:00:00:00:" + hexText(&i, 1) + " " + figures + "\n";
    }
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
    for (std::string name, value; in.acceptSetting(name, value);) {
        device.change(name, value);
    }
}

struct Row {
    const char *name;
    bool isAction;
    void (*play)(ScriptedDevice &device, Words &in);
};

const Row kRows[] = {
    {"call", true, call},
    {"command", true, command},
    {"cuts", true, receiveCuts},
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
    {"touch", false,
     [](ScriptedDevice &, Words &in) {
         std::apply(touchFile, std::pair<std::string, std::time_t>{scriptPath(in.text()), in.number()});
     }},
};

// Notes what is written to standard output during its lifetime, as one printed text.
struct CapturedOutput {
    ~CapturedOutput() {
        std::fclose(std::exchange(stdout, before));
        if (size > 0) {
            notes.push_back(std::string("prints ") + text);
        }
        std::free(text);
    }

    char *text = nullptr;
    size_t size = 0;
    std::FILE *before = std::exchange(stdout, open_memstream(&text, &size));
};

}  // namespace

std::optional<Effects> ScriptedDevice::play(Words in) {
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
    if (row == std::end(kRows) || (isWith && !row->isAction)) {
        misread(isWith ? "no such action" : "no such step", name);
    }
    const auto play = [&] {
        row->play(*this, in);
        if (!in.empty()) {
            misread("unexpected word", in.text());
        }
    };
    if (!row->isAction) {
        play();
        return {};
    }
    std::remove(scriptPath("result").c_str());
    notes.clear();
    sender.reset();
    repeats = 1;
    result = 0;
    const auto before = observe();
    {
        const CapturedOutput output;
        failure = failing;
        play();
        failureIsMissing = std::exchange(failure, {}).nth != 0;
    }
    const Effects effects = effectsSince(before);
    for (; !changed.empty(); changed.pop_back()) {
        change(changed.back().first, changed.back().second);
    }
    return effects;
}

}  // namespace kvtest
