// Frames from two links against the whole host but its sockets: the node, onboarding, trace and the data-model file.
#include "daemon/node.h"

#include <json-c/json_tokener.h>
#include <sys/socket.h>

#include <array>

#include "daemon/data_model_file.h"
#include "daemon/ethernet_port.h"
#include "daemon/onboarding.h"
#include "daemon/trace.h"
#include "fuzz.h"

namespace kvfuzz {

namespace {

using namespace kv1905d;

constexpr MacAddress kOwn{{0x02, 0, 0x5E, 0, 1, 0}};
constexpr MacAddress kPeers[] = {
    {{0x02, 0, 0x5E, 0, 2, 0}}, {{0x02, 0, 0x5E, 0, 3, 0}}, {{0x02, 0, 0x5E, 0, 2, 0x10}}, kOwn};
constexpr size_t kPorts = 2, kEthernetHeader = 14;

// The node's end, and the end that the checks read.
using Link = std::array<FileDescriptor, 2>;

Link newLink() {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends) == 0, "socketpair succeeds");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

bool isPrintable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

void checkTrace(ByteView value) {
    const VendorMessage message = readVendorMessage(Bytes(value.begin(), value.end()));
    require(isPrintable(traceLine(Direction::In, "peer", 1, message)) && isPrintable(message.fault.value_or("")),
            "the trace is printable");
}

struct World {
    void deliver(size_t port, const Bytes &frame) { node.receive(port % kPorts, Bytes(frame), now); }
    void advance(Duration duration) {
        now += duration;
        require(node.run(now) > now, "the next run is later");
        onboarding.run(now);
    }
    void check() {
        uint8_t frame[2000];
        for (const Link &link : links) {
            for (ssize_t size = 0; (size = recv(link[1].get(), frame, sizeof frame, 0)) >= 0;) {
                const size_t payload = static_cast<size_t>(size) - kEthernetHeader;
                require(payload <= kMaxFramePayload && frame[12] == 0x89 && frame[13] == 0x3A &&
                            parseFragment({frame + kEthernetHeader, payload}),
                        "a sent frame is a message that fits Ethernet");
            }
        }
        require(node.topology().size() <= Topology::kMaxDevices, "devices are bounded");
    }
    // networkName: of the 2.4 GHz network.
    void checkDataModel(const std::string &networkName) {
        const std::string text =
            dataModelJson({node.topology(), node.counters(), "Agent", {{networkName, "b"}, {}}, now, 1'700'000'000});
        json_tokener *tokener = json_tokener_new();
        json_tokener_set_flags(tokener, JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
        json_object *root = json_tokener_parse_ex(tokener, text.c_str(), -1);
        require(root != nullptr, "the data model is JSON in UTF-8");
        json_object_put(root);
        json_tokener_free(tokener);
    }
    NodeConfig configuration() const {
        NodeConfig config;
        config.alMac = kOwn;
        config.radios = {{{{0x02, 0, 0x5E, 0, 1, 0x20}}, 0x0103, Bytes(10)},
                         {{{0x02, 0, 0x5E, 0, 1, 0x21}}, 0x0105, Bytes(10)}};
        config.ports = {{"eth0", {{0x02, 0, 0x5E, 0, 1, 0x10}}, 0x0001, links[0][0].get()},
                        {"eth1", {{0x02, 0, 0x5E, 0, 1, 0x11}}, 0x0001, links[1][0].get()}};
        return config;
    }
    NodeEvents events() {
        NodeEvents events;
        events.vendorTlv = [](const VendorTlv &tlv) { checkTrace(tlv.value); };
        events.autoconfiguration = [this](const MacAddress &from, const Message &message, TimePoint at) {
            return onboarding.receive(from, message, at);
        };
        return events;
    }

    Link links[kPorts] = {newLink(), newLink()};
    TimePoint now{Duration(1000)};
    bool isController = false;
    Node node{configuration(), events(), now};
    Onboarding onboarding{
        node,
        {[this] { return isController; }, [](Band) { return Bytes{0x10, 0x49, 0, 3, 0x0A, 0x61, 0xC4}; },
         [](ByteView value) { return value.size() < 6 ? std::nullopt : std::optional<KvBssInfo>(KvBssInfo{}); },
         [](const MacAddress &, int) { return 0; }},
        now};
};

Bytes frameWith(const MacAddress &to, const MacAddress &from, const Bytes &payload) {
    return join(to.bytes, from.bytes, Bytes{0x89, 0x3A}, payload);
}

// The body holds the identifier and the TLVs of a message in one fragment, without the end of message.
template <const MacAddress &to, uint8_t flags>
void playMessage(World &world, const Step &step) {
    constexpr uint16_t kTypes[] = {kTopologyDiscovery,         kTopologyNotification, kTopologyQuery,
                                   kTopologyResponse,          kVendorSpecific,       kAutoconfigurationSearch,
                                   kAutoconfigurationResponse, kAutoconfigurationWsc, 0x0005};
    const uint16_t type = kTypes[step.argument % std::size(kTypes)];
    Input in(step.body);
    const Bytes head = {0, 0, static_cast<uint8_t>(type >> 8), static_cast<uint8_t>(type), in.u8(), in.u8(), 0, flags};
    const Bytes payload = join(head, in.rest(), Bytes(3));
    world.deliver(step.argument / 64, frameWith(to, kPeers[step.argument / 16 % 4], payload));
}

// The body is everything after the Ethernet header.
void playFragment(World &world, const Step &step) {
    world.deliver(0,
                  frameWith((step.argument & 1) != 0 ? kMulticastMac : kOwn, kPeers[step.argument / 2 % 4], step.body));
}

// A vendor message of the plug-in.
void playSend(World &world, const Step &step) {
    constexpr Reach kReaches[] = {Reach::Unicast, Reach::Neighbours, Reach::Network};
    const Bytes value = join(Bytes{0x02, 0x4E, 0xA7}, step.body);
    checkTrace(value);
    uint16_t id = 0;
    world.node.sendVendor(kReaches[step.argument % 3], kPeers[step.argument / 3 % 4], value, &id, world.now);
}

// The index is the step's kind.
constexpr void (*kPlays[])(World &, const Step &) = {
    playMessage<kMulticastMac, 0x80>,
    playMessage<kMulticastMac, 0xC0>,
    playMessage<kOwn, 0x80>,
    playFragment,
    [](World &world, const Step &step) { world.deliver(step.argument, step.body); },
    [](World &world, const Step &step) { world.advance(Duration(step.argument * 400)); },
    [](World &world, const Step &step) {
        world.node.linkChanged(step.argument % kPorts, (step.argument & 2) != 0, world.now);
    },
    playSend,
    [](World &world, const Step &step) { world.checkDataModel(step.text()); },
    [](World &world, const Step &step) { world.isController = (step.argument & 1) != 0; }};

}  // namespace

void playInput(Input in) {
    World world;
    playSteps(in, world, kPlays);
    world.advance(Duration(3000));
    world.check();
    world.checkDataModel("a\xFF\x01\"");
}

}  // namespace kvfuzz
