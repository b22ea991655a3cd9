#include "query.h"

#include <json-c/json.h>

#include <algorithm>
#include <chrono>
#include <ctime>

#include "ieee1905/vendor_message.h"
#include "ieee1905/wifi_band.h"
#include "result_names.h"
#include "table.h"

namespace kv1905d {
namespace {

using support::JsonPtr;

constexpr size_t kVendorEnvelope = 15, kIntelEnvelope = 22;  // bytes before the payload
constexpr size_t kFullMessage = 32;                          // stations; more follow in another message
constexpr Duration kFollowing{1000};                         // for such a message

json_object *newEntry(const JsonPtr &list, const char *key, const MacAddress &mac) {
    json_object *entry = json_object_new_object();
    json_object_object_add(entry, key, json_object_new_string(mac.text().c_str()));
    json_object_array_add(list.get(), entry);
    return entry;
}

void add(json_object *entry, const char *key, int64_t number) {
    json_object_object_add(entry, key, json_object_new_int64(number));
}

void readPower(WireReader &in, const JsonPtr &list) {
    in.mac();
    for (unsigned count = in.u8(); count > 0; --count) {
        json_object *entry = newEntry(list, "MACAddress", in.mac());
        add(entry, "MediaType", in.u16());
        add(entry, "PowerState", in.u8());
    }
}

void readStations(WireReader &in, const JsonPtr &list) {
    for (unsigned count = in.u8(); count > 0; --count) {
        json_object *entry = newEntry(list, "MACAddress", in.mac());
        add(entry, "MediaType", in.u16());
        add(entry, "Rate", int64_t{in.u16()} * 1000);
        add(entry, "RSSI", static_cast<int16_t>(in.u16()));
        add(entry, "SNR", static_cast<int16_t>(in.u16()));
        add(entry, "SignalLevel", in.u8());
        const Band band = bandOf(&BandRow::stationBand, in.u8());
        json_object_object_add(entry, "Band", json_object_new_string(bandName(band)));
        add(entry, "BytesSent", in.u32());
        add(entry, "BytesReceived", in.u32());
    }
}

void readMeasurement(WireReader &in, const JsonPtr &list) {
    json_object *entry = newEntry(list, "MACAddress", in.mac());
    in.u16();
    add(entry, "LastDataUplinkRate", int64_t{in.u16()} * 100);
    add(entry, "LastDataDownlinkRate", int64_t{in.u16()} * 100);
    add(entry, "RSSI", static_cast<int8_t>(in.u8()));
    add(entry, "SNR", static_cast<int8_t>(in.u8()));
    in.bytes(3);
}

std::string powerCell(json_object *state, const View &) {
    const char *name = meaningOf(kPowerStates, static_cast<unsigned>(json_object_get_int(state)));
    return name == nullptr ? plain(state) : name;
}

constexpr Column kPowerColumns[] = {{"INTERFACE", "MACAddress"},
                                    {"NAME", "MediaType", mediaCell},
                                    {"MEDIA TYPE", "MediaType", digitsCell},
                                    {"POWER", "PowerState", powerCell}};
constexpr Column kReportColumns[] = {{"STATION", "MACAddress"},    {"BAND", "Band"},
                                     {"SIGNAL dBm", "RSSI"},       {"SNR dB", "SNR"},
                                     {"LEVEL 0-5", "SignalLevel"}, {"RATE Mbit/s", "Rate", megabitsCell},
                                     {"BYTES SENT", "BytesSent"},  {"BYTES RECEIVED", "BytesReceived"}};
constexpr Column kMeasurementColumns[] = {{"STATION", "MACAddress"},
                                          {"SIGNAL dBm", "RSSI"},
                                          {"SNR dB", "SNR"},
                                          {"DOWN Mbit/s", "LastDataDownlinkRate", megabitsCell},
                                          {"UP Mbit/s", "LastDataUplinkRate", megabitsCell}};

struct Query {
    uint32_t code;
    Direction direction;
    std::string_view message;
    size_t envelope;
    void (*read)(WireReader &payload, const JsonPtr &list);
    std::span<const Column> columns;
};

constexpr Query kQueries[] = {
    {kCommandQueryPower, Direction::In, "INTF_PWR_STATE_RESP", kVendorEnvelope, readPower, kPowerColumns},
    {kCommandQueryStations, Direction::In, "WIFI_STATE_RESP", kVendorEnvelope, readStations, kReportColumns},
    {kCommandRssi, Direction::Out, "RSSI_MEASUREMENT_NOTIFY", kIntelEnvelope, readMeasurement, kMeasurementColumns},
};

bool isMessageOf(const Query &query, const Event &event, const std::string &alMac) {
    if (event.direction != query.direction || event.peer != alMac) return false;
    const VendorMessage message = readVendorMessage(event.value);
    return message.name.ends_with(query.message) && !message.fault;
}

}  // namespace

CommandResult awaitMessage(MonitorConnection &monitor, uint32_t code, const std::string &alMac, Duration timeout,
                           bool json) {
    const Query &query = *std::find_if(std::begin(kQueries), std::end(kQueries),
                                       [code](const Query &each) { return each.code == code; });
    const auto now = [] { return std::chrono::steady_clock::now(); };
    auto deadline = now() + timeout;
    const JsonPtr list(json_object_new_array());
    bool isAnswered = false, isWhole = false;
    while (!isWhole && now() < deadline) {
        const auto left = std::chrono::duration_cast<Duration>(deadline - now()) + Duration(1);
        const std::optional<Event> event = monitor.next(left);
        if (!event || !isMessageOf(query, *event, alMac)) continue;
        const size_t before = json_object_array_length(list.get());
        WireReader payload(event->value.subspan(query.envelope));
        query.read(payload, list);
        isAnswered = true;
        isWhole = json_object_array_length(list.get()) - before < kFullMessage;
        deadline = now() + std::min(timeout, kFollowing);
    }
    if (!isAnswered) return {Status::NoAnswer, "sent, but no answer arrived in time", {}, alMac};
    if (json) return {Status::Success, {}, {}, alMac, jsonText(list.get())};
    Network network("");  // no column has a name in it
    return {Status::Success, {}, {}, alMac, tableText(list.get(), query.columns, {network, std::time(nullptr)})};
}

}  // namespace kv1905d
