#include "daemon/settings_guard.h"

namespace kv1905d {

struct SettingsGuard::Request {
    const VendorTlv &tlv;
    const MacAddress &subject;
    const std::optional<MacAddress> &controller;
    const Topology &topology;
    TimePoint now;
};

struct SettingsGuard::Check {
    Admission admission;
    bool (SettingsGuard::*passes)(const Request &);
    const char *reason;
};

const SettingsGuard::Check SettingsGuard::kChecks[] = {
    {Admission::Setting, &SettingsGuard::maySet, "it is not the controller"},
    {Admission::Setting, &SettingsGuard::isAffordable, "there are too many"},
    {Admission::Command, &SettingsGuard::maySet, "it is not the controller"},
    {Admission::Command, &SettingsGuard::isAffordable, "there are too many"},
    {Admission::Request, &SettingsGuard::isAffordable, "there are too many"},
    {Admission::Configuration, &SettingsGuard::isOfAnother, "another device sent this device's configuration"},
    {Admission::Configuration, &SettingsGuard::isAffordable, "there are too many"},
    {Admission::Stations, &SettingsGuard::isWithinShare, "it has more than its share of all stations"},
    {Admission::Result, &SettingsGuard::isAwaited, "it has no command to answer"},
    {Admission::Unknown, &SettingsGuard::never, "the type has no rule"},
};

bool SettingsGuard::admits(const VendorTlv &tlv, const VendorMessage &message,
                           const std::optional<MacAddress> &controller, const Topology &topology, TimePoint now) {
    charged_ = nullptr;
    if (tlv.source == topology.local().alMac) return true;
    for (const Check &check : kChecks) {
        if (check.admission != message.admission) continue;
        if ((this->*check.passes)({tlv, message.subject, controller, topology, now})) continue;
        ++refused_;
        refusals_.log(KV_LOG_WARNING, now, "%s: %s from %s refused: %s", tlv.interface.c_str(), message.name.c_str(),
                      tlv.source.text().c_str(), check.reason);
        return false;
    }
    return true;
}

bool SettingsGuard::maySet(const Request &request) {
    return from_ == SettingsFrom::Any || request.tlv.source == request.controller;
}

bool SettingsGuard::isAffordable(const Request &request) {
    charged_ = request.tlv.source == request.controller ? &controllersTime_ : &othersTime_;
    return charged_->isOpen(request.now);
}

void SettingsGuard::charge(Duration used, TimePoint now) {
    if (charged_ != nullptr) charged_->charge(used, now);
}

bool SettingsGuard::isOfAnother(const Request &request) {
    return request.subject != request.topology.local().alMac;
}

bool SettingsGuard::isWithinShare(const Request &request) {
    size_t stations = 0, reporters = 0;
    for (const auto &[alMac, device] : request.topology.devices()) {
        if (device->local || device->vendor.data()->wifiNbrNum == 0) continue;
        stations += device->vendor.data()->wifiNbrNum;
        ++reporters;
    }
    if (stations < kMaxStations) return true;
    const Device *reporter = request.topology.find(request.tlv.source);
    return reporter != nullptr && reporter->vendor.data()->wifiNbrNum < kMaxStations / reporters;
}

void SettingsGuard::sent(const MacAddress &alMac, uint16_t msgId, const VendorMessage &message, TimePoint now) {
    if (message.admission != Admission::Command) return;
    if (commands_.size() >= kMaxCommands) commands_.pop_front();
    commands_.push_back({alMac, msgId, now});
}

bool SettingsGuard::isAwaited(const Request &request) {
    const auto command = std::find_if(commands_.begin(), commands_.end(), [&](const Command &each) {
        return each.alMac == request.tlv.source && each.msgId == request.tlv.msgId;
    });
    if (command == commands_.end()) return false;
    const bool inTime = request.now - command->sent < kResultWait;
    commands_.erase(command);
    return inTime;
}

}  // namespace kv1905d
