#include "node.h"

#include <memory>

#include "host_support.h"

namespace kv1905d {
namespace {

constexpr Time kStart{5000}, kInterval{60000}, kLifetime{70000};
const Bytes kValue = fromHex("024EA7 0102030405");

// A node whose ports are socket pairs; the test holds the far ends.
struct Host {
    explicit Host(unsigned device, unsigned ports = 1) : near(ports), far(ports) {
        config.alMac = mac(device);
        config.seed = device;
        config.radios = {{mac(device, 0x20), 0x0103, Bytes(10)}};
        for (unsigned port = 0; port < ports; ++port) {
            joinPorts(near[port], far[port]);
            config.ports.push_back({"eth" + std::to_string(port), mac(device, 0x10 + port), 0x0001, near[port].get()});
        }
        start(kStart);
    }
    void start(Time now) {
        NodeEvents events;
        events.vendorTlv = [this](const MacAddress &source, ByteView value, uint16_t id) {
            sources.push_back(source);
            lastValue.assign(value.begin(), value.end());
            lastId = id;
        };
        events.topologyResponse = [this](Device &) { ++responses; };
        node = std::make_unique<Node>(config, events, now);
    }
    std::vector<Bytes> sent(size_t port) const {
        std::vector<Bytes> frames;
        for (Bytes frame; takeFrame(far[port], frame);)
            frames.push_back(frame);
        return frames;
    }
    bool knows(const MacAddress &alMac) const { return node->topology().find(alMac) != nullptr; }
    size_t links() const { return node->topology().local().neighbours.size(); }

    NodeConfig config;
    std::vector<FileDescriptor> near, far;
    std::unique_ptr<Node> node;  // null: switched off
    size_t responses = 0;
    std::vector<MacAddress> sources;  // of vendor TLVs
    Bytes lastValue;
    uint16_t lastId = 0;
};

// Two hosts on one link, and a clock that moves when a test says so.
class TwoHosts : public testing::Test {
  protected:
    TwoHosts() { run(Time(1000)); }

    // Let everything happen that happens within `duration`.
    void run(Time duration) {
        for (const Time end = now_ + duration;;) {
            Time next = end;
            for (bool crossed = true; crossed;) {
                next = end;
                crossed = exchange(a_, b_, next);
                crossed |= exchange(b_, a_, next);
            }
            if (now_ >= end) return;
            now_ = next;
        }
    }
    bool exchange(Host &from, Host &to, Time &next) {
        if (from.node) next = std::min(next, from.node->run(now_));
        const std::vector<Bytes> frames = from.sent(0);
        frames_ += frames.size();
        for (const Bytes &frame : frames) {
            if (to.node) to.node->receive(0, frame, now_);
        }
        return !frames.empty();
    }

