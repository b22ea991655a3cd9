#include "ieee1905/vendor_message.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "ieee1905/topology_tlvs.h"
#include "kv1905/vendor_messages.h"
#include "result_names.h"
#include "support/terminal_text.h"

namespace kv1905d {
namespace {

template <typename... Values>
std::string formatted(const char *format, Values... values) {
    char text[64];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string counted(size_t count, const char *noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string quoted(ByteView bytes) {
    const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    return '"' + support::escaped(text, "\"\\") + '"';
}

// Reads a message and collects its description. Reading past the end yields zero and counts what was missing.
class Payload {
  public:
    explicit Payload(ByteView data) : reader_(data) {}

    ByteView take(size_t count) {
        const size_t present = std::min(count, reader_.remaining());
        missing_ += count - present;
        return reader_.bytes(present);
    }
    // Reads a number; receivers refuse one above the limit.
    unsigned number(size_t width, unsigned limit = 0xFFFF) {
        unsigned value = 0;
        for (const uint8_t byte : take(width))
            value = value << 8 | byte;
        if (value > limit) fail(formatted("%u is above the limit of %u", value, limit));
        return value;
    }
    MacAddress mac() {
        const ByteView bytes = take(6);
        return bytes.size() == 6 ? MacAddress::copyOf(bytes.data()) : MacAddress{};
    }
    size_t remaining() const { return reader_.remaining(); }

    void add(const std::string &word) { words_ += (words_.empty() ? "" : " ") + word; }
    void fail(const std::string &fault) {
        if (!fault_) fault_ = fault;
    }
    const std::string &words() const { return words_; }
    std::optional<std::string> fault() const {
        if (missing_ > 0) return counted(missing_, "byte") + " too short";
        return fault_;
    }
    bool isWhole() const { return missing_ == 0; }

  private:
    WireReader reader_;
    size_t missing_ = 0;
    std::string words_;
    std::optional<std::string> fault_;
};

// ---- Parts of a layout: each reads its bytes and describes them.

using Part = void (*)(Payload &);

std::string meaningOr(std::span<const Meaning> rows, unsigned code, const std::string &unknown) {
    const char *text = meaningOf(rows, code);
    return text == nullptr ? unknown : text;
}

void target(Payload &in) {
    in.add("for " + in.mac().text());
}

void station(Payload &in) {
    in.add("of " + in.mac().text());
}

template <size_t Size>
void skipped(Payload &in) {
    in.take(Size);
}

void result(Payload &in) {
    const unsigned code = in.number(1);
    in.add(std::to_string(code) + " (" + meaningOr(kResultMeanings, code, "unknown") + ")");
}

void attributes(Payload &in) {
    const unsigned count = in.number(1);
    in.add(counted(count, "attribute"));
    for (unsigned i = 0; i < count; ++i) {
        in.take(1);  // type
        in.take(in.number(2));
    }
}

template <size_t EntrySize>
void interfaces(Payload &in) {
    const unsigned count = in.number(1, 30);
    in.add(counted(count, "interface"));
    in.take(count * EntrySize);
}

void stations(Payload &in) {
    const unsigned count = in.number(1);
    in.add(counted(count, "station"));
    in.take(size_t{count} * 24);
}

void powerState(Payload &in) {
    const unsigned state = in.number(1);
    in.add(meaningOr(kPowerStates, state, formatted("power state %u", state)));
}

void firmware(Payload &in) {
    in.add(formatted("option %u", in.number(1)));
    in.take(in.number(2, 1 + 1023));  // topology option and URL
}

void ledOption(Payload &in) {
    in.add(in.number(1) == 0 ? "off" : "on");
}

template <size_t Width, unsigned Limit>
void writtenText(Payload &in) {
    in.add(quoted(in.take(in.number(Width, Limit))));
}

void password(Payload &in) {
    in.add("password of " + counted(in.number(2, 255), "byte"));
    in.take(256);  // scrambled
}

// Reads three digits and as many characters; a NUL ends the text.
void stationRecords(Payload &in) {
    const ByteView whole = in.take(in.number(2, 1300));
    Payload records(whole.first(static_cast<size_t>(std::find(whole.begin(), whole.end(), 0) - whole.begin())));
    size_t count = 0;
    for (; records.remaining() > 0; ++count) {
        const ByteView digits = records.take(3);
        const char *begin = reinterpret_cast<const char *>(digits.data()), *end = begin + digits.size();
        unsigned length = 0;
        const bool isNumber = std::from_chars(begin, end, length).ptr == end;
        records.take(length);
        if (!isNumber || length > 513 || !records.isWhole())
            return in.fail(formatted("record %zu does not fit", count + 1));
    }
    in.add(counted(count, "station"));
}

void measurement(Payload &in) {
    station(in);
    in.take(6);  // zero, two rates
    in.add(formatted("%d dBm", static_cast<int8_t>(in.number(1))));
    in.take(4);
}

// ---- Messages: a row per type.

struct Row {
    unsigned type;
    Admission admission;
    Part layout[3];
};

constexpr Row kVendorRows[] = {
    {VEND_MSG_TYPE_CONF_QUERY, Admission::Request, {target}},
    {VEND_MSG_TYPE_CONF_RESP, Admission::Configuration, {skipped<6>, attributes}},
    {VEND_MSG_TYPE_INTF_PWR_STATE_QUERY, Admission::Request, {target}},
    {VEND_MSG_TYPE_INTF_PWR_STATE_RESP, Admission::Free, {skipped<6>, interfaces<9>}},
    {VEND_MSG_TYPE_REBOOT_REQ, Admission::Command, {target}},
    {VEND_MSG_TYPE_REBOOT_RESP, Admission::Result, {result}},
    {VEND_MSG_TYPE_INTF_PWR_CTRL_REQ, Admission::Command, {target, interfaces<8>, powerState}},
    {VEND_MSG_TYPE_INTF_PWR_CTRL_RESP, Admission::Result, {interfaces<9>}},
    {VEND_MSG_TYPE_WIFI_STATE_REQ, Admission::Request, {target}},
    {VEND_MSG_TYPE_WIFI_STATE_RESP, Admission::Stations, {stations}},
    {VEND_MSG_TYPE_FW_CTRL_REQ, Admission::Command, {firmware}},
    {VEND_MSG_TYPE_FW_CTRL_RESP, Admission::Result, {result}},
    {VEND_MSG_TYPE_RESET_DEFAULT_REQ, Admission::Command, {target}},
    {VEND_MSG_TYPE_RESET_DEFAULT_RESP, Admission::Result, {result}},
    {VEND_MSG_TYPE_COMMAND_REQ, Admission::Command, {skipped<2>, writtenText<2, 2047>}},
    {VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_REQ, Admission::Command, {target}},
    {VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_RESP, Admission::Result, {result}},
    {VEND_MSG_TYPE_COMMAND_RESP, Admission::Result, {result}},
    {VEND_MSG_TYPE_LED_CTRL_REQ, Admission::Command, {target, ledOption}},
    {VEND_MSG_TYPE_LED_CTRL_MCAST, Admission::Setting, {target, ledOption}},
    {VEND_MSG_TYPE_LED_CTRL_RESP, Admission::Result, {result}},
    {VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, Admission::Stations, {skipped<6>, stationRecords}},
    {VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP, Admission::Setting, {skipped<6>, password}},
    {VEND_MSG_TYPE_SYNC_CTRL_PWD_REQ, Admission::Request, {target}},
    {VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_REQ, Admission::Request, {target}},
    {VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP, Admission::Setting, {skipped<6>, writtenText<1, 4>}},
};

constexpr Row kIntelRows[] = {
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_REQ, Admission::Request, {station}},
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_RESP, Admission::Free, {measurement}},
    {INTEL_MSG_TYPE_RSSI_MEASUREMENT_NOTIFY, Admission::Free, {measurement}},
};

// ---- Envelopes

struct Family {
    uint32_t oui;
    size_t beforeType, typeSize, afterType;  // bytes
    bool hasLength;                          // of the payload, in two bytes before it
    const char *unknown;
    const char *(*nameOf)(unsigned type);  // null for an unknown type
    std::span<const Row> rows;
};

constexpr Family kFamilies[] = {
    {KV_VENDOR_OUI, 8, 2, 0, true, "unknown type %u", kvVendorMessageName, kVendorRows},
    {KV_INTEL_OUI, 6, 1, 12, false, "unknown Intel type 0x%02x", kvIntelMessageName, kIntelRows},
};

VendorMessage read(const Family &family, ByteView body) {
    VendorMessage message;
    Payload envelope(body);
    envelope.take(family.beforeType);
    const unsigned type = envelope.number(family.typeSize);
    if (!envelope.isWhole()) return {.name = "message without a type", .fault = envelope.fault()};
    envelope.take(family.afterType);
    const size_t length = family.hasLength ? envelope.number(2) : envelope.remaining();
    const bool hasEnvelope = envelope.isWhole();
    Payload payload(envelope.take(length));
    message.subject = Payload(payload).mac();
    const char *name = family.nameOf(type);
    message.name = name != nullptr ? name : formatted(family.unknown, type);
    const auto row = std::find_if(family.rows.begin(), family.rows.end(), [&](const Row &r) { return r.type == type; });
    if (row == family.rows.end()) {
        payload.add(counted(payload.remaining(), "byte"));
        if (hasEnvelope) message.admission = Admission::Unknown;
    } else {
        if (hasEnvelope) message.admission = row->admission;
        message.isVendors = family.oui == KV_VENDOR_OUI;
        for (const Part part : row->layout) {
            if (part != nullptr) part(payload);
        }
    }
    message.words = payload.words();
    message.fault = envelope.isWhole() ? payload.fault() : envelope.fault();
    return message;
}

}  // namespace

VendorMessage readVendorMessage(ByteView value) {
    const std::optional<VendorSpecific> vendor = parseVendorSpecific(value);
    if (!vendor) return {.name = "message without an OUI", .words = counted(value.size(), "byte")};
    for (const Family &family : kFamilies) {
        if (family.oui == vendor->oui) return read(family, vendor->data);
    }
    return {.name = formatted("message of OUI %06x", vendor->oui),
            .isForeign = true,
            .words = counted(vendor->data.size(), "byte")};
}

}  // namespace kv1905d
