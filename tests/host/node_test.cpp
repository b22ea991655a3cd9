#include "node.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>

#include "ethernet_port.h"
#include "host_support.h"

namespace kv1905d {
namespace {

constexpr Time kInterval{60000};
constexpr Time kLifetime{70000};

// Several nodes whose ports are joined by socket pairs, and a clock that moves when a test says so.
class Network {
  public:
    struct VendorTlv {
        MacAddress source;
        Bytes value;
        uint16_t id;
        bool operator==(const VendorTlv &) const = default;
    };
    struct Member {
        NodeConfig config;
        std::vector<FileDescriptor> fds;               // by port
        std::vector<std::pair<size_t, size_t>> peers;  // by port: member and port at the other end
        FileDescriptor bridge, bridgeFar;              // what goes into the bridge comes out at bridgeFar
        std::unique_ptr<Node> node;                    // null: switched off
        std::vector<VendorTlv> received;
        size_t responses = 0;
    };

    // `bridged`: unicast reaches every member, as through bridges on the way.
    Network(size_t members, const std::vector<std::pair<size_t, size_t>> &links, bool bridged) : members_(members) {
        for (const auto &[a, b] : links)
            join(a, b);
        for (size_t i = 0; i < members; ++i) {
            Member &member = members_[i];
            member.config.alMac = mac(static_cast<uint8_t>(i + 1));
            member.config.discoveryInterval = kInterval;
            member.config.seed = static_cast<uint32_t>(i + 1);
            member.config.radios = {{mac(static_cast<uint8_t>(i + 1), 0x20), 0x0103, Bytes(10)}};
            if (bridged) {
                pair(member.bridge, member.bridgeFar);
                member.config.bridgeFd = member.bridge.get();
            }
            start(i);
        }
    }

    void start(size_t index) {
        Member &member = members_[index];
        NodeEvents events;
        events.vendorTlv = [&member](const MacAddress &source, ByteView value, uint16_t id) {
            member.received.push_back({source, Bytes(value.begin(), value.end()), id});
        };
        events.topologyResponse = [&member](Device &) { ++member.responses; };
        member.node = std::make_unique<Node>(member.config, events, now_);
    }
    void stop(size_t index) { members_[index].node.reset(); }

    Member &member(size_t index) { return members_[index]; }
    Node &node(size_t index) { return *members_[index].node; }
    Time now() const { return now_; }

    // Let everything happen that happens within `duration`.
    void run(Time duration) {
        const Time end = now_ + duration;
        for (;;) {
            Time next = end;
            do {
                next = end;
                for (Member &member : members_) {
                    if (member.node) next = std::min(next, member.node->run(now_));
                }
            } while (deliver());
            if (now_ >= end) return;
            now_ = std::min(end, std::max(next, now_ + Time(1)));
        }
    }

    bool knows(size_t index, size_t other) {
        return node(index).topology().find(members_[other].config.alMac) != nullptr;
    }

    // Frames that crossed since the start, without their Ethernet headers' sources being ours to choose.
    std::vector<Bytes> frames;

