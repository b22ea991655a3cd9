// The text in which devices report their stations.
#include <cstring>

#include "common/device_world.h"
#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/station_list.h"
#include "frame/memory.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

constexpr size_t kShortestRecord = 5;  // "002{}"

// The stations of a text, or null when it is refused.
kv::OwnedStations read(const std::string &text) {
    const auto record = kv::allocateRecord<kv::KvWifiClientMsg>();
    record->dataLen = static_cast<uint16_t>(text.size());
    std::memcpy(record->text, text.data(), text.size());
    kv::OwnedStations list(kv::allocateRecord<WIFINeighborList>().release());
    const bool accepted = kv::copyWIFIclientMsgDataTokvWIFINeighborTable(list.get(), record.get()) == KV_RET_OK;
    return accepted ? std::move(list) : nullptr;
}

std::string framed(const WIFINeighborEntry &station) {
    char record[256];
    kv::formatStation(record, sizeof record, station);
    char length[24];
    std::snprintf(length, sizeof length, "%03zu", std::strlen(record));
    return std::string(length) + record;
}

bool sameStation(const WIFINeighborEntry &a, const WIFINeighborEntry &b) {
    return std::memcmp(a.mac, b.mac, sizeof a.mac) == 0 && a.mediaType == b.mediaType && a.Rate == b.Rate &&
           a.RSSI == b.RSSI && a.SNR == b.SNR && a.signalLevel == b.signalLevel && a.Tx == b.Tx && a.Rx == b.Rx &&
           a.tx_rate == b.tx_rate && a.rx_rate == b.rx_rate && a.Band == b.Band;
}

// What is written of a station is read as the same station. A band is written as a hexadecimal number and read as a
// decimal one, which makes no difference for those that exist.
void checkRoundTrip(WIFINeighborEntry station) {
    station.Band = static_cast<uint8_t>(station.Band % 10);
    const kv::OwnedStations again = read(framed(station));
    require(again != nullptr && again->count == 1 && sameStation(*again->head, station),
            "a station survives writing and reading");
}

uint32_t checkText(const std::string &text) {
    const kv::OwnedStations list = read(text);
    if (list == nullptr) {
        return 0;
    }
    uint32_t count = 0;
    for (const WIFINeighborEntry *station = list->head; station != nullptr; station = station->next, ++count) {
        checkRoundTrip(*station);
    }
    require(count == list->count, "a report counts its stations");
    require(count * kShortestRecord <= text.size(), "every station takes some text");
    return count;
}

// Delivered as a message: refused texts change nothing, accepted ones add no more stations than they hold.
void checkMessage(const std::string &text, uint32_t stations) {
    DeviceWorld world;
    Bytes payload;
    kvtest::append(payload, kvtest::kAgent);
    kvtest::append(payload, std::initializer_list<size_t>{text.size() >> 8, text.size() & 0xFF});
    kvtest::append(payload, text);
    const Bytes value = kvtest::message(kvtest::kAgent, kv::VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, payload);
    const KvDevVendorData &agent = *world.host.devices.at(kvtest::kAgent);
    for (int repetition = 0; repetition < 2; ++repetition) {
        const uint64_t before = world.digest();
        world.host.receive(kvtest::kAgent, value, 1);
        require(stations != 0 || agent.wifiNbrNum == 0, "a refused report adds no station");
        require(stations != 0 || world.host.jsonWrites != 0 || world.digest() == before,
                "a refused report changes nothing");
        require(agent.wifiNbrNum <= stations, "a report, once or again, adds no more stations than it holds");
    }
    world.check();
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    const std::string text = Input(data, size).text(kv::kMaxReportText);
    const uint32_t stations = checkText(text);
    checkMessage(text, stations);
    kvtest::clearLog();
    return 0;
}
