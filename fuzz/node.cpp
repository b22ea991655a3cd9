// Frames against a live member of the network with two ports, its onboarding included, and the lines that it logs.
#include "daemon/node.h"

#include <json-c/json_tokener.h>
#include <kv1905/kos.h>
#include <kv1905/kvlog.h>
#include <sys/socket.h>

#include <array>
#include <climits>
#include <cstdarg>
#include <iterator>
#include <string_view>

#include "common/story.h"
#include "daemon/data_model_file.h"
#include "daemon/ethernet_port.h"
#include "daemon/onboarding.h"
#include "daemon/trace.h"

namespace kvfuzz {

namespace {

using namespace kv1905d;

constexpr MacAddress kOwn{{0x02, 0, 0x5E, 0, 1, 0}};
constexpr MacAddress kPeers[] = {
    {{0x02, 0, 0x5E, 0, 2, 0}}, {{0x02, 0, 0x5E, 0, 3, 0}}, {{0x02, 0, 0x5E, 0, 2, 0x10}}, {{0x02, 0, 0x5E, 0, 1, 0}}};
constexpr size_t kPorts = 2;
constexpr size_t kEthernetHeader = 14;

// Both ends of one link, the far one read by the world.
using Link = std::array<FileDescriptor, 2>;

Link newLink() {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends) == 0, "a pair of sockets");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

void checkShown(std::string_view text) {
    require(std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; }), "a line is printable");
}

// What is told of a vendor message: in a trace, and as a complaint.
void checkTold(ByteView value) {
    const ExactBlock exact(Bytes(value.begin(), value.end()));
    const VendorMessage message = readVendorMessage({exact.data(), exact.size()});
    checkShown(traceLine(Direction::In, "peer", 1, message));
    checkShown(message.fault.value_or(""));
}

struct World {
    explicit World(bool asController) : isController(asController) {}

