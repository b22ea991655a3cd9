// IEEE 1905.1 messages: TLVs in one or several fragments, reassembly, the TLVs of topology messages.
#include "ieee1905/cmdu.h"

#include <algorithm>

#include "common/input.h"
#include "ieee1905/reassembly.h"
#include "ieee1905/topology_tlvs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

using namespace kv1905d;
using kvfuzz::Bytes;

constexpr MacAddress kSource{{0x02, 0, 0, 0, 0, 1}};

// Any number of values of any type; bodies as a neighbour might send them.
std::optional<std::vector<Tlv>> readTlvs(Input &in, size_t pieces) {
    std::vector<ExactBlock> blocks;
    std::vector<ByteView> bodies;
    for (size_t i = 0; i < pieces; ++i) {
        blocks.emplace_back(i + 1 < pieces ? in.bytes(in.u16()) : in.rest());
        bodies.emplace_back(blocks.back().data(), blocks.back().size());
    }
    return decodeTlvs(bodies);
}

// Frames in another order, one of them twice, make the same message.
void checkReassembly(const Message &message, const std::vector<Bytes> &frames, uint8_t order) {
    Reassembly reassembly;
    Reassembly::Outcome outcome;
    for (size_t i = 0; i < frames.size(); ++i) {
        const size_t at = order % 2 == 0 ? i : frames.size() - 1 - i;
        ExactBlock frame(frames[at]);
        const std::optional<Fragment> fragment = parseFragment({frame.data(), frame.size()});
        require(fragment.has_value(), "a written frame is read");
        if (order % 4 > 1 && i + 1 < frames.size()) {
            reassembly.add(kSource, *fragment, Time(1));
        }
        outcome = reassembly.add(kSource, *fragment, Time(1));
        require((outcome.status == Reassembly::Status::Complete) == (i + 1 == frames.size()),
                "the last frame to come completes the message");
    }
    require(outcome.message.type == message.type && outcome.message.id == message.id &&
                outcome.message.relay == message.relay && outcome.message.tlvs == message.tlvs,
            "a message survives its way");
    require(reassembly.waiting() == 0, "nothing is left of a complete message");
}

void checkMessage(const Message &message, uint8_t order) {
    const std::vector<Bytes> frames = encodeMessage(message);
    size_t total = 0;
    for (const Tlv &tlv : message.tlvs) {
        total += tlv.value.size() + 3;
    }
    require(!frames.empty() || total > kMaxFramePayload, "a small message can be sent");
    for (const Bytes &frame : frames) {
        require(frame.size() <= kMaxFramePayload, "a frame fits Ethernet");
    }
    if (!frames.empty() && total < Reassembly::kMaxMessageBytes / 2) {
        checkReassembly(message, frames, order);
    }
}

void checkReport(const Message &message) {
    const std::optional<TopologyReport> report = parseTopologyReport(message);
    if (!report) {
        return;
    }
    require(report->device.interfaces.size() <= kMaxInterfaces, "interfaces are bounded");
    const std::optional<TopologyReport> again =
        parseTopologyReport({kTopologyResponse, 1, false, topologyReportTlvs(*report)});
    require(again && again->device == report->device && again->neighbours == report->neighbours,
            "a report survives writing and reading");
}

// One value, whatever TLV it might stand in.
void readValue(Input &in) {
    ExactBlock value(in.rest());
    const ByteView view(value.data(), value.size());
    parseMacTlv(view);
    parseBridgingCapability(view);
    parseNonIeee1905Neighbours(view);
    parseIeee1905Neighbours(view);
    if (const std::optional<DeviceInformation> device = parseDeviceInformation(view)) {
        require(parseDeviceInformation(deviceInformationTlv(*device).value) == device,
                "device information survives writing and reading");
    }
    if (const std::optional<VendorSpecific> vendor = parseVendorSpecific(view)) {
        require(vendor->data.size() + 3 == view.size(), "vendor data is what follows the OUI");
    }
}

// Frames of any making against one reassembly, which stays within its bounds.
void floodReassembly(Input &in) {
    Reassembly reassembly;
    Time now(1);
    while (!in.empty()) {
        const uint8_t step = in.u8();
        now += Time(step / 16 * 100);
        reassembly.expire(now);
        ExactBlock frame(in.bytes(8 + in.u8() % 64));
        const std::optional<Fragment> fragment = parseFragment({frame.data(), frame.size()});
        if (!fragment) {
            continue;
        }
        const MacAddress source{{0x02, 0, 0, 0, 0, static_cast<uint8_t>(step % 4)}};
        const Reassembly::Outcome outcome = reassembly.add(source, *fragment, now);
        if (outcome.status == Reassembly::Status::Complete && outcome.message.tlvs.size() < 64) {
            checkReport(outcome.message);
        }
        require(reassembly.waiting() <= Reassembly::kMaxMessages, "unfinished messages are bounded");
        require(reassembly.nextExpiry() > now, "what is old is forgotten");
    }
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    Input in(data, size);
    const uint8_t choice = in.u8();
    if (choice % 8 == 7) {
        floodReassembly(in);
        return 0;
    }
    if (choice % 8 == 6) {
        readValue(in);
        return 0;
    }
    const std::optional<std::vector<Tlv>> tlvs = readTlvs(in, 1 + choice % 8 / 2);
    if (tlvs) {
        const Message message{choice & 1 ? kTopologyResponse : kVendorSpecific, 7, (choice & 16) != 0, *tlvs};
        checkMessage(message, choice >> 4 & 3);
        checkReport(message);
    }
    return 0;
}
