#include "topology.h"

#include <cstdlib>

#include "host_support.h"

namespace kv1905d {
namespace {

// The value read and written again; nothing when it is refused.
template <auto parse, auto write>
std::optional<Bytes> again(const Bytes &value) {
    const auto fields = parse(value);
    return fields ? std::optional(write(*fields).value) : std::nullopt;
}

Tlv alMacTlv(const MacAddress &alMac) {
    return macTlv(kTlvAlMac, alMac);
}

Tlv vendorTlv(const VendorSpecific &vendor) {
    const uint8_t oui[] = {uint8_t(vendor.oui >> 16), uint8_t(vendor.oui >> 8), uint8_t(vendor.oui)};
    return {kTlvVendorSpecific, Bytes(oui, oui + 3)};
}

TEST(TopologyTlvs, SurviveARoundTripAndNoLengthThatIsTooShort) {
    const struct {
        std::optional<Bytes> (*again)(const Bytes &value);
        const char *good;                // hex
        std::vector<size_t> validSizes;  // prefixes of `good` that are valid too
        std::vector<const char *> bad;
    } rows[] = {
        {again<parseMacTlv, alMacTlv>, "02005E000100", {}, {"01005E000100" /* group */, "000000000000"}},
        {again<parseDeviceInformation, deviceInformationTlv>,
         "02005E000100 02 02005E000110 0001 00 02005E000120 0103 02 AABB",
         {},
         {"01005E000100 00", "02005E000100 41" /* more interfaces than a device may have */}},
        {again<parseBridgingCapability, bridgingCapabilityTlv>,
         "02 02 02005E000110 02005E000111 01 02005E000112",
         {},
         {"FF", "01 FF 02005E000110"}},
        {again<parseNonIeee1905Neighbours, nonIeee1905NeighboursTlv>,
         "02005E000110 02005E000201 02005E000202",
         {6, 12},
         {}},
        {again<parseIeee1905Neighbours, ieee1905NeighboursTlv>,
         "02005E000110 02005E000200 80 02005E000300 00",
         {6, 13},
         {}},
        {again<parseVendorSpecific, vendorTlv>, "024EA7", {}, {}},
    };
    for (const auto &row : rows) {
        const Bytes good = fromHex(row.good);
        EXPECT_EQ(row.again(good), good);
        for (size_t size = 0; size < good.size(); ++size) {
            const bool valid = std::count(row.validSizes.begin(), row.validSizes.end(), size) != 0;
            EXPECT_EQ(row.again(prefix(good, size)).has_value(), valid) << row.good << ", " << size << " bytes";
        }
        for (const char *bad : row.bad)
            EXPECT_FALSE(row.again(fromHex(bad))) << bad;
    }
    const DeviceInformation device{mac(1), {{mac(1, 0x10), 0x0001, {}}, {mac(1, 0x20), 0x0103, fromHex("AABB")}}};
    EXPECT_EQ(parseDeviceInformation(fromHex(rows[1].good)), device);
    const Ieee1905Neighbours neighbours{mac(1, 0x10), {{mac(2), true}, {mac(3), false}}};
    EXPECT_EQ(parseIeee1905Neighbours(fromHex(rows[4].good)), neighbours);
}

TopologyReport reportOf(unsigned device, const std::vector<Neighbour> &neighbours = {}) {
    TopologyReport report;
    report.device = {mac(device), {{mac(device, 0x10), 0x0001, {}}, {mac(device, 0x20), 0x0103, {}}}};
    report.neighbours.push_back({mac(device, 0x10), neighbours});
    return report;
}

TEST(TopologyReport, RoundTripRepeatsAndBounds) {
    std::vector<Tlv> tlvs = topologyReportTlvs(reportOf(2, {{mac(3), false}}));
    tlvs.push_back(tlvs[0]);      // a second device information changes nothing
    tlvs.push_back({0x7E, {1}});  // unknown
    const auto parse = [&] { return parseTopologyReport({kTopologyResponse, 1, false, tlvs}); };
    const auto report = parse();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->device, reportOf(2).device);
    EXPECT_EQ(report->neighbours.size(), 1u);

    tlvs.push_back({kTlvIeee1905Neighbours, fromHex("02005E000110 02")});
    EXPECT_FALSE(parse()) << "malformed";
    tlvs.back() = ieee1905NeighboursTlv({mac(2, 0x11), std::vector<Neighbour>(kMaxNeighbours, {mac(4), false})});
    EXPECT_FALSE(parse()) << "too many neighbours";
    tlvs.pop_back();
    std::erase_if(tlvs, [](const Tlv &tlv) { return tlv.type == kTlvDeviceInformation; });
    EXPECT_FALSE(parse()) << "no device information";
}

constexpr Time kStart{1000};
constexpr Time kLifetime{70000};

// Leaks and double frees are the sanitizer's to find.
TEST(Topology, RemoteDevicesAgeAndFreeWhatThePluginHungIntoThem) {
    WIFINeighborEntry own{};
    Topology topology(mac(1), kStart);
    topology.local().vendor.data()->wifiNbrHead = &own;  // the plug-in's: must not be freed
    KvDevVendorData *record = topology.update(reportOf(2), kStart)->vendor.data();
    for (int i = 0; i < 2; ++i) {
        auto *entry = static_cast<WIFINeighborEntry *>(std::calloc(1, sizeof(WIFINeighborEntry)));
        entry->next = record->wifiNbrHead;
        record->wifiNbrHead = entry;
    }
    record->security.secData = static_cast<uint8_t *>(std::malloc(4));
    topology.update(reportOf(3), kStart + Time(5000));
    EXPECT_TRUE(topology.expire(kLifetime, kStart + kLifetime - Time(1)).empty());
    topology.update(reportOf(3), kStart + kLifetime);
    EXPECT_EQ(topology.expire(kLifetime, kStart + kLifetime), std::vector<MacAddress>{mac(2)});
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), nullptr);
    EXPECT_EQ(topology.expire(kLifetime, kStart + 10 * kLifetime), std::vector<MacAddress>{mac(3)});
    EXPECT_EQ(topology.find(mac(1)), &topology.local());
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

    TopologyReport fewer = reportOf(2);
    fewer.device.interfaces.erase(fewer.device.interfaces.begin());
    EXPECT_EQ(topology.update(fewer, kStart), second);
    EXPECT_EQ(second->interfaces.at(0).vendor.pwrState, 2u);
    EXPECT_EQ(topology.findByAnyMac(mac(2, 0x10)), nullptr);
}

TEST(Topology, RefusesMoreDevicesThanItsBound) {
    Topology topology(mac(1), kStart);
    for (unsigned i = 1; i < 2000; ++i)
        topology.update({{mac(0x80 + (i >> 8), i), {}}, {}, {}, {}}, kStart);
    EXPECT_EQ(topology.size(), Topology::kMaxDevices);
}

TEST(Topology, HopsFollowReportedNeighbours) {
    Topology topology(mac(1), kStart);
    topology.local().neighbours = {{mac(1, 0x10), {{mac(2), false}}}};
    topology.update(reportOf(2, {{mac(1), false}, {mac(3), false}}), kStart);
    topology.update(reportOf(3, {{mac(2), false}}), kStart);
    topology.update(reportOf(4), kStart);
    EXPECT_EQ(topology.hops(), (std::map<MacAddress, unsigned>{{mac(1), 0}, {mac(2), 1}, {mac(3), 2}}));
}

}  // namespace
}  // namespace kv1905d