  private:
    static void pair(FileDescriptor &a, FileDescriptor &b) {
        int fds[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, fds), 0);
        a = FileDescriptor(fds[0]);
        b = FileDescriptor(fds[1]);
    }
    void join(size_t a, size_t b) {
        FileDescriptor atA, atB;
        pair(atA, atB);
        const size_t portA = addPort(a, std::move(atA));
        const size_t portB = addPort(b, std::move(atB));
        members_[a].peers.emplace_back(b, portB);
        members_[b].peers.emplace_back(a, portA);
    }
    size_t addPort(size_t index, FileDescriptor fd) {
        Member &member = members_[index];
        const size_t port = member.fds.size();
        Port config;
        config.name = "eth" + std::to_string(port);
        config.mac = mac(static_cast<uint8_t>(index + 1), static_cast<uint8_t>(0x10 + port));
        config.fd = fd.get();
        member.config.ports.push_back(config);
        member.fds.push_back(std::move(fd));
        return port;
    }
    bool receive(int fd, Bytes &frame) {
        frame.resize(2000);
        const ssize_t size = recv(fd, frame.data(), frame.size(), MSG_DONTWAIT);
        if (size < 0) return false;
        frame.resize(static_cast<size_t>(size));
        frames.push_back(frame);
        return true;
    }
    bool deliver() {
        bool any = false;
        Bytes frame;
        for (Member &member : members_) {
            for (size_t port = 0; port < member.fds.size(); ++port) {
                while (receive(member.fds[port].get(), frame)) {
                    any = true;
                    if (member.node) member.node->receive(port, frame, now_);
                }
            }
            while (member.bridgeFar.valid() && receive(member.bridgeFar.get(), frame)) {
                any = true;
                for (Member &to : members_) {
                    if (to.node && std::equal(frame.begin(), frame.begin() + 6, to.config.alMac.bytes.begin())) {
                        to.node->receive(0, frame, now_);
                    }
                }
            }
        }
        return any;
    }

    std::vector<Member> members_;
    Time now_{5000};
};

const Bytes kValue = fromHex("024EA7 0102030405");

TEST(TwoNodes, FindOneAnotherWithinASecondAndAfterARestart) {
    Network network(2, {{0, 1}}, false);
    network.run(Time(1000));
    for (const size_t i : {0u, 1u}) {
        const Device *peer = network.node(i).topology().find(mac(static_cast<uint8_t>(2 - i)));
        ASSERT_NE(peer, nullptr);
        ASSERT_EQ(peer->interfaces.size(), 2u);
        EXPECT_EQ(peer->interfaces[1].facts.mediaType, 0x0103);
        EXPECT_EQ(network.node(i).topology().local().neighbours.size(), 1u);
        EXPECT_EQ(network.node(i).counters().parseFailures, 0u);
    }
    network.run(Time(20000));
    const size_t before = network.member(1).responses;
    network.start(0);  // forgets everything; the other one still knows it
    network.run(Time(1000));
    EXPECT_TRUE(network.knows(0, 1));
    EXPECT_GT(network.member(1).responses, before);
    network.run(Time(2000));
    const size_t frames = network.frames.size();
    network.run(Time(30000));
    EXPECT_EQ(network.frames.size(), frames);  // settled
}

TEST(TwoNodes, ASilentOneIsForgottenAndALostLinkAtOnce) {
    Network network(2, {{0, 1}}, false);
    network.run(Time(1000));
    network.stop(1);
    network.run(Time(49000));  // silent for less than the shortest pause between two discoveries
    EXPECT_TRUE(network.knows(0, 1));
    network.run(kLifetime);
    EXPECT_FALSE(network.knows(0, 1));
    EXPECT_TRUE(network.node(0).topology().local().neighbours.empty());
    network.start(1);
    network.run(Time(1000));
    EXPECT_TRUE(network.knows(0, 1));
    network.node(0).linkChanged(0, false, network.now());
    EXPECT_TRUE(network.node(0).topology().local().neighbours.empty());
    network.node(0).linkChanged(0, true, network.now());
    network.run(Time(2000));
    EXPECT_FALSE(network.node(0).topology().local().neighbours.empty());
}

TEST(TwoNodes, StayWithOneAnotherForHours) {
    Network network(2, {{0, 1}}, false);
    network.run(Time(1000));
    const size_t frames = network.frames.size();
    const unsigned hours = 3;
    network.run(hours * Time(3600000));
    EXPECT_TRUE(network.knows(0, 1) && network.knows(1, 0));
    const size_t discoveries = network.frames.size() - frames;
    EXPECT_GE(discoveries, 2u * hours * 60);
    EXPECT_LE(discoveries, 2u * hours * 72);
}

TEST(Line, AFarDeviceIsLearntThroughTheBridgesAndForgottenWhenItIsGone) {
    Network network(4, {{0, 1}, {1, 2}, {2, 3}}, true);
    network.run(Time(4000));
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(network.node(i).topology().size(), 4u) << i;
        EXPECT_EQ(network.node(i).topology().hops().size(), 4u) << i;
    }
    EXPECT_EQ(network.node(0).topology().hops().at(mac(4)), 3u);
    network.run(10 * kInterval);
    EXPECT_TRUE(network.knows(0, 3)) << "kept alive by queries";
    network.stop(3);
    network.run(2 * kLifetime);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_FALSE(network.knows(i, 3)) << i;
    EXPECT_TRUE(network.knows(0, 2));
}

