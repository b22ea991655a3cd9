#include "topology.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "host_support.h"

namespace kv1905d {
namespace {

template <typename Parse>
bool accepts(const Parse &parse, const Bytes &value) {
    return parse(ByteView(value)).has_value();
}

struct TlvCase {
    const char *name;
    bool (*accepts)(const Bytes &value);
    const char *good;                // hex
    std::vector<size_t> validSizes;  // prefixes of `good` that are valid too
    std::vector<const char *> bad;
};

const TlvCase kTlvCases[] = {
    {"AL MAC",
     [](const Bytes &v) { return accepts(parseMacTlv, v); },
     "02005E000100",
     {},
     {"01005E000100" /* group */, "000000000000"}},
    {"device information",
     [](const Bytes &v) { return accepts(parseDeviceInformation, v); },
     "02005E000100 02 02005E000110 0001 00 02005E000120 0103 02 AABB",
     {},
     {"01005E000100 00", "02005E000100 41" /* more interfaces than a device may have */}},
    {"bridging capability",
     [](const Bytes &v) { return accepts(parseBridgingCapability, v); },
     "02 02 02005E000110 02005E000111 01 02005E000112",
     {},
     {"FF", "01 FF 02005E000110"}},
    {"non-1905 neighbours",
     [](const Bytes &v) { return accepts(parseNonIeee1905Neighbours, v); },
     "02005E000110 02005E000201 02005E000202",
     {6, 12},
     {}},
    {"1905 neighbours",
     [](const Bytes &v) { return accepts(parseIeee1905Neighbours, v); },
     "02005E000110 02005E000200 80 02005E000300 00",
     {6, 13},
     {}},
    {"vendor specific", [](const Bytes &v) { return accepts(parseVendorSpecific, v); }, "024EA7", {}, {}},
};

TEST(TopologyTlvs, EveryLengthThatIsTooShortIsRefused) {
    for (const TlvCase &row : kTlvCases) {
        const Bytes good = fromHex(row.good);
        EXPECT_TRUE(row.accepts(good)) << row.name;
        for (size_t size = 0; size < good.size(); ++size) {
            const Bytes prefix(good.begin(), good.begin() + static_cast<ptrdiff_t>(size));
            const bool valid = std::find(row.validSizes.begin(), row.validSizes.end(), size) != row.validSizes.end();
            EXPECT_EQ(row.accepts(prefix), valid) << row.name << ", " << size << " bytes";
        }
        for (const char *bad : row.bad)
            EXPECT_FALSE(row.accepts(fromHex(bad))) << row.name << " " << bad;
    }
}

TEST(TopologyTlvs, ValuesOnTheWire) {
    const DeviceInformation device{mac(1), {{mac(1, 0x10), 0x0001, {}}, {mac(1, 0x20), 0x0103, fromHex("AABB")}}};
    EXPECT_EQ(deviceInformationTlv(device).value,
              fromHex("02005E000100 02 02005E000110 0001 00 02005E000120 0103 02 AABB"));
    EXPECT_EQ(parseDeviceInformation(deviceInformationTlv(device).value), device);
    const Ieee1905Neighbours neighbours{mac(1, 0x10), {{mac(2), true}, {mac(3), false}}};
    EXPECT_EQ(ieee1905NeighboursTlv(neighbours).value, fromHex("02005E000110 02005E000200 80 02005E000300 00"));
    EXPECT_EQ(parseIeee1905Neighbours(ieee1905NeighboursTlv(neighbours).value), neighbours);
    const NonIeee1905Neighbours others{mac(1, 0x10), {mac(9, 1), mac(9, 2)}};
    EXPECT_EQ(parseNonIeee1905Neighbours(nonIeee1905NeighboursTlv(others).value), others);
    const BridgingCapability bridges{{mac(1, 0x10), mac(1, 0x11)}, {}};
    EXPECT_EQ(bridgingCapabilityTlv(bridges).value, fromHex("02 02 02005E000110 02005E000111 00"));
    EXPECT_EQ(parseBridgingCapability(bridgingCapabilityTlv(bridges).value), bridges);
    EXPECT_EQ(parseVendorSpecific(fromHex("024EA7 55"))->oui, 0x024EA7u);
}

TopologyReport reportOf(uint8_t device, std::vector<MacAddress> neighbours = {}) {
    TopologyReport report;
    report.device = {mac(device), {{mac(device, 0x10), 0x0001, {}}, {mac(device, 0x20), 0x0103, {}}}};
    report.neighbours.push_back({mac(device, 0x10), {}});
    for (const MacAddress &alMac : neighbours)
        report.neighbours.back().neighbours.push_back({alMac, false});
    return report;
}

TEST(TopologyReport, RoundTripRepeatsAndBounds) {
    Message message{kTopologyResponse, 1, false, topologyReportTlvs(reportOf(2, {mac(3)}))};
    EXPECT_TRUE(parseTopologyReport(message));
    message.tlvs.push_back(message.tlvs[0]);  // a second device information changes nothing
    message.tlvs.push_back({0x7E, {1}});      // unknown
    const auto report = parseTopologyReport(message);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->device, reportOf(2).device);
    EXPECT_EQ(report->neighbours.size(), 1u);

