// The four send functions: slot, destination, outcome, log line, and nothing left allocated.
#include <gtest/gtest.h>

#include "features/config_exchange/config_codec.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

constexpr Mac kMulticast = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x13};

struct Road {
    const char *name;
    int (*send)(const KvVendMsg *msg, uint16_t *msgId);
    Slot slot;
    Mac destination;
    const char *result;  // behind "SUCCESS" or "FAIL"
    const char *encoderFailure;
};

int unicast(const KvVendMsg *msg, uint16_t *msgId) {
    return kvMAP1905_VenderSpecMsg_send(kAgent.data(), msgId, msg);
}

const Road kRoads[] = {
    {"unicast", unicast, Slot::Unicast, kAgent, " send vendor message to Device 66:77:88:99:AA:BB\n",
     "generate vendor msg fail\n"},
    {"multicast", kvMAP1905_VenderSpecMcastMsg_send, Slot::Multicast, kMulticast, " send multicast vendor message\n",
     "generate mcast vendor msg fail\n"},
    {"relayed multicast", kvMAP1905_VenderSpecRelayMcastMsg_send, Slot::RelayedMulticast, kMulticast,
     " send relay multicast vendor message\n", "generate mcast vendor msg fail\n"},
};

const std::string kPrefix = "[MSG] Device 00:11:22:33:44:55, ";

}  // namespace

TEST(Send, GoesThroughItsSlotAndTellsTheOutcome) {
    for (const Road &road : kRoads) {
        SCOPED_TRACE(road.name);
        FakeHost host;
        const KvVendMsg msg = kv::makeVendMsg(kv::VEND_MSG_TYPE_RESERVED_10, 0, nullptr);
        uint16_t msgId = 0;
        EXPECT_EQ(road.send(&msg, &msgId), KV_RET_OK);
        EXPECT_EQ(msgId, 0x1000) << "what the host wrote back reaches the caller";
        ASSERT_EQ(host.sent.size(), 1u);
        EXPECT_EQ(host.sent[0].slot, road.slot);
        EXPECT_EQ(host.sent[0].destination, road.destination);
        EXPECT_EQ(host.sent[0].value, message(kLocal, 10, {}));
        EXPECT_EQ(logCount(7, kPrefix + "SUCCESS" + road.result), 1u);

        host.sendResult = -3;
        EXPECT_EQ(road.send(&msg, nullptr), KV_RET_ERR);
        EXPECT_EQ(logCount(7, kPrefix + "FAIL" + road.result), 1u);
    }
}

TEST(Send, RefusalsNeverReachTheHost) {
    for (const Road &road : kRoads) {
        SCOPED_TRACE(road.name);
        FakeHost host;
        const KvVendMsg good = kv::makeVendMsg(kv::VEND_MSG_TYPE_RESERVED_10, 0, nullptr);
        const KvVendMsg unknown = kv::makeVendMsg(78, 0, nullptr);
        const KvVendMsg missing = kv::makeVendMsg(kv::VEND_MSG_TYPE_CONF_QUERY, 6, nullptr);
        const KvVendMsg oversized = kv::makeVendMsg(kv::VEND_MSG_TYPE_RESERVED_10, 1500, nullptr);
        for (const KvVendMsg *msg : {&unknown, &missing, &oversized}) {
            EXPECT_EQ(road.send(msg, nullptr), KV_RET_ERR);
        }
        {
            FailingAllocation failing(1);
            EXPECT_EQ(road.send(&good, nullptr), KV_RET_ERR);
            EXPECT_TRUE(failing.happened());
        }
        EXPECT_EQ(road.send(nullptr, nullptr), KV_RET_ERR);
        EXPECT_EQ(logCount(4, kPrefix + road.encoderFailure), 4u);
        EXPECT_TRUE(host.sent.empty());

        g_kv1905_bcm_cbs = {};
        clearLog();
        takeAllocationCount();
        EXPECT_EQ(road.send(&good, nullptr), KV_RET_ERR);
        EXPECT_EQ(takeAllocationCount(), 0u);
        EXPECT_EQ(logLines(), (std::vector<LogLine>{{1, 3, "Device 00:11:22:33:44:55, NULL registar function\n"}}));
    }
}

TEST(Send, IntelTypesWithoutARowAreRefusedAtErrorLevel) {
    FakeHost host;
    KvRssiMeasurement measurement = {};
    KvIntelVendMsg msg = {};
    msg.msgType = 0x10;
    msg.payload = &measurement;
    EXPECT_EQ(kvMAP1905_IntelVenderSpecMsg_send(kAgent.data(), nullptr, &msg), KV_RET_ERR);
    EXPECT_EQ(logCount(4, "generate vendor msg type 16 is unsoppourted\n"), 1u);
    EXPECT_EQ(logCount(3, "generate vendor msg fail\n"), 1u);
    EXPECT_TRUE(host.sent.empty());
}
