// Bytes on the wire: frames, fragments, and the TLVs of a topology report.
#include "host_support.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/relay.h"
#include "ieee1905/topology_tlvs.h"

namespace kv1905d {
namespace {

using Status = Reassembly::Status;

constexpr TimePoint kArrival{Duration(1000)};

Reassembly::Result addFrame(Reassembly &reassembly, const Bytes &frame) {
    const std::optional<Fragment> fragment = parseFragment(frame);
    return fragment ? reassembly.add(mac(1), *fragment, kArrival) : Reassembly::Result{Status::Malformed, {}};
}

TEST(Cmdu, DecodesSingleFrames) {
    const std::pair<const char *, Status> rows[] = {
        {"00 FF 0002 1234 00 80 00 0000 07 FFFF 01", Status::Complete},  // reserved byte, bytes after the end
        {"01 00 0002 1234 00 80 00 0000", Status::Malformed},            // other version
        {"00 00 0002 1234 00 80 00 0001 00", Status::Malformed},         // end with a length
        {"00 00 0002 1234 00 00 00 0000", Status::Waiting},              // first of several
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
    EXPECT_EQ(message.tlvs, (std::vector<Tlv>{{0x0B, fromHex("024EA7")}, {0x7F, {}}, {0x01, {5}}}));
    EXPECT_EQ(encodeMessage(message), std::vector<Bytes>{frame});
}

TEST(Cmdu, DecodesFramesInReverseOrder) {
    const std::pair<std::vector<size_t>, size_t> rows[] = {
        // sizes of TLV values, frames
        {{1486}, 1},        // header, TLV and end of message fill the frame
        {{1487}, 2},        // the end of message needs a separate frame
        {{1490, 1489}, 4},  // cut at a byte; the tail is no shorter than an end of message
        {{16383, 1400, 1400}, 13},
    };
    for (const auto &[sizes, count] : rows) {
        Message message{kTopologyResponse, 77, false, {}};
        for (const size_t size : sizes)
            message.tlvs.push_back({kTlvVendorSpecific, Bytes(size, static_cast<uint8_t>(message.tlvs.size() + 1))});
        std::vector<Bytes> frames = encodeMessage(message);
        EXPECT_EQ(frames.size(), count);
        std::reverse(frames.begin(), frames.end());
        Reassembly reassembly;
        Reassembly::Result outcome;
        for (const Bytes &frame : frames) {
            EXPECT_LE(frame.size(), kMaxFramePayload);
            ASSERT_EQ(outcome.status, Status::Waiting);
            outcome = addFrame(reassembly, frame);
        }
        EXPECT_EQ(outcome.message.tlvs, message.tlvs);
        EXPECT_EQ(reassembly.waiting(), 0u);
    }
}

// Bodies of a message cut by others.
TEST(Cmdu, DecodesFragmentsCutAtTlvOrByte) {
    const Bytes whole = fromHex("0B 0003 024EA7 01 0006 02005E000100 7F 0014" + std::string(40, '0') + "00 0000");
    const std::vector<Tlv> expected{{0x0B, fromHex("024EA7")}, {0x01, fromHex("02005E000100")}, {0x7F, Bytes(20)}};
    const auto check = [&](size_t cut, size_t padding) {
        Bytes first = prefix(whole, cut);
        first.resize(cut + padding);
        const ByteView bodies[] = {first, ByteView(whole).subspan(cut)};
        EXPECT_EQ(decodeTlvs(bodies), expected) << "first body of " << first.size();
    };
    for (size_t cut = 1; cut < whole.size(); ++cut)  // the last two cut the end of message of a frame without padding
        check(cut, 0);
    for (const size_t padding : {1u, 2u, 3u, 38u})  // an end of message in the first frame too, or a part of it
        check(6, padding);
}

Fragment part(uint8_t index, bool last, uint16_t id = 9, bool relay = false) {
    static const Bytes body = fromHex("0B 0000"), end = fromHex("00 0000");
    return {kVendorSpecific, id, index, last, relay, last ? end : body};
}

TEST(Reassembly, JoinsOnlyFragmentsOfOneMessage) {
    const std::tuple<Fragment, unsigned, Fragment, Status> rows[] = {
        // the second one with its sender
        {part(0, false), 1, part(1, true), Status::Complete},
        {part(2, true), 1, part(3, true), Status::Malformed},   // two different last ones
        {part(3, false), 1, part(2, true), Status::Malformed},  // the last before one that arrived
        {part(2, true), 1, part(3, false), Status::Malformed},  // after the last one
        {part(1, true), 1, part(1, true), Status::Waiting},     // repeated
        {part(0, false), 2, part(1, true), Status::Waiting},
        {part(0, false), 1, part(1, true, 8), Status::Waiting},  // another message's
        {part(0, false), 1, part(1, true, 9, true), Status::Waiting}};
    for (const auto &[first, sender, second, end] : rows) {
        Reassembly reassembly;
        reassembly.add(mac(1), first, kArrival);
        EXPECT_EQ(reassembly.add(mac(sender), second, kArrival).status, end);
        EXPECT_EQ(reassembly.waiting() == 0, end != Status::Waiting);
    }
}

TEST(Reassembly, LimitsUnfinishedMessages) {
    const TimePoint late = kArrival + Reassembly::kLifetime;
    Reassembly reassembly;
    reassembly.add(mac(1), part(0, false), kArrival);
    EXPECT_EQ(reassembly.expire(late - Duration(1)), 0u);
    EXPECT_EQ(reassembly.expire(late), 1u);
    for (uint16_t id = 0; id < 200; ++id)
        reassembly.add(mac(2), part(0, false, id), late + Duration(id));
    EXPECT_EQ(reassembly.waiting(), Reassembly::kMaxMessages);
    EXPECT_EQ(reassembly.add(mac(2), part(1, true, 199), late).status, Status::Complete);
    EXPECT_EQ(reassembly.add(mac(2), part(1, true, 0), late).status, Status::Waiting) << "the oldest gave way";

    const Bytes large(kMaxFramePayload - 8, 0x0B);
    Reassembly full;
    const auto accepted = [&](uint16_t id, uint8_t most) {  // fragments of one message
        uint8_t count = 0;
        for (Fragment next{kVendorSpecific, id, 0, false, false, large}; count < most; next.index = ++count)
            if (full.add(mac(4), next, late).status != Status::Waiting) break;
        return count;
    };
    for (uint16_t id = 0; id < 60; ++id)
        EXPECT_EQ(accepted(id, 40), 40);
    EXPECT_EQ(full.waiting(), Reassembly::kMaxBytes / (40 * large.size()));
    EXPECT_EQ(accepted(60, 100), Reassembly::kMaxMessageBytes / large.size());
}

TEST(DuplicateFilter, LimitsTimeAndEntries) {
    DuplicateFilter filter;
    EXPECT_TRUE(filter.enter({mac(1), kVendorSpecific, 7}, kArrival));
    EXPECT_TRUE(filter.enter({mac(1), kVendorSpecific, 7}, kArrival + DuplicateFilter::kLifetime));
    for (uint16_t id = 0; id < 20000; ++id)
        filter.enter({mac(3), kVendorSpecific, id}, kArrival + Duration(19000));
    EXPECT_EQ(filter.size(), DuplicateFilter::kMaxEntries);
    EXPECT_FALSE(filter.enter({mac(3), kVendorSpecific, 19999}, kArrival + Duration(19000)));
}

TEST(TopologyReport, RoundTripsAndRejectsCutOrLargeReports) {
    const std::vector<Tlv> whole{
        {kTlvDeviceInformation, fromHex("02005E000100 02 02005E000110 0001 00 02005E000120 0103 02 AABB")},
        {kTlvIeee1905Neighbours, fromHex("02005E000110 02005E000200 80 02005E000300 00")},
    };
    std::vector<Tlv> tlvs = whole;
    const auto parse = [&] { return parseTopologyReport({kTopologyResponse, 1, false, tlvs}); };
    tlvs.insert(tlvs.end(), {whole[0], {0x7E, {1}}});  // a second device information, an unknown TLV
    const auto report = parse();
    ASSERT_TRUE(report);
    EXPECT_EQ(topologyReportTlvs(*report), whole);
    EXPECT_EQ(report->neighbours.at(0).neighbours, (std::vector<Neighbour>{{mac(2), true}, {mac(3), false}}));

    for (size_t i = 0; i < whole.size(); ++i) {
        const bool isList = i == 1;  // may end after any entry
        for (size_t size = 0; size < whole[i].value.size(); ++size) {
            tlvs = whole;
            tlvs[i].value.resize(size);
            EXPECT_EQ(parse().has_value(), isList && (size == 6 || size == 13)) << i << ": " << size << " bytes";
        }
    }
    tlvs = whole;
    tlvs.push_back(ieee1905NeighboursTlv({mac(2), std::vector<Neighbour>(kMaxNeighbours, {mac(4), false})}));
    EXPECT_FALSE(parse()) << "too many neighbours";
    EXPECT_FALSE(parseDeviceInformation(fromHex("01005E000100 00"))) << "a group's MAC";
}

TEST(BssElements, RejectsWrongLength) {
    BssElements elements;
    for (const char *hex :
         {"024EA7 C0 0013 02 02005E000220 1234 01 02005E000221 0011 00", "024EA7 D0 0009 01 40 01 1234 0002 03 05"}) {
        Bytes value = fromHex(hex);
        EXPECT_TRUE(readBssElement(value, elements)) << hex;
        for (size_t size = 4; size < value.size(); ++size)  // below, they are no elements
            EXPECT_FALSE(readBssElement(prefix(value, size), elements)) << size;
        ++value[5];
        EXPECT_FALSE(readBssElement(value, elements)) << "a length beyond the end";
    }
    EXPECT_EQ(elements.mdids, (std::vector<MdidEntry>{{mac(2, 0x20), 0x1234, true}, {mac(2, 0x21), 0x11, false}}));
    EXPECT_EQ(elements.configurations, (std::vector<BssConfiguration>{{0x40, 1, 0x1234, 2, 3, 5}}));
}

}  // namespace
}  // namespace kv1905d
