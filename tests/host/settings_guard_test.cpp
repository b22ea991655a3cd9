#include "settings_guard.h"

#include <set>

#include "host_support.h"

namespace kv1905d {
namespace {

constexpr Time kNow{5000};
const MacAddress kSelf = mac(1), kController = mac(2), kStranger = mac(3), kNobody = mac(9);

class GuardTest : public testing::Test {
  protected:
    static Bytes message(unsigned type, const MacAddress &subject = kSelf, const char *oui = "024EA7") {
        WireWriter out(64);
        out.bytes(fromHex(oui));
        out.mac(kController);  // what the envelope says of its sender proves nothing
        out.u16(1);
        out.u16(static_cast<uint16_t>(type));
        out.u16(6);
        out.mac(subject);
        return out.take();
    }
    Device &add(const MacAddress &alMac) {
        TopologyReport report;
        report.device.alMac = alMac;
        return *topology_.update(report, kNow);
    }

    Topology topology_{kSelf, kNow};
    SettingsGuard any_{SettingsFrom::Any}, controller_{SettingsFrom::Controller};
};

TEST_F(GuardTest, OnlyTheControllerAndThisDeviceChangeThisDevice) {
    const unsigned changing[] = {4, 6, 20, 22, 25, 26, 33, 34, 69, 77};
    const struct {
        MacAddress source;
        std::optional<MacAddress> controller;
        bool admitted;
    } rows[] = {
        {kController, kController, true}, {kStranger, kController, false},
        {kSelf, kController, true},       {kController, std::nullopt, false},  // not found yet
        {kController, kSelf, false},      {kSelf, kSelf, true},                // at the controller itself
    };
    uint64_t refused = 0;
    for (const auto &row : rows) {
        for (const unsigned type : changing) {
            EXPECT_EQ(controller_.admits(row.source, message(type), row.controller, topology_, kNow), row.admitted)
                << type << " from " << row.source.text();
            EXPECT_TRUE(any_.admits(row.source, message(type), row.controller, topology_, kNow)) << type;
            refused += !row.admitted;
        }
    }
    EXPECT_EQ(controller_.refused(), refused);
    EXPECT_EQ(any_.refused(), 0u);
}

TEST_F(GuardTest, WhatChangesNothingIsTheSendersToSay) {
    for (unsigned type = 0; type < 80; ++type) {
        const bool changes = std::set<unsigned>{4, 6, 20, 22, 25, 26, 33, 34, 69, 77}.contains(type);
        EXPECT_EQ(controller_.admits(kStranger, message(type, kStranger), kController, topology_, kNow), !changes)
            << type;
    }
    EXPECT_TRUE(controller_.admits(kStranger, message(4, kSelf, "000347"), kController, topology_, kNow)) << "Intel's";
    const Bytes reboot = message(4);
    for (size_t size = 0; size < 15; ++size)
        EXPECT_TRUE(controller_.admits(kStranger, prefix(reboot, size), kController, topology_, kNow)) << size;
    EXPECT_FALSE(controller_.admits(kStranger, prefix(reboot, 15), kController, topology_, kNow));
}

TEST_F(GuardTest, CostlyQuestionsAreAnsweredInABurstAndThenAtARateButTheControllersAlways) {
    const auto answered = [&](Time from, Time to) {
        size_t count = 0;
        for (Time at = from; at < to; at += Time(1))
            count += any_.admits(kStranger, message(at.count() % 2 == 0 ? 0 : 70), kController, topology_, at);
        return count;
    };
    constexpr auto kBurst = static_cast<size_t>(SettingsGuard::kQuestionCredit / SettingsGuard::kQuestionCost);
    EXPECT_EQ(answered(kNow, kNow + Time(kBurst)), kBurst);
    const Time later = kNow + Time(kBurst);
    EXPECT_NEAR(static_cast<double>(answered(later, later + Time(5000))), 100, 5);
    EXPECT_TRUE(any_.admits(kController, message(0), kController, topology_, later + Time(5000)));
    EXPECT_EQ(answered(later + Time(60000), later + Time(60000 + kBurst)), kBurst);
}

TEST_F(GuardTest, NobodyElseTellsThisDevicesConfiguration) {
    for (SettingsGuard *guard : {&any_, &controller_}) {
        EXPECT_FALSE(guard->admits(kController, message(1), kController, topology_, kNow));
        EXPECT_TRUE(guard->admits(kStranger, message(1, kNobody), kController, topology_, kNow));
        EXPECT_TRUE(guard->admits(kSelf, message(1), kController, topology_, kNow));
    }
}

TEST_F(GuardTest, OnceManyStationsAreKnownNobodyGetsMoreThanAnEvenShare) {
    const auto admits = [&](const MacAddress &source, unsigned type) {
        return any_.admits(source, message(type, source), std::nullopt, topology_, kNow);
    };
    constexpr uint32_t kMost = SettingsGuard::kMaxStations;
    Device &honest = add(kController), &greedy = add(kStranger);
    honest.vendor.data()->wifiNbrNum = 30;
    greedy.vendor.data()->wifiNbrNum = kMost - 31;
    topology_.local().vendor.data()->wifiNbrNum = kMost;  // the driver's own list does not count
    EXPECT_TRUE(admits(kStranger, 36) && admits(kStranger, 9));
    greedy.vendor.data()->wifiNbrNum = kMost - 30;
    EXPECT_FALSE(admits(kStranger, 36) || admits(kStranger, 9));
    EXPECT_TRUE(admits(kController, 36) && admits(kController, 9));
    honest.vendor.data()->wifiNbrNum = kMost / 2 - 1;
    EXPECT_TRUE(admits(kController, 36));
    honest.vendor.data()->wifiNbrNum = kMost / 2;
    EXPECT_FALSE(admits(kController, 36));
    EXPECT_FALSE(admits(kNobody, 36)) << "not in the topology";
    honest.vendor.data()->wifiNbrNum = greedy.vendor.data()->wifiNbrNum = 0;
}

}  // namespace
}  // namespace kv1905d
