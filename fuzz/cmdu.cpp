// IEEE 1905.1 messages: TLVs in fragments, reassembly, the TLVs of topology messages.
#include "ieee1905/cmdu.h"

#include "fuzz.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/topology_tlvs.h"

namespace kvfuzz {

namespace {

using namespace kv1905d;

constexpr TimePoint kStart{Duration(1)};

void checkReport(const Message &message) {
    const std::optional<TopologyReport> report = parseTopologyReport(message);
    if (!report) return;
    const auto again = parseTopologyReport({kTopologyResponse, 1, false, topologyReportTlvs(*report)});
    require(report->device.interfaces.size() <= kMaxInterfaces, "interfaces are bounded");
    require(again && again->device == report->device && again->neighbours == report->neighbours,
            "a report is the same after writing and reading");
}

// The last fragment to arrive completes the message, in reverse order too and when the others come twice.
void checkMessage(const Message &message, bool isReversed) {
    std::vector<Bytes> frames = encodeMessage(message);
    if (isReversed) std::reverse(frames.begin(), frames.end());
    Reassembly reassembly;
    for (const Bytes &frame : frames) {
        const bool isLast = &frame == &frames.back();
        const std::optional<Fragment> fragment = parseFragment(frame);
        require(fragment && frame.size() <= kMaxFramePayload, "a written frame fits Ethernet and can be read");
        if (!isLast) reassembly.add(kMulticastMac, *fragment, kStart);
        const Reassembly::Result result = reassembly.add(kMulticastMac, *fragment, kStart);
        require((result.status == Reassembly::Status::Complete) == isLast, "the last fragment completes the message");
        require(!isLast || (result.message.type == message.type && result.message.id == message.id &&
                            result.message.relay == message.relay && result.message.tlvs == message.tlvs),
                "a message is the same after writing and reading");
    }
}

// Fragments of any content in one reassembly.
void floodReassembly(Input &in) {
    Reassembly reassembly;
    for (TimePoint now = kStart; !in.empty();) {
        const uint8_t choice = in.u8();
        now += Duration(choice / 16 * 100);
        reassembly.expire(now);
        const Bytes frame = in.bytes(8 + in.u8() % 64);
        const std::optional<Fragment> fragment = parseFragment(frame);
        if (!fragment) continue;
        const MacAddress source{{0x02, 0, 0, 0, 0, static_cast<uint8_t>(choice % 4)}};
        const Reassembly::Result result = reassembly.add(source, *fragment, now);
        if (result.status == Reassembly::Status::Complete) checkReport(result.message);
        require(reassembly.waiting() <= Reassembly::kMaxMessages, "unfinished messages are bounded");
        require(reassembly.nextExpiry() > now, "old fragments are dropped");
    }
}

}  // namespace

// The first byte: 0 floods, another one is the type and the order of the fragments.
void playInput(Input in) {
    const uint8_t choice = in.u8();
    if (choice == 0) return floodReassembly(in);
    const Bytes first = in.bytes(in.u16()), second = in.rest();
    const ByteView bodies[] = {first, second};
    const std::optional<std::vector<Tlv>> tlvs = decodeTlvs(bodies);
    if (!tlvs) return;
    const Message message{(choice & 1) != 0 ? kTopologyResponse : kVendorSpecific, 7, (choice & 4) != 0, *tlvs};
    checkMessage(message, (choice & 2) != 0);
    checkReport(message);
}

}  // namespace kvfuzz
