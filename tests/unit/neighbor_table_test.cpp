// Merging reported stations into a device's table.
#include "features/wifi_clients/neighbor_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

using Station = std::pair<uint16_t, uint32_t>;  // low bytes of the MAC, Tx

class NeighborTable : public testing::Test {
  protected:
    int merge(const std::vector<Station> &reported) {
        std::vector<WIFINeighborEntry> entries(reported.size());
        for (size_t i = 0; i < entries.size(); ++i) {
            entries[i].mac[4] = static_cast<uint8_t>(reported[i].first >> 8);
            entries[i].mac[5] = static_cast<uint8_t>(reported[i].first);
            entries[i].Tx = reported[i].second;
            entries[i].next = i + 1 < entries.size() ? &entries[i + 1] : nullptr;
        }
        const WIFINeighborList list = {static_cast<uint32_t>(entries.size()), entries.empty() ? nullptr : &entries[0]};
        return kv::kvUpdateWiFiNbr(&agent_, &list);
    }

    std::vector<Station> table() const {
        std::vector<Station> all;
        for (const auto *at = agent_.wifiNbrHead; at != nullptr; at = at->next) {
            all.emplace_back(at->mac[4] << 8 | at->mac[5], at->Tx);
        }
        EXPECT_EQ(all.size(), agent_.wifiNbrNum);
        return all;
    }

    FakeHost host_;
    KvDevVendorData &agent_ = host_.addDevice(kAgent);
};

}  // namespace

TEST_F(NeighborTable, AMergeDoesWhatAPlainWalkDoes) {
    std::mt19937 random(5);
    std::vector<Station> expected;
    for (int round = 0; round < 100; ++round) {
        std::vector<Station> reported(random() % 90);
        const auto variety = 1 + random() % 300;
        for (Station &station : reported) {
            station = {static_cast<uint16_t>(random() % variety), static_cast<uint32_t>(random())};
            const auto at = std::find_if(expected.begin(), expected.end(),
                                         [&](const Station &known) { return known.first == station.first; });
            if (at == expected.end()) {
                expected.push_back(station);
            } else {
                at->second = station.second;
            }
        }
        ASSERT_EQ(merge(reported), KV_RET_OK);
        ASSERT_EQ(table(), expected) << "round " << round;
    }
    EXPECT_EQ(kv::kvUpdateWiFiNbr(nullptr, nullptr), KV_RET_ERR);
}

TEST_F(NeighborTable, AFullTableRefreshesWhatItHoldsAndTakesNobodyIn) {
    setClock(1'000'000);
    std::vector<Station> all(kv::kMaxTableStations + 2);
    for (size_t i = 0; i < all.size(); ++i) {
        all[i] = {static_cast<uint16_t>(i), 1};
    }
    EXPECT_EQ(merge(all), KV_RET_OK);
    all.resize(kv::kMaxTableStations);
    EXPECT_EQ(table(), all);
    setClock(1'000'500);
    notes().clear();
    EXPECT_EQ(merge({{7, 1}, {0, 1}}), KV_RET_OK);
    EXPECT_EQ(logCount(4, "table is full"), 0u) << "refreshing ages nothing";
    const std::vector<Station> two = {{0xFFFF, 2}, {0, 2}};
    EXPECT_EQ(merge({{0xFFFE, 2}, {0xFFFF, 2}, {0, 2}}), KV_RET_OK);
    EXPECT_EQ(logCount(4, "table is full, 8192 stations"), 1u) << "once for a message";
    EXPECT_EQ(logCount(7, "Not found, add WiFi neighbor data"), 0u) << "nobody was added";
    EXPECT_EQ(agent_.wifiNbrHead->lastSeen, 1'000'500u);
    EXPECT_EQ(table().size(), kv::kMaxTableStations);
    setClock(1'000'601);  // old ones give way
    EXPECT_EQ(merge(two), KV_RET_OK);
    EXPECT_EQ(table(), (std::vector<Station>{{0, 2}, {7, 1}, {0xFFFF, 2}}));
}