    void deliver(size_t port, const Bytes &frame) {
        const ExactBlock exact(frame);
        node.receive(port, {exact.data(), exact.size()}, now);
    }
    void advance(Duration duration) {
        now += duration;
        require(node.run(now) > now, "there is always a next time");
        onboarding.run(now);
    }
    // What was sent is a message of this protocol.
    void check() {
        for (const Link &link : links) {
            uint8_t frame[2000];
            for (ssize_t size = 0; (size = recv(link[1].get(), frame, sizeof frame, 0)) >= 0;) {
                const auto payload = static_cast<size_t>(size) - kEthernetHeader;
                require(payload <= kMaxFramePayload, "a sent frame fits Ethernet");
                require(frame[12] == 0x89 && frame[13] == 0x3A && parseFragment({frame + kEthernetHeader, payload}),
                        "a sent frame is a message's");
            }
        }
        require(node.topology().size() <= Topology::kMaxDevices, "devices are bounded");
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

    Link links[kPorts] = {newLink(), newLink()};
    TimePoint now{Duration(1000)};
    bool isController;
    Node node{configuration(),
              {[](const VendorTlv &tlv) {
                   require(tlv.value.size() >= 3, "a value has an OUI");
                   checkTold(tlv.value);
               },
               nullptr, nullptr,
               [this](const MacAddress &from, const Message &message, TimePoint at) {
                   return onboarding.receive(from, message, at);
               },
               nullptr},
              now};
    Onboarding onboarding{
        node,
        {[this] { return isController; }, [](Band) { return Bytes{0x10, 0x49, 0, 3, 0x0A, 0x61, 0xC4}; },
         [](ByteView value) { return value.size() < 6 ? std::nullopt : std::optional<KvBssInfo>(KvBssInfo{}); },
         [](const MacAddress &, int) { return 0; }},
        now};
};

std::string textOf(const Step &step) {
    return {step.body.begin(), step.body.end()};
}

// With the body as a network's name.
void playDataModel(World &world, const Step &step) {
    const std::string text = dataModelJson(
        {world.node.topology(), world.node.counters(), "Agent", {{textOf(step), "b"}, {}}, world.now, 1'700'000'000});
    json_tokener *tokener = json_tokener_new();
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    json_object *root = json_tokener_parse_ex(tokener, text.c_str(), -1);
    require(root != nullptr, "the data model is JSON in UTF-8");
    json_object_put(root);
    json_tokener_free(tokener);
}

Bytes frameWith(const MacAddress &to, const MacAddress &from, const Bytes &payload) {
    return join(to.bytes, from.bytes, Bytes{0x89, 0x3A}, payload);
}

// The body is the message's identifier, then its TLVs, the last of which need not be there.
template <const MacAddress &to, uint8_t flags>
void playMessage(World &world, const Step &step) {
    constexpr uint16_t kTypes[] = {kTopologyDiscovery,         kTopologyNotification, kTopologyQuery,
                                   kTopologyResponse,          kVendorSpecific,       kAutoconfigurationSearch,
                                   kAutoconfigurationResponse, kAutoconfigurationWsc, 0x0005};
    const uint16_t type = kTypes[step.argument % std::size(kTypes)];
    Input in(step.body);
    const Bytes head = {0, 0, static_cast<uint8_t>(type >> 8), static_cast<uint8_t>(type), in.u8(), in.u8(), 0, flags};
    const Bytes payload = join(head, in.rest(), Bytes(3));
    world.deliver(step.argument / 64 % kPorts, frameWith(to, kPeers[step.argument / 16 % 4], payload));
}

// A message of which the body holds everything behind the Ethernet header.
void playFragment(World &world, const Step &step) {
    world.deliver(0,
                  frameWith((step.argument & 1) != 0 ? kMulticastMac : kOwn, kPeers[step.argument / 2 % 4], step.body));
}

// The plug-in's values are never shorter than an OUI.
void playSend(World &world, const Step &step) {
    constexpr Reach kReaches[] = {Reach::Unicast, Reach::Neighbours, Reach::Network};
    const Bytes value = join(Bytes{0x02, 0x4E, 0xA7}, step.body);
    checkTold(value);
    checkTold(join(Bytes{0x02, 0x4E, 0xA7}, Bytes(8),
                   Bytes{0, step.argument, 0, static_cast<uint8_t>(step.body.size())}, step.body));
    uint16_t id = 0;
    world.node.sendVendor(kReaches[step.argument % 3], kPeers[step.argument / 3 % 4], value, &id, world.now);
}

// Lines with other devices' text in them, which kos_pk collects from several calls.
void playLog(World &, const Step &step) {
    const std::string text = textOf(step);
    kvMAP_syslog(step.argument % 20, step.argument / 32, "%s\n", text.c_str());
    kvlog(step.argument % 10, text.c_str(), 1, "function", "%s", text.c_str());
    kos_pk("%s", text.c_str());
    if ((step.argument & 1) != 0) kos_pk("\n%.*s\n", static_cast<int>(text.size()), text.c_str());
}

// The index is the step's kind.
constexpr Play<World> kPlays[] = {
    playMessage<kMulticastMac, 0x80>,
    playMessage<kMulticastMac, 0xC0>,
    playMessage<kOwn, 0x80>,
    playFragment,
    [](World &world, const Step &step) { world.deliver(step.argument % kPorts, step.body); },
    [](World &world, const Step &step) { world.advance(Duration(step.argument * 400)); },
    [](World &world, const Step &step) {
        world.node.linkChanged(step.argument % kPorts, (step.argument & 2) != 0, world.now);
    },
    playSend,
    playDataModel,
    playLog,
    [](World &, const Step &step) {
        kvMAP_log_setting(step.argument % 18, step.argument / 32 % 3, step.argument / 64 * 3);
    }};

}  // namespace

// What the platform's log calls in the places of write and syslog, the latter with "%.*s".
extern "C" ssize_t kvfuzzWrite(int, const void *data, size_t size) {
    const std::string_view line(static_cast<const char *>(data), size);
    require(size > 0 && size <= PIPE_BUF && line.back() == '\n', "a line ends and goes into a pipe in one piece");
    checkShown(line.substr(0, size - 1));
    return static_cast<ssize_t>(size);
}

extern "C" void kvfuzzSyslog(int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    checkShown(va_arg(arguments, const char *));
    va_end(arguments);
}

void playInput(Input in) {
    kvMAP_log_setting(0, 0, 7);
    const Steps steps = readSteps(in);
    World world(!steps.empty() && (steps[0].argument & 0x80) != 0);
    playStory(steps, world, kPlays);
    world.advance(Duration(3000));
    world.check();
    kos_pk("\n");
    playDataModel(world, {0, 0, {'a', 0xFF, 0x01, '"'}});
}

}  // namespace kvfuzz
