// The topology database: every device of the network by AL MAC, the local one included.
#pragma once

#include <kv1905/kvMAP1905.h>

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "ieee1905/clock.h"
#include "ieee1905/topology_tlvs.h"
#include "ieee1905/wifi_band.h"

namespace kv1905d {

enum class Ownership { Local, Remote };

/*
 * The plug-in's zero-filled block in a device record. Frees security.secData and, for a remote device, the entries of
 * wifiNbrHead; the local device's list stays the plug-in's. Its address does not change during its life.
 */
class VendorRecord {
  public:
    explicit VendorRecord(Ownership ownership) : ownership_(ownership) {}
    ~VendorRecord();
    VendorRecord(const VendorRecord &) = delete;
    VendorRecord &operator=(const VendorRecord &) = delete;

    KvDevVendorData *data() { return &data_; }
    const KvDevVendorData *data() const { return &data_; }

  private:
    Ownership ownership_;
    KvDevVendorData data_{};
};

struct DeviceInterface {
    LocalInterface facts;
    KvIntfVendorData vendor{};
};

struct Device {
    Device(const MacAddress &mac, Ownership ownership, TimePoint now)
        : alMac(mac), local(ownership == Ownership::Local), lastHeard(now), vendor(ownership) {}

    bool speaksProtocol() const { return vendor.data()->protoVersion[0] != '\0'; }

    const MacAddress alMac;
    const bool local;
    std::vector<DeviceInterface> interfaces;
    std::vector<Ieee1905Neighbours> neighbours;
    BssElements bss;  // of its last topology response
    TimePoint lastHeard;
    std::optional<size_t> port;  // where it was last received
    TimePoint nextKeepAlive{};
    bool sentVendorMessage = false;  // a valid one
    VendorRecord vendor;
};

// The main BSSs by device and band, from the last onboarding message of each.
using ApConfigurations = std::map<MacAddress, std::map<Band, KvBssInfo>>;

class Topology {
  public:
    static constexpr size_t kMaxDevices = 256;  // the local one included; more are refused

    Topology(const MacAddress &localAlMac, TimePoint now);

    Device &local() { return *devices_.at(localAlMac_); }
    const Device &local() const { return *devices_.at(localAlMac_); }
    size_t size() const { return devices_.size(); }
    // Counts devices that appeared, disappeared or reported other interfaces or neighbours, and changes of our own
    // neighbours.
    uint64_t changes() const { return changes_; }

    // Returns null for an unknown device.
    Device *find(const MacAddress &alMac);
    const Device *find(const MacAddress &alMac) const;
    // Returns the device with that AL MAC or with an interface of that MAC; null if there is none.
    Device *findByAnyMac(const MacAddress &mac);

    // Enter or refresh a device and what it reported. Return null if the database is full.
    Device *update(const TopologyReport &report, TimePoint now);
    // Replace a device's interfaces; the plug-in's block of an interface that stays is kept.
    void setInterfaces(Device &device, const std::vector<LocalInterface> &interfaces);
    void setNeighbours(Device &device, const std::vector<Ieee1905Neighbours> &neighbours);

    // Removes remote devices that were silent for `lifetime` and returns their AL MACs.
    std::vector<MacAddress> expire(Duration lifetime, TimePoint now);

    // Returns the devices in the order of their AL MACs.
    const std::map<MacAddress, std::unique_ptr<Device>> &devices() const { return devices_; }

    // Returns the links between the local device and each device: 0 for the local one, absent where no path is known.
    std::map<MacAddress, unsigned> hops() const;

  private:
    void remove(const MacAddress &alMac);
    void releaseInterfaces(const Device &device);

    MacAddress localAlMac_;
    uint64_t changes_ = 0;
    std::map<MacAddress, std::unique_ptr<Device>> devices_;
    std::map<MacAddress, MacAddress> ownerOfInterface_;
};

}  // namespace kv1905d
