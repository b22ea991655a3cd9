// The envelope: what is encoded, what is accepted, and which line names each refusal.
#include <gtest/gtest.h>

#include <cstring>

#include "features/config_exchange/config_codec.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_system.h"
#include "transport/receive.h"

using namespace kvtest;

namespace {

constexpr uint16_t kReserved[] = {10, 11, 12, 16, 17, 18, 19, 42, 43, 44, 49, 50};
constexpr uint16_t kUnlisted[] = {13, 24, 37, 71, 78, 255, 65535};

struct Encoded {
    int result;
    uint32_t length;
    Bytes bytes;
};

Encoded encode(const KvVendMsg &msg) {
    Encoded encoded = {};
    Bytes buffer(KV_VEND_MSG_BUFFER_LEN);
    encoded.result = kv::genKvVendMsg(buffer.data(), &encoded.length, &msg);
    encoded.bytes = head(buffer, std::min<size_t>(encoded.length, buffer.size()));
    return encoded;
}

}  // namespace

TEST(Envelope, EncodesAddressAndPayload) {
    FakeHost host;
    kv::KvConfQueryData query = {};
    std::memcpy(query.alMac, kAgent.data(), kAgent.size());
    const Encoded encoded = encode(kv::makeVendMsg(kv::VEND_MSG_TYPE_CONF_QUERY, 6, &query));
    EXPECT_EQ(encoded.result, KV_RET_OK);
    EXPECT_EQ(encoded.length, 21u);
    EXPECT_EQ(encoded.bytes, fromHex("02 4E A7 00 11 22 33 44 55 00 01 00 00 00 06 66 77 88 99 AA BB"));
}

TEST(Envelope, EveryHeaderFieldComesFromTheRecordAndGoesBackIntoIt) {
    FakeHost host;
    kv::KvConfQueryData query = {{1, 2, 3, 4, 5, 6}};
    const KvVendMsg foreign = {{0x02, 0x4E, 0xA7}, {9, 8, 7, 6, 5, 4}, {0xDE, 0xAD}, 0, 6, &query};
    const Encoded encoded = encode(foreign);
    EXPECT_EQ(encoded.bytes, fromHex("02 4E A7 09 08 07 06 05 04 DE AD 00 00 00 06 01 02 03 04 05 06"));
    KvVendMsg back = {};
    ASSERT_EQ(kv::parseKvVendMsg({encoded.bytes.data(), encoded.bytes.size()}, &back), KV_RET_OK);
    EXPECT_EQ(std::memcmp(&back, &foreign, offsetof(KvVendMsg, marker) + sizeof back.marker), 0);
    EXPECT_EQ(back.msgType, foreign.msgType);
    EXPECT_EQ(back.payloadLen, foreign.payloadLen);
    EXPECT_EQ(std::memcmp(back.payload, &query, 6), 0);
    std::free(back.payload);
}

TEST(Envelope, ReservedTypesEncodeBareAndAreRefusedOnReceipt) {
    FakeHost host;
    for (const uint16_t type : kReserved) {
        SCOPED_TRACE(type);
        clearLog();
        const Encoded encoded = encode(kv::makeVendMsg(type, 0, nullptr));
        EXPECT_EQ(encoded.result, KV_RET_OK);
        EXPECT_EQ(encoded.bytes, message(kLocal, type, {}));
        host.receive(kAgent, encoded.bytes, 1);
        ASSERT_EQ(logLines().size(), 1u);
        EXPECT_EQ(logCount(3, "[MSG] Device 00:11:22:33:44:55, failed to parse the vendor specific TLV\n"), 1u);
    }
}

TEST(Envelope, UnknownTypesAreNamedOnBothRoads) {
    FakeHost host;
    for (const uint16_t type : kUnlisted) {
        SCOPED_TRACE(type);
        clearLog();
        const Encoded encoded = encode(kv::makeVendMsg(type, 4, nullptr));
        EXPECT_EQ(encoded.result, KV_RET_ERR);
        EXPECT_EQ(encoded.length, 19u) << "set although the type is refused";
        EXPECT_EQ(logCount(4, "generate vendor msg type " + std::to_string(type) + " is unsoppourted\n"), 1u);
        host.receive(kAgent, message(kAgent, type, {1, 2, 3}), 1);
        EXPECT_EQ(logCount(4, "parse vendor msg type " + std::to_string(type) + " is unsoppourted\n"), 1u);
        EXPECT_EQ(logLines().size(), 2u) << "nothing is dispatched";
    }
}

TEST(Envelope, OversizedAndBufferlessMessagesAreNotEncoded) {
    FakeHost host;
    EXPECT_EQ(encode(kv::makeVendMsg(kv::VEND_MSG_TYPE_RESERVED_10, 1499, nullptr)).result, KV_RET_OK);
    const Encoded tooLong = encode(kv::makeVendMsg(kv::VEND_MSG_TYPE_RESERVED_10, 1500, nullptr));
    EXPECT_EQ(tooLong.result, KV_RET_ERR);
    EXPECT_EQ(tooLong.length, 1515u);
    const KvVendMsg longest = kv::makeVendMsg(kv::VEND_MSG_TYPE_RESERVED_10, 0xFFFF, nullptr);
    EXPECT_EQ(encode(longest).length, 65550u) << "the sum does not wrap";

    uint32_t length = 4711;
    EXPECT_EQ(kv::genKvVendMsg(nullptr, &length, &longest), KV_RET_ERR);
    EXPECT_EQ(length, 4711u);
    EXPECT_EQ(logCount(3, "invalid vender specific message data\n"), 1u);
}

