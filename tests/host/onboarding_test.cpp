#include "onboarding.h"

#include <fstream>
#include <memory>

#include "bss_extension.h"
#include "host_support.h"

namespace kv1905d {
namespace {

constexpr const char *kPlugin = "lib/libkvMAP1905.so";  // below the build directory, where the tests run

// What the plug-in would write, reduced to its band index.
Bytes extensionOf(Band band) {
    return fromHex(band == kBand24 ? "1049 0006 0A61C4 010180" : "1049 0006 0A61C4 010140");
}

// One device with a radio on each band.
struct Party {
    Party(unsigned device, bool isController) {
        joinPorts(near, far);
        NodeConfig config;
        config.alMac = mac(device);
        config.seed = device;
        config.ports = {{"eth0", mac(device, 0x10), 0x0001, near.get()}};
        config.radios = {{mac(device, 0x20), 0x0103, {}}, {mac(device, 0x21), 0x0105, {}}};
        NodeEvents events;
        events.autoconfiguration = [this](const MacAddress &source, const Message &message, Time now) {
            return onboarding->receive(source, message, now);
        };
        events.vendorTlv = [this](const MacAddress &, ByteView value, uint16_t) {
            vendorTlvs.emplace_back(value.begin(), value.end());
        };
        events.extraTopologyTlvs = [this] { return extraTlvs; };
        node = std::make_unique<Node>(config, events, Time(0));
        OnboardingActions actions;
        actions.isController = [isController] { return isController; };
        actions.ssid = [](Band) { return std::string(40, 's'); };
        actions.extension = extensionOf;
        actions.readExtension = [](ByteView value) -> std::optional<KvBssInfo> {
            if (value.size() != 6) return std::nullopt;
            KvBssInfo bss{};
            bss.BandIndex = value[5];
            return bss;
        };
        actions.requestSetting = [this](const MacAddress &alMac, int setting) {
            requests.emplace_back(alMac, setting);
            return requests.size() <= failures ? KV_RET_ERR : KV_RET_OK;
        };
        onboarding = std::make_unique<Onboarding>(*node, actions, Time(0));
    }
    std::map<Band, uint8_t> learntOf(unsigned device) const {
        std::map<Band, uint8_t> indices;
        if (const Device *known = node->topology().find(mac(device))) {
            for (const auto &[band, bss] : known->apConfigurations)
                indices[band] = bss.BandIndex;
        }
        return indices;
    }

    FileDescriptor near, far;
    std::unique_ptr<Node> node;
    std::unique_ptr<Onboarding> onboarding;
    bool isOn = true;
    size_t failures = 0;                               // of the first requests
    std::vector<std::pair<MacAddress, int>> requests;  // for settings
    std::vector<Bytes> vendorTlvs;
    std::vector<Tlv> extraTlvs;
};

class TwoParties : public testing::Test {
  protected:
    void run(Time duration) {
        for (const Time end = now_ + duration; now_ < end; now_ += Time(500)) {
            for (Party *party : {&controller_, &agent_}) {
                if (!party->isOn) continue;
                party->onboarding->run(now_);
                party->node->run(now_);
            }
            for (bool crossed = true; crossed;) {
                crossed = cross(controller_, agent_);
                crossed |= cross(agent_, controller_);
            }
        }
    }
    bool cross(Party &from, Party &to) {
        Bytes frame;
        if (!takeFrame(from.far, frame)) return false;
        types_.push_back(static_cast<uint16_t>(frame.at(16) << 8 | frame.at(17)));
        if (to.isOn) to.node->receive(0, frame, now_);
        return true;
    }
    ptrdiff_t sent(uint16_t type) const { return std::count(types_.begin(), types_.end(), type); }