    Host a_{1}, b_{2};
    Time now_ = kStart;
    size_t frames_ = 0;  // that crossed since the start
};

TEST_F(TwoHosts, FindOneAnotherWithinASecondAndAfterARestartAndStayTogether) {
    const Device *peer = a_.node->topology().find(mac(2));
    ASSERT_NE(peer, nullptr);
    EXPECT_EQ(peer->interfaces.at(1).facts.mediaType, 0x0103);
    EXPECT_EQ(a_.links() + b_.links(), 2u);
    run(Time(20000));
    const size_t responses = b_.responses;
    a_.start(now_);  // forgets everything; the other one still knows it
    run(Time(1000));
    EXPECT_TRUE(a_.knows(mac(2)));
    EXPECT_GT(b_.responses, responses);

    run(Time(2000));
    const size_t frames = frames_;
    run(Time(30000));
    EXPECT_EQ(frames_, frames) << "settled";
    run(std::chrono::hours(3));
    EXPECT_TRUE(a_.knows(mac(2)) && b_.knows(mac(1)));
    EXPECT_GE(frames_ - frames, 2u * 3 * 60);  // discoveries, and nothing else
    EXPECT_LE(frames_ - frames, 2u * 3 * 73);
    EXPECT_EQ(a_.node->counters().parseFailures, 0u);
}

TEST_F(TwoHosts, ASilentOneIsForgottenAndALostLinkAtOnce) {
    b_.node.reset();
    run(Time(49000));  // silent for less than the shortest pause between two discoveries
    EXPECT_TRUE(a_.knows(mac(2)));
    run(kLifetime);
    EXPECT_FALSE(a_.knows(mac(2)));
    EXPECT_EQ(a_.links(), 0u);
    b_.start(now_);
    run(Time(1000));
    EXPECT_EQ(a_.links(), 1u);
    a_.node->linkChanged(0, false, now_);
    EXPECT_EQ(a_.links(), 0u);
    a_.node->linkChanged(0, true, now_);
    run(Time(2000));
    EXPECT_EQ(a_.links(), 1u);
}

TEST_F(TwoHosts, VendorMessagesReachTheOtherOneAndTheSenderItself) {
    const Bytes large(KV_VEND_MSG_BUFFER_LEN, 0x4E);
    uint16_t id = 0x4711;
    EXPECT_FALSE(a_.node->sendVendor(Reach::Unicast, mac(2), Bytes(kMaxTlvValue + 1), &id, now_));
    for (int i = 0; i < 2; ++i)  // unicast is never taken for a duplicate
        EXPECT_TRUE(a_.node->sendVendor(Reach::Unicast, mac(2, 0x20), large, &id, now_));
    EXPECT_TRUE(a_.node->sendVendor(Reach::Unicast, mac(1), kValue, &id, now_));
    EXPECT_TRUE(a_.sources.empty()) << "not while it is sending";
    run(Time(10));
    EXPECT_EQ(b_.sources, std::vector<MacAddress>(2, mac(1)));
    EXPECT_EQ(b_.lastValue, large);
    EXPECT_EQ(b_.lastId, 0x4711);
    EXPECT_EQ(a_.sources, std::vector<MacAddress>{mac(1)});
    EXPECT_EQ(a_.lastValue, kValue);
    EXPECT_EQ(a_.lastId, 0x4711);
}

// One host with two ports; the test is everybody else.
class HostFrames : public testing::Test {
  protected:
    HostFrames() {
        host_.node->run(now_);
        host_.sent(0), host_.sent(1);
    }
    void receive(size_t port, const std::string &frame) { host_.node->receive(port, fromHex(frame), now_); }
    const Counters &counters() const { return host_.node->counters(); }

