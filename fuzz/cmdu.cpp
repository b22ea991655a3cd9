// IEEE 1905.1 messages: TLVs in one or several fragments, reassembly, the TLVs of topology messages.
#include "ieee1905/cmdu.h"

#include "common/input.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/topology_tlvs.h"

namespace kvfuzz {

namespace {

using namespace kv1905d;

// Bodies as a neighbour might send them; nothing when they hold no TLVs.
std::optional<std::vector<Tlv>> readTlvs(Input &in, size_t pieces) {
    std::vector<ExactBlock> blocks;
    std::vector<ByteView> bodies;
    for (size_t i = 0; i < pieces; ++i) {
        blocks.emplace_back(i + 1 < pieces ? in.bytes(in.u16()) : in.rest());
        bodies.emplace_back(blocks.back().data(), blocks.back().size());
    }
    return decodeTlvs(bodies);
}

// Its frames in another order, some of them twice, make the same message.
void checkMessage(const Message &message, bool isReversed, bool isRepeated) {
    std::vector<Bytes> frames = encodeMessage(message);
    require(!frames.empty() || message.tlvs.size() > 1, "a message of one TLV can be sent");
    if (frames.empty()) return;
    if (isReversed) std::reverse(frames.begin(), frames.end());
    Reassembly reassembly;
    Reassembly::Result outcome;
    for (const Bytes &bytes : frames) {
        const bool isLast = &bytes == &frames.back();
        const ExactBlock frame(bytes);
        const std::optional<Fragment> fragment = parseFragment({frame.data(), frame.size()});
        require(fragment && frame.size() <= kMaxFramePayload, "a written frame fits Ethernet and is read");
        for (int times = isRepeated && !isLast ? 2 : 1; times > 0; --times) {
            outcome = reassembly.add({{0x02, 0, 0, 0, 0, 1}}, *fragment, TimePoint(Duration(1)));
        }
        require((outcome.status == Reassembly::Status::Complete) == isLast,
                "the last frame to come completes the message");
    }
    require(outcome.message.type == message.type && outcome.message.id == message.id &&
                outcome.message.relay == message.relay && outcome.message.tlvs == message.tlvs &&
                reassembly.waiting() == 0,
            "a message survives its way");
}

void checkReport(const Message &message) {
    const std::optional<TopologyReport> report = parseTopologyReport(message);
    if (!report) return;
    require(report->device.interfaces.size() <= kMaxInterfaces, "interfaces are bounded");
    const auto again = parseTopologyReport({kTopologyResponse, 1, false, topologyReportTlvs(*report)});
    require(again && again->device == report->device && again->neighbours == report->neighbours,
            "a report survives writing and reading");
}

// Frames of any making against one reassembly, which stays within its bounds.
void floodReassembly(Input &in) {
    Reassembly reassembly;
    TimePoint now{Duration(1)};
    while (!in.empty()) {
        const uint8_t step = in.u8();
        now += Duration(step / 16 * 100);
        reassembly.expire(now);
        const ExactBlock frame(in.bytes(8 + in.u8() % 64));
        const std::optional<Fragment> fragment = parseFragment({frame.data(), frame.size()});
        if (!fragment) continue;
        const MacAddress source{{0x02, 0, 0, 0, 0, static_cast<uint8_t>(step % 4)}};
        const Reassembly::Result outcome = reassembly.add(source, *fragment, now);
        if (outcome.status == Reassembly::Status::Complete && outcome.message.tlvs.size() < 64)
            checkReport(outcome.message);
        require(reassembly.waiting() <= Reassembly::kMaxMessages, "unfinished messages are bounded");
        require(reassembly.nextExpiry() > now, "what is old is forgotten");
    }
}

}  // namespace

// The first byte: 7 in the lowest three bits floods; otherwise they tell type and pieces, the next two their order.
void playInput(Input in) {
    const uint8_t choice = in.u8();
    if (choice % 8 == 7) {
        floodReassembly(in);
    } else if (auto tlvs = readTlvs(in, 1 + choice % 8 / 2)) {
        const Message message{choice & 1 ? kTopologyResponse : kVendorSpecific, 7, (choice & 16) != 0, *tlvs};
        checkMessage(message, (choice & 16) != 0, (choice & 32) != 0);
        checkReport(message);
    }
}

}  // namespace kvfuzz