TEST(VendorMessages, UnicastNeighboursAndNetwork) {
    for (const bool ring : {false, true}) {
        std::vector<std::pair<size_t, size_t>> links{{0, 1}, {1, 2}};
        if (ring) links.emplace_back(2, 0);
        Network network(3, links, true);
        network.run(Time(4000));
        const Time now = network.now();

        uint16_t id = 0;
        EXPECT_TRUE(network.node(0).sendVendor(Reach::Network, kMulticastMac, kValue, &id, now));
        EXPECT_NE(id, 0);
        EXPECT_TRUE(network.node(2).sendVendor(Reach::Network, kMulticastMac, kValue, nullptr, now));
        network.run(Time(10));
        const Network::VendorTlv fromFirst{mac(1), kValue, id};
        for (const size_t i : {1u, 2u}) {
            const auto &received = network.member(i).received;
            EXPECT_EQ(std::count(received.begin(), received.end(), fromFirst), 1) << i << ", ring " << ring;
        }
        ASSERT_EQ(network.member(0).received.size(), 1u);
        EXPECT_EQ(network.member(0).received[0].source, mac(3)) << "the originator, not who forwarded it";

        for (size_t i = 0; i < 3; ++i)
            network.member(i).received.clear();
        uint16_t answer = 0x4711;  // unicast is never taken for a duplicate
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(network.node(0).sendVendor(Reach::Unicast, mac(3, 0x20), kValue, &answer, now));
        }
        EXPECT_EQ(answer, 0x4711);
        network.node(0).sendVendor(Reach::Neighbours, kMulticastMac, kValue, nullptr, now);
        network.run(Time(10));
        EXPECT_EQ(network.member(2).received.size(), ring ? 3u : 2u);
        EXPECT_EQ(network.member(2).received[0], (Network::VendorTlv{mac(1), kValue, 0x4711}));
        EXPECT_EQ(network.member(1).received.size(), 1u);

        network.member(0).received.clear();
        EXPECT_TRUE(network.node(0).sendVendor(Reach::Unicast, mac(1), kValue, &answer, now)) << "to itself";
        EXPECT_TRUE(network.member(0).received.empty()) << "not while it is sending";
        network.run(Time(10));
        EXPECT_EQ(network.member(0).received, (std::vector<Network::VendorTlv>{{mac(1), kValue, 0x4711}}));
    }
}

TEST(VendorMessages, LargestValueOfThePluginTravelsAndLargerOnesDoNot) {
    Network network(2, {{0, 1}}, false);
    network.run(Time(1000));
    const Bytes large(KV_VEND_MSG_BUFFER_LEN, 0x4E);
    EXPECT_TRUE(network.node(0).sendVendor(Reach::Unicast, mac(2), large, nullptr, network.now()));
    EXPECT_FALSE(network.node(0).sendVendor(Reach::Unicast, mac(2), Bytes(kMaxTlvValue + 1), nullptr, network.now()));
    network.run(Time(10));
    ASSERT_EQ(network.member(1).received.size(), 1u);
    EXPECT_EQ(network.member(1).received[0].value, large);
}

