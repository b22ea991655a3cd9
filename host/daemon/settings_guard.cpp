#include "daemon/settings_guard.h"

namespace kv1905d {
namespace {

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
    Guarded guarded;
    bool (*admits)(const Asking &asking);
    const char *complaint;
};
constexpr Check kChecks[] = {
    {Guarded::Setting, maySet, "it is not the controller"},
    {Guarded::Configuration, tellsOfAnother, "nobody else knows this device's configuration"},
    {Guarded::Stations, isWithinShare, "it has more than its share of all stations"},
    {Guarded::Question, isAffordable, "there are too many"},
};

}  // namespace

bool SettingsGuard::admits(const VendorTlv &tlv, const VendorMessage &message,
                           const std::optional<MacAddress> &controller, const Topology &topology, TimePoint now) {
    if (tlv.source == topology.local().alMac) return true;
    for (const Check &check : kChecks) {
        if (check.guarded != message.guarded) continue;
        if (check.admits({tlv.source, message.subject, controller, topology, from_, questions_, now})) return true;
        ++refused_;
        refusals_.log(KV_LOG_WARNING, now, "%s: %s from %s refused: %s", tlv.interface.c_str(), message.name.c_str(),
                      tlv.source.text().c_str(), check.complaint);
        return false;
    }
    return true;
}

}  // namespace kv1905d
