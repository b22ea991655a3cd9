// Sends frames on two links to the whole host except its sockets: the node, onboarding, trace, the data-model file, and
// the codec of messages.
#include "daemon/node.h"

#include <json-c/json_tokener.h>
#include <sys/socket.h>

#include "command/trace.h"
#include "daemon/data_model_file.h"
#include "daemon/onboarding.h"
#include "fuzz.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/topology_tlvs.h"

namespace kvfuzz {

namespace {

using namespace kv1905d;

constexpr MacAddress mac(uint8_t device, uint8_t last = 0) {
    return {{0x02, 0, 0x5E, 0, device, last}};
}
constexpr MacAddress kOwn = mac(1), kPeers[] = {mac(2), mac(3), mac(2, 0x10), kOwn};
constexpr size_t kEthernetHeader = 14;

// Joins both ports: they send into the first socket, and the checks read the second.
struct Sockets {
    int ends[2];
    Sockets() { require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends) == 0, "socketpair succeeds"); }
};
const Sockets sockets;

void checkTrace(ByteView value) {
    const VendorMessage message = readVendorMessage(Bytes(value.begin(), value.end()));
    const std::string text = traceLine(Direction::In, "peer", 1, message) + message.fault.value_or("");
    require(std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; }),
            "the trace is printable");
}

struct Fixture {
    void advance(Duration duration) {
        now += duration;
        require(node.run(now) > now, "the next run is later");
        onboarding.run(now);
    }
    void check() {
        uint8_t frame[2000];
        for (ssize_t size = 0; (size = recv(sockets.ends[1], frame, sizeof frame, 0)) >= 0;) {
            const size_t payload = static_cast<size_t>(size) - kEthernetHeader;
            if (frame[12] == 0x88 && frame[13] == 0xCC) continue;  // LLDP
            require(payload <= kMaxFramePayload && frame[12] == 0x89 && frame[13] == 0x3A &&
                        parseFragment({frame + kEthernetHeader, payload}),
                    "a sent frame is a message that fits Ethernet");
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

    TimePoint now{Duration(1000)};
    bool isController = false;
    Node node{{kOwn,
               "fuzz",
               {{"eth0", mac(1, 0x10), 1, sockets.ends[0]}, {"eth1", mac(1, 0x11), 1, sockets.ends[0]}},
               {{mac(1, 0x20), 0x0103, Bytes(10)}, {mac(1, 0x21), 0x0105, Bytes(10)}}},
              {[](const VendorTlv &tlv) { checkTrace(tlv.value); },
               {},
               {},
               [this](const MacAddress &from, const Message &message, TimePoint at) {
                   return onboarding.receive(from, message, at);
               },
               {},
               {},
               {}},
              now};
    Onboarding onboarding{
        node,
        {[this] { return isController; }, [](Band) { return Bytes{0x10, 0x49, 0, 3, 0x0A, 0x61, 0xC4}; },
         [](ByteView value) { return value.size() < 6 ? std::nullopt : std::optional<KvBssInfo>(KvBssInfo{}); },
         [](const MacAddress &, int) { return 0; }},
        now};
};

// payload: everything after the Ethernet header.
void deliver(Fixture &fixture, size_t port, const MacAddress &to, size_t peer, const Bytes &payload) {
    fixture.node.receive(port % 2, join(to.bytes, kPeers[peer % 4].bytes, Bytes{0x89, 0x3A}, payload), fixture.now);
}

// The body holds the identifier and the TLVs of a message in one fragment, without the end of message.
template <const MacAddress &to, uint8_t flags>
void runMessage(Fixture &fixture, const Step &step) {
    if (step.body.size() < 2) return;
    const Bytes head = {0, 0, 0, static_cast<uint8_t>(step.argument % 16), step.body[0], step.body[1], 0, flags};
    deliver(fixture, step.argument / 64, to, step.argument / 16,
            join(head, Bytes(step.body.begin() + 2, step.body.end()), Bytes(3)));
}

// A message is the same after writing and reading, in reverse order of its fragments too.
void runCodec(Fixture &fixture, const Step &step) {
    const ByteView body(step.body), bodies[] = {body.first(body.size() / 2), body.subspan(body.size() / 2)};
    const std::optional<std::vector<Tlv>> tlvs = decodeTlvs(bodies);
    if (!tlvs) return;
    const Message sent{(step.argument & 1) != 0 ? kTopologyResponse : kVendorSpecific, 7, (step.argument & 4) != 0,
                       *tlvs};
    std::vector<Bytes> frames = encodeMessage(sent);
    if ((step.argument & 2) != 0) std::reverse(frames.begin(), frames.end());
    Reassembly reassembly;
    Reassembly::Result result;
    for (const Bytes &frame : frames) {
        const std::optional<Fragment> fragment = parseFragment(frame);
        require(fragment && frame.size() <= kMaxFramePayload, "a written frame fits Ethernet and can be read");
        result = reassembly.add(kOwn, *fragment, fixture.now);
    }
    const Message &read = result.message;
    require(read.type == sent.type && read.id == 7 && read.relay == sent.relay && read.tlvs == sent.tlvs,
            "a message is the same after writing and reading");
    const auto report = parseTopologyReport(read);
    if (!report) return;
    const auto again = parseTopologyReport({kTopologyResponse, 1, false, topologyReportTlvs(*report)});
    require(again && again->device == report->device && again->neighbours == report->neighbours &&
                report->device.interfaces.size() <= kMaxInterfaces,
            "a report is bounded, and the same after writing and reading");
}

// The index is the step's kind.
constexpr void (*kSteps[])(Fixture &, const Step &) = {
    runMessage<kMulticastMac, 0x80>,
    runMessage<kMulticastMac, 0xC0>,
    runMessage<kOwn, 0x80>,
    [](Fixture &fixture, const Step &step) {
        deliver(fixture, 0, (step.argument & 1) != 0 ? kMulticastMac : kOwn, step.argument / 2, step.body);
    },
    [](Fixture &fixture, const Step &step) { fixture.node.receive(step.argument % 2, step.body, fixture.now); },
    [](Fixture &fixture, const Step &step) { fixture.advance(Duration(step.argument * 400)); },
    [](Fixture &fixture, const Step &step) {
        fixture.node.linkChanged(step.argument % 2, (step.argument & 2) != 0, fixture.now);
    },
    [](Fixture &fixture, const Step &step) {
        uint16_t id = 0;
        const auto reach = static_cast<Reach>(step.argument % 3);
        fixture.node.sendVendor(reach, kPeers[step.argument / 3 % 4], step.body, &id, fixture.now);
    },
    [](Fixture &fixture, const Step &step) { fixture.checkDataModel(step.text()); },
    [](Fixture &fixture, const Step &step) { fixture.isController = (step.argument & 1) != 0; },
    runCodec};

}  // namespace

void runInput(const Bytes &input) {
    Fixture fixture;
    runSteps(input, fixture, kSteps);
    fixture.advance(Duration(3000));
    fixture.check();
    fixture.checkDataModel("a\xFF\x01\"");
}

}  // namespace kvfuzz
