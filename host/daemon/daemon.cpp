#include "daemon/daemon.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "command/trace.h"
#include "kv1905/version.h"

namespace kv1905d {
namespace {

constexpr int kFramesPerTurn = 64;  // frames read from one socket before the others
constexpr size_t kMaxForeignLogged = 256;
constexpr size_t kLargestFrame = 65536;  // bytes; larger than any interface delivers
constexpr Duration kStatisticsLife{1000};
constexpr Duration kLongestWait{1000};  // of a frame in a socket; after a stall, newer frames matter more

// Replaces the socket of a descriptor without changing its number.
void replaceSocket(FileDescriptor &fd, const FileDescriptor &fresh) {
    if (dup3(fresh.get(), fd.get(), O_CLOEXEC) < 0) throw std::system_error(errno, std::generic_category(), "dup3");
}

std::string hostName() {
    char name[HOST_NAME_MAX + 1] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

void printUnhandled(const MacAddress &source, const Message &message) {
    char name[32];
    std::snprintf(name, sizeof name, "message 0x%04x", message.type);
    printTrace(traceLine(Direction::In, source.text(), message.id, {.name = name, .words = "not handled"}));
}

}  // namespace

Daemon::Daemon(const Options &options, Heartbeat heartbeat)
    : options_(options),
      heartbeat_(std::move(heartbeat)),
      commands_(options.socket),
      writer_(EventLoop::now, [this] { writeDataModel(); }),
      nodeTimer_(loop_.addTimer([this] { schedule(); })) {
    const TimePoint now = EventLoop::now();
    node_ = std::make_unique<Node>(openPorts(), nodeEvents(), now);
    if (!options_.plugin.empty()) {
        plugin_ = std::make_unique<PluginSide>(
            options_, *node_, [this] { return writer_.request(DataModelWriter::Reason::Report); },
            [this](const Event &event) { observe(event); });
    }
    onboarding_ = std::make_unique<Onboarding>(*node_, onboardingActions(), now);
    if (plugin_) plugin_->start();
}

NodeConfig Daemon::openPorts() {
    NodeConfig config;
    config.alMac = options_.alMac;
    config.name = hostName();
    config.discoveryInterval = std::chrono::seconds(options_.discoveryInterval);
    config.seed = std::random_device{}();
    for (const std::string &name : options_.interfaces) {
        ports_.push_back({openPort(name)});
        const std::optional<MacAddress> mac = interfaceMac(name);
        if (!mac) throw std::runtime_error("interface " + name + " vanished");
        config.ports.push_back({name, *mac});
        config.ports.back().fd = ports_.back().fd.get();
        if (ports_.size() <= options_.mediaTypes.size()) {
            config.ports.back().mediaType = options_.mediaTypes[ports_.size() - 1];
        }
    }
    for (const Radio &radio : options_.radios) {
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
    events.autoconfiguration = [this](const MacAddress &source, const Message &message, TimePoint now) {
        return onboarding_->receive(source, message, now);
    };
    events.vendorTlv = [this](const VendorTlv &tlv) { receiveVendorTlv(tlv); };
    events.linkStatistics = [this](size_t port) { return linkStatistics(port); };
    if (options_.trace) events.unhandled = printUnhandled;
    if (options_.plugin.empty()) return events;
    events.notification = [this](const MacAddress &alMac) { plugin_->polling().notified(alMac); };
    events.topologyResponse = [this](const MacAddress &alMac) {
        plugin_->polling().responded(alMac, EventLoop::now());
    };
    events.extraTopologyTlvs = [this] { return plugin_->bss().topologyTlvs(); };
    return events;
}

OnboardingActions Daemon::onboardingActions() {
    if (plugin_) return plugin_->onboardingActions();
    OnboardingActions actions;
    actions.isController = [] { return false; };
    return actions;
}

CommandActions Daemon::commandActions() {
    CommandActions actions;
    if (!plugin_) return actions;
    actions.find = [this](const MacAddress &alMac) {
        const Device *device = node_->topology().find(alMac);
        if (device == nullptr) return Presence::Unknown;
        return device->local ? Presence::Local : Presence::Known;
    };
    actions.run = [this](uint32_t code, void *buffer) {
        const CommandEffect effect = plugin_->runCommand(code, buffer);
        writer_.request(DataModelWriter::Reason::Change);
        // Lets the node deliver messages to this device itself, after the tool's reply.
        nodeTimer_.start(Duration{});
        return effect;
    };
    return actions;
}

void Daemon::run() {
    for (const int number : {SIGTERM, SIGINT})
        loop_.onSignal(number, [this] { loop_.stop(); });
    loop_.onSignal(SIGUSR1, [this] { announceConfiguration(); });
    for (size_t port = 0; port < ports_.size(); ++port) {
        ports_[port].watch = &loop_.watch(ports_[port].fd.get(), [this, port] {
            readFrames(port);  // also clears a pending error of the socket
            schedule();
        });
    }
    commands_.start(loop_, commandActions());
    loop_.addTimer([this] { everySecond(); }).start(Duration{}, std::chrono::seconds(1));
    KV_HOST_LOG(KV_LOG_NOTICE, "kv1905d %s runs as %s %s on %zu interface(s)", KV1905_VERSION, role(),
                options_.alMac.text().c_str(), ports_.size());
    schedule();
    loop_.run();
    heartbeat_.end();
    KV_HOST_LOG(KV_LOG_NOTICE, "kv1905d ends");
}

void Daemon::readFrames(size_t port) {
    static std::array<uint8_t, kLargestFrame> buffer;
    for (int i = 0; i < kFramesPerTurn; ++i) {
        const auto [size, waited] = receiveFrame(ports_[port].fd.get(), buffer);
        if (waited > kLongestWait) {
            ++framesLate_;
            late_.log(KV_LOG_WARNING, EventLoop::now(), "%s: dropped frames that waited for more than a second",
                      options_.interfaces[port].c_str());
            continue;
        }
        if (size >= 0) {
            node_->receive(port, ByteView(buffer).first(static_cast<size_t>(size)), EventLoop::now());
            continue;
        }
        if (errno == EAGAIN || errno == EINTR) return;
        KV_HOST_LOG(KV_LOG_WARNING, "%s: receive: %s", options_.interfaces[port].c_str(), std::strerror(errno));
        return;
    }
}

void Daemon::receiveVendorTlv(const VendorTlv &tlv) {
    const std::string source = tlv.source.text();
    const VendorMessage message = readVendorMessage(tlv.value);
    observe({Direction::In, tlv.msgId, source, tlv.value});
    if (message.isForeign) return noteForeign(tlv, message.name);
    Device *device = node_->topology().find(tlv.source);
    if (device != nullptr && message.isVendors && !message.fault) device->sentVendorMessage = true;
    // The plug-in's own line about a message that it refuses does not contain the source.
    if (message.fault) {
        malformed_.log(KV_LOG_WARNING, EventLoop::now(), "%s: vendor message from %s: %s malformed: %s",
                       tlv.interface.c_str(), source.c_str(), message.name.c_str(), message.fault->c_str());
    }
    if (plugin_) plugin_->receive(tlv, message, onboarding_->controller(), EventLoop::now());
}

void Daemon::noteForeign(const VendorTlv &tlv, const std::string &name) {
    ++foreignTlvs_;
    if (foreignLogged_.size() >= kMaxForeignLogged || !foreignLogged_.emplace(tlv.source, name).second) return;
    KV_HOST_LOG(KV_LOG_INFO, "%s: %s from %s is not for the plug-in; more of them are only counted",
                tlv.interface.c_str(), name.c_str(), tlv.source.text().c_str());
}

void Daemon::observe(const Event &event) {
    if (options_.trace) printTrace(traceLine(event.direction, event.peer, event.msgId, readVendorMessage(event.value)));
    commands_.publish(event);
}

// Runs what is due in node and JSON file, and sets the timer for what is next.
void Daemon::schedule() {
    const TimePoint nextOfNode = node_->run(EventLoop::now());
    if (std::exchange(shownChanges_, node_->topology().changes()) != node_->topology().changes()) {
        writer_.request(DataModelWriter::Reason::Change);
    }
    const TimePoint next = std::min(nextOfNode, writer_.run());
    nodeTimer_.start(std::max(Duration{}, next - EventLoop::now()));
}

void Daemon::everySecond() {
    heartbeat_.beat();
    checkLinks();
    if (plugin_) plugin_->everySecond(EventLoop::now());
    writer_.request(DataModelWriter::Reason::Report);  // ages and counters
    onboarding_->run(EventLoop::now());
    schedule();
}

// Replaces the socket of an interface that was deleted and created again, or moved away and back.
void Daemon::followInterface(size_t port) {
    const std::string &name = options_.interfaces[port];
    PortSocket &socket = ports_[port];
    const int index = interfaceIndex(name);
    const std::optional<MacAddress> mac = interfaceMac(name);
    if (index == 0 || !mac) return;  // it may return
    if (index != boundInterface(socket.fd.get())) {
        const FileDescriptor fresh = openPort(name);
        socket.watch->pause();
        replaceSocket(socket.fd, fresh);
        KV_HOST_LOG(KV_LOG_NOTICE, "%s: interface replaced, socket reopened", name.c_str());
        socket.hasLink = false;  // its link is announced
    }
    if (*mac == node_->config().ports[port].mac) return;
    KV_HOST_LOG(KV_LOG_NOTICE, "%s: its MAC is now %s", name.c_str(), mac->text().c_str());
    node_->macChanged(port, *mac, EventLoop::now());
    if (plugin_) plugin_->initInterfaces();
}

void Daemon::followBridge() {
    const int index = options_.bridge.empty() ? 0 : interfaceIndex(options_.bridge);
    if (index == 0 || index == boundInterface(bridge_.get())) return;
    replaceSocket(bridge_, openSender(options_.bridge));
    KV_HOST_LOG(KV_LOG_NOTICE, "%s: interface replaced, socket reopened", options_.bridge.c_str());
}

void Daemon::checkLink(size_t port) {
    followInterface(port);
    ports_[port].watch->resume();
    const bool hasLink = interfaceRunning(options_.interfaces[port]);
    if (hasLink == ports_[port].hasLink) return;
    ports_[port].hasLink = hasLink;
    node_->linkChanged(port, hasLink, EventLoop::now());
}

void Daemon::checkLinks() {
    const auto attempt = [this](const auto &check) {
        try {
            check();
        } catch (const std::system_error &error) {  // an interface that was just removed; the next check follows
            links_.log(KV_LOG_WARNING, EventLoop::now(), "%s", error.what());
        }
    };
    attempt([this] { followBridge(); });
    for (size_t port = 0; port < ports_.size(); ++port)
        attempt([this, port] { checkLink(port); });
}

// Caches the statistics: reading them takes five files, and any device may request them.
const LinkStatistics &Daemon::linkStatistics(size_t port) {
    PortSocket &socket = ports_[port];
    const TimePoint now = EventLoop::now();
    if (socket.statisticsDue <= now) {
        socket.statistics = interfaceStatistics(options_.interfaces[port]);
        socket.statisticsDue = now + kStatisticsLife;
    }
    return socket.statistics;
}

void Daemon::announceConfiguration() {
    writer_.request(DataModelWriter::Reason::Change);
    if (plugin_) return plugin_->announceConfiguration();
    KV_HOST_LOG(KV_LOG_WARNING, "no configuration to announce: this device is not an agent");
}

void Daemon::writeDataModel() {
    const time_t wallClock = std::time(nullptr);
    Counters counters = node_->counters();
    counters.framesLate = framesLate_;
    counters.eventsFailed = loop_.failures() + failedCallbacks();
    counters.vendorTlvsForeign = foreignTlvs_;
    counters.vendorTlvsRefused = plugin_ ? plugin_->refused() : 0;
    const std::string text =
        dataModelJson({node_->topology(), counters, role(), plugin_ ? plugin_->mainNetworks() : MainNetworks{},
                       EventLoop::now(), wallClock, onboarding_->controller(), plugin_ ? plugin_->stationCount() : 0,
                       onboarding_->apConfigurations(), node_->unhandled(), EventLoop::now() - started_});
    support::replaceFile(options_.dataModel, text, 0644, support::Durable::No);
    if (plugin_) plugin_->setDataModelTime(wallClock);
}

const char *Daemon::role() const {
    if (!plugin_) return "Member";
    return plugin_->isController() ? "Controller" : "Agent";
}

}  // namespace kv1905d
