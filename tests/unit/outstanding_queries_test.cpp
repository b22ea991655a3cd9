// Queries that wait: resent after more than 5 seconds, at most twice, cleared by their own answer alone.
#include "transport/outstanding_queries.h"

#include <gtest/gtest.h>

#include <cstring>

#include "frame/identity.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

constexpr std::time_t kStart = 1'700'000'000;

Mac device(size_t number) {
    return {0x02, 0, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}

size_t waiting() {
    size_t count = 0;
    for (size_t i = 0; i < kv::OutstandingQueries::kCapacity; ++i) {
        count += kv::isZeroMac(kv::outstandingQueries().at(i).alMac) ? 0 : 1;
    }
    return count;
}

void loopAt(std::time_t now) {
    setClock(now);
    kv::checkKvVendRespMsgReceived(&now);
}

}  // namespace

TEST(OutstandingQueries, AnUnansweredQueryIsSentThreeTimes) {
    FakeHost host;
    setClock(kStart);
    ASSERT_EQ(kvMAP1905_ConfQuery_send(kAgent.data(), 0), KV_RET_OK);
    loopAt(kStart + 5);
    EXPECT_EQ(host.sent.size(), 1u) << "5 seconds are not more than 5";
    loopAt(kStart + 6);
    EXPECT_EQ(host.sent.size(), 2u);
    EXPECT_EQ(logCount(7,
                       "resend vendor query msg: AlMac 66:77:88:99:AA:BB, msgId 1000, vendMsgType 0, retry 0, "
                       "time 1700000000:1700000006\n"),
              1u);
    loopAt(kStart + 11);
    EXPECT_EQ(host.sent.size(), 2u) << "the second wait starts with the second send";
    loopAt(kStart + 12);
    EXPECT_EQ(host.sent.size(), 3u);
    EXPECT_EQ(logCount(7, "msgId 1001, vendMsgType 0, retry 1, time 1700000006:1700000012\n"), 1u);
    loopAt(kStart + 1000);
    EXPECT_EQ(host.sent.size(), 3u);
    EXPECT_EQ(waiting(), 1u) << "the last entry stays for a late answer";
    EXPECT_EQ(kv::outstandingQueries().at(0).retry, 2);

    kv::reportKvVendRespMsgReceived(kAgent.data(), 0x1002, 1);
    EXPECT_EQ(waiting(), 0u);
}

