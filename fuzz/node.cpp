// Frames against a live member of the network with two ports, its onboarding included.
#include "node.h"

#include <json-c/json_tokener.h>
#include <sys/socket.h>

#include <iterator>

#include "common/steps.h"
#include "data_model_file.h"
#include "ethernet_port.h"
#include "onboarding.h"
#include "support/captured_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

using namespace kv1905d;
using kvfuzz::Bytes;

constexpr MacAddress kOwn{{0x02, 0, 0x5E, 0, 1, 0}};
constexpr MacAddress kPeers[] = {
    {{0x02, 0, 0x5E, 0, 2, 0}}, {{0x02, 0, 0x5E, 0, 3, 0}}, {{0x02, 0, 0x5E, 0, 2, 0x10}}, {{0x02, 0, 0x5E, 0, 1, 0}}};
constexpr size_t kPorts = 2;
constexpr size_t kEthernetHeader = 14;

// Both ends of one link, the far one read by the world.
struct Link {
    FileDescriptor near, far;
};

const std::vector<Link> &links() {
    static const std::vector<Link> all = [] {
        std::vector<Link> made(kPorts);
        for (Link &link : made) {
            int ends[2];
            require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends) == 0, "a pair of sockets");
            link = {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
        }
        return made;
    }();
    return all;
}

NodeConfig configuration() {
    NodeConfig config;
    config.alMac = kOwn;
    config.radios = {{{{0x02, 0, 0x5E, 0, 1, 0x20}}, 0x0103, Bytes(10)},
                     {{{0x02, 0, 0x5E, 0, 1, 0x21}}, 0x0105, Bytes(10)}};
    for (size_t port = 0; port < kPorts; ++port) {
        const MacAddress mac{{0x02, 0, 0x5E, 0, 1, static_cast<uint8_t>(0x10 + port)}};
        config.ports.push_back({port == 0 ? "eth0" : "eth1", mac, 0x0001, links()[port].near.get()});
    }
    return config;
}

class World {
  public:
    explicit World(bool isController) : controller_(isController), node_(configuration(), events(), now_) {}

    void deliver(size_t port, const Bytes &frame) {
        ExactBlock exact(frame);
        node_.receive(port, {exact.data(), exact.size()}, now_);
    }
    void advance(Time duration) {
        now_ += duration;
        require(node_.run(now_) > now_, "there is always a next time");
        onboarding_.run(now_);
    }
    void linkChanged(size_t port, bool up) { node_.linkChanged(port, up, now_); }
    void sendVendor(Reach reach, const MacAddress &to, const Bytes &value) {
        uint16_t id = 0;
        node_.sendVendor(reach, to, value, &id, now_);
    }

    // What was sent is a message, and nothing grows beyond its bounds.
    void check() {
        for (const Link &link : links()) {
            uint8_t frame[2000];
            for (ssize_t size = 0; (size = recv(link.far.get(), frame, sizeof frame, 0)) >= 0;) {
                checkFrame({frame, static_cast<size_t>(size)});
            }
        }
        require(node_.topology().size() <= Topology::kMaxDevices, "devices are bounded");
        kvtest::clearLog();
    }

