#include "daemon/neighbourhood.h"

#include <algorithm>
#include <set>

namespace kv1905d {

Neighbourhood::Announced Neighbourhood::announce(size_t port, const MacAddress &alMac, const MacAddress &mac,
                                                 TimePoint now) {
    for (Link &link : links_) {
        if (link.port != port || link.alMac != alMac || link.mac != mac) continue;
        link.lastDiscovery = now;
        return Announced::Known;
    }
    if (links_.size() >= kMaxLinks) return Announced::TooMany;
    links_.push_back({port, alMac, mac, now});
    return Announced::New;
}

bool Neighbourhood::forgetSilent(TimePoint now) {
    return std::erase_if(links_, [&](const Link &link) { return now - link.lastDiscovery >= lifetime_; }) > 0;
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
        std::set<MacAddress> alMacs;  // of a device with two interfaces on this link, once
        for (const Link &link : links_) {
            if (link.port == port) alMacs.insert(link.alMac);
        }
        if (alMacs.empty()) continue;
        report.push_back({ports[port].mac, {}});
        for (const MacAddress &alMac : alMacs)
            report.back().neighbours.push_back({alMac, false});
    }
    return report;
}

TimePoint Neighbourhood::nextExpiry() const {
    TimePoint next = TimePoint::max();
    for (const Link &link : links_)
        next = std::min(next, link.lastDiscovery + lifetime_);
    return next;
}

}  // namespace kv1905d
