// Nodes: discovery, what they know of the network, and how an agent joins it.
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "daemon/bss_extension.h"
#include "daemon/onboarding.h"
#include "node_host.h"

namespace kv1905d {
namespace {

constexpr Duration kInterval{60000}, kLifetime{70000};
const Bytes kValue = fromHex("024EA7 0102030405");

// The test acts as all other devices.
class NodeTest : public testing::Test, protected Host {
  protected:
    NodeTest() {
        run(kStart);
        sent(0), sent(1);
    }
    // Counts the frames of each message type that leave a port until `end`.
    std::map<int, size_t> counts(size_t port, TimePoint start, TimePoint end) const {
        std::map<int, size_t> counts;
        for (TimePoint now = start, next; now <= end; now = next) {
            next = std::min(run(now), now + Duration(100));
            for (const Bytes &frame : sent(port))
                ++counts[frame.at(16) << 8 | frame.at(17)];
        }
        return counts;
    }
    size_t count(size_t port, uint16_t type, TimePoint start, TimePoint end) const {
        return counts(port, start, end)[type];
    }
    size_t linksOn(size_t port) const {
        for (const Ieee1905Neighbours &list : node->topology().local().neighbours)
            if (list.localInterface == config.ports[port].mac) return list.neighbours.size();
        return 0;
    }
};

TEST_F(NodeTest, AnswersOnlyQueriesForThisDevice) {
    const std::pair<const char *, bool> rows[] = {
        {"02005E000900 02005E000200 893A", false}, {"02005E000100 02005E000200 0800", false},  // another protocol's
        {"02005E000100 03005E000200 893A", false}, {"02005E000100 000000000000 893A", false},  // of no device
        {"0180C2000013 02005E000100 893A", false},                                             // our own
        {"0180C2000013 02005E000111 893A", false}, {"02005E000100 02005E000200 893A", true},
        {"02005E000111 02005E000200 893A", true},  {"0180C2000013 02005E000200 893A", true},
    };
    for (const auto &[header, taken] : rows) {
        receive(0, std::string(header) + "00 00 0002 BEEF 00 80 0B 0003 024EA7 0B 0001 02 0B 0003 000347 00 0000");
        const std::vector<Bytes> answers = sent();
        EXPECT_EQ(answers.size(), taken) << header;
        for (const Bytes &answer : answers)
            EXPECT_EQ(prefix(answer, 23), fromHex("02005E000200 02005E000100 893A 00 00 0003 BEEF 00 80 03"));
    }
    EXPECT_EQ(received.size(), 3u * 2) << "vendor TLVs next to the malformed one";
}

TEST_F(NodeTest, RelaysMulticastOnceToOtherPorts) {
    const std::string body = "0B 0004 024EA7 01 7F 0002 ABCD 01 0006 02005E000300 00 0000";
    receive(0, kToAll + "0004 0007 00 C0" + body);
    receive(1, kToAll + "0004 0007 00 C0" + body);
    EXPECT_TRUE(sent(0).empty());
    EXPECT_EQ(sent(1), std::vector<Bytes>{fromHex("0180C2000013 02005E000100 893A 00 00 0004 0007 00 C0" + body)});
    EXPECT_EQ(std::get<MacAddress>(received.at(0)), mac(3)) << "the originator, not who forwarded it";

    receive(0, kToAll + "0004 0008 00 80" + body);  // relay bit clear
    for (int i = 0; i < 2; ++i)
        receive(0, kToNode + "0004 0009 00 C0" + body);
    EXPECT_EQ(received.size(), 4u) << "unicast is never taken for a duplicate";
    receive(0, kToAll + "0004 000A 00 C0 0B 0003 024EA7 01 0006 02005E000100 00 0000");  // our own
    receive(0, kToAll + "0004 000B 00 C0 0B 0003 024EA7 01 0005 02005E0003 00 0000");    // malformed AL MAC
    EXPECT_TRUE(sent(1).empty());
}

TEST_F(NodeTest, QueriesADistantDeviceBeforeRemoval) {
    receive(1, kToNode + "0003 0001 00 80 03 0010 02005E000300 01 02005E000320 0103 00 00 0000");
    run(kStart + kInterval / 2);
    const std::vector<Bytes> query = sent(1);
    ASSERT_EQ(query.size(), 1u);  // on the port that received it
    EXPECT_EQ(prefix(query[0], 18), fromHex("02005E000300 02005E000100 893A 00 00 0002"));
    EXPECT_TRUE(sent(0).empty());
    receive(1, "02005E000100 02005E000320 893A 00 00 0004 0001 00 80 0B 0003 024EA7 00 0000");
    EXPECT_EQ(std::get<MacAddress>(received.at(0)), mac(3)) << "it sent from its interface";
    run(kStart + kLifetime - Duration(1));
    EXPECT_TRUE(find(3));
    run(kStart + kLifetime);
    EXPECT_FALSE(find(3));
}

const std::string kNotification = kToAll + "0001 0001 00 C0 01 0006 02005E000200 00 0000";
const std::string kResponse = kToNode + "0003 0001 00 80 03 0010 02005E000200 01 02005E000210 0001 00";

TEST_F(NodeTest, NewNeighbourCausesOneEarlyDiscovery) {
    receive(0, kDiscovery);
    EXPECT_EQ(count(0, kTopologyDiscovery, kStart, kStart + Duration(400)), 1u);
    receive(0, kResponse + "00 0000");
    counts(0, kStart, kStart + Duration(3000));
    std::map<int, size_t> total;
    TimePoint now = kStart + Duration(3000);
    for (int minute = 0; minute < 60; ++minute, now += kInterval) {
        receive(0, kDiscovery, now);
        receive(0, "0180C200000E 02005E000200 88CC 0207 04 02005E000200 0407 03 02005E000210 0602 00B4 0000", now);
        for (const auto &[type, frames] : counts(0, now, now + kInterval))
            total[type] += frames;
    }
    EXPECT_EQ(total.size(), 1u);
    EXPECT_NEAR(static_cast<double>(total[kTopologyDiscovery]), 66, 7);
    receive(0, kNotification, now);
    EXPECT_EQ(count(0, kTopologyDiscovery, now, now + Duration(400)), 1u) << "it may have been restarted";
}

TEST_F(NodeTest, DeliversVendorMessagesToPeerAndSelf) {
    receive(0, kResponse + "00 0000");
    uint16_t id = 0x4711;
    EXPECT_FALSE(node->sendVendor(Reach::Unicast, mac(2), Bytes(kMaxTlvValue + 1), &id, kStart));
    EXPECT_TRUE(node->sendVendor(Reach::Unicast, mac(2, 0x10), Bytes(3000), &id, kStart));
    const std::vector<Bytes> frames = sent();
    EXPECT_EQ(frames.size(), 3u);
    for (const Bytes &frame : frames)
        EXPECT_EQ(prefix(frame, 20), fromHex("02005E000200 02005E000100 893A 00 00 0004 4711"));
    EXPECT_TRUE(node->sendVendor(Reach::Unicast, mac(1), kValue, &id, kStart));
    EXPECT_TRUE(received.empty()) << "not while it is sending";
    run(kStart);
    EXPECT_EQ(received, decltype(received)(1, {mac(1), kValue, id}));
    for (unsigned i = 0; i < 70000; ++i) {
        id = 0;
        node->sendVendor(Reach::Unicast, mac(1), kValue, &id, kStart);
        ASSERT_NE(id, 0);
    }
}

TEST_F(NodeTest, QueryEndsAfterResponseOrThreeAttempts) {
    receive(0, kNotification);
    EXPECT_EQ(count(0, kTopologyQuery, kStart, kStart + Duration(900)), 1u);
    EXPECT_EQ(count(0, kTopologyQuery, kStart + Duration(1000), kStart + Duration(9000)), 2u);
    const TimePoint later = kStart + Duration(10000);
    receive(0, kToAll + "0001 0002 00 C0 01 0006 02005E000200 00 0000", later);
    EXPECT_EQ(count(0, kTopologyQuery, later, later), 1u);
    receive(0, kResponse + "07 000D 02005E000210 02005E000300 00 00 0000", later);
    EXPECT_EQ(count(0, kTopologyQuery, later, later + Duration(900)), 1u) << "device 3, which device 2 named";
    receive(0, kToNode + "0003 0001 00 80 03 0007 02005E000300 00 00 0000", later + Duration(900));
    EXPECT_EQ(count(0, kTopologyQuery, later + Duration(900), later + Duration(9000)), 0u);
}

TEST_F(NodeTest, LinkExpires70SecondsAfterDiscovery) {
    receive(0, kToNode + kDiscovery.substr(kToAll.size()));
    EXPECT_EQ(linksOn(0), 0u) << "unicast does not create a link";
    receive(0, kDiscovery);
    receive(1, kDiscovery);
    receive(1, kDiscovery, kStart + Duration(50000));
    EXPECT_EQ(linksOn(0) + linksOn(1), 2u);
    run(kStart + kLifetime - Duration(1));
    EXPECT_EQ(linksOn(0), 1u);
    run(kStart + kLifetime);
    EXPECT_EQ(linksOn(0), 0u);
    EXPECT_EQ(linksOn(1), 1u);
    EXPECT_LE(run(kStart + kLifetime), kStart + kLifetime + Duration(50000)) << "when the next link ends";
    run(kStart + kLifetime + Duration(50000));
    EXPECT_EQ(linksOn(1), 0u);
}

TEST_F(NodeTest, CombinesChangesIntoOneNotification) {
    receive(0, kResponse + "00 0000");
    node->linkChanged(1, true, kStart + Duration(10));
    node->linkChanged(1, true, kStart + Duration(500));
    EXPECT_EQ(count(0, kTopologyNotification, kStart + Duration(10), kStart + Duration(999)), 0u);
    EXPECT_EQ(count(0, kTopologyNotification, kStart + Duration(1000), kStart + kLifetime - Duration(1)), 1u);
    EXPECT_EQ(count(0, kTopologyNotification, kStart + kLifetime, kStart + kLifetime), 1u) << "a device was removed";
    const TimePoint later = kStart + kLifetime + Duration(1);
    sent(1);
    node->linkChanged(1, true, later);
    EXPECT_EQ(count(1, kTopologyDiscovery, later, later), 1u);
}

TEST_F(NodeTest, KeepsBssElementsAndPassesOtherVendorTlvs) {
    const std::string elements = "0B 0010 024EA7 C0 000A 01 02005E000220 1234 01 0B 0006 024EA7 0001 02";
    receive(0, kResponse + elements + "00 0000");
    ASSERT_TRUE(find(2));
    EXPECT_EQ(find(2)->bss.mdids, (std::vector<MdidEntry>{{mac(2, 0x20), 0x1234, true}}));
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(std::get<Bytes>(received[0]), fromHex("024EA7 0001 02"));
    receive(0, kToNode + "0004 0001 00 80" + elements + "00 0000");
    EXPECT_EQ(received.size(), 3u) << "in a vendor message they are none";
}

TEST_F(NodeTest, SendsUnicastThroughABridge) {
    config.bridgeFd = near[1].get();
    start(kStart);
    receive(0, kToNode + "0002 BEEF 00 80 00 0000");
    EXPECT_TRUE(sent(0).empty());
    EXPECT_TRUE(contains(sent(1).at(0), "04 000E 01 02 02005E000110 02005E000111"));
}

TEST_F(NodeTest, LimitsNeighboursAndDevices) {
    for (int i = 1000; i < 4000; ++i) {
        const std::string address = "02AA0000" + std::to_string(i);
        const std::string tlvs = "01 0006" + address + "02 0006" + address + "00 0000";
        receive(0, "0180C2000013" + address + "893A 00 00 0000 0001 00 80" + tlvs);
    }
    EXPECT_EQ(node->topology().local().neighbours.at(0).neighbours.size(), Neighbourhood::kMaxLinks);
    run(kStart + Duration(500));
    EXPECT_LE(sent(0).size() + sent(1).size(), Node::kMaxPendingQueries * 2 + 8);
}

TopologyReport reportOf(unsigned device, const std::vector<Neighbour> &neighbours = {}) {
    TopologyReport report;
    report.device = {mac(device), {{mac(device, 0x10), 0x0001, {}}, {mac(device, 0x20), 0x0103, {}}}};
    report.neighbours.push_back({mac(device, 0x10), neighbours});
    return report;
}

// The sanitizer detects leaks and double frees.
TEST(Topology, AgedDeviceFreesPluginData) {
    WIFINeighborEntry own{};
    Topology topology(mac(1), kStart);
    topology.local().vendor.data()->wifiNbrHead = &own;  // the plug-in's: must not be freed
    topology.local().neighbours = {{mac(1, 0x10), {{mac(2), false}}}};
    KvDevVendorData *record = topology.update(reportOf(2, {{mac(1), false}, {mac(3), false}}), kStart)->vendor.data();
    record->wifiNbrHead = static_cast<WIFINeighborEntry *>(std::calloc(1, sizeof(WIFINeighborEntry)));
    record->wifiNbrHead->next = static_cast<WIFINeighborEntry *>(std::calloc(1, sizeof(WIFINeighborEntry)));
    record->security.secData = static_cast<uint8_t *>(std::malloc(4));
    topology.update(reportOf(3, {{mac(2), false}}), kStart + Duration(5000));
    topology.update(reportOf(4), kStart + Duration(5000));  // no neighbour of any device
    EXPECT_EQ(topology.hops(), (std::map<MacAddress, unsigned>{{mac(1), 0}, {mac(2), 1}, {mac(3), 2}}));
    EXPECT_EQ(topology.expire(kLifetime, kStart + kLifetime), std::vector<MacAddress>{mac(2)});
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), nullptr);
}