TEST(Envelope, RefusalsNameTheirReason) {
    FakeHost host;
    host.addDevice(kAgent);
    const Bytes mac(kLocal.begin(), kLocal.end());
    struct Case {
        const char *what;
        Bytes value;
        int level;
        const char *line;
    };
    const Case cases[] = {
        {"nothing at all", {}, 3, "failed to parse the vendor specific TLV"},
        {"half an OUI", fromHex("02 4E"), 3, "failed to parse the vendor specific TLV"},
        {"foreign first byte", fromHex("AB 4E A7"), 4, "parse unsupported vendor OUI ab:4e:a7"},
        {"foreign second byte", fromHex("02 0F A7 00"), 4, "parse unsupported vendor OUI 02:0f:a7"},
        {"foreign third byte", fromHex("02 4E A8"), 4, "parse unsupported vendor OUI 02:4e:a8"},
        {"OUI alone", fromHex("02 4E A7"), 3, "failed to parse the vendor specific TLV"},
        {"payload length past the TLV", message(kAgent, 0, mac, 7), 3, "failed to parse the vendor specific TLV"},
        {"payload length lies by far", message(kAgent, 0, mac, 0xFFFF), 3, "failed to parse"},
        {"payload shorter than its layout", message(kAgent, 0, {1, 2, 3, 4, 5}), 3, "failed to parse"},
        {"an unknown type whose length lies", message(kAgent, 71, {}, 1), 3, "failed to parse the vendor"},
        {"an unknown type without its length", head(message(kAgent, 78, {}), 14), 3, "failed to parse the vendor"},
        {"payload length 0 though bytes follow", message(kAgent, 0, mac, 0), 3, "failed to parse"},
        {"Intel's OUI alone", fromHex("00 03 47"), 3, "failed to parse"},
        {"Intel, too short for its envelope", fromHex("00 03 47 01"), 3, "failed to parse"},
        {"Intel, a type nobody speaks", fromHex("00 03 47 01 02 03 04 05 06 68 00 11 22 33 44 55 66 00 07 08 00 00"), 4,
         "parse vendor msg type 104 is unsoppourted"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        clearLog();
        host.receive(kAgent, c.value, 7);
        EXPECT_EQ(logLines().size(), 1u);
        EXPECT_EQ(logCount(c.level, std::string("[MSG] Device 00:11:22:33:44:55, ") + c.line), 1u);
        EXPECT_TRUE(host.sent.empty());
    }
    // Every cut through the header, and after all of that the next good message is answered.
    const Bytes query = message(kAgent, 0, mac);
    for (size_t length = 0; length < query.size(); ++length) {
        host.receive(kAgent, head(query, length), 7);
        EXPECT_TRUE(host.sent.empty());
    }
    host.receive(kAgent, query, 7);
    EXPECT_EQ(host.sent.size(), 1u);
}

TEST(Envelope, WhatTheDispatcherDoesNotKnowIsNamed) {
    FakeHost host;
    const KvRecvVendTlv source = {};
    for (const uint16_t type : {uint16_t{10}, uint16_t{71}, uint16_t{65535}}) {
        clearLog();
        KvVendMsg msg = kv::makeVendMsg(type, 0, nullptr);
        EXPECT_EQ(kv::handleKvVendSpecMsg(&source, 1, &msg, kv::kOriginNetwork), KV_RET_ERR);
        const std::string line = "Vendor specific message type (" + std::to_string(type) + ")";
        EXPECT_EQ(logLines(), (std::vector<LogLine>{{1, 7, line + "\n"}, {1, 4, line + " is unsoppourted\n"}}));
    }
}

TEST(ReceiveEntries, NullAndOutOfMemoryAreLoggedAndDropped) {
    FakeHost host;
    const Bytes query = message(kAgent, 0, Bytes(6));
    KvRecvVendTlv tlv = {};
    kvMAP1905_VendSpecMsg_handle(nullptr, 1);
    kvMAP1905_VendSpecMsg_handle_Intel(nullptr, 1);
    kvMAP1905_VendSpecTlv_handle(nullptr, 10, 1);
    kvMAP1905_VendSpecTlv_handle(&tlv, 10, 1);
    EXPECT_EQ(logCount(4, "Invalid vendor specific message\n"), 4u);

    struct Case {
        size_t nth;
        const char *line;
    };
    // The record, the query's payload, the response's record, the send buffer.
    for (const Case &c : {Case{1, "Allocate memory failed for vendor msg\n"}, Case{2, "failed to parse"},
                          Case{3, "fail to handle config query msgId 0001"}, Case{4, "invalid vender specific"}}) {
        SCOPED_TRACE(c.nth);
        clearLog();
        {
            FailingAllocation failing(c.nth);
            host.receive(kAgent, query, 1);
            EXPECT_TRUE(failing.happened());
        }
        EXPECT_NE(loggedAtMost(4).find(c.line), std::string::npos) << loggedAtMost(4);
        EXPECT_TRUE(host.sent.empty());
    }
    host.receive(kAgent, query, 1);
    EXPECT_EQ(host.sent.size(), 1u);
}

TEST(ReceiveEntries, WithoutLengthTheEnvelopeSaysIt) {
    FakeHost host;
    Bytes query = message(kAgent, 0, Bytes(300));  // longer than its layout, and than a byte can count
    KvRecvVendTlv tlv = {};
    std::memcpy(tlv.srcMac, kAgent.data(), 6);
    tlv.value = query.data();
    kvMAP1905_VendSpecMsg_handle(&tlv, 0x1A2B3C);
    ASSERT_EQ(host.sent.size(), 1u);
    EXPECT_EQ(host.sent[0].destination, kAgent);
    EXPECT_EQ(host.sent[0].msgIdIn, 0x2B3C) << "the low 16 bits";
}
