// Configuration query and response, both sides.
#include "features/config_exchange/config_exchange.h"

#include <gtest/gtest.h>

#include <cstring>

#include "features/config_exchange/config_codec.h"
#include "frame/file.h"
#include "frame/identity.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_host.h"
#include "support/fake_system.h"
#include "transport/outstanding_queries.h"

using namespace kvtest;

namespace {

constexpr uint16_t kQuery = 0;
constexpr uint16_t kResponse = 1;

Bytes attribute(uint8_t type, const std::string &value) {
    Bytes bytes = {type, static_cast<uint8_t>(value.size() >> 8), static_cast<uint8_t>(value.size())};
    append(bytes, value);
    return bytes;
}

Bytes response(const Mac &agent, uint8_t count, std::initializer_list<Bytes> attributes) {
    Bytes payload(agent.begin(), agent.end());
    payload.push_back(count);
    for (const Bytes &each : attributes) {
        append(payload, each);
    }
    return payload;
}

// An agent whose tools answer; what a test does not set is empty.
class ConfigExchange : public testing::Test {
  protected:
    void SetUp() override {
        emptyDevice();
        fakeCommand("ifconfig", "echo '  inet addr:10.1.2.3  Mask:x'\n");
    }

    void query(const Mac &source = kAgent) { host_.receive(source, message(source, kQuery, Bytes(6, 0xFF)), 0xBEEF); }

    FakeHost host_;
};

}  // namespace

TEST_F(ConfigExchange, AnAgentAnswersWithEveryAttributeInOrder) {
    KvDevVendorData &dev = host_.local();
    dev.rebootFromNbrCap = 1;
    dev.intfPwrCtrlFromNbrCap = 1;
    dev.fwUpgradeStatus = 3;
    dev.auxStatus = 0xAB;
    kv::setText(dev.fwVersion, "1.0");
    kv::setText(dev.modelName, "M");
    kv::setText(dev.opMode, "AP");
    kv::setText(dev.protoVersion, "3.0");
    kv::setText(dev.ledStatus, "ON");
    kv::setText(dev.uptime, "77");
    // Never sent by an agent:
    kv::setText(dev.newFwVersion, "x");
    kv::setText(dev.newFwDate, "x");
    kv::setText(dev.buildNum, "7879");
    kv::setText(dev.appVersion, "x");
    query();
    ASSERT_EQ(host_.sent.size(), 1u);
    EXPECT_EQ(host_.sent[0].slot, Slot::Unicast);
    EXPECT_EQ(host_.sent[0].destination, kAgent);
    EXPECT_EQ(host_.sent[0].msgIdIn, 0xBEEF) << "the query's identifier";
    EXPECT_EQ(host_.sent[0].value,
              message(kLocal, kResponse,
                      response(kLocal, 14,
                               {attribute(0, "\1"), attribute(1, "\1"), attribute(2, "1.0"), attribute(4, "\3"),
                                attribute(9, "\xAB"), attribute(7, "M"), attribute(8, "10.1.2.3"), attribute(10, "AP"),
                                attribute(16, "3.0"), attribute(13, "000"), attribute(14, "000"), attribute(15, "000"),
                                attribute(12, "ON"), attribute(116, "77")})));
    EXPECT_EQ(dev.cfgAttrCount, 14);
    EXPECT_STREQ(dev.ipAddr, "10.1.2.3");
    EXPECT_EQ(logCount(6, "send config response msgId beef to 66:77:88:99:AA:BB\n"), 1u);
}

TEST_F(ConfigExchange, EmptyFieldsAreLeftOut) {
    query();
    ASSERT_EQ(host_.sent.size(), 1u);
    const std::string zero(1, '\0');
    EXPECT_EQ(host_.sent[0].value,
              message(kLocal, kResponse,
                      response(kLocal, 9,
                               {attribute(0, zero), attribute(1, zero), attribute(2, ""), attribute(4, zero),
                                attribute(9, zero), attribute(8, "10.1.2.3"), attribute(13, "000"),
                                attribute(14, "000"), attribute(15, "000")})));
}

TEST_F(ConfigExchange, WithoutAddressLookupTheAttributeAndTheFieldStayAway) {
    kv::setText(host_.local().ipAddr, "old");
    ASSERT_EQ(std::system("mkdir -p /tmp/kv1905_IP.d && ln -s /tmp/kv1905_IP.d/none/none /tmp/kv1905_IP"), 0);
    query();
    ASSERT_EQ(host_.sent.size(), 1u);
    EXPECT_EQ(host_.sent[0].value[21], 8) << "attribute count";
    EXPECT_STREQ(host_.local().ipAddr, "old");
    ASSERT_EQ(std::system("rm -r /tmp/kv1905_IP /tmp/kv1905_IP.d"), 0);
    fakeCommand("ifconfig", "exit 1\n");
    query();
    EXPECT_EQ(host_.sent[1].value[21], 9) << "found, but empty: sent with length 0";
    EXPECT_STREQ(host_.local().ipAddr, "");
}