    void checkDataModel() const {
        const std::string text = dataModelJson(
            {node_.topology(), node_.counters(), "Agent", {{"a\xFF\x01\"", "b"}, {}}, now_, 1'700'000'000});
        json_object *root = json_tokener_parse(text.c_str());
        require(root != nullptr, "the data model is JSON");
        json_object_put(root);
    }

  private:
    NodeEvents events() {
        NodeEvents all;
        all.vendorTlv = [](const MacAddress &, ByteView value, uint16_t) {
            require(value.size() >= 3, "a vendor value begins with its OUI");
        };
        all.autoconfiguration = [this](const MacAddress &from, const Message &message, Time now) {
            return onboarding_.receive(from, message, now);
        };
        return all;
    }
    OnboardingActions actions() {
        OnboardingActions all;
        all.isController = [this] { return controller_; };
        all.ssid = [](Band) { return std::string("home"); };
        all.extension = [](Band) { return Bytes{0x10, 0x49, 0, 3, 0x0A, 0x61, 0xC4}; };
        all.readExtension = [](ByteView value) {
            return value.size() < 6 ? std::nullopt : std::optional<KvBssInfo>(KvBssInfo{});
        };
        all.requestSetting = [](const MacAddress &, int) { return 0; };
        return all;
    }
    static void checkFrame(ByteView frame) {
        require(frame.size() >= kEthernetHeader && frame.size() <= kEthernetHeader + kMaxFramePayload,
                "a sent frame fits Ethernet");
        require(frame[12] == 0x89 && frame[13] == 0x3A, "a sent frame is of this protocol");
        require(parseFragment(frame.subspan(kEthernetHeader)).has_value(), "a sent frame is a message's");
    }

    Time now_{1000};
    bool controller_;
    Node node_;
    Onboarding onboarding_{node_, actions(), now_};
};

const uint16_t kTypes[] = {kTopologyDiscovery,         kTopologyNotification, kTopologyQuery,
                           kTopologyResponse,          kVendorSpecific,       kAutoconfigurationSearch,
                           kAutoconfigurationResponse, kAutoconfigurationWsc, 0x0005};

Bytes frameWith(const MacAddress &to, const MacAddress &from, const Bytes &payload) {
    Bytes frame(to.bytes.begin(), to.bytes.end());
    frame.insert(frame.end(), from.bytes.begin(), from.bytes.end());
    frame.insert(frame.end(), {0x89, 0x3A});
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

// The body is the message's identifier, then its TLVs, the last of which need not be there.
void playMessage(World &world, const Step &step, const MacAddress &to, uint8_t flags) {
    const uint16_t type = kTypes[step.argument % std::size(kTypes)];
    const MacAddress &from = kPeers[step.argument / 16 % std::size(kPeers)];
    Bytes payload = {0, 0, static_cast<uint8_t>(type >> 8), static_cast<uint8_t>(type)};
    Input in(step.body);
    payload.push_back(in.u8());
    payload.push_back(in.u8());
    payload.insert(payload.end(), {0, flags});
    const Bytes tlvs = in.rest();
    payload.insert(payload.end(), tlvs.begin(), tlvs.end());
    payload.insert(payload.end(), {0, 0, 0});
    world.deliver(step.argument / 64 % kPorts, frameWith(to, from, payload));
}

void playMulticast(World &world, const Step &step) {
    playMessage(world, step, kMulticastMac, 0x80);
}

void playRelayed(World &world, const Step &step) {
    playMessage(world, step, kMulticastMac, 0xC0);
}

void playUnicast(World &world, const Step &step) {
    playMessage(world, step, kOwn, 0x80);
}

// A message of which the body holds everything behind the Ethernet header.
void playFragment(World &world, const Step &step) {
    const MacAddress &to = (step.argument & 1) != 0 ? kMulticastMac : kOwn;
    world.deliver(0, frameWith(to, kPeers[step.argument / 2 % std::size(kPeers)], step.body));
}

void playFrame(World &world, const Step &step) {
    world.deliver(step.argument % kPorts, step.body);
}

void playAdvance(World &world, const Step &step) {
    world.advance(Time(step.argument * 400));
}

void playLink(World &world, const Step &step) {
    world.linkChanged(step.argument % kPorts, (step.argument & 2) != 0);
}

// The plug-in's values are never shorter than an OUI.
void playSend(World &world, const Step &step) {
    constexpr Reach kReaches[] = {Reach::Unicast, Reach::Neighbours, Reach::Network};
    Bytes value = {0x02, 0x4E, 0xA7};
    value.insert(value.end(), step.body.begin(), step.body.end());
    world.sendVendor(kReaches[step.argument % 3], kPeers[step.argument / 3 % std::size(kPeers)], value);
}

constexpr void (*kPlays[])(World &world, const Step &step) = {playMulticast, playRelayed, playUnicast, playFragment,
                                                              playFrame,     playAdvance, playLink,    playSend};

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    const std::vector<Step> steps = readSteps(data, size);
    World world(!steps.empty() && (steps[0].argument & 0x80) != 0);
    for (const Step &step : steps) {
        kPlays[step.kind % std::size(kPlays)](world, step);
        world.check();
    }
    world.advance(Time(3000));
    world.check();
    world.checkDataModel();
    return 0;
}