TEST(Topology, InterfaceBelongsToFirstReporter) {
    Topology topology(mac(1), kStart);
    Device *second = topology.update(reportOf(2), kStart);
    second->interfaces[1].vendor.pwrState = 2;
    TopologyReport thief = reportOf(3);
    thief.device.interfaces.push_back({mac(2, 0x10), 0x0001, {}});
    topology.update(thief, kStart);
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), second);
    topology.update(reportOf(3), kStart);
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), second) << "device 3 gave up what was never its own";
    TopologyReport fewer = reportOf(2);
    fewer.device.interfaces.erase(fewer.device.interfaces.begin());
    EXPECT_EQ(topology.update(fewer, kStart), second);
    EXPECT_EQ(second->interfaces.at(0).vendor.pwrState, 2u);
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), nullptr);
    for (unsigned i = 1; i < 2000; ++i)
        topology.update({{mac(0x80 + (i >> 8), i), {}}, {}, {}}, kStart);
    EXPECT_EQ(topology.size(), Topology::kMaxDevices);
}

// A device that joins a network, or with the number 1 its controller.
struct Party : Host {
    explicit Party(unsigned device) : Host(device, 1) {
        events.autoconfiguration = [this](const MacAddress &source, const Message &message, TimePoint now) {
            return onboarding->receive(source, message, now);
        };
        start(kStart);
        OnboardingActions actions;
        actions.isController = [this] { return config.alMac == mac(1); };
        actions.extension = [](Band band) {  // what the plug-in would write, reduced to its band index
            return fromHex(band == kBand24 ? "1049 0006 0A61C4 010180" : "1049 0006 0A61C4 010140");
        };
        actions.readExtension = [](ByteView value) {
            KvBssInfo bss{};
            bss.BandIndex = value.back();
            return value.size() == 6 ? std::optional(bss) : std::nullopt;
        };
        actions.requestSetting = [this](const MacAddress &, int setting) {
            requests.push_back(setting);
            return requests.size() <= 2 ? KV_RET_ERR : KV_RET_OK;
        };
        onboarding = std::make_unique<Onboarding>(*node, actions, kStart);
    }
    std::map<Band, int> radiosOf(unsigned device) const {
        std::map<Band, int> indices;
        const auto known = onboarding->apConfigurations().find(mac(device));
        if (known == onboarding->apConfigurations().end()) return indices;
        for (const auto &[band, bss] : known->second)
            indices[band] = bss.BandIndex;
        return indices;
    }