// One node with two ports; the test is everybody else.
class NodeFrames : public testing::Test {
  protected:
    NodeFrames() {
        NodeConfig config;
        config.alMac = mac(1);
        for (uint8_t port = 0; port < 2; ++port) {
            int fds[2];
            EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, fds), 0);
            near_[port] = FileDescriptor(fds[0]);
            far_[port] = FileDescriptor(fds[1]);
            config.ports.push_back(
                {"eth" + std::to_string(port), mac(1, static_cast<uint8_t>(0x10 + port)), 1, fds[0]});
        }
        NodeEvents events;
        events.vendorTlv = [this](const MacAddress &source, ByteView, uint16_t) { vendorSources_.push_back(source); };
        node_ = std::make_unique<Node>(config, events, now_);
        node_->run(now_);
        sent(0);
        sent(1);
    }

    // Ethernet header and payload, both in hex.
    void receive(size_t port, const std::string &header, const std::string &payload) {
        node_->receive(port, fromHex(header + payload), now_);
    }
    std::vector<Bytes> sent(size_t port) {
        std::vector<Bytes> frames;
        uint8_t buffer[2000];
        for (ssize_t size; (size = recv(far_[port].get(), buffer, sizeof buffer, MSG_DONTWAIT)) >= 0;) {
            frames.emplace_back(buffer, buffer + size);
        }
        return frames;
    }

    Time now_{5000};
    FileDescriptor near_[2], far_[2];
    std::unique_ptr<Node> node_;
    std::vector<MacAddress> vendorSources_;
};

const std::string kToAll = "0180C2000013 02005E000200 893A";
const std::string kToNode = "02005E000100 02005E000200 893A";

TEST_F(NodeFrames, FramesThatAreNotForThisDeviceAreDropped) {
    const std::string query = "00 00 0002 1234 00 80 00 0000";
    const struct {
        const char *what;
        std::string frame;
        bool dropped;
    } rows[] = {
        {"nothing", "", true},
        {"no payload", kToNode, true},
        {"other destination", "02005E000900 02005E000200 893A" + query, true},
        {"other protocol", "02005E000100 02005E000200 0800" + query, true},
        {"group source", "02005E000100 03005E000200 893A" + query, true},
        {"own AL MAC as source", "0180C2000013 02005E000100 893A" + query, true},
        {"own interface as source", "0180C2000013 02005E000111 893A" + query, true},
        {"to the AL MAC", kToNode + query, false},
        {"to an interface", "02005E000111 02005E000200 893A" + query, false},
        {"to all", kToAll + query, false},
    };
    for (const auto &row : rows) {
        const uint64_t dropped = node_->counters().framesDropped;
        const uint64_t handled = node_->counters().messagesReceived;
        receive(0, row.frame, "");
        EXPECT_EQ(node_->counters().framesDropped - dropped, row.dropped ? 1u : 0u) << row.what;
        EXPECT_EQ(node_->counters().messagesReceived - handled, row.dropped ? 0u : 1u) << row.what;
    }
}

TEST_F(NodeFrames, AQueryIsAnsweredUnderItsIdentifier) {
    receive(0, kToNode, "00 00 0002 BEEF 00 80 00 0000");
    const std::vector<Bytes> answers = sent(0);
    ASSERT_EQ(answers.size(), 1u);
    const Bytes start = fromHex("02005E000200 02005E000100 893A 00 00 0003 BEEF 00 80 03");
    EXPECT_TRUE(std::equal(start.begin(), start.end(), answers[0].begin()));
}

