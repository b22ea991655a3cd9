// Tables at their limits: stations of another device, unanswered queries. tests/scenarios has the rest.
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "features/wifi_clients/neighbor_table.h"
#include "frame/identity.h"
#include "kv1905/vendor_messages.h"
#include "support/fake_host.h"
#include "support/fake_system.h"
#include "transport/outstanding_queries.h"

using namespace kvtest;

namespace {

constexpr std::time_t kStart = 1'700'000'000;
constexpr size_t kQueries = kv::OutstandingQueries::kCapacity;
using Station = std::pair<uint16_t, uint32_t>;  // low bytes of the MAC, Tx

class Tables : public testing::Test {
  protected:
    int merge(const std::vector<Station> &reported) {
        std::vector<WIFINeighborEntry> entries(reported.size());
        for (size_t i = 0; i < entries.size(); ++i) {
            entries[i].mac[4] = static_cast<uint8_t>(reported[i].first >> 8);
            entries[i].mac[5] = static_cast<uint8_t>(reported[i].first);
            entries[i].Tx = reported[i].second;
            entries[i].next = i + 1 < entries.size() ? &entries[i + 1] : nullptr;
        }
        const WIFINeighborList list = {static_cast<uint32_t>(entries.size()), entries.data()};
        return kv::kvUpdateWiFiNbr(&agent_, &list);
    }

    std::vector<Station> stations() const {
        std::vector<Station> all;
        for (const auto *at = agent_.wifiNbrHead; at != nullptr; at = at->next)
            all.emplace_back(at->mac[4] << 8 | at->mac[5], at->Tx);
        EXPECT_EQ(all.size(), agent_.wifiNbrNum);
        return all;
    }

    // Adds devices 1, 2, ... with the number as identifier, queried secondsOf(index) after kStart.
    void fillQueries(std::time_t (*secondsOf)(size_t number)) {
        for (size_t i = 0; i < kQueries; ++i) {
            const Mac mac = {2, 0, 0, 0, 0, static_cast<uint8_t>(i + 1)};
            queries_.add(mac.data(), static_cast<uint16_t>(i), 0, 0, kStart + secondsOf(i));
        }
    }

    // Returns how many queries are sent again.
    size_t resendAt(std::time_t now) {
        host_.sent.clear();
        setClock(now);
        queries_.resendDue(now);
        for (size_t i = 0; i < kQueries; ++i)
            EXPECT_FALSE(kv::isZeroMac(queries_.at(i).alMac)) << i << " is lost";
        return host_.sent.size();
    }

    FakeHost host_;
    KvDevVendorData &agent_ = host_.addDevice(kAgent);
    kv::OutstandingQueries &queries_ = kv::outstandingQueries();
};

TEST_F(Tables, MergeMatchesLinearSearch) {
    std::mt19937 random(5);
    std::vector<Station> expected;
    for (int round = 0; round < 100; ++round) {
        std::vector<Station> reported(random() % 90);
        const auto variety = 1 + random() % 300;
        for (Station &station : reported) {
            station = {static_cast<uint16_t>(random() % variety), static_cast<uint32_t>(random())};
            const auto at = std::find_if(expected.begin(), expected.end(),
                                         [&](const Station &known) { return known.first == station.first; });
            (at == expected.end() ? expected.emplace_back() : *at) = station;
        }
        ASSERT_EQ(merge(reported), KV_RET_OK);
        ASSERT_EQ(stations(), expected) << "round " << round;
    }
}

TEST_F(Tables, FullStationTableUpdatesAndRejectsNewStations) {
    setClock(1'000'000);
    std::vector<Station> all(kv::kMaxTableStations + 2);
    std::generate(all.begin(), all.end(), [n = uint16_t{0}]() mutable { return Station(n++, 1); });
    merge(all);
    all.resize(kv::kMaxTableStations);
    EXPECT_EQ(stations(), all);
    setClock(1'000'500);
    notes.clear();
    merge({{7, 1}, {0, 1}});
    EXPECT_EQ(logCount(4, "table is full"), 0u) << "refreshing ages nothing";
    merge({{0xFFFE, 2}, {0xFFFF, 2}, {0, 2}});
    EXPECT_EQ(logCount(4, "table is full, 8192 stations"), 1u) << "once for a message";
    EXPECT_EQ(logCount(7, "Not found, add WiFi neighbor data"), 0u);
    setClock(1'000'601);
    merge({{0xFFFF, 2}, {0, 2}});
    EXPECT_EQ(stations(), (std::vector<Station>{{0, 2}, {7, 1}, {0xFFFF, 2}})) << "old stations are removed";
}

TEST_F(Tables, FullQueryTableReplacesOldestThenLowest) {
    fillQueries([](size_t i) -> std::time_t { return i == 20 || i == 30 ? 0 : 1; });
    for (const size_t forgotten : {20u, 30u, 0u}) {
        queries_.add(kAgent.data(), 0x77, 0, 1, kStart + 1);
        EXPECT_EQ(queries_.at(forgotten).msgId, 0x77);
        EXPECT_EQ(queries_.at(forgotten).retry, 0) << "it counts as a first send";
    }
    queries_.add(kLocal.data(), 0x78, 0, 1, kStart - 100);
    EXPECT_EQ(queries_.at(0).msgId, 0x78) << "a clock that stepped back overwrites the first entry";
}

TEST_F(Tables, ResendKeepsOtherQueriesOfAFullTable) {
    fillQueries([](size_t i) { return static_cast<std::time_t>(i); });
    EXPECT_EQ(resendAt(kStart + 6), 1u) << "only entry 0 is due";
    EXPECT_EQ(queries_.at(0).msgId, 0x1000);
    EXPECT_EQ(queries_.at(0).retry, 1);
    EXPECT_EQ(resendAt(kStart + 200), kQueries);
    EXPECT_EQ(resendAt(kStart + 300), kQueries - 1) << "device 0 has been queried three times";
}

TEST_F(Tables, IdleMainLoopMakesNoSystemCall) {
    setClock(kStart);
    data_model_time_stamp = static_cast<uint32_t>(kStart);
    kvMAP1905_MainLoop();  // due at first
    const pid_t child = fork();
    if (child == 0) {
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) _exit(0);  // not supported by an emulator
        kvMAP1905_MainLoop();
        syscall(SYS_exit, 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "killed at a system call";
}

}  // namespace
