#include "daemon/settings_guard.h"

#include <iterator>

namespace kv1905d {
namespace {

constexpr uint32_t kMakerOui = 0x024EA7;
constexpr size_t kSenderAndMarker = 8;  // bytes of the envelope between OUI and message type

struct VendorMessage {
    uint16_t type = 0;
    MacAddress subject;  // the AL MAC that most payloads begin with; all zero where there is none
};

// Nothing for foreign and for malformed values, which the plug-in refuses or which change nothing.
std::optional<VendorMessage> readMessage(ByteView value) {
    WireReader reader(value);
    const uint32_t high = reader.u8();
    const uint32_t oui = high << 16 | reader.u16();
    reader.bytes(kSenderAndMarker);
    VendorMessage message{reader.u16(), {}};
    reader.u16();  // payload length
    if (!reader.ok() || oui != kMakerOui) return std::nullopt;
    message.subject = reader.mac();
    return message;
}

struct Asking {
    const MacAddress &source;
    const MacAddress &subject;
    const std::optional<MacAddress> &controller;
    const Topology &topology;
    SettingsFrom from;
    RateLimit &questions;
    TimePoint now;
};

bool maySet(const Asking &asking) {
    return asking.from == SettingsFrom::Any || asking.source == asking.controller;
}

bool tellsOfAnother(const Asking &asking) {
    return asking.subject != asking.topology.local().alMac;
}

bool isWithinShare(const Asking &asking) {
    size_t stations = 0, reporters = 0;
    for (const auto &[alMac, device] : asking.topology.devices()) {
        if (device->local || device->vendor.data()->wifiNbrNum == 0) continue;
        stations += device->vendor.data()->wifiNbrNum;
        ++reporters;
    }
    if (stations < SettingsGuard::kMaxStations) return true;
    const Device *reporter = asking.topology.find(asking.source);
    return reporter != nullptr && reporter->vendor.data()->wifiNbrNum < SettingsGuard::kMaxStations / reporters;
}

bool isAffordable(const Asking &asking) {
    return asking.source == asking.controller || asking.questions.take(asking.now);
}

struct Check {
    bool (*admits)(const Asking &asking);
    const char *complaint;
};
constexpr Check kSetting{maySet, "it is not the controller"};
constexpr Check kConfiguration{tellsOfAnother, "nobody else knows this device's configuration"};
constexpr Check kStations{isWithinShare, "it has more than its share of all stations"};
constexpr Check kQuestion{isAffordable, "there are too many"};

struct Rule {
    uint16_t type;
    const char *name;
    const Check &check;
};

constexpr Rule kRules[] = {
    {0, "configuration query", kQuestion},
    {1, "configuration response", kConfiguration},
    {4, "reboot request", kSetting},
    {6, "interface power request", kSetting},
    {9, "Wi-Fi state response", kStations},
    {20, "firmware request", kSetting},
    {22, "reset request", kSetting},
    {25, "remote command", kSetting},
    {26, "partial reset request", kSetting},
    {33, "LED request", kSetting},
    {34, "LED multicast", kSetting},
    {36, "Wi-Fi client report", kStations},
    {69, "password", kSetting},
    {70, "password request", kQuestion},
    {77, "country", kSetting},
};

}  // namespace

bool SettingsGuard::admits(const VendorTlv &tlv, const std::optional<MacAddress> &controller, const Topology &topology,
                           TimePoint now) {
    const std::optional<VendorMessage> message = readMessage(tlv.value);
    if (!message || tlv.source == topology.local().alMac) return true;
    const Rule *rule =
        std::find_if(std::begin(kRules), std::end(kRules), [&](const Rule &row) { return row.type == message->type; });
    if (rule == std::end(kRules)) return true;
    if (rule->check.admits({tlv.source, message->subject, controller, topology, from_, questions_, now})) return true;
    ++refused_;
    refusals_.log(KV_LOG_WARNING, now, "%s: %s from %s refused: %s", tlv.interface.c_str(), rule->name,
                  tlv.source.text().c_str(), rule->check.complaint);
    return false;
}

}  // namespace kv1905d
