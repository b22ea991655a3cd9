#include "daemon/topology.h"

#include <algorithm>
#include <cstdlib>
#include <deque>

#include "support/log.h"

namespace kv1905d {

VendorRecord::~VendorRecord() {
    std::free(data_.security.secData);
    if (ownership_ == Ownership::Local) return;
    for (WIFINeighborEntry *entry = data_.wifiNbrHead; entry != nullptr;) {
        WIFINeighborEntry *next = entry->next;
        std::free(entry);
        entry = next;
    }
}

Topology::Topology(const MacAddress &localAlMac, TimePoint now) : localAlMac_(localAlMac) {
    devices_.emplace(localAlMac, std::make_unique<Device>(localAlMac, Ownership::Local, now));
}

Device *Topology::find(const MacAddress &alMac) {
    const auto at = devices_.find(alMac);
    return at == devices_.end() ? nullptr : at->second.get();
}

const Device *Topology::find(const MacAddress &alMac) const {
    const auto at = devices_.find(alMac);
    return at == devices_.end() ? nullptr : at->second.get();
}

Device *Topology::findByAnyMac(const MacAddress &mac) {
    if (Device *device = find(mac)) return device;
    const auto owner = ownerOfInterface_.find(mac);
    return owner == ownerOfInterface_.end() ? nullptr : find(owner->second);
}

Device *Topology::update(const TopologyReport &report, TimePoint now) {
    const MacAddress &alMac = report.device.alMac;
    Device *device = find(alMac);
    if (device == nullptr) {
        if (devices_.size() >= kMaxDevices) return nullptr;
        device = devices_.emplace(alMac, std::make_unique<Device>(alMac, Ownership::Remote, now)).first->second.get();
        ++changes_;
        KV_HOST_LOG(KV_LOG_NOTICE, "device %s appeared", alMac.text().c_str());
    }
    device->lastHeard = now;
    setInterfaces(*device, report.device.interfaces);
    setNeighbours(*device, report.neighbours);
    device->bss = report.bss;
    return device;
}

void Topology::setInterfaces(Device &device, const std::vector<LocalInterface> &interfaces) {
    std::vector<DeviceInterface> updated;
    for (const LocalInterface &facts : interfaces) {
        DeviceInterface interface {
            facts, {}
        };
        for (const DeviceInterface &known : device.interfaces) {
            if (known.facts.mac == facts.mac) interface.vendor = known.vendor;
        }
        updated.push_back(std::move(interface));
    }
    releaseInterfaces(device);
    changes_ += !std::equal(updated.begin(), updated.end(), device.interfaces.begin(), device.interfaces.end(),
                            [](const DeviceInterface &a, const DeviceInterface &b) { return a.facts == b.facts; });
    device.interfaces = std::move(updated);
    // The first report wins: a device cannot claim an interface that another one reported.
    for (const DeviceInterface &interface : device.interfaces) {
        ownerOfInterface_.try_emplace(interface.facts.mac, device.alMac);
    }
}

void Topology::setNeighbours(Device &device, const std::vector<Ieee1905Neighbours> &neighbours) {
    changes_ += device.neighbours != neighbours;
    device.neighbours = neighbours;
}

std::vector<MacAddress> Topology::expire(Duration lifetime, TimePoint now) {
    std::vector<MacAddress> removed;
    for (const auto &[alMac, device] : devices_) {
        if (!device->local && now - device->lastHeard >= lifetime) removed.push_back(alMac);
    }
    for (const MacAddress &alMac : removed) {
        KV_HOST_LOG(KV_LOG_NOTICE, "device %s removed: silent for too long", alMac.text().c_str());
        remove(alMac);
    }
    return removed;
}

void Topology::remove(const MacAddress &alMac) {
    releaseInterfaces(*devices_.at(alMac));
    devices_.erase(alMac);
    ++changes_;
}

void Topology::releaseInterfaces(const Device &device) {
    for (const DeviceInterface &interface : device.interfaces) {
        const auto owner = ownerOfInterface_.find(interface.facts.mac);
        if (owner != ownerOfInterface_.end() && owner->second == device.alMac) ownerOfInterface_.erase(owner);
    }
}

std::map<MacAddress, unsigned> Topology::hops() const {
    std::map<MacAddress, unsigned> distance{{localAlMac_, 0}};
    std::deque<MacAddress> queue{localAlMac_};
    while (!queue.empty()) {
        const MacAddress at = queue.front();
        queue.pop_front();
        const Device *device = find(at);
        if (device == nullptr) continue;
        for (const Ieee1905Neighbours &link : device->neighbours) {
            for (const Neighbour &neighbour : link.neighbours) {
                if (distance.try_emplace(neighbour.alMac, distance[at] + 1).second) queue.push_back(neighbour.alMac);
            }
        }
    }
    return distance;
}

}  // namespace kv1905d
