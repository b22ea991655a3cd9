// Intel's messages: the request as it arrives, and what is sent about a station.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "common/device_world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

constexpr size_t kRequestLen = 28;
constexpr size_t kSentLen = 39;

// Any answer to this value is of one size and carries the request's own fields back.
void receive(DeviceWorld &world, Bytes value, bool hasLength) {
    if (!hasLength) {
        value.resize(kRequestLen);
    }
    constexpr uint8_t kOui[] = {0x00, 0x03, 0x47};
    std::copy_n(kOui, std::min(std::size(kOui), value.size()), value.begin());
    ExactBlock block(value);
    KvRecvVendTlv tlv = {};
    std::copy(kvtest::kAgent.begin(), kvtest::kAgent.end(), tlv.srcMac);
    tlv.value = block.data();
    if (hasLength) {
        kvMAP1905_VendSpecTlv_handle(&tlv, static_cast<uint32_t>(block.size()), 5);
    } else {
        kvMAP1905_VendSpecMsg_handle_Intel(&tlv, 5);
    }
    for (const kvtest::Sent &sent : world.host.sent) {
        require(sent.value.size() == kSentLen, "an answer to Intel's request is 39 bytes long");
        require(value.size() >= kRequestLen, "a short request is not answered");
        require(std::equal(value.begin() + 3, value.begin() + 9, sent.value.begin() + 3) &&
                    std::equal(value.begin() + 11, value.begin() + 17, sent.value.begin() + 11) &&
                    std::equal(value.begin() + 18, value.begin() + 20, sent.value.begin() + 18) &&
                    std::equal(value.begin() + 22, value.begin() + 28, sent.value.begin() + 22),
                "an answer carries the request's fields and station back");
    }
    world.check();
}

void send(DeviceWorld &world, Input &in, bool notifies) {
    KvRssiMeasurement measurement = {};
    KvIntelVendMsg msg = {};
    in.fill(msg);
    msg.payload = in.flag() ? &measurement : nullptr;
    in.fill(measurement);
    uint16_t msgId = 0;
    if (notifies) {
        kvMAP1905_RssiMeasurementNotify_send(kvtest::kAgent.data(), &msg);
    } else {
        kvMAP1905_IntelVenderSpecMsg_send(kvtest::kAgent.data(), &msgId, &msg);
    }
    for (const kvtest::Sent &sent : world.host.sent) {
        require(sent.value.size() == kSentLen && msg.payload != nullptr, "only whole messages of Intel's are sent");
    }
    world.host.sent.clear();  // of any OUI
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    Input in(data, size);
    const uint8_t choice = in.u8();
    DeviceWorld world;
    writeFile(kStations24File, in.text(choice & 4 ? 128 : 0));
    writeFile(kStations5File, "02:11:22:33:44:02 866000 -61 25 1 wl1 1 2 866000 650000 10\n");
    world.advance(0);
    world.check();
    if ((choice & 2) != 0) {
        send(world, in, (choice & 1) != 0);
    } else {
        receive(world, in.rest(), (choice & 1) != 0);
    }
    world.check();
    return 0;
}