    Party controller_{1, true}, agent_{2, false};
    Time now_{1000};
    std::vector<uint16_t> types_;  // of all messages that crossed
};

const std::map<Band, uint8_t> kBothBands{{kBand24, 0x80}, {kBand5, 0x40}};

TEST_F(TwoParties, BothLearnOfEachBandAndTheAgentAsksForTheSettingsOncePerJoin) {
    agent_.failures = 2;
    run(Time(20000));
    EXPECT_EQ(controller_.learntOf(2), kBothBands);
    EXPECT_EQ(agent_.learntOf(1), kBothBands);
    EXPECT_EQ(agent_.onboarding->controller(), mac(1));
    std::vector<std::pair<MacAddress, int>> expected{{mac(1), 0}, {mac(1), 0}, {mac(1), 0}, {mac(1), 1}};
    EXPECT_EQ(agent_.requests, expected);
    EXPECT_TRUE(controller_.requests.empty());
    run(std::chrono::minutes(10));
    EXPECT_EQ(agent_.requests, expected);
    EXPECT_EQ(sent(kAutoconfigurationSearch), sent(kAutoconfigurationResponse));
    EXPECT_LE(sent(kAutoconfigurationWsc), 8) << "settled";

    controller_.isOn = false;
    run(std::chrono::minutes(2));
    EXPECT_EQ(agent_.onboarding->controller(), std::nullopt);
    controller_.isOn = true;
    run(std::chrono::minutes(2));
    EXPECT_EQ(agent_.learntOf(1), kBothBands);
    expected.insert(expected.end(), {{mac(1), 0}, {mac(1), 1}});
    EXPECT_EQ(agent_.requests, expected);
    EXPECT_EQ(controller_.node->counters().parseFailures + agent_.node->counters().parseFailures, 0u);
}

TEST_F(TwoParties, SearchesBackOffWhileNobodyAnswers) {
    controller_.isOn = false;
    run(Time(5000));
    EXPECT_EQ(sent(kAutoconfigurationSearch), 2 * 2);
    run(std::chrono::hours(1));
    EXPECT_GE(sent(kAutoconfigurationSearch), 2 * 60);
    EXPECT_LE(sent(kAutoconfigurationSearch), 2 * 80);
    EXPECT_EQ(sent(kAutoconfigurationWsc), 0);
}

TEST_F(TwoParties, MalformedMessagesAreCountedAndTeachNothing) {
    run(Time(5000));
    controller_.node->topology().find(mac(2))->apConfigurations.clear();
    const std::string frame = "02005E000100 02005E000200 893A 00 00 ";
    const auto failuresOf = [&](const std::string &payload) {
        const uint64_t before = controller_.node->counters().parseFailures;
        controller_.node->receive(0, fromHex(frame + payload), now_);
        return controller_.node->counters().parseFailures - before;
    };
    for (const char *payload : {
             "0007 0001 00 80 0D 0001 00 0E 0001 00 00 0000",                        // Search without an AL MAC
             "0007 0001 00 80 01 0006 02005E000200 0E 0001 00 00 0000",              // ... a role
             "0007 0001 00 80 01 0006 02005E000200 0D 0001 00 0E 0002 0000 000000",  // ... with a band too long
             "0008 0001 00 80 0F 0001 00 00 0000",                                   // Response without a band
             "0009 0001 00 80 00 0000",                                              // WSC without its TLV
         })
        EXPECT_EQ(failuresOf(payload), 1u) << payload;

    const auto wscFailures = [&](const Bytes &value) {
        const Message message{kAutoconfigurationWsc, 1, false, {{kTlvWsc, value}}};
        Bytes bytes = fromHex("02005E000100 02005E000200 893A");
        const Bytes payload = encodeMessage(message).at(0);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        const uint64_t before = controller_.node->counters().parseFailures;
        controller_.node->receive(0, bytes, now_);
        return controller_.node->counters().parseFailures - before;
    };
    const std::string needed = "1022 0001 04 103C 0001 01 101A 0010 000102030405060708090A0B0C0D0E0F";
    const Bytes m1 = fromHex(needed + "1049 0006 0A61C4 010180");
    const size_t whole = fromHex(needed).size();
    for (size_t size = 0; size < m1.size(); ++size) {
        EXPECT_EQ(wscFailures(prefix(m1, size)), size != whole) << size;
    }
    Bytes flood = fromHex(needed);
    for (size_t i = 0; i <= kMaxWscAttributes; ++i)
        flood.insert(flood.end(), {0x10, 0x03, 0, 0});
    EXPECT_EQ(wscFailures(flood), 1u);
    EXPECT_EQ(wscFailures(fromHex(needed + "1049 0002 0A61")), 1u);
    EXPECT_EQ(wscFailures(fromHex(needed + "1049 0005 0A61C4 0101")), 1u) << "refused by the plug-in";
    EXPECT_EQ(wscFailures(fromHex("1022 0001 05" + needed.substr(12))), 1u) << "M2 without a registrar nonce";
    EXPECT_TRUE(controller_.learntOf(2).empty());
    EXPECT_EQ(wscFailures(fromHex(needed + "1049 0004 00372A 00")), 0u) << "another vendor's";
    EXPECT_TRUE(controller_.learntOf(2).empty());
    EXPECT_EQ(wscFailures(m1), 0u);
    EXPECT_EQ(controller_.learntOf(2), (std::map<Band, uint8_t>{{kBand24, 0x80}}));
}

TEST_F(TwoParties, BssElementsTravelInTopologyResponsesAndReachNobodyElse) {
    const Bytes mdids = fromHex("024EA7 C0 0013 02 02005E000220 1234 01 02005E000221 0011 00");
    const Bytes configurations = fromHex("024EA7 D0 0009 01 40 01 1234 0002 03 05");
    const Bytes message = fromHex("024EA7 02 005E00"), foreign = fromHex("000347 C0 00");
    for (const Bytes &value : {mdids, message, configurations, foreign})
        agent_.extraTlvs.push_back({kTlvVendorSpecific, value});
    run(Time(5000));
    const BssElements &read = controller_.node->topology().find(mac(2))->bss;
    const std::vector<MdidEntry> expected{{mac(2, 0x20), 0x1234, true}, {mac(2, 0x21), 0x11, false}};
    EXPECT_EQ(read.mdids, expected);
    EXPECT_EQ(read.configurations, (std::vector<BssConfiguration>{{0x40, 1, 0x1234, 2, 3, 5}}));
    ASSERT_GE(controller_.vendorTlvs.size(), 2u);
    for (const Bytes &value : controller_.vendorTlvs)
        EXPECT_TRUE(value == message || value == foreign);

    BssElements elements;
    for (Bytes value : {mdids, configurations}) {
        for (size_t size = 4; size < value.size(); ++size)  // below, they are no elements
            EXPECT_FALSE(readBssElement(prefix(value, size), elements)) << size;
        ++value[6];
        EXPECT_FALSE(readBssElement(value, elements)) << "a count beyond the end";
        value.push_back(0);
        EXPECT_FALSE(readBssElement(value, elements)) << "bytes behind the element";
    }
    EXPECT_TRUE(elements.mdids.empty() && elements.configurations.empty());
}

TEST(BssExtension, TellsAndReadsWithThePlugIn) {
    std::ofstream("/data/nvram") << "wl0_mdid=4660\nwl1_mdid=17\n";
    const PluginSymbols plugin = loadPlugin(kPlugin);
    BssExtension extension(plugin, {{"wl0", {mac(1, 0x20), 0x0103, {}}}, {"wl1", {mac(1, 0x21), 0x0105, {}}}});
    extension.refresh();
    ASSERT_EQ(extension.topologyTlvs().size(), 2u);
    EXPECT_EQ(extension.topologyTlvs()[1].value,
              fromHex("024EA7 D0 0011 02 80 01 1234 0000 00 00 40 01 0011 0000 00 00"));
    EXPECT_EQ(extension.elements().mdids.at(1), (MdidEntry{mac(1, 0x21), 0x11, true}));
    const Bytes attribute = extension.attribute(kBand5);
    EXPECT_EQ(attribute, fromHex("1049 0014 0A61C4 010140 020101 03020011 04020000 070100"));
    EXPECT_TRUE(extension.attribute(kBandOther).empty());

    const auto read = [&](const char *elements) {
        return extension.readAttribute(fromHex(std::string("0A61C4") + elements));
    };
    const auto bss = read("03021234 070105 010140");  // out of order
    ASSERT_TRUE(bss);
    EXPECT_EQ(bss->MDID, 0x1234);
    EXPECT_EQ(bss->ExtAttribute, 5);
    EXPECT_EQ(bss->BandIndex, 0x40);
    for (const char *bad : {"0101", "010140 02", "010140 0302", "010140 0701", "010240 01", "010140 FFFF"})
        EXPECT_FALSE(read(bad)) << bad;

    BssExtension backhaul(plugin, {{"wl0.5", {mac(1, 0x25), 0x0103, {}}}});  // has no MDID, which the plug-in refuses
    backhaul.refresh();
    EXPECT_EQ(backhaul.topologyTlvs().size(), 1u);
}

}  // namespace
}  // namespace kv1905d