    Time now_ = kStart;
    Host host_{1, 2};
};

const std::string kToAll = "0180C2000013 02005E000200 893A";
const std::string kToNode = "02005E000100 02005E000200 893A";

TEST_F(HostFrames, FramesThatAreNotForThisDeviceAreDropped) {
    const std::string query = "00 00 0002 1234 00 80 00 0000";
    const struct {
        const char *what;
        std::string frame;
        bool dropped;
    } rows[] = {
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
        const Counters before = counters();
        receive(0, row.frame);
        EXPECT_EQ(counters().framesDropped - before.framesDropped, row.dropped) << row.what;
        EXPECT_EQ(counters().messagesReceived - before.messagesReceived, !row.dropped) << row.what;
    }
}

TEST_F(HostFrames, AQueryIsAnsweredUnderItsIdentifierAndItsVendorTlvsAreHandedOn) {
    receive(0, kToNode + "00 00 0002 BEEF 00 80 0B 0003 024EA7 0B 0001 02 0B 0003 000347 00 0000");
    const std::vector<Bytes> answers = host_.sent(0);
    ASSERT_EQ(answers.size(), 1u);
    const Bytes start = fromHex("02005E000200 02005E000100 893A 00 00 0003 BEEF 00 80 03");
    EXPECT_EQ(prefix(answers[0], start.size()), start);
    EXPECT_EQ(host_.sources.size(), 2u);
}

TEST_F(HostFrames, MulticastGoesOutOnEveryPort) {
    const std::pair<Reach, const char *> rows[] = {
        {Reach::Network, "00 00 0004 0007 00 C0 0B 0003 024EA7 01 0006 02005E000100 00 0000"},
        {Reach::Neighbours, "00 00 0004 0007 00 80 0B 0003 024EA7 00 0000"},
    };
    for (const auto &[reach, payload] : rows) {
        uint16_t id = 7;
        host_.node->sendVendor(reach, kMulticastMac, fromHex("024EA7"), &id, now_);
        const std::vector<Bytes> expected{fromHex(std::string("0180C2000013 02005E000100 893A") + payload)};
        EXPECT_EQ(host_.sent(0), expected);
        EXPECT_EQ(host_.sent(1), expected);
    }
}

TEST_F(HostFrames, RelayedMulticastIsForwardedOnceWithEverythingInIt) {
    const std::string body = "0B 0004 024EA7 01 7F 0002 ABCD 01 0006 02005E000300 00 0000";
    receive(0, kToAll + "00 00 0004 0007 00 C0" + body);
    receive(1, kToAll + "00 00 0004 0007 00 C0" + body);
    EXPECT_TRUE(host_.sent(0).empty());
    EXPECT_EQ(host_.sent(1),
              std::vector<Bytes>{fromHex("0180C2000013 02005E000100 893A 00 00 0004 0007 00 C0" + body)});
    EXPECT_EQ(host_.sources, std::vector<MacAddress>{mac(3)}) << "the originator, not who forwarded it";

    receive(0, kToAll + "00 00 0004 0008 00 80" + body);                                       // relay bit clear
    receive(0, kToNode + "00 00 0004 0009 00 C0" + body);                                      // unicast
    receive(0, kToAll + "00 00 0004 000A 00 C0 0B 0003 024EA7 01 0006 02005E000100 00 0000");  // our own
    receive(0, kToAll + "00 00 0004 000B 00 C0 0B 0003 024EA7 01 0005 02005E0003 00 0000");    // malformed AL MAC
    EXPECT_TRUE(host_.sent(1).empty());
}

TEST_F(HostFrames, MalformedMessagesAreCountedAndChangeNothing) {
    const std::pair<const char *, const char *> rows[] = {
        {"discovery without MAC address", "00 00 0000 0001 00 80 01 0006 02005E000200 00 0000"},
        {"discovery without AL MAC", "00 00 0000 0001 00 80 02 0006 02005E000210 00 0000"},
        {"short MAC address", "00 00 0000 0001 00 80 01 0006 02005E000200 02 0005 02005E0002 00 0000"},
        {"notification without AL MAC", "00 00 0001 0001 00 C0 00 0000"},
        {"response without device information", "00 00 0003 0001 00 80 00 0000"},
        {"response in our name", "00 00 0003 0001 00 80 03 0007 02005E000100 00 00 0000"},
        {"vendor message without a vendor TLV", "00 00 0004 0001 00 80 00 0000"},
        {"vendor TLV without an OUI", "00 00 0004 0001 00 80 0B 0002 024E 00 0000"},
    };
    for (const auto &[what, payload] : rows) {
        const uint64_t failures = counters().parseFailures;
        receive(0, kToAll + payload);
        EXPECT_EQ(counters().parseFailures, failures + 1) << what;
    }
    EXPECT_EQ(host_.node->topology().size(), 1u);
    EXPECT_EQ(host_.links() + host_.sources.size(), 0u);
}

TEST_F(HostFrames, AFarDeviceIsAskedBeforeItIsForgotten) {
    receive(1, kToNode + "00 00 0003 0001 00 80 03 0007 02005E000300 00 00 0000");
    host_.node->run(now_ + kInterval / 2);
    const std::vector<Bytes> asked = host_.sent(1);
    ASSERT_EQ(asked.size(), 1u);  // on the port that it was heard on
    EXPECT_EQ(prefix(asked[0], 18), fromHex("02005E000300 02005E000100 893A 00 00 0002"));
    host_.node->run(now_ + kLifetime - Time(1));
    EXPECT_TRUE(host_.knows(mac(3)));
    host_.node->run(now_ + kLifetime);
    EXPECT_FALSE(host_.knows(mac(3)));
}

TEST_F(HostFrames, AFloodOfNeighboursAndStrangersIsBounded) {
    for (int i = 1000; i < 4000; ++i) {
        const std::string address = "02AA0000" + std::to_string(i);
        const std::string tlvs = "01 0006" + address + "02 0006" + address + "00 0000";
        receive(0, "0180C2000013" + address + "893A 00 00 0000 0001 00 80" + tlvs);
    }
    ASSERT_EQ(host_.links(), 1u);
    EXPECT_EQ(host_.node->topology().local().neighbours[0].neighbours.size(), Node::kMaxLinks);
    host_.node->run(now_ + Time(500));
    EXPECT_LE(host_.sent(0).size() + host_.sent(1).size(), Node::kMaxPendingQueries * 2 + 8);
}

TEST_F(HostFrames, IdentifiersWrapAndSkipZero) {
    for (unsigned i = 0; i < 70000; ++i) {
        uint16_t id = 0;
        host_.node->sendVendor(Reach::Unicast, mac(9), kValue, &id, now_);
        ASSERT_NE(id, 0);
    }
}

}  // namespace
}  // namespace kv1905d