    std::unique_ptr<Onboarding> onboarding;
    std::vector<int> requests;  // for settings; the first two fail
};

// Agent 2 only; the test acts as controller 1, the other controller 3 and all other devices.
class OnboardingTest : public testing::Test, protected Party {
  protected:
    OnboardingTest() : Party(2) {
        appear(kOne);
        appear(kThree);
        sentUntil(now_ + Duration(1500));
    }
    void receive(const std::string &source, const std::string &payload) {
        Party::receive(0, "02005E000200" + source + "893A 00 00" + payload, now_);
    }
    void appear(const std::string &source) {
        receive(source, "0003 0001 00 80 03 0007" + source + "00 00 0000");
        node->topology().findByAnyMac(MacAddress::copyOf(fromHex(source).data()))->sentVendorMessage = true;
    }
    // Types of the onboarding messages sent; keeps identifiers of Searches and nonces of M1 by band (0: 2.4 GHz).
    std::vector<uint16_t> sentUntil(TimePoint end) {
        std::vector<uint16_t> types;
        for (; now_ <= end; now_ += Duration(100)) {
            onboarding->run(now_);
            run(now_);
            for (const Bytes &frame : sent()) {
                const auto type = static_cast<uint16_t>(frame.at(16) << 8 | frame.at(17));
                if (type == kAutoconfigurationSearch) searchId_[frame.at(38)] = hexOf(frame, 18, 2);
                if (type == kAutoconfigurationWsc) {
                    nonce_ = hexOf(frame, 34, 16);
                    EXPECT_TRUE(contains(frame, "1049 0006 0A61C4 0101")) << "this device's own BSS";
                }
                if (type >= kAutoconfigurationSearch && type <= kAutoconfigurationWsc) types.push_back(type);
            }
        }
        return types;
    }
    static std::string hexOf(const Bytes &frame, size_t start, size_t count) {
        std::string text;
        for (const uint8_t byte : ByteView(frame).subspan(start, count)) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02X", byte);
            text += digits;
        }
        return text;
    }
    void respond(const std::string &source, const std::string &id, const char *role, const char *band) {
        receive(source, "0008" + id + "00 80 0F 0001" + role + "10 0001" + band + "00 0000");
    }
    void answer(const std::string &source, const char *type, const char *band, const std::string &nonce) {
        receive(source, "0009 0001 00 80 11 003C 1022 0001" + std::string(type) + "103C 0001" + band + "101A 0010" +
                            nonce + "1039 0010 000102030405060708090A0B0C0D0E0F 1049 0006 0A61C4 010140 00 0000");
    }
    void renew(const std::string &source) {
        receive(source, "000A 0001 00 80 01 0006" + source + "0F 0001 00 10 0001 00 00 0000");
    }
    static constexpr const char *kOne = "02005E000100", *kThree = "02005E000300", *kForeign = "02005E000900";

    TimePoint now_ = kStart;
    std::string searchId_[2], nonce_;
};