TEST(OutstandingQueries, OnlyTheMatchingAnswerClears) {
    struct Case {
        const char *what;
        Mac from;
        uint16_t msgId;
        uint16_t type;
        size_t left;
    };
    const Case cases[] = {
        {"wrong identifier", kAgent, 0x0FFF, 1, 1},     {"wrong type", kAgent, 0x1000, 3, 1},
        {"the query's own type", kAgent, 0x1000, 0, 1}, {"wrong device", kStranger, 0x1000, 1, 1},
        {"the answer", kAgent, 0x1000, 1, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        FakeHost host;
        setClock(kStart);
        kvMAP1905_ConfQuery_send(kAgent.data(), 0);
        kv::reportKvVendRespMsgReceived(c.from.data(), c.msgId, c.type);
        EXPECT_EQ(waiting(), c.left);
        loopAt(kStart + 6);
        EXPECT_EQ(host.sent.size(), 1 + c.left);
    }
}

TEST(OutstandingQueries, AFailedSendEndsTheQuery) {
    FakeHost host;
    setClock(kStart);
    host.sendResult = 1;
    EXPECT_EQ(kvMAP1905_ConfQuery_send(kAgent.data(), 0), KV_RET_ERR);
    EXPECT_EQ(logCount(4, "fail send config query to 66:77:88:99:AA:BB\n"), 1u);
    EXPECT_EQ(waiting(), 0u);

    host.sendResult = 0;
    kvMAP1905_ConfQuery_send(kAgent.data(), 0);
    host.sendResult = 1;
    loopAt(kStart + 6);
    EXPECT_EQ(waiting(), 0u) << "a resend that does not go out is not recorded";
    auto &table = kv::outstandingQueries();
    for (size_t i = 0; i < 65; ++i) {
        table.add(device(i).data(), 1, 0, 1, kStart + (i == 9 ? 0 : 1));
    }
    EXPECT_EQ(std::memcmp(table.at(9).alMac, device(64).data(), 6), 0) << "the oldest goes, as after no resend at all";
    EXPECT_EQ(table.at(9).retry, 0);
}

TEST(OutstandingQueries, AClockThatStepsBackWaits) {
    FakeHost host;
    setClock(kStart);
    kvMAP1905_ConfQuery_send(kAgent.data(), 0);
    loopAt(kStart - 3600);
    EXPECT_EQ(host.sent.size(), 1u);
    loopAt(kStart + 6);
    EXPECT_EQ(host.sent.size(), 2u);
}

TEST(OutstandingQueries, AFullTableForgetsTheOldestAndTheLowestAmongEquals) {
    FakeHost host;
    auto &table = kv::outstandingQueries();
    for (size_t i = 0; i < 64; ++i) {
        table.add(device(i).data(), 1, 0, 1, kStart + (i == 20 || i == 30 ? 0 : 1));
    }
    table.add(kAgent.data(), 2, 0, 1, kStart + 3);
    EXPECT_EQ(std::memcmp(table.at(20).alMac, kAgent.data(), 6), 0);
    EXPECT_EQ(table.at(20).retry, 0) << "what overwrites counts as a first send";
    EXPECT_EQ(std::memcmp(table.at(30).alMac, device(30).data(), 6), 0);
    table.add(kAgent.data(), 3, 2, 0, kStart + 4);
    EXPECT_EQ(table.at(30).msgId, 3) << "the next oldest";
}

TEST(OutstandingQueries, AClockThatStepsBackInAFullTableTakesTheFirstEntry) {
    FakeHost host;
    auto &table = kv::outstandingQueries();
    for (size_t i = 0; i < 64; ++i) {
        table.add(device(i).data(), 1, 0, 1, kStart + static_cast<std::time_t>(64 - i));
    }
    table.add(kAgent.data(), 2, 0, 1, kStart - 100);
    EXPECT_EQ(table.at(0).msgId, 2);
}

TEST(OutstandingQueries, OneAnswerClearsOneEntry) {
    FakeHost host;
    auto &table = kv::outstandingQueries();
    table.add(kAgent.data(), 7, 0, 0, kStart);
    table.add(kAgent.data(), 7, 0, 1, kStart);
    kv::reportKvVendRespMsgReceived(kAgent.data(), 7, 1);
    EXPECT_EQ(waiting(), 1u);
    EXPECT_EQ(table.at(1).retry, 1) << "the first of them is freed";
}

TEST(OutstandingQueries, AResendInAFullTableKeepsItselfAndEverybodyElse) {
    FakeHost host;
    auto &table = kv::outstandingQueries();
    for (size_t i = 0; i < 64; ++i) {
        table.add(device(i).data(), static_cast<uint16_t>(i), 0, 0, kStart + 100 + static_cast<std::time_t>(i));
    }
    loopAt(kStart + 106);  // entry 0 alone is due
    ASSERT_EQ(host.sent.size(), 1u);
    EXPECT_EQ(waiting(), 64u);
    EXPECT_EQ(std::memcmp(table.at(0).alMac, device(0).data(), 6), 0);
    EXPECT_EQ(table.at(0).msgId, 0x1000);
    EXPECT_EQ(table.at(0).retry, 1);
    loopAt(kStart + 300);  // all 64 are due
    EXPECT_EQ(host.sent.size(), 65u);
    EXPECT_EQ(waiting(), 64u);
    loopAt(kStart + 400);
    EXPECT_EQ(host.sent.size(), 128u) << "device 0 has been asked three times now, the others twice more";
}
