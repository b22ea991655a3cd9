#include "ieee1905/cmdu.h"

#include "host_support.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/relay.h"

namespace kv1905d {
namespace {

using Status = Reassembly::Status;

constexpr Time kStart{1000};

Reassembly::Outcome addFrame(Reassembly &reassembly, const Bytes &frame) {
    const std::optional<Fragment> fragment = parseFragment(frame);
    return fragment ? reassembly.add(mac(1), *fragment, kStart) : Reassembly::Outcome{Status::Malformed, {}};
}

TEST(Cmdu, SingleFrames) {
    const std::pair<const char *, Status> rows[] = {
        {"00 00 0002 1234 00 80 00 0000", Status::Complete},
        {"01 00 0002 1234 00 80 00 0000", Status::Malformed},             // other version
        {"00 FF 0002 1234 00 80 00 0000", Status::Complete},              // reserved byte
        {"00 00 0002 1234 00 80 00 0000 07 FFFF 01", Status::Complete},   // bytes after the end
        {"00 00 0002 1234 00 80 00 0001 00", Status::Malformed},          // end with a length
        {"00 00 0002 1234 00 80 0B 0001 AA", Status::Malformed},          // no end
        {"00 00 0002 1234 00 80 0B 0009 AA 00 0000", Status::Malformed},  // longer than the frame
        {"00 00 0002 1234 00 80 0B FFFF AA 00 0000", Status::Malformed},  // longer than any
        {"00 00 0002 1234 00 00 00 0000", Status::Waiting},               // first of several
    };
    for (const auto &[hex, status] : rows) {
        Reassembly reassembly;
        EXPECT_EQ(addFrame(reassembly, fromHex(hex)).status, status) << hex;
    }
    const Bytes frame = fromHex("00 00 0004 BEEF 00 C0 0B 0003 024EA7 7F 0000 01 0001 05 00 0000");
    Reassembly reassembly;
    for (size_t size = 0; size < frame.size(); ++size)
        EXPECT_EQ(addFrame(reassembly, prefix(frame, size)).status, Status::Malformed) << size;
    const Message message = addFrame(reassembly, frame).message;
    EXPECT_EQ(message.type, 0x0004);
    EXPECT_EQ(message.id, 0xBEEF);
    EXPECT_TRUE(message.relay);
    EXPECT_EQ(message.tlvs, (std::vector<Tlv>{{0x0B, fromHex("024EA7")}, {0x7F, {}}, {0x01, {5}}}));
}

Message messageWith(const std::vector<size_t> &sizes) {
    Message message{kTopologyResponse, 77, false, {}};
    for (const size_t size : sizes)
        message.tlvs.push_back({kTlvVendorSpecific, Bytes(size, static_cast<uint8_t>(message.tlvs.size() + 1))});
    return message;
}

TEST(Cmdu, EncodedMessagesComeBackFromFramesInAnyOrder) {
    const std::pair<std::vector<size_t>, size_t> rows[] = {
        // sizes of TLV values, frames
        {{}, 1},
        {{1486}, 1},  // header, TLV and end of message fill the frame
        {{1487}, 2},  // the end of message needs a frame of its own
        {{1490}, 2},  // cut at a byte; the tail is no shorter than an end of message
        {{1400, 1400, 1400}, 3},
        {{5, 4000, 5}, 4},
        {{16383, 1, 16383}, 22},
    };
    for (const auto &[sizes, count] : rows) {
        const Message message = messageWith(sizes);
        std::vector<Bytes> frames = encodeMessage(message);
        EXPECT_EQ(frames.size(), count);
        for (const Bytes &frame : frames) {
            EXPECT_LE(frame.size(), kMaxFramePayload);
            EXPECT_EQ((frame[7] & 0x80) != 0, &frame == &frames.back());
        }
        for (int order = 0; order < 2; ++order) {
            Reassembly reassembly;
            Reassembly::Outcome outcome;
            for (const Bytes &frame : frames) {
                ASSERT_EQ(outcome.status, Status::Waiting);
                outcome = addFrame(reassembly, frame);
            }
            ASSERT_EQ(outcome.status, Status::Complete);
            EXPECT_EQ(outcome.message.tlvs, message.tlvs);
            EXPECT_EQ(reassembly.waiting(), 0u);
            std::reverse(frames.begin(), frames.end());
        }
    }
    EXPECT_TRUE(encodeMessage(messageWith({16384})).empty());
}

// Bodies of a message cut by others.
TEST(Cmdu, BothCutStylesAreRead) {
    const Bytes whole = fromHex("0B 0003 024EA7 01 0006 02005E000100 00 0000");
    std::vector<std::pair<Bytes, size_t>> cuts;  // first body, where the second one starts
    for (size_t at = 1; at + 3 < whole.size(); ++at)
        cuts.emplace_back(prefix(whole, at), at);
    for (const size_t padding : {1u, 2u, 3u, 38u}) {  // an end of message in the first frame too, or a part of it
        cuts.emplace_back(prefix(whole, 6), 6);
        cuts.back().first.resize(6 + padding);
    }
    const std::vector<Tlv> expected{{0x0B, fromHex("024EA7")}, {0x01, fromHex("02005E000100")}};
    for (const auto &[first, start] : cuts) {
        const ByteView bodies[] = {first, ByteView(whole).subspan(start)};
        EXPECT_EQ(decodeTlvs(bodies), expected) << "first body of " << first.size();
    }
}

const Bytes kBody = fromHex("0B 0000");
const Bytes kEnd = fromHex("00 0000");

Fragment part(uint8_t index, bool last, uint16_t id = 9, const Bytes &body = kBody) {
    return {kVendorSpecific, id, index, last, false, last ? kEnd : body};
}

TEST(Reassembly, OnlyFragmentsThatBelongTogetherMakeAMessage) {
    Fragment relayed = part(1, true);
    relayed.relay = true;
    const struct {
        std::pair<unsigned, Fragment> first, second;  // with their senders
        Status end;
        size_t waiting;
    } rows[] = {
        {{1, part(0, false)}, {1, part(1, true)}, Status::Complete, 0},
        {{1, part(2, true)}, {1, part(3, true)}, Status::Malformed, 0},    // two different last ones
        {{1, part(2, true)}, {1, part(3, false)}, Status::Malformed, 0},   // one behind the last
        {{1, part(3, false)}, {1, part(2, true)}, Status::Malformed, 0},   // the last before one that came
        {{1, part(1, true)}, {1, part(1, true)}, Status::Waiting, 1},      // repeated
        {{1, part(0, false)}, {2, part(1, true)}, Status::Waiting, 2},     // another sender's
        {{1, part(0, false)}, {1, part(1, true, 8)}, Status::Waiting, 2},  // another message's
        {{1, part(0, false)}, {1, relayed}, Status::Waiting, 2},
    };
    for (const auto &row : rows) {
        Reassembly reassembly;
        reassembly.add(mac(row.first.first), row.first.second, kStart);
        const Status end = reassembly.add(mac(row.second.first), row.second.second, kStart).status;
        EXPECT_EQ(end, row.end) << &row - rows;
        EXPECT_EQ(reassembly.waiting(), row.waiting) << &row - rows;
    }
}

TEST(Reassembly, WhatIsNeverFinishedIsBoundedInTimeMessagesAndBytes) {
    const Time late = kStart + Reassembly::kLifetime;
    Reassembly reassembly;
    reassembly.add(mac(1), part(0, false), kStart);
    EXPECT_EQ(reassembly.nextExpiry(), late);
    EXPECT_EQ(reassembly.expire(late - Time(1)), 0u);
    EXPECT_EQ(reassembly.expire(late), 1u);
    // An old beginning is not taken for the beginning of a new message either.
    reassembly.add(mac(1), part(0, false), kStart);
    EXPECT_EQ(reassembly.add(mac(1), part(1, true), late).status, Status::Waiting);

    for (uint16_t id = 0; id < 200; ++id)
        reassembly.add(mac(2), part(0, false, id), late + Time(id));
    EXPECT_EQ(reassembly.waiting(), Reassembly::kMaxMessages);
    EXPECT_EQ(reassembly.add(mac(2), part(1, true, 199), late).status, Status::Complete);
    EXPECT_EQ(reassembly.add(mac(2), part(1, true, 0), late).status, Status::Waiting) << "the oldest gave way";

    const Bytes large(kMaxFramePayload - 8, 0x0B);
    constexpr uint8_t kEach = 40;  // fragments of one unfinished message
    Reassembly full;
    for (uint16_t id = 0; id < 60; ++id) {
        for (uint8_t index = 0; index < kEach; ++index)
            ASSERT_EQ(full.add(mac(4), part(index, false, id, large), late).status, Status::Waiting);
    }
    EXPECT_EQ(full.waiting(), Reassembly::kMaxBytes / (kEach * large.size()));
    uint8_t index = kEach;
    while (full.add(mac(4), part(index, false, 59, large), late).status == Status::Waiting && index < 100)
        ++index;
    EXPECT_EQ(index, Reassembly::kMaxMessageBytes / large.size());
}

TEST(DuplicateFilter, RemembersForItsLifetimeAndWithinItsBound) {
    DuplicateFilter filter;
    const DuplicateFilter::Key key{mac(1), kVendorSpecific, 7};
    EXPECT_TRUE(filter.enter(key, kStart));
    EXPECT_FALSE(filter.enter(key, kStart + DuplicateFilter::kLifetime - Time(1)));
    EXPECT_TRUE(filter.enter({mac(2), kVendorSpecific, 7}, kStart));
    EXPECT_TRUE(filter.enter(key, kStart + DuplicateFilter::kLifetime));

    const Time later{20000};
    for (uint16_t id = 0; id < 20000; ++id)
        filter.enter({mac(3), kVendorSpecific, id}, later);
    EXPECT_EQ(filter.size(), DuplicateFilter::kMaxEntries);
    EXPECT_FALSE(filter.enter({mac(3), kVendorSpecific, 19999}, later));
    EXPECT_TRUE(filter.enter({mac(3), kVendorSpecific, 0}, later));
}

}  // namespace
}  // namespace kv1905d