TEST_F(OnboardingTest, AcceptsFirstControllerAndItsM2) {
    respond(kOne, searchId_[1], "00", "00");  // the other band's identifier
    respond(kOne, searchId_[0], "00", "01");
    respond(kOne, searchId_[0], "01", "00");  // no registrar
    EXPECT_EQ(onboarding->controller(), std::nullopt);
    respond(kOne, searchId_[0], "00", "00");
    respond(kThree, searchId_[1], "00", "01");
    EXPECT_EQ(onboarding->controller(), mac(1));
    const auto types = sentUntil(now_);
    EXPECT_EQ(types, std::vector<uint16_t>{kAutoconfigurationWsc}) << "nothing for the second controller";
    const std::string other(32, '5');
    answer(kThree, "05", "01", nonce_);
    answer(kOne, "05", "01", other);
    answer(kOne, "05", "02", nonce_);
    answer(kOne, "04", "01", nonce_);  // M1: this device is no controller
    receive(kOne, "0007 0001 00 80 01 0006 02005E000100 0D 0001 00 0E 0001 00 00 0000");
    EXPECT_TRUE(radiosOf(1).empty() && radiosOf(3).empty());
    EXPECT_TRUE(sent().empty()) << "an agent answers no Search and no M1";
    EXPECT_TRUE(requests.empty()) << "settings only after M2";
    answer(kOne, "05", "01", nonce_);
    EXPECT_EQ(radiosOf(1), (std::map<Band, int>{{kBand24, 0x40}}));
    sentUntil(now_ + Duration(1000));
    EXPECT_EQ(requests, std::vector<int>{0});
    sentUntil(now_ + Duration(800));
    EXPECT_EQ(requests.size(), 1u) << "a failed request is repeated after two seconds";
    sentUntil(now_ + std::chrono::minutes(1));
    EXPECT_EQ(requests, (std::vector<int>{0, 0, 0, 1})) << "two failed; none again when all were sent";
    sentUntil(now_ + std::chrono::minutes(1));
    EXPECT_EQ(onboarding->controller(), std::nullopt) << "silent for too long";
    EXPECT_TRUE(radiosOf(1).empty());
    appear(kOne);
    sentUntil(now_ + Duration(10000));
    respond(kOne, searchId_[0], "00", "00");
    sentUntil(now_);
    answer(kOne, "05", "01", nonce_);
    sentUntil(now_ + Duration(1000));
    EXPECT_EQ(requests, (std::vector<int>{0, 0, 0, 1, 0, 1})) << "joined again";
    EXPECT_EQ(node->counters().parseFailures, 0u);
}

