#include "daemon/daemon.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <stdexcept>

namespace kv1905d {
namespace {

constexpr int kFramesPerTurn = 64;           // read from one socket before the others have their turn
constexpr size_t kLargestFrame = 65536;      // bytes; larger than any interface delivers
constexpr uint64_t kUpdateEvery = 5;         // seconds between looks at the local configuration files
constexpr Time kWriteSpacing{1000};          // between JSON files, which every report of stations asks for
constexpr int kWritePause = 4;               // times as long as a write took; a flood makes large files
constexpr int8_t kNoSignal = -90;            // dBm, told of a station that is not here
constexpr uint64_t kWriteEvery = 3;          // seconds between JSON files when there is no plug-in to ask for them
constexpr uint64_t kBssEvery = 60;           // seconds between looks at the MDIDs, which may run nvram
constexpr unsigned kSilentAgentRounds = 10;  // agents that never answered are asked in one round of so many

Time monotonicNow() {
    return std::chrono::duration_cast<Time>(std::chrono::nanoseconds(uv_hrtime()));
}

void requireUv(int result, const char *step) {
    if (result < 0) throw std::runtime_error(std::string("event loop: ") + step + ": " + uv_strerror(result));
}

void freeInterfaceList(KvIntfList *list) {
    for (KvIntfEntry *entry = list->head; entry != nullptr;) {
        KvIntfEntry *next = entry->next;
        std::free(entry);
        entry = next;
    }
    std::free(list);
}

// A list of its own for the plug-in, which frees it. Null when memory runs out.
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

const Daemon::SignalRow Daemon::kSignals[] = {
    {SIGTERM, &Daemon::stop},
    {SIGINT, &Daemon::stop},
    {SIGUSR1, &Daemon::announceConfiguration},
};

Daemon::Daemon(const Options &options) : options_(options), commands_(options.socket), guard_(options.settingsFrom) {
    static_assert(std::size(kSignals) == kSignalCount);
    NodeConfig config = openPorts();
    if (!options_.plugin.empty()) plugin_ = loadPlugin(options_.plugin);
    node_ = std::make_unique<Node>(std::move(config), nodeEvents(), monotonicNow());
    openLoop();
    onboarding_.emplace(*node_, onboardingActions(), monotonicNow());
    if (plugin_) initPlugin();  // may ask for the JSON file
}

Daemon::~Daemon() {
    closeLoop();
}

NodeConfig Daemon::openPorts() {
    NodeConfig config;
    config.alMac = options_.alMac;
    config.discoveryInterval = std::chrono::seconds(options_.discoveryInterval);
    config.seed = std::random_device{}();
    for (const std::string &name : options_.interfaces) {
        auto watch = std::make_unique<Watch>();
        watch->daemon = this;
        watch->port = watches_.size();
        watch->fd = openPort(name);
        const std::optional<MacAddress> mac = interfaceMac(name);
        if (!mac) throw std::runtime_error("interface " + name + " vanished");
        Port port;
        port.name = name;
        port.mac = *mac;
        port.fd = watch->fd.get();
        config.ports.push_back(std::move(port));
        watches_.push_back(std::move(watch));
    }
    for (const RadioOption &radio : options_.radios) {
        config.radios.push_back(radio.facts);
        KV_HOST_LOG(KV_LOG_INFO, "radio %s: %s, media type 0x%04x", radio.name.c_str(), radio.facts.mac.text().c_str(),
                    radio.facts.mediaType);
    }
    if (!options_.bridge.empty()) {
        bridge_ = openSender(options_.bridge);
        config.bridgeFd = bridge_.get();
    }
    return config;
}

NodeEvents Daemon::nodeEvents() {
    NodeEvents events;
    events.autoconfiguration = [this](const MacAddress &source, const Message &message, Time now) {
        return onboarding_->receive(source, message, now);
    };
    events.vendorTlv = [this](const MacAddress &source, ByteView value, uint16_t msgId) {
        receiveVendorTlv(source, value, msgId);
    };
    if (!plugin_) return events;
    events.topologyResponse = [this](Device &device) { topologyResponse(device); };
    events.extraTopologyTlvs = [this] { return bss_->topologyTlvs(); };
    return events;
}

void Daemon::receiveVendorTlv(const MacAddress &source, ByteView value, uint16_t msgId) {
    if (options_.trace) trace(Way::In, source.text(), msgId, value);
    complainOfMalformed(source, value);
    if (!plugin_ || !guard_.admits(source, value, onboarding_->controller(), node_->topology(), monotonicNow(),
                                   node_->arrivedOn().c_str()))
        return;
    KvRecvVendTlv tlv{};
    std::copy(source.bytes.begin(), source.bytes.end(), tlv.srcMac);
    tlv.value = value.data();
    plugin_->tlvHandle(&tlv, static_cast<uint32_t>(value.size()), msgId);
}

// The plug-in's own line about a message that it refuses does not tell where that came from.
void Daemon::complainOfMalformed(const MacAddress &source, ByteView value) {
    const std::string fault = faultOf(value);
    unsigned held = 0;
    if (fault.empty() || !complaints_.open(monotonicNow(), &held)) return;
    KV_HOST_LOG(KV_LOG_WARNING, "%s: vendor message from %s: %s (%u more lines held back)", node_->arrivedOn().c_str(),
                source.text().c_str(), fault.c_str(), held);
}

// Line by line, so that a pipe shows each message at once.
void Daemon::trace(Way way, std::string_view peer, uint16_t msgId, ByteView value) const {
    timeval now{};
    tm clock{};
    gettimeofday(&now, nullptr);
    localtime_r(&now.tv_sec, &clock);
    std::printf("%02d:%02d:%02d.%03ld %s\n", clock.tm_hour, clock.tm_min, clock.tm_sec,
                static_cast<long>(now.tv_usec / 1000), traceLine(way, peer, msgId, value).c_str());
    std::fflush(stdout);
}

void Daemon::initPlugin() {
    Device &local = node_->topology().local();
    startPlugin(*plugin_, *this, options_.alMac, local.vendor.data());
    for (DeviceInterface &interface : local.interfaces) {
        plugin_->interfaceInit(&interface.vendor, interface.facts.mediaType);
    }
    plugin_->paramUpdate();
    bss_.emplace(*plugin_, options_.radios);
}

// ---- Event loop

void Daemon::openLoop() {
    requireUv(uv_loop_init(&loop_), "start");
    loop_.data = this;
    uv_timer_init(&loop_, &nodeTimer_);
    uv_timer_init(&loop_, &secondTimer_);
    uv_timer_init(&loop_, &writeTimer_);
    for (uv_signal_t &handle : signals_)
        uv_signal_init(&loop_, &handle);
}

void Daemon::closeLoop() {
    if (loop_.data == nullptr) return;
    const auto close = [](uv_handle_t *handle, void *) {
        if (!uv_is_closing(handle)) uv_close(handle, nullptr);
    };
    uv_walk(&loop_, close, nullptr);
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
}

void Daemon::run() {
    for (size_t i = 0; i < kSignalCount; ++i) {
        const auto callback = [](uv_signal_t *handle, int number) {
            auto *self = static_cast<Daemon *>(handle->loop->data);
            for (const SignalRow &row : kSignals) {
                if (row.number == number) (self->*row.act)();
            }
        };
        requireUv(uv_signal_start(&signals_[i], callback, kSignals[i].number), "catch a signal");
    }
    for (const auto &watchPointer : watches_) {
        requireUv(uv_poll_init(&loop_, &watchPointer->handle, watchPointer->fd.get()), "watch a socket");
        watchPointer->handle.data = watchPointer.get();
        watch(*watchPointer);
    }
    requireUv(commands_.start(loop_, commandActions()), "watch the command socket");
    const auto tick = [](uv_timer_t *handle) { static_cast<Daemon *>(handle->loop->data)->everySecond(); };
    requireUv(uv_timer_start(&secondTimer_, tick, 0, 1000), "start a timer");
    KV_HOST_LOG(KV_LOG_NOTICE, "kv1905d %s runs as %s %s on %zu interface(s)", KV1905_VERSION, role(),
                options_.alMac.text().c_str(), watches_.size());
    schedule();
    uv_run(&loop_, UV_RUN_DEFAULT);
    KV_HOST_LOG(KV_LOG_NOTICE, "kv1905d ends");
}

void Daemon::watch(Watch &watch) {
    const auto callback = [](uv_poll_t *handle, int status, int) {
        auto *ready = static_cast<Watch *>(handle->data);
        if (status < 0) ready->polling = false;
        ready->daemon->readFrames(*ready);  // also takes a pending error off the socket
        ready->daemon->schedule();
    };
    watch.polling = uv_poll_start(&watch.handle, UV_READABLE, callback) == 0;
}

void Daemon::readFrames(Watch &watch) {
    static std::array<uint8_t, kLargestFrame> buffer;
    for (int i = 0; i < kFramesPerTurn; ++i) {
        const ssize_t size = recv(watch.fd.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size >= 0) {
            node_->receive(watch.port, ByteView(buffer).first(static_cast<size_t>(size)), monotonicNow());
            continue;
        }
        if (errno == EAGAIN || errno == EINTR) return;
        KV_HOST_LOG(KV_LOG_WARNING, "%s: receive: %s", options_.interfaces[watch.port].c_str(), std::strerror(errno));
        return;
    }
}

// Do what the node has to do now and come back when it has more.
void Daemon::schedule() {
    const Time now = monotonicNow();
    const Time wait = node_->run(now) - now;
    uv_update_time(&loop_);
    wake(static_cast<uint64_t>(wait.count()));
}

void Daemon::wake(uint64_t delay) {
    const auto callback = [](uv_timer_t *handle) { static_cast<Daemon *>(handle->loop->data)->schedule(); };
    uv_timer_start(&nodeTimer_, callback, delay, 0);
}

void Daemon::everySecond() {
    checkLinks();
    if (plugin_) {
        if (seconds_ % kUpdateEvery == 0) plugin_->deviceUpdate(node_->topology().local().vendor.data());
        if (seconds_ % kBssEvery == 0) refreshBss();
        plugin_->mainLoop();
        pollConfigurations();
    } else if (seconds_ % kWriteEvery == 0) {
        writeDataModel();
    }
    onboarding_->run(monotonicNow());
    ++seconds_;
    schedule();
}

void Daemon::checkLinks() {
    for (const auto &entry : watches_) {
        if (!entry->polling) watch(*entry);
        const bool running = interfaceRunning(options_.interfaces[entry->port]);
        if (running == entry->running) continue;
        entry->running = running;
        node_->linkChanged(entry->port, running, monotonicNow());
    }
}

// ---- Signals

void Daemon::stop() {
    uv_stop(&loop_);
}

void Daemon::announceConfiguration() {
    if (!plugin_ || isController()) {
        KV_HOST_LOG(KV_LOG_WARNING, "no configuration to announce: this device is no agent");
    } else if (plugin_->confRespSend(nullptr, 0, 1) != KV_RET_OK) {
        KV_HOST_LOG(KV_LOG_WARNING, "the configuration could not be announced");
    }
}

// ---- Onboarding

OnboardingActions Daemon::onboardingActions() {
    OnboardingActions actions;
    actions.isController = [this] { return isController(); };
    if (!plugin_) return actions;
    actions.extension = [this](Band band) { return bss_->attribute(band); };
    actions.readExtension = [this](ByteView value) { return bss_->readAttribute(value); };
    actions.requestSetting = [this](const MacAddress &alMac, int setting) {
        return plugin_->settingRequestSend(alMac.bytes.data(), setting);
    };
    return actions;
}

void Daemon::refreshBss() {
    bss_->refresh();
    node_->topology().local().bss = bss_->elements();
}

// ---- Operator commands

CommandActions Daemon::commandActions() {
    CommandActions actions;
    if (!plugin_) return actions;
    actions.find = [this](const MacAddress &alMac) {
        const Device *device = node_->topology().find(alMac);
        if (device == nullptr) return Presence::Unknown;
        return device->local ? Presence::Local : Presence::Known;
    };
    actions.run = [this](uint32_t code, void *buffer) { return runCommand(code, buffer); };
    return actions;
}

const Daemon::OwnCommandRow Daemon::kOwnCommands[] = {
    {kCommandRssi, &Daemon::notifyRssi},
    {kCommandQueryStations, &Daemon::queryStations},
    {kCommandQueryPower, &Daemon::queryPower},
};

CommandEffect Daemon::runCommand(uint32_t code, void *buffer) {
    KV_HOST_LOG(KV_LOG_INFO, "operator command %u", code);
    const auto own = std::find_if(std::begin(kOwnCommands), std::end(kOwnCommands),
                                  [code](const OwnCommandRow &row) { return row.code == code; });
    const uint64_t before = node_->counters().vendorMessagesSent;
    int result = KV_RET_OK;
    if (own != std::end(kOwnCommands)) {
        result = (this->*own->run)(static_cast<const uint8_t *>(buffer));
    } else {
        plugin_->commandHandle(buffer, code);
    }
    wake(0);  // what it sent to this device itself waits for the node, and must not come before the tool's reply
    return {node_->counters().vendorMessagesSent - before, result};
}

int Daemon::notifyRssi(const uint8_t *buffer) {
    KvRssiMeasurement measurement{};
    std::copy_n(buffer + KV_MAC_LEN, KV_MAC_LEN, measurement.staMac);
    measurement.rssi = static_cast<uint8_t>(kNoSignal);
    KvIntelVendMsg message{};
    message.payload = &measurement;
    return plugin_->rssiNotifySend(buffer, &message);
}

int Daemon::queryStations(const uint8_t *buffer) {
    return plugin_->wifiStateQuerySend(buffer, 0);
}

int Daemon::queryPower(const uint8_t *buffer) {
    return plugin_->powerQuerySend(buffer, 0);
}

// ---- The controller's duties

void Daemon::topologyResponse(Device &device) {
    if (isController() && device.poll.announced) queryConfiguration(device);
}

void Daemon::pollConfigurations() {
    if (!isController()) return;
    const Time now = monotonicNow();
    for (const auto &[alMac, device] : node_->topology().devices()) {
        if (device->local || device->poll.due > now) continue;
        uint8_t speaks = 0;
        plugin_->checkAgent(alMac.bytes.data(), &speaks);
        if (speaks != 0 || ++device->poll.roundsSkipped >= kSilentAgentRounds) {
            queryConfiguration(*device);
        } else {
            device->poll.due = now + node_->jittered(std::chrono::seconds(options_.queryInterval));
        }
    }
}

void Daemon::queryConfiguration(Device &device) {
    device.poll.announced = false;
    device.poll.roundsSkipped = 0;
    device.poll.due = monotonicNow() + node_->jittered(std::chrono::seconds(options_.queryInterval));
    plugin_->confQuerySend(device.alMac.bytes.data(), 0);
}

// ---- What the plug-in asks of the host

Device *Daemon::deviceFor(const void *alMac) {
    Topology &topology = node_->topology();
    if (alMac == nullptr) return &topology.local();
    return topology.find(MacAddress::copyOf(static_cast<const uint8_t *>(alMac)));
}

uintptr_t Daemon::dataQuery(uint32_t code, void *argument, uintptr_t argument2) {
    using Answer = uintptr_t (*)(Daemon &, void *, uintptr_t);
    constexpr Answer record = [](Daemon &self, void *alMac, uintptr_t) -> uintptr_t {
        Device *device = self.deviceFor(alMac);
        return device == nullptr ? 0 : reinterpret_cast<uintptr_t>(device->vendor.data());
    };
    constexpr Answer known = [](Daemon &self, void *alMac, uintptr_t) -> uintptr_t {
        return alMac != nullptr && self.deviceFor(alMac) != nullptr ? KV_RET_OK : KV_RET_ERR;
    };
    constexpr Answer owner = [](Daemon &self, void *mac, uintptr_t out) -> uintptr_t {
        if (mac == nullptr || out == 0) return KV_RET_ERR;
        const MacAddress wanted = MacAddress::copyOf(static_cast<const uint8_t *>(mac));
        const Device *device = self.node_->topology().findByAnyMac(wanted);
        if (device == nullptr) return KV_RET_ERR;
        std::copy(device->alMac.bytes.begin(), device->alMac.bytes.end(), reinterpret_cast<uint8_t *>(out));
        return KV_RET_OK;
    };
    constexpr Answer interfaces = [](Daemon &self, void *alMac, uintptr_t) -> uintptr_t {
        const Device *device = self.deviceFor(alMac);
        return device == nullptr ? 0 : reinterpret_cast<uintptr_t>(newInterfaceList(*device));
    };
    constexpr Answer answers[] = {known, owner, record, interfaces, record};  // by DM_QUERY_*
    static_assert(DM_QUERY_DEVICE == 0 && DM_QUERY_ALMAC_BY_IFMAC == 1 && DM_QUERY_DEV_VENDOR_DATA == 2 &&
                  DM_QUERY_INTF_LIST == 3 && DM_QUERY_DEV_WIFI_NBR == 4);
    if (code >= std::size(answers)) {
        KV_HOST_LOG(KV_LOG_WARNING, "data query %u is not known", code);
        return 0;
    }
    return answers[code](*this, argument, argument2);
}

// Early requests become one write when the spacing has passed; until then the last result stands.
int Daemon::writeDataModel() {
    const Time wait = nextWrite_ - monotonicNow();
    if (wait <= Time{}) return writeDataModelNow();
    if (!uv_is_active(reinterpret_cast<uv_handle_t *>(&writeTimer_))) {
        const auto callback = [](uv_timer_t *handle) {
            static_cast<Daemon *>(handle->loop->data)->writeDataModelNow();
        };
        uv_update_time(&loop_);
        uv_timer_start(&writeTimer_, callback, static_cast<uint64_t>(wait.count()), 0);
    }
    return lastWrite_;
}

int Daemon::writeDataModelNow() {
    const time_t wallClock = std::time(nullptr);
    const Time now = monotonicNow();
    uv_timer_stop(&writeTimer_);
    lastWrite_ = writeDataModelFile(now, wallClock);
    nextWrite_ = now + std::max(kWriteSpacing, (monotonicNow() - now) * (1 + kWritePause));
    if (plugin_ && lastWrite_ == KV_RET_OK) *plugin_->dataModelTimeStamp = static_cast<uint32_t>(wallClock);
    return lastWrite_;
}

int Daemon::writeDataModelFile(Time now, time_t wallClock) {
    try {
        replaceFile(options_.dataModel,
                    dataModelJson({node_->topology(), counters(), role(), mainNetworks(), now, wallClock,
                                   onboarding_->controller(), plugin_ ? *plugin_->stationCount : 0}));
    } catch (const std::exception &error) {
        unsigned held = 0;
        if (writeFailures_.open(now, &held)) {
            KV_HOST_LOG(KV_LOG_ERROR, "JSON file not written: %s (%u more lines held back)", error.what(), held);
        }
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

Counters Daemon::counters() const {
    Counters counters = node_->counters();
    counters.vendorTlvsRefused = guard_.refused();
    return counters;
}

const char *Daemon::role() const {
    if (!plugin_) return "Member";
    return isController() ? "Controller" : "Agent";
}

MainNetworks Daemon::mainNetworks() const {
    MainNetworks networks;
    if (!plugin_) return networks;
    constexpr size_t slot = sizeof(*plugin_->mainSsid) / 2;
    for (size_t i = 0; i < 2; ++i) {
        const char *ssid = *plugin_->mainSsid + i * slot;
        networks.ssid[i].assign(ssid, strnlen(ssid, slot));
        networks.bssid[i] = MacAddress::copyOf(*plugin_->mainBssid + i * KV_MAC_LEN);
    }
    return networks;
}

int Daemon::sendVendor(Reach reach, const KvVendMsgDest &dest, uint16_t *msgId) {
    const MacAddress destination = MacAddress::copyOf(dest.dstMac);
    const ByteView value(dest.buffer, dest.length);
    uint16_t ownId = 0;
    uint16_t *const id = msgId != nullptr ? msgId : &ownId;
    const bool sent = node_->sendVendor(reach, destination, value, id, monotonicNow());
    if (options_.trace) {
        std::string peer = reach == Reach::Unicast      ? destination.text()
                           : reach == Reach::Neighbours ? "multicast"
                                                        : "relayed multicast";
        trace(Way::Out, peer + (sent ? "" : " (not sent)"), *id, value);
    }
    return sent ? KV_RET_OK : KV_RET_ERR;
}

int Daemon::sendUnicast(const KvVendMsgDest &dest, uint16_t *msgId) {
    return sendVendor(Reach::Unicast, dest, msgId);
}

int Daemon::sendToNeighbours(const KvVendMsgDest &dest, uint16_t *msgId) {
    return sendVendor(Reach::Neighbours, dest, msgId);
}

int Daemon::sendToNetwork(const KvVendMsgDest &dest, uint16_t *msgId) {
    return sendVendor(Reach::Network, dest, msgId);
}

}  // namespace kv1905d
