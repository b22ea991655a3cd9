// A full table of queries that wait for their answers; tests/scenarios/config_exchange.txt has the rest.
#include "transport/outstanding_queries.h"

#include <gtest/gtest.h>

#include <cstring>

#include "frame/identity.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

constexpr std::time_t kStart = 1'700'000'000;
constexpr size_t kFull = kv::OutstandingQueries::kCapacity;

class OutstandingQueries : public testing::Test {
  protected:
    // Device 1, 2, ... with the number as its identifier, asked at kStart and so many seconds.
    void fill(std::time_t (*secondsOf)(size_t number)) {
        for (size_t i = 0; i < kFull; ++i) {
            const Mac mac = {2, 0, 0, 0, 0, static_cast<uint8_t>(i + 1)};
            table_.add(mac.data(), static_cast<uint16_t>(i), 0, 0, kStart + secondsOf(i));
        }
    }

    size_t waiting() const {
        size_t count = 0;
        for (size_t i = 0; i < kFull; ++i) {
            count += kv::isZeroMac(table_.at(i).alMac) ? 0 : 1;
        }
        return count;
    }

    FakeHost host_;
    kv::OutstandingQueries &table_ = kv::outstandingQueries();
};

}  // namespace

TEST_F(OutstandingQueries, AFullTableForgetsTheOldestAndTheLowestAmongEquals) {
    fill([](size_t i) -> std::time_t { return i == 20 || i == 30 ? 0 : 1; });
    for (const size_t forgotten : {20u, 30u, 0u}) {
        table_.add(kAgent.data(), 0x77, 0, 1, kStart + 1);
        EXPECT_EQ(table_.at(forgotten).msgId, 0x77);
        EXPECT_EQ(table_.at(forgotten).retry, 0) << "what overwrites counts as a first send";
    }
    table_.clear();
    fill([](size_t i) -> std::time_t { return static_cast<std::time_t>(kFull - i); });
    table_.add(kAgent.data(), 0x77, 0, 1, kStart - 100);
    EXPECT_EQ(table_.at(0).msgId, 0x77) << "a clock that stepped back takes the first entry";
}

TEST_F(OutstandingQueries, OneAnswerClearsOneEntry) {
    table_.add(kAgent.data(), 7, 0, 0, kStart);
    table_.add(kAgent.data(), 7, 0, 1, kStart);
    kv::reportKvVendRespMsgReceived(kAgent.data(), 7, 1);
    EXPECT_EQ(waiting(), 1u);
    EXPECT_EQ(table_.at(1).retry, 1) << "the first of them is freed";
}

TEST_F(OutstandingQueries, AResendInAFullTableKeepsItselfAndEverybodyElse) {
    fill([](size_t i) { return static_cast<std::time_t>(i); });
    const auto resendAt = [&](std::time_t now) {
        host_.sent.clear();
        setClock(now);
        table_.resendDue(now);
        EXPECT_EQ(waiting(), kFull);
        return host_.sent.size();
    };
    EXPECT_EQ(resendAt(kStart + 6), 1u) << "entry 0 alone is due";
    EXPECT_EQ(table_.at(0).msgId, 0x1000);
    EXPECT_EQ(table_.at(0).retry, 1);
    EXPECT_EQ(resendAt(kStart + 200), kFull);
    EXPECT_EQ(resendAt(kStart + 300), kFull - 1) << "device 0 has been asked three times now";
    host_.sendResult = 1;
    table_.clear();
    table_.add(kAgent.data(), 7, 0, 0, kStart);
    setClock(kStart + 6);
    table_.resendDue(kStart + 6);
    EXPECT_EQ(waiting(), 0u) << "a resend that does not go out is not recorded";
    fill([](size_t i) -> std::time_t { return i == 9 ? 0 : 1; });
    table_.add(kAgent.data(), 0x77, 0, 0, kStart + 2);
    EXPECT_EQ(table_.at(9).msgId, 0x77) << "nor does it shield an entry later";
}