TEST_F(OnboardingTest, SendsM1AfterVendorMessageAndOnRenewal) {
    const TimePoint joined = now_;
    respond(kForeign, searchId_[0], "00", "00");
    auto types = sentUntil(joined + Duration(29800));
    EXPECT_EQ(std::count(types.begin(), types.end(), kAutoconfigurationWsc), 0) << "from an unknown device";
    renew(kForeign);
    sentUntil(joined + Duration(29900));
    EXPECT_TRUE(requests.empty()) << "it does not know them, renewed or not";
    EXPECT_EQ(onboarding->controller(), mac(9));
    sentUntil(joined + Duration(30000));
    EXPECT_EQ(onboarding->controller(), std::nullopt);
    sentUntil(now_ + Duration(3000));
    for (const char *band : {"00", "01"})
        respond(kOne, searchId_[band[1] - '0'], "00", band);
    types = sentUntil(now_ + Duration(10000));
    EXPECT_EQ(types, std::vector<uint16_t>(2 * 3, kAutoconfigurationWsc));
    for (const char *source : {kThree, kOne}) {
        EXPECT_TRUE(sentUntil(now_ + Duration(1000)).empty());
        renew(source);
    }
    types = sentUntil(now_ + Duration(1500));
    EXPECT_EQ(types, std::vector<uint16_t>(2, kAutoconfigurationSearch));
    types = sentUntil(now_ + std::chrono::hours(1));
    EXPECT_NEAR(static_cast<double>(types.size()), 2 * 70, 20) << "they back off";
}

