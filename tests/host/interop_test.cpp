// Frames of two other IEEE 1905.1 stacks, recorded on links with devices 1 to 3 of ours, and their queries.
#include <fstream>
#include <iterator>
#include <map>

#include "node_host.h"

namespace kv1905d {
namespace {

std::vector<Bytes> readCapture(const std::string &name) {
    std::ifstream file(KV_SOURCE_DIRECTORY "/tests/host/captures/" + name, std::ios::binary);
    const Bytes all(std::istreambuf_iterator<char>(file), {});
    constexpr size_t kFileHeader = 24, kFrameHeader = 16;
    std::vector<Bytes> frames;
    for (size_t at = kFileHeader; at < all.size();) {
        const auto size =
            static_cast<size_t>(all.at(at + 8) | all.at(at + 9) << 8);  // little-endian; no frame is larger
        const auto begin = all.begin() + static_cast<ptrdiff_t>(at + kFrameHeader);
        frames.emplace_back(begin, begin + static_cast<ptrdiff_t>(size));
        at += kFrameHeader + size;
    }
    return frames;
}

MacAddress stackA(uint8_t device) {
    return {{0x02, 0x00, 0x5E, 0x99, device, 0x00}};
}
const MacAddress kStackB{{0x02, 0x00, 0x5E, 0x98, 0x03, 0x00}};

// Effects of the frames, which are numbered from 1.
struct Outcome {
    std::map<unsigned, Host> hosts;
    std::map<size_t, int> answers;  // message types
    std::vector<size_t> relayed, withVendorTlv;
};

// Passes each frame to that device of ours; all of them are well formed.
Outcome replay(const std::string &name, const std::vector<unsigned> &receivers) {
    const std::vector<Bytes> frames = readCapture(name);
    EXPECT_EQ(frames.size(), receivers.size());
    Outcome outcome;
    for (size_t number = 1; number <= receivers.size(); ++number) {
        const unsigned device = receivers[number - 1];
        Host &host = outcome.hosts.try_emplace(device, device).first->second;
        host.received.clear();
        EXPECT_FALSE(host.refuses(0, frames.at(number - 1))) << name << " frame " << number;
        for (const Bytes &answer : host.sent(0))
            EXPECT_TRUE(outcome.answers.emplace(number, answer.at(16) << 8 | answer.at(17)).second);
        for (const Bytes &other : host.sent(1))
            if (other.front() == 0x01) outcome.relayed.push_back(number);  // multicast
        outcome.withVendorTlv.insert(outcome.withVendorTlv.end(), host.received.size(), number);
    }
    return outcome;
}

using Links = std::vector<Ieee1905Neighbours>;

Links linksOf(const Outcome &outcome, unsigned at, const MacAddress &alMac) {
    const Device *device = outcome.hosts.at(at).node->topology().find(alMac);
    EXPECT_TRUE(device) << alMac.text();
    return device == nullptr ? Links{} : device->neighbours;
}

TEST(OtherStacks, DecodesCapturedFrames) {
    const Outcome a = replay("stack_a.pcap", {2, 2, 2, 2, 2, 1, 2, 1, 3, 1, 1, 2, 2, 2, 1, 2, 2, 2});
    using Types = std::map<size_t, int>;
    using Numbers = std::vector<size_t>;
    EXPECT_EQ(a.answers, (Types{{2, kTopologyResponse}, {4, kLinkMetricResponse}, {5, kHigherLayerResponse}}));
    EXPECT_EQ(a.relayed, (Numbers{7, 10, 11, 12, 13, 14, 15}));
    EXPECT_EQ(a.withVendorTlv, (Numbers{4, 12, 13, 14, 15}));
    EXPECT_EQ(linksOf(a, 2, mac(2)), (Links{{mac(2, 0x10), {{stackA(3), false}}}}));
    EXPECT_EQ(linksOf(a, 2, stackA(1)), (Links{{mac(1, 0x10), {{mac(2), false}}}}));
    EXPECT_EQ(linksOf(a, 1, stackA(3)), (Links{{mac(3, 0x10), {{mac(2), false}}}}));
    EXPECT_EQ(linksOf(a, 1, stackA(2)), Links{});
    EXPECT_EQ(linksOf(a, 3, stackA(2)), (Links{{mac(2, 0x10), {{mac(1), false}}}, {mac(2, 0x11), {{mac(3), false}}}}));
    const Outcome b = replay("stack_b.pcap", {2, 2, 2, 2, 2, 2, 1, 2});
    EXPECT_EQ(b.answers, (Types{{3, kTopologyResponse}, {4, kLinkMetricResponse}, {5, kHigherLayerResponse}}));
    EXPECT_EQ(b.relayed, Numbers{6});
    EXPECT_EQ(linksOf(b, 2, mac(2)), (Links{{mac(2, 0x10), {{kStackB, false}}}}));
    EXPECT_EQ(linksOf(b, 1, kStackB), (Links{{mac(3, 0x10), {{mac(2), false}}}}));
}

const std::string kLldp = "0180C200000E 02005E000200 88CC";

TEST(OtherStacks, MissingBridgeDiscoveryMeansBridge) {
    Host host;
    const auto isBridged = [&] { return host.node->topology().local().neighbours.at(0).neighbours.at(0).viaBridge; };
    host.run(kStart);
    EXPECT_EQ(host.sent(1, kLldpEtherType),
              std::vector<Bytes>{fromHex("0180C200000E 02005E000100 88CC"
                                         "0207 04 02005E000100 0407 03 02005E000111 0602 00B4 0000")});
    for (const int seconds : {0, 60, 119})
        host.receive(0, kDiscovery, kStart + std::chrono::seconds(seconds));
    host.run(kStart + Duration(119999));
    EXPECT_FALSE(isBridged());
    host.run(kStart + Duration(120000));
    EXPECT_TRUE(isBridged());
    const TimePoint later = kStart + Duration(121000);
    for (const std::string foreign :
         {"0207 04 02005E000200 0407 05 02005E000210 0602 00B4 0000",
          "0207 04 02005E000200 0407 03 02005E000210 0602 0000 0000",
          "0207 04 02005E000200 0407 03 02005E000211 0602 00B4 0000", "0207 04 02005E000200 0407 03 02005E0002"})
        host.receive(0, kLldp + foreign, later);
    EXPECT_TRUE(isBridged());
    host.receive(0, kLldp + "0207 04 02005E000200 0407 03 02005E000210 0602 00B4 0000 0000", later);
    EXPECT_FALSE(isBridged());
}

TEST(OtherStacks, ResponsesContainAllTlvs) {
    Host host;
    host.events.linkStatistics = [](size_t port) {
        return LinkStatistics{7, 1, 9, 2, static_cast<uint16_t>(port + 100)};
    };
    host.config.name = "gateway";
    host.start(kStart);
    std::fill_n(host.node->topology().local().vendor.data()->modelName, 65, 'w');  // the TLV has room for 64
    host.receive(1, kDiscovery);
    const std::string link = "02005E000100 02005E000200 02005E000111 02005E000210 0001";
    const std::string sent = "09 0029" + link + "00 00000001 00000007 0065 0064 0065",
                      received = "0A 0023" + link + "00000002 00000009 FF";
    std::string model = "15 00C0" + std::string(2 * 128, '0') + std::string(2 * 64, '7');
    model.replace(7, 14, "67617465776179");
    const std::pair<std::string, std::string> rows[] = {
        {"0005 BEEF 00 80 08 0002 00 02", "0006 BEEF 00 80" + sent + received},
        {"0005 BEEF 00 80 08 0008 01 02005E000200 00", "0006 BEEF 00 80" + sent},
        {"0005 BEEF 00 80 08 0008 01 02005E000200 01", "0006 BEEF 00 80" + received},
        {"0005 BEEF 00 80 08 0008 01 02005E000300 02", "0006 BEEF 00 80 0C 0001 00"},
        {"0005 BEEF 00 80 08 0002 00 03", ""},
        {"0005 BEEF 00 80 08 0007 00 00000000 02", ""},
        {"000D BEEF 00 80", "000E BEEF 00 80 01 0006 02005E000100 1A 0001 01" + model},
        {"8001 BEEF 00 80", ""},
    };
    for (const auto &[query, answer] : rows) {
        host.sent(0), host.sent(1);
        host.receive(1, kToNode + query + "00 0000");
        std::vector<Bytes> expected;
        if (!answer.empty()) expected = {fromHex("02005E000200 02005E000100 893A 00 00" + answer + "00 0000")};
        EXPECT_EQ(host.sent(1), expected) << query;
    }
    EXPECT_EQ(host.node->counters().parseFailures, 2u);
    EXPECT_EQ(host.node->unhandled(), (std::map<uint16_t, uint64_t>{{0x8001, 1}}));
}

}  // namespace
}  // namespace kv1905d