    Message without = message;
    std::erase_if(without.tlvs, [](const Tlv &tlv) { return tlv.type == kTlvDeviceInformation; });
    EXPECT_FALSE(parseTopologyReport(without));
    Message malformed = message;
    malformed.tlvs.push_back({kTlvIeee1905Neighbours, fromHex("02005E000110 02")});
    EXPECT_FALSE(parseTopologyReport(malformed));
    Message tooMany = message;
    Ieee1905Neighbours many{mac(2, 0x11), std::vector<Neighbour>(kMaxNeighbours, {mac(4), false})};
    tooMany.tlvs.push_back(ieee1905NeighboursTlv(many));
    EXPECT_FALSE(parseTopologyReport(tooMany));
}

constexpr Time kStart{1000};
constexpr Time kLifetime{70000};

TEST(Topology, DevicesAgeButTheLocalOneStays) {
    Topology topology(mac(1), kStart);
    topology.update(reportOf(2), kStart);
    topology.update(reportOf(3), kStart + Time(5000));
    EXPECT_TRUE(topology.expire(kLifetime, kStart + kLifetime - Time(1)).empty());
    topology.update(reportOf(3), kStart + kLifetime);
    EXPECT_EQ(topology.expire(kLifetime, kStart + kLifetime), std::vector<MacAddress>{mac(2)});
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), nullptr);
    EXPECT_EQ(topology.expire(kLifetime, kStart + 10 * kLifetime), std::vector<MacAddress>{mac(3)});
    EXPECT_EQ(topology.size(), 1u);
    EXPECT_TRUE(topology.find(mac(1))->local);
}

TEST(Topology, InterfacesBelongToTheFirstWhoReportedThem) {
    Topology topology(mac(1), kStart);
    Device *second = topology.update(reportOf(2), kStart);
    second->interfaces[1].vendor.pwrState = 2;
    TopologyReport thief = reportOf(3);
    thief.device.interfaces.push_back({mac(2, 0x10), 0x0001, {}});
    topology.update(thief, kStart);
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), second);
    EXPECT_EQ(topology.findByAnyMac(mac(2)), second);
    EXPECT_EQ(topology.findByAnyMac(mac(9)), nullptr);

    TopologyReport fewer = reportOf(2);
    fewer.device.interfaces.erase(fewer.device.interfaces.begin());
    EXPECT_EQ(topology.update(fewer, kStart), second);
    EXPECT_EQ(second->interfaces.at(0).vendor.pwrState, 2u);
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), nullptr);
}

TEST(Topology, RefusesMoreDevicesThanItsBound) {
    Topology topology(mac(1), kStart);
    for (unsigned i = 0; i < 2000; ++i) {
        TopologyReport report;
        report.device.alMac = {{0x02, 1, 1, 1, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}};
        EXPECT_EQ(topology.update(report, kStart) != nullptr, i + 1 < Topology::kMaxDevices) << i;
    }
    EXPECT_EQ(topology.size(), Topology::kMaxDevices);
}

TEST(Topology, HopsFollowReportedNeighbours) {
    Topology topology(mac(1), kStart);
    topology.local().neighbours = {{mac(1, 0x10), {{mac(2), false}}}};
    topology.update(reportOf(2, {mac(1), mac(3)}), kStart);
    topology.update(reportOf(3, {mac(2)}), kStart);
    topology.update(reportOf(4), kStart);
    const std::map<MacAddress, unsigned> expected{{mac(1), 0}, {mac(2), 1}, {mac(3), 2}};
    EXPECT_EQ(topology.hops(), expected);
}

// Leaks and double frees are the sanitizer's to find.
TEST(Topology, RemoteRecordsFreeWhatThePluginHungIntoThem) {
    WIFINeighborEntry own{};
    {
        Topology topology(mac(1), kStart);
        topology.local().vendor.data()->wifiNbrHead = &own;  // the plug-in's: must not be freed
        KvDevVendorData *record = topology.update(reportOf(2), kStart)->vendor.data();
        for (int i = 0; i < 2; ++i) {
            auto *entry = static_cast<WIFINeighborEntry *>(std::calloc(1, sizeof(WIFINeighborEntry)));
            entry->next = record->wifiNbrHead;
            record->wifiNbrHead = entry;
        }
        record->security.secData = static_cast<uint8_t *>(std::malloc(4));
        EXPECT_EQ(record->protoVersion[0], '\0');
    }
    EXPECT_EQ(own.next, nullptr);
}

}  // namespace
}  // namespace kv1905d