TEST(Controller, CountsAndIgnoresMalformedMessages) {
    Party party(1);
    party.receive(0, kResponse + "00 0000");
    party.sent();
    for (const char *message : {
             "0000 0001 00 80 01 0006 02005E000200 00 0000",                         // discovery without a MAC address
             "0000 0001 00 80 02 0006 02005E000210 00 0000",                         // ... an AL MAC
             "0000 0001 00 80 01 0006 02005E000200 02 0005 02005E0002 00 0000",      // ... six bytes of it
             "0001 0001 00 C0 00 0000",                                              // notification without an AL MAC
             "0003 0001 00 80 03 0007 02005E000100 00 00 0000",                      // response in our name
             "0004 0001 00 80 00 0000",                                              // vendor message without a TLV
             "0007 0001 00 80 0D 0001 00 0E 0001 00 00 0000",                        // Search without an AL MAC
             "0007 0001 00 80 01 0006 02005E000200 0E 0001 00 00 0000",              // ... a role
             "0007 0001 00 80 01 0006 02005E000200 0D 0001 00 0E 0002 0000 000000",  // ... with a band too long
             "0008 0001 00 80 0F 0001 00 00 0000",                                   // Response without a band
             "0009 0001 00 80 00 0000",                                              // WSC without its TLV
         })
        EXPECT_TRUE(party.refuses(0, fromHex(kToAll + message))) << message;

    const auto refuses = [&](const Bytes &value) {
        Bytes frame = fromHex("02005E000100 02005E000200 893A");
        const Bytes payload = encodeMessage({kAutoconfigurationWsc, 1, false, {{kTlvWsc, value}}}).at(0);
        frame.insert(frame.end(), payload.begin(), payload.end());
        return party.refuses(0, frame);
    };
    const std::string needed = "1022 0001 04 103C 0001 01 101A 0010 000102030405060708090A0B0C0D0E0F";
    const Bytes m1 = fromHex(needed + "1049 0006 0A61C4 010180");
    for (size_t size = 0; size < m1.size(); ++size)
        EXPECT_EQ(refuses(prefix(m1, size)), size != fromHex(needed).size()) << size;
    Bytes flood = fromHex(needed);
    for (size_t i = 0; i <= kMaxWscAttributes; ++i)
        flood.insert(flood.end(), {0x10, 0x03, 0, 0});
    EXPECT_TRUE(refuses(flood));
    EXPECT_TRUE(refuses(fromHex(needed + "1049 0005 0A61C4 0101"))) << "refused by the plug-in";
    EXPECT_TRUE(refuses(fromHex(needed + "101A 0001 00"))) << "a short nonce";
    EXPECT_TRUE(refuses(fromHex("1022 0001 05" + needed.substr(12)))) << "M2 without a registrar nonce";
    EXPECT_FALSE(refuses(fromHex(needed + "1049 0004 00372A 00"))) << "another vendor's";
    EXPECT_TRUE(party.radiosOf(2).empty());
    EXPECT_FALSE(refuses(m1));
    EXPECT_EQ(party.radiosOf(2), (std::map<Band, int>{{kBand24, 0x80}}));
    party.sent();
    EXPECT_FALSE(refuses(fromHex(needed)));
    EXPECT_TRUE(party.radiosOf(2).empty()) << "its network was removed";
    const std::vector<Bytes> m2 = party.sent();
    ASSERT_EQ(m2.size(), 1u);
    EXPECT_TRUE(contains(m2[0], "101A 0010 000102030405060708090A0B0C0D0E0F 1039 0010"));
    party.receive(0, kToAll + "0007 0002 00 80 01 0006 02005E000200 0D 0001 01 0E 0001 00 00 0000");
    EXPECT_TRUE(party.sent().empty()) << "a Search for no registrar";
}