TEST_F(ConfigExchange, TheLongestRecordStillFitsOneMessage) {
    KvDevVendorData &dev = host_.local();
    for (char *field : {dev.fwVersion, dev.modelName}) {
        std::memset(field, 'w', 127);
    }
    for (char *field : {dev.opMode, dev.protoVersion, dev.ledStatus}) {
        std::memset(field, 'n', 31);
    }
    std::memset(dev.uptime, '1', 15);
    fakeCommand("ifconfig", "printf ' inet %0200d\\n' 0\n");
    query();
    ASSERT_EQ(host_.sent.size(), 1u);
    EXPECT_LT(host_.sent[0].value.size(), 1514u);
}

TEST_F(ConfigExchange, FailuresToAnswerAreLogged) {
    host_.sendResult = 1;
    query();
    EXPECT_EQ(logCount(4, "[MSG] Device 00:11:22:33:44:55, fail to handle config query msgId beef\n"), 1u);
    host_.devices.clear();
    query();
    EXPECT_EQ(logCount(4, "[DB] Device 00:11:22:33:44:55, device config NULL when handle config query msgId beef\n"),
              1u);
    EXPECT_EQ(host_.sent.size(), 1u);
    EXPECT_EQ(kvMAP1905_ConfRespMsg_send(nullptr, 1, 0), KV_RET_ERR);
    EXPECT_EQ(kvMAP1905_ConfQuery_send(nullptr, 0), KV_RET_ERR);
}

TEST_F(ConfigExchange, MulticastResponseIsRelayedAndNamesItsOutcome) {
    EXPECT_EQ(kvMAP1905_ConfRespMsg_send(nullptr, 0x0102, 1), KV_RET_OK);
    ASSERT_EQ(host_.sent.size(), 1u);
    EXPECT_EQ(host_.sent[0].slot, Slot::RelayedMulticast);
    EXPECT_EQ(host_.sent[0].msgIdIn, 0x0102) << "by pointer, not null";
    EXPECT_EQ(logCount(6, "send multicast config response msgId 0102 Success.\n"), 1u);
    host_.sendResult = 1;
    EXPECT_EQ(kvMAP1905_ConfRespMsg_send(nullptr, 0x0102, 1), KV_RET_ERR);
    EXPECT_EQ(logCount(4, "send multicast config response msgId 0102 Fail.\n"), 1u);
    const KvRecvVendTlv source = {};
    kvMAP1905_ConfRespMsg_send(&source, 0x0102, 2);
    EXPECT_EQ(host_.sent.back().slot, Slot::Unicast) << "1 alone means multicast";
}

