#include "ieee1905/cmdu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "host_support.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/relay.h"

namespace kv1905d {
namespace {

using std::chrono::milliseconds;
using Status = Reassembly::Status;

constexpr Time kStart{1000};

Reassembly::Outcome addFrame(Reassembly &reassembly, const Bytes &frame, Time now = kStart) {
    const std::optional<Fragment> fragment = parseFragment(frame);
    if (!fragment) return {Status::Malformed, {}};
    return reassembly.add(mac(1), *fragment, now);
}

Status statusOf(std::string_view hex) {
    Reassembly reassembly;
    return addFrame(reassembly, fromHex(hex)).status;
}

TEST(Cmdu, SingleFrames) {
    const struct {
        const char *what, *hex;
        Status status;
    } rows[] = {
        {"empty", "", Status::Malformed},
        {"header alone", "00 00 0002 1234 00 80", Status::Malformed},
        {"one byte less than an end of message", "00 00 0002 1234 00 80 00 00", Status::Malformed},
        {"smallest message", "00 00 0002 1234 00 80 00 0000", Status::Complete},
        {"other version", "01 00 0002 1234 00 80 00 0000", Status::Malformed},
        {"reserved byte is not looked at", "00 FF 0002 1234 00 80 00 0000", Status::Complete},
        {"bytes after the end are ignored", "00 00 0002 1234 00 80 00 0000 07 FFFF 01", Status::Complete},
        {"end of message with a length", "00 00 0002 1234 00 80 00 0001 00", Status::Malformed},
        {"no end of message", "00 00 0002 1234 00 80 0B 0001 AA", Status::Malformed},
        {"TLV longer than the frame", "00 00 0002 1234 00 80 0B 0009 AA 00 0000", Status::Malformed},
        {"value longer than any message may carry", "00 00 0002 1234 00 80 0B FFFF AA 00 0000", Status::Malformed},
        {"first of several", "00 00 0002 1234 00 00 00 0000", Status::Waiting},
    };
    for (const auto &row : rows)
        EXPECT_EQ(statusOf(row.hex), row.status) << row.what;
}

TEST(Cmdu, FieldsAndUnknownTlvsAreKept) {
    Reassembly reassembly;
    const auto outcome =
        addFrame(reassembly, fromHex("00 00 0004 BEEF 00 C0 0B 0003 024EA7 7F 0000 01 0001 05 00 0000"));
    ASSERT_EQ(outcome.status, Status::Complete);
    EXPECT_EQ(outcome.message.type, 0x0004);
    EXPECT_EQ(outcome.message.id, 0xBEEF);
    EXPECT_TRUE(outcome.message.relay);
    const std::vector<Tlv> expected{{0x0B, fromHex("024EA7")}, {0x7F, {}}, {0x01, {5}}};
    EXPECT_EQ(outcome.message.tlvs, expected);
    EXPECT_EQ(outcome.message.find(0x02), nullptr);
}

TEST(Cmdu, NoShorterPrefixIsAMessage) {
    const Bytes frame = fromHex("00 00 0004 BEEF 00 C0 0B 0007 024EA7 01020304 01 0006 02005E000100 00 0000");
    for (size_t size = 0; size < frame.size(); ++size) {
        Reassembly reassembly;
        const Bytes prefix(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_NE(addFrame(reassembly, prefix).status, Status::Complete) << size;
    }
}

Message messageWith(const std::vector<size_t> &sizes) {
    Message message{kTopologyResponse, 77, false, {}};
    uint8_t fill = 1;
    for (const size_t size : sizes)
        message.tlvs.push_back({kTlvVendorSpecific, Bytes(size, fill++)});
    return message;
}

TEST(Cmdu, EncodedMessagesComeBackFromFramesInAnyOrder) {
    const struct {
        std::vector<size_t> values;
        size_t frames;
    } rows[] = {
        {{}, 1},
        {{1486}, 1},  // header, TLV and end of message fill the frame
        {{1487}, 2},  // the end of message needs a frame of its own
        {{1489}, 2},  // largest TLV of one frame
        {{1490}, 2},  // cut at a byte; the tail is no shorter than an end of message
        {{1491}, 2},
        {{700, 700, 700, 700}, 2},
        {{1400, 1400, 1400}, 3},
        {{5, 4000, 5}, 4},
        {{16383, 1, 16383}, 22},
    };
    for (const auto &row : rows) {
        const Message message = messageWith(row.values);
        std::vector<Bytes> frames = encodeMessage(message);
        ASSERT_EQ(frames.size(), row.frames) << row.values.size();
        for (const Bytes &frame : frames) {
            EXPECT_LE(frame.size(), kMaxFramePayload);
            EXPECT_EQ((frame[7] & 0x80) != 0, &frame == &frames.back());
        }
        for (const bool backwards : {false, true}) {
            if (backwards) std::reverse(frames.begin(), frames.end());
            Reassembly reassembly;
            Reassembly::Outcome outcome;
            for (const Bytes &frame : frames) {
                ASSERT_EQ(outcome.status, Status::Waiting);
                outcome = addFrame(reassembly, frame);
            }
            ASSERT_EQ(outcome.status, Status::Complete);
            EXPECT_EQ(outcome.message.tlvs, message.tlvs);
            EXPECT_EQ(reassembly.waiting(), 0u);
        }
    }
    EXPECT_TRUE(encodeMessage(messageWith({16384})).empty());
}

// Bodies of a message cut by others.
TEST(Cmdu, BothCutStylesAreRead) {
    const std::string_view first = "0B 0003 024EA7";
    const std::string_view second = "01 0006 02005E000100";
    const std::string all = std::string(first) + std::string(second) + "00 0000";
    const std::vector<Tlv> expected{{0x0B, fromHex("024EA7")}, {0x01, fromHex("02005E000100")}};
    const std::string padding(38 * 2, '0');

    std::vector<std::vector<Bytes>> cuts{
        {fromHex(first), fromHex(std::string(second) + "000000")},
        {fromHex(std::string(first) + "000000"), fromHex(std::string(second) + "000000")},
        {fromHex(std::string(first) + padding), fromHex(std::string(second) + "000000")},
        {fromHex(std::string(first) + "00"), fromHex(std::string(second) + "000000")},  // padded by one byte
        {fromHex(std::string(first) + "0000"), fromHex(std::string(second) + "000000")},
    };
    const Bytes whole = fromHex(all);
    for (size_t at = 1; at + 3 < whole.size(); ++at) {
        const auto middle = whole.begin() + static_cast<ptrdiff_t>(at);
        cuts.push_back({Bytes(whole.begin(), middle), Bytes(middle, whole.end())});
    }
    for (const auto &bodies : cuts) {
        const std::vector<ByteView> views(bodies.begin(), bodies.end());
        const auto tlvs = decodeTlvs(views);
        ASSERT_TRUE(tlvs) << "first body of " << bodies[0].size();
        EXPECT_EQ(*tlvs, expected) << "first body of " << bodies[0].size();
    }
}

Fragment fragmentOf(uint16_t id, uint8_t index, bool last, ByteView body) {
    return {kVendorSpecific, id, index, last, false, body};
}

TEST(Reassembly, FragmentsThatContradictOneAnotherAreMalformed) {
    const Bytes body = fromHex("0B 0000");
    const struct {
        const char *what;
        std::vector<std::pair<uint8_t, bool>> fragments;  // index, last
        Status end;
    } rows[] = {
        {"two different last ones", {{2, true}, {3, true}}, Status::Malformed},
        {"one behind the last", {{2, true}, {3, false}}, Status::Malformed},
        {"the last before one that came", {{3, false}, {2, true}}, Status::Malformed},
        {"repeated ones", {{1, true}, {1, true}}, Status::Waiting},
    };
    for (const auto &row : rows) {
        Reassembly reassembly;
        Status status = Status::Waiting;
        for (const auto &[index, last] : row.fragments) {
            status = reassembly.add(mac(1), fragmentOf(9, index, last, body), kStart).status;
        }
        EXPECT_EQ(status, row.end) << row.what;
        EXPECT_EQ(reassembly.waiting(), row.end == Status::Waiting ? 1u : 0u) << row.what;
    }
}

TEST(Reassembly, SendersTypesAndIdentifiersDoNotMix) {
    const Bytes first = fromHex("0B 0000");
    const Bytes end = fromHex("00 0000");
    Reassembly reassembly;
    reassembly.add(mac(1), fragmentOf(9, 0, false, first), kStart);
    EXPECT_EQ(reassembly.add(mac(2), fragmentOf(9, 1, true, end), kStart).status, Status::Waiting);
    EXPECT_EQ(reassembly.add(mac(1), fragmentOf(8, 1, true, end), kStart).status, Status::Waiting);
    Fragment relayed = fragmentOf(9, 1, true, end);
    relayed.relay = true;
    EXPECT_EQ(reassembly.add(mac(1), relayed, kStart).status, Status::Waiting);
    EXPECT_EQ(reassembly.add(mac(1), fragmentOf(9, 1, true, end), kStart).status, Status::Complete);
}

TEST(Reassembly, WhatIsNeverFinishedIsBoundedInTimeMessagesAndBytes) {
    const Bytes small = fromHex("0B 0000");
    const Bytes end = fromHex("00 0000");
    Reassembly reassembly;
    reassembly.add(mac(1), fragmentOf(1, 0, false, small), kStart);
    EXPECT_EQ(reassembly.nextExpiry(), kStart + Reassembly::kLifetime);
    EXPECT_EQ(reassembly.expire(kStart + Reassembly::kLifetime - milliseconds(1)), 0u);
    EXPECT_EQ(reassembly.expire(kStart + Reassembly::kLifetime), 1u);
    // An old beginning is not taken for the beginning of a new message either.
    reassembly.add(mac(1), fragmentOf(1, 0, false, small), kStart);
    const Time late = kStart + Reassembly::kLifetime;
    EXPECT_EQ(reassembly.add(mac(1), fragmentOf(1, 1, true, end), late).status, Status::Waiting);

    for (uint16_t id = 0; id < 200; ++id) {
        reassembly.add(mac(2), fragmentOf(id, 0, false, small), late + milliseconds(id));
    }
    EXPECT_EQ(reassembly.waiting(), Reassembly::kMaxMessages);
    EXPECT_GT(reassembly.evicted(), 0u);
    // The newest is still there, the oldest is not.
    EXPECT_EQ(reassembly.add(mac(2), fragmentOf(199, 1, true, end), late).status, Status::Complete);
    EXPECT_EQ(reassembly.add(mac(2), fragmentOf(0, 1, true, end), late).status, Status::Waiting);

    const Bytes large(kMaxFramePayload - 8, 0x0B);
    Status status = Status::Waiting;
    for (uint8_t index = 0; index < 100 && status == Status::Waiting; ++index) {
        status = reassembly.add(mac(3), fragmentOf(1, index, false, large), late).status;
    }
    EXPECT_EQ(status, Status::Malformed);
    constexpr size_t each = 40;  // fragments of one unfinished message
    Reassembly full;
    for (uint16_t id = 0; id < 60; ++id) {
        for (uint8_t index = 0; index < each; ++index)
            full.add(mac(4), fragmentOf(id, index, false, large), late);
    }
    EXPECT_EQ(full.waiting(), Reassembly::kMaxBytes / (each * large.size()));
}

TEST(DuplicateFilter, RemembersForItsLifetimeAndWithinItsBound) {
    DuplicateFilter filter;
    const DuplicateFilter::Key key{mac(1), kVendorSpecific, 7};
    EXPECT_TRUE(filter.enter(key, kStart));
    EXPECT_FALSE(filter.enter(key, kStart + DuplicateFilter::kLifetime - milliseconds(1)));
    EXPECT_TRUE(filter.enter({mac(2), kVendorSpecific, 7}, kStart));
    EXPECT_TRUE(filter.enter({mac(1), kTopologyNotification, 7}, kStart));
    EXPECT_TRUE(filter.enter({mac(1), kVendorSpecific, 8}, kStart));
    EXPECT_TRUE(filter.enter(key, kStart + DuplicateFilter::kLifetime));

    const Time later = kStart + milliseconds(10000);
    for (uint16_t id = 0; id < 2000; ++id)
        filter.enter({mac(3), kVendorSpecific, id}, later);
    EXPECT_EQ(filter.size(), DuplicateFilter::kMaxEntries);
    EXPECT_FALSE(filter.enter({mac(3), kVendorSpecific, 1999}, later));
    EXPECT_TRUE(filter.enter({mac(3), kVendorSpecific, 0}, later));
}

}  // namespace
}  // namespace kv1905d