TEST_F(NodeFrames, RelayedMulticastIsForwardedOnceWithEverythingInIt) {
    const std::string body = "0B 0004 024EA7 01 7F 0002 ABCD 01 0006 02005E000300 00 0000";
    receive(0, kToAll, "00 00 0004 0007 00 C0" + body);
    receive(1, kToAll, "00 00 0004 0007 00 C0" + body);
    EXPECT_TRUE(sent(0).empty());
    EXPECT_EQ(sent(1), std::vector<Bytes>{fromHex("0180C2000013 02005E000100 893A 00 00 0004 0007 00 C0" + body)});
    EXPECT_EQ(vendorSources_, std::vector<MacAddress>{mac(3)});
    EXPECT_EQ(node_->counters().duplicatesDropped, 1u);

    const struct {
        const char *what;
        std::string header, payload;
    } notForwarded[] = {
        {"relay bit clear", kToAll, "00 00 0004 0008 00 80" + body},
        {"unicast", kToNode, "00 00 0004 0009 00 C0" + body},
        {"our own", kToAll, "00 00 0004 000A 00 C0 0B 0003 024EA7 01 0006 02005E000100 00 0000"},
        {"malformed AL MAC TLV", kToAll, "00 00 0004 000B 00 C0 0B 0003 024EA7 01 0005 02005E0003 00 0000"},
    };
    for (const auto &row : notForwarded) {
        receive(0, row.header, row.payload);
        EXPECT_TRUE(sent(1).empty()) << row.what;
    }
}

TEST_F(NodeFrames, MalformedMessagesAreCountedAndChangeNothing) {
    const struct {
        const char *what, *payload;
    } rows[] = {
        {"discovery without MAC address", "00 00 0000 0001 00 80 01 0006 02005E000200 00 0000"},
        {"discovery without AL MAC", "00 00 0000 0001 00 80 02 0006 02005E000210 00 0000"},
        {"short MAC address", "00 00 0000 0001 00 80 01 0006 02005E000200 02 0005 02005E0002 00 0000"},
        {"notification without AL MAC", "00 00 0001 0001 00 C0 00 0000"},
        {"response without device information", "00 00 0003 0001 00 80 00 0000"},
        {"response in our name", "00 00 0003 0001 00 80 03 0007 02005E000100 00 00 0000"},
        {"vendor message without a vendor TLV", "00 00 0004 0001 00 80 00 0000"},
        {"vendor TLV without an OUI", "00 00 0004 0001 00 80 0B 0002 024E 00 0000"},
    };
    for (const auto &row : rows) {
        const uint64_t failures = node_->counters().parseFailures;
        receive(0, kToAll, row.payload);
        EXPECT_EQ(node_->counters().parseFailures, failures + 1) << row.what;
    }
    EXPECT_EQ(node_->topology().size(), 1u);
    EXPECT_TRUE(node_->topology().local().neighbours.empty());
    EXPECT_TRUE(vendorSources_.empty());
}

TEST_F(NodeFrames, EveryVendorTlvOfAnyMessageIsHandedOn) {
    receive(0, kToNode, "00 00 0002 0001 00 80 0B 0003 024EA7 0B 0001 02 0B 0003 000347 00 0000");
    EXPECT_EQ(vendorSources_.size(), 2u);
    EXPECT_EQ(node_->counters().vendorTlvsReceived, 2u);
}

TEST_F(NodeFrames, AFloodOfNeighboursAndStrangersIsBounded) {
    for (unsigned i = 0; i < 3000; ++i) {
        char tail[5];
        std::snprintf(tail, sizeof tail, "%04X", i);
        const std::string address = std::string("02AA0000") + tail;
        receive(0, "0180C2000013" + address + "893A",
                "00 00 0000 0001 00 80 01 0006" + address + "02 0006" + address + "00 0000");
    }
    size_t neighbours = 0;
    for (const auto &link : node_->topology().local().neighbours)
        neighbours += link.neighbours.size();
    EXPECT_EQ(neighbours, Node::kMaxLinks);
    now_ += Time(500);
    node_->run(now_);
    EXPECT_LE(sent(0).size() + sent(1).size(), Node::kMaxPendingQueries * 2 + 8);
}

TEST_F(NodeFrames, IdentifiersWrapAndSkipZero) {
    uint16_t previous = 0;
    for (unsigned i = 0; i < 70000; ++i) {
        uint16_t id = 0;
        node_->sendVendor(Reach::Unicast, mac(9), kValue, &id, now_);
        ASSERT_NE(id, 0);
        ASSERT_NE(id, previous);
        previous = id;
        if (i % 16 == 0) sent(0), sent(1);
    }
}

}  // namespace
}  // namespace kv1905d