TEST_F(ConfigExchange, TheControllerStoresEveryAttribute) {
    KvDevVendorData &dev = host_.addDevice(kAgent);
    setClock(1'700'000'000);
    struct Row {
        uint8_t type;
        const char *field;
        size_t size;
    };
    const Row texts[] = {
        {2, dev.fwVersion, 128},   {5, dev.newFwVersion, 128}, {6, dev.newFwDate, 128},    {7, dev.modelName, 128},
        {8, dev.ipAddr, 128},      {10, dev.opMode, 32},       {11, dev.buildNum, 32},     {12, dev.ledStatus, 32},
        {13, dev.channel24G, 16},  {14, dev.channel5G, 16},    {15, dev.channelExtra, 16}, {16, dev.protoVersion, 32},
        {101, dev.appVersion, 32}, {102, dev.l2DevCtrl, 32},   {103, dev.wifiAutoCfg, 32}, {104, dev.wifiOnOff, 32},
        {105, dev.fwUpgrade, 32},  {106, dev.ledOnOff, 32},    {116, dev.uptime, 16},
    };
    for (const Row &row : texts) {
        SCOPED_TRACE(int{row.type});
        for (const size_t length :
             {size_t{0}, size_t{1}, row.size - 1, row.size, size_t{128}, size_t{129}, size_t{700}}) {
            host_.receive(
                kAgent,
                message(kAgent, kResponse, response(kAgent, 1, {attribute(row.type, std::string(length, 'v'))})), 1);
            EXPECT_EQ(std::string(row.field), std::string(std::min(length, row.size - 1), 'v'));
        }
    }
    EXPECT_EQ(dev.uptimeRecvTime, 1'700'000'000u);
    setClock(1'700'000'100);
    const auto receive = [&](uint8_t count, std::initializer_list<Bytes> attributes) {
        host_.receive(kAgent, message(kAgent, kResponse, response(kAgent, count, attributes)), 1);
    };
    receive(2, {attribute(7, "first"), attribute(7, "last")});
    EXPECT_STREQ(dev.modelName, "last") << "in payload order";
    EXPECT_EQ(dev.uptimeRecvTime, 1'700'000'000u) << "attribute 116 alone sets it";

    host_.receive(
        kAgent,
        message(
            kAgent, kResponse,
            response(kAgent, 4, {attribute(0, "\x80"), attribute(1, "\2"), attribute(4, "\5"), attribute(9, "\xFE")})),
        1);
    host_.receive(kAgent,
                  message(kAgent, kResponse,
                          response(kAgent, 7,
                                   {attribute(0, ""), attribute(1, ""), attribute(4, ""), attribute(9, ""),
                                    attribute(3, "?"), attribute(17, "?"), attribute(200, "?")})),
                  1);
    EXPECT_EQ(dev.rebootFromNbrCap, 1);
    EXPECT_EQ(dev.intfPwrCtrlFromNbrCap, 1);
    EXPECT_EQ(dev.fwUpgradeStatus, 5);
    EXPECT_EQ(dev.auxStatus, 0xFE);
    EXPECT_EQ(dev.cfgAttrCount, 7);
    receive(2, {attribute(0, std::string(1, '\0')), attribute(1, std::string(1, '\0'))});
    EXPECT_EQ(dev.rebootFromNbrCap, 0) << "a capability can be withdrawn";
    EXPECT_EQ(dev.intfPwrCtrlFromNbrCap, 0);
    EXPECT_EQ(loggedAtMost(5), "");
}

TEST_F(ConfigExchange, ARefusedResponseChangesNothing) {
    KvDevVendorData &dev = host_.addDevice(kAgent);
    kv::setText(dev.modelName, "kept");
    const Bytes good = message(kAgent, kResponse,
                               response(kAgent, 3, {attribute(7, "changed"), attribute(2, "9"), attribute(0, "\1")}));
    // Every shorter payload, with an honest and with a lying length field, and a count that promises more.
    for (size_t length = 15; length < good.size(); ++length) {
        Bytes cut = head(good, length);
        host_.receive(kAgent, cut, 1);
        cut[13] = 0;
        cut[14] = static_cast<uint8_t>(length - 15);
        host_.receive(kAgent, cut, 1);
    }
    Bytes promising = good;
    promising[21] = 4;
    host_.receive(kAgent, promising, 1);
    Bytes longValue = good;
    longValue[23] = 0xFF;  // the first value's length, high byte
    host_.receive(kAgent, longValue, 1);
    EXPECT_STREQ(dev.modelName, "kept");
    EXPECT_EQ(dev.cfgAttrCount, 0);
    EXPECT_EQ(logCount(3, "failed to parse the vendor specific TLV\n"), 2 * (good.size() - 15) + 2);
    host_.receive(kAgent, good, 1);
    EXPECT_STREQ(dev.modelName, "changed");
}

TEST_F(ConfigExchange, TheAnswerClearsItsQuery) {
    KvDevVendorData &dev = host_.addDevice(kAgent);
    setClock(1'700'000'000);
    const auto stillWaiting = [] { return !kv::isZeroMac(kv::outstandingQueries().at(0).alMac); };
    ASSERT_EQ(kvMAP1905_ConfQuery_send(kAgent.data(), 0), KV_RET_OK);
    EXPECT_EQ(host_.sent[0].value, message(kLocal, kQuery, Bytes(kAgent.begin(), kAgent.end())));
    const uint16_t msgId = 0x1000;

    host_.receive(kStranger, message(kStranger, kResponse, response(kAgent, 0, {})), msgId);
    EXPECT_TRUE(stillWaiting()) << "the envelope's device is who answers";
    host_.receive(kAgent, message(kAgent, kResponse, response(kStranger, 0, {})), msgId);
    EXPECT_TRUE(stillWaiting()) << "a device that the host does not know is not reported";
    EXPECT_EQ(logCount(4, "[DB] Device 00:11:22:33:44:55, configuration data is null\n"), 1u);
    dev.cfgAttrCount = 3;
    host_.receive(kAgent, message(kAgent, kResponse, response(kAgent, 0, {})), msgId);
    EXPECT_FALSE(stillWaiting());
    EXPECT_EQ(dev.cfgAttrCount, 0);
    EXPECT_EQ(logCount(7, "[MSG] Device 00:11:22:33:44:55, received Conf Resp msgId 1000\n"), 3u);
}