TEST(BssExtension, WritesAndReadsThroughThePlugin) {
    std::ofstream("/data/nvram") << "wl0_mdid=4660\nwl1_mdid=17\n";
    const PluginSymbols plugin = loadPlugin(kPlugin);
    BssExtension extension(plugin, {{"wl0", {mac(1, 0x20), 0x0103, {}}}, {"wl1", {mac(1, 0x21), 0x0105, {}}}});
    extension.refresh();
    EXPECT_EQ(extension.topologyTlvs().at(1).value,
              fromHex("024EA7 D0 0011 02 80 01 1234 0000 00 00 40 01 0011 0000 00 00"));
    EXPECT_EQ(extension.attribute(kBand5), fromHex("1049 0014 0A61C4 010140 020101 03020011 04020000 070100"));
    const auto bss = extension.readAttribute(fromHex("0A61C4 03021234 070105 010140"));  // out of order
    ASSERT_TRUE(bss);
    EXPECT_EQ(std::tuple(bss->MDID, bss->ExtAttribute, bss->BandIndex), std::tuple(0x1234, 5, 0x40));
    for (const std::string bad : {"0101", "010140 02", "010140 0302", "010140 0701", "010240 01", "010140 FFFF"})
        EXPECT_FALSE(extension.readAttribute(fromHex("0A61C4" + bad))) << bad;
}

}  // namespace
}  // namespace kv1905d
