#include "daemon/plugin_side.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "daemon/event_loop.h"
#include "daemon/shared_files.h"
#include "support/log.h"

namespace kv1905d {
namespace {

constexpr uint64_t kUpdateEvery = 5;  // seconds between checks of the local configuration files
constexpr uint64_t kBssEvery = 60;    // seconds between lookups of the MDIDs, which may run nvram
constexpr int8_t kNoSignal = -90;     // dBm, reported for a station that is not associated here

void freeInterfaceList(KvIntfList *list) {
    for (KvIntfEntry *entry = list->head; entry != nullptr;) {
        KvIntfEntry *next = entry->next;
        std::free(entry);
        entry = next;
    }
    std::free(list);
}

// Returns a copy for the plug-in, which frees it. Null when memory runs out.
KvIntfList *newInterfaceList(const Device &device) {
    auto *list = static_cast<KvIntfList *>(std::calloc(1, sizeof(KvIntfList)));
    if (list == nullptr) return nullptr;
    KvIntfEntry **end = &list->head;
    for (const DeviceInterface &interface : device.interfaces) {
        *end = static_cast<KvIntfEntry *>(std::calloc(1, sizeof(KvIntfEntry)));
        if (*end == nullptr) {
            freeInterfaceList(list);
            return nullptr;
        }
        std::copy(interface.facts.mac.bytes.begin(), interface.facts.mac.bytes.end(), (*end)->mac);
        (*end)->mediaType = interface.facts.mediaType;
        end = &(*end)->next;
        ++list->count;
    }
    return list;
}

}  // namespace

PluginSide::PluginSide(const Options &options, Node &node, std::function<int()> requestDataModel,
                       std::function<void(const Event &)> observe)
    : options_(options),
      node_(node),
      requestDataModel_(std::move(requestDataModel)),
      observe_(std::move(observe)),
      plugin_(loadPlugin(options.plugin)),
      guard_(options.settingsFrom),
      bss_(plugin_, options.radios),
      polling_(std::chrono::seconds(options.queryInterval), node.config().seed, pollingActions()) {}

void PluginSide::start() {
    Device &local = node_.topology().local();
    removePlantedFiles();
    startPlugin(plugin_, *this, options_.alMac, local.vendor.data());
    initInterfaces();
    plugin_.paramUpdate();
}

void PluginSide::initInterfaces() {
    for (DeviceInterface &interface : node_.topology().local().interfaces)
        plugin_.interfaceInit(&interface.vendor, interface.facts.mediaType);
}

void PluginSide::everySecond(TimePoint now) {
    removePlantedFiles();
    Device &local = node_.topology().local();
    if (seconds_ % kUpdateEvery == 0) plugin_.deviceUpdate(local.vendor.data());
    if (seconds_ % kBssEvery == 0) {
        bss_.refresh();
        local.bss = bss_.elements();
    }
    ++seconds_;
    plugin_.mainLoop();
    polling_.run(node_.topology(), now);
}

void PluginSide::receive(const VendorTlv &tlv, const VendorMessage &message,
                         const std::optional<MacAddress> &controller, TimePoint now) {
    if (!guard_.admits(tlv, message, controller, node_.topology(), now)) return;
    KvRecvVendTlv received{};
    std::copy(tlv.source.bytes.begin(), tlv.source.bytes.end(), received.srcMac);
    received.value = tlv.value.data();
    removePlantedFiles();
    const TimePoint start = EventLoop::now();
    plugin_.tlvHandle(&received, static_cast<uint32_t>(tlv.value.size()), tlv.msgId);
    const TimePoint end = EventLoop::now();
    guard_.charge(end - start, end);
}

void PluginSide::announceConfiguration() {
    removePlantedFiles();
    if (isController()) {
        KV_HOST_LOG(KV_LOG_WARNING, "no configuration to announce: this device is not an agent");
    } else if (plugin_.confRespSend(nullptr, 0, 1) != KV_RET_OK) {
        KV_HOST_LOG(KV_LOG_WARNING, "the configuration could not be announced");
    }
}

MainNetworks PluginSide::mainNetworks() const {
    MainNetworks networks;
    constexpr size_t slot = sizeof(*plugin_.mainSsid) / 2;
    for (size_t i = 0; i < 2; ++i) {
        const char *ssid = *plugin_.mainSsid + i * slot;
        networks.ssid[i].assign(ssid, strnlen(ssid, slot));
        networks.bssid[i] = MacAddress::copyOf(*plugin_.mainBssid + i * KV_MAC_LEN);
    }
    return networks;
}

OnboardingActions PluginSide::onboardingActions() {
    OnboardingActions actions;
    actions.isController = [this] { return isController(); };
    actions.extension = [this](Band band) { return bss_.attribute(band); };
    actions.readExtension = [this](ByteView value) { return bss_.readAttribute(value); };
    actions.requestSetting = [this](const MacAddress &alMac, int setting) {
        return plugin_.settingRequestSend(alMac.bytes.data(), setting);
    };
    return actions;
}

AgentPollingActions PluginSide::pollingActions() {
    AgentPollingActions actions;
    actions.isController = [this] { return isController(); };
    actions.query = [this](const MacAddress &alMac) { plugin_.confQuerySend(alMac.bytes.data(), 0); };
    return actions;
}

// ---- Operator commands

const PluginSide::OwnCommandRow PluginSide::kOwnCommands[] = {
    {kCommandRssi, &PluginSide::notifyRssi},
    {kCommandQueryStations, &PluginSide::queryStations},
    {kCommandQueryPower, &PluginSide::queryPower},
};

CommandEffect PluginSide::runCommand(uint32_t code, void *buffer) {
    KV_HOST_LOG(KV_LOG_INFO, "operator command %u", code);
    removePlantedFiles();
    const auto own = std::find_if(std::begin(kOwnCommands), std::end(kOwnCommands),
                                  [code](const OwnCommandRow &row) { return row.code == code; });
    uint64_t sent = node_.counters().vendorMessagesSent;
    int result = KV_RET_OK;
    if (own != std::end(kOwnCommands)) {
        result = (this->*own->run)(static_cast<const uint8_t *>(buffer));
    } else {
        plugin_.commandHandle(buffer, code);
    }
    sent = node_.counters().vendorMessagesSent - sent;
    return {sent, result};
}

int PluginSide::notifyRssi(const uint8_t *buffer) {
    KvRssiMeasurement measurement{};
    std::copy_n(buffer + KV_MAC_LEN, KV_MAC_LEN, measurement.staMac);
    measurement.rssi = static_cast<uint8_t>(kNoSignal);
    KvIntelVendMsg message{};
    message.payload = &measurement;
    return plugin_.rssiNotifySend(buffer, &message);
}

// ---- The plug-in's calls

uintptr_t PluginSide::dataQuery(uint32_t code, void *argument, uintptr_t argument2) {
    Topology &topology = node_.topology();
    const auto *mac = static_cast<const uint8_t *>(argument);
    Device *device = mac == nullptr ? &topology.local() : topology.find(MacAddress::copyOf(mac));
    switch (code) {
        case DM_QUERY_DEVICE:
            return mac != nullptr && device != nullptr ? KV_RET_OK : KV_RET_ERR;
        case DM_QUERY_ALMAC_BY_IFMAC: {
            const Device *owner = mac == nullptr ? nullptr : topology.findByAnyMac(MacAddress::copyOf(mac));
            if (owner == nullptr || argument2 == 0) return KV_RET_ERR;
            std::copy(owner->alMac.bytes.begin(), owner->alMac.bytes.end(), reinterpret_cast<uint8_t *>(argument2));
            return KV_RET_OK;
        }
        case DM_QUERY_DEV_VENDOR_DATA:
        case DM_QUERY_DEV_WIFI_NBR:
            return device == nullptr ? 0 : reinterpret_cast<uintptr_t>(device->vendor.data());
        case DM_QUERY_INTF_LIST:
            return device == nullptr ? 0 : reinterpret_cast<uintptr_t>(newInterfaceList(*device));
        default:
            KV_HOST_LOG(KV_LOG_WARNING, "data query %u is not known", code);
            return 0;
    }
}

int PluginSide::sendVendor(Reach reach, const KvVendMsgDest &dest, uint16_t *msgId) {
    const MacAddress destination = MacAddress::copyOf(dest.dstMac);
    const ByteView value(dest.buffer, dest.length);
    uint16_t ownId = 0;
    uint16_t *const id = msgId != nullptr ? msgId : &ownId;
    const TimePoint now = EventLoop::now();
    const bool sent = node_.sendVendor(reach, destination, value, id, now);
    const Device *device = reach == Reach::Unicast ? node_.topology().findByAnyMac(destination) : nullptr;
    if (device != nullptr) guard_.sent(device->alMac, *id, readVendorMessage(value), now);
    const std::string peer = reach == Reach::Unicast      ? destination.text()
                             : reach == Reach::Neighbours ? "multicast"
                                                          : "relayed multicast";
    observe_({Direction::Out, *id, peer + (sent ? "" : " (not sent)"), value});
    return sent ? KV_RET_OK : KV_RET_ERR;
}

}  // namespace kv1905d
