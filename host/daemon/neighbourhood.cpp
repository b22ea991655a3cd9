#include "daemon/neighbourhood.h"

#include <algorithm>
#include <map>
#include <utility>

namespace kv1905d {

Neighbourhood::Link *Neighbourhood::find(size_t port, const MacAddress &alMac, const MacAddress &mac) {
    const auto found = std::find_if(links_.begin(), links_.end(), [&](const Link &link) {
        return link.port == port && link.alMac == alMac && link.mac == mac;
    });
    return found == links_.end() ? nullptr : &*found;
}

Neighbourhood::Announced Neighbourhood::announce(size_t port, const MacAddress &alMac, const MacAddress &mac,
                                                 TimePoint now) {
    if (Link *known = find(port, alMac, mac)) {
        known->lastDiscovery = now;
        return Announced::Known;
    }
    if (links_.size() >= kMaxLinks) return Announced::TooMany;
    links_.push_back({port, alMac, mac, now, now});
    return Announced::New;
}

bool Neighbourhood::announceDirect(size_t port, const MacAddress &alMac, const MacAddress &mac, TimePoint now) {
    Link *link = find(port, alMac, mac);
    if (link == nullptr) return false;
    link->lastDirect = now;
    return std::exchange(link->viaBridge, false);
}

bool Neighbourhood::age(TimePoint now) {
    bool changed = std::erase_if(links_, [&](const Link &link) { return now - link.lastDiscovery >= lifetime_; }) > 0;
    for (Link &link : links_)
        changed |= now - link.lastDirect >= bridgedAfter_ && !std::exchange(link.viaBridge, true);
    return changed;
}

bool Neighbourhood::forgetPort(size_t port) {
    return std::erase_if(links_, [&](const Link &link) { return link.port == port; }) > 0;
}

std::vector<size_t> Neighbourhood::portsOf(const MacAddress &alMac) const {
    std::vector<size_t> ports;
    for (const Link &link : links_) {
        if (link.alMac == alMac) ports.push_back(link.port);
    }
    return ports;
}

std::vector<Ieee1905Neighbours> Neighbourhood::report(const std::vector<Port> &ports) const {
    std::vector<Ieee1905Neighbours> report;
    for (size_t port = 0; port < ports.size(); ++port) {
        std::map<MacAddress, bool> viaBridge;  // a device with two interfaces on this link is listed once
        for (const Link &link : links_) {
            if (link.port == port) viaBridge.try_emplace(link.alMac, true).first->second &= link.viaBridge;
        }
        if (viaBridge.empty()) continue;
        report.push_back({ports[port].mac, {}});
        for (const auto &[alMac, isBridged] : viaBridge)
            report.back().neighbours.push_back({alMac, isBridged});
    }
    return report;
}

TimePoint Neighbourhood::nextExpiry() const {
    TimePoint next = TimePoint::max();
    for (const Link &link : links_) {
        next = std::min(next, link.lastDiscovery + lifetime_);
        if (!link.viaBridge) next = std::min(next, link.lastDirect + bridgedAfter_);
    }
    return next;
}

}  // namespace kv1905d
