// The plug-in's records inside the host's devices and interfaces, and accessors.
#pragma once

#include <cstddef>
#include <cstring>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Devices whose Wi-Fi neighbour tables are aged: five AL MACs, filled from the highest index down.
class RegisteredNeighbors {
  public:
    static constexpr size_t kCapacity = 5;

    // Adds an AL MAC; nothing happens when it is there already or no entry is free.
    void add(const uint8_t *alMac);
    void remove(size_t index) { std::memset(entries_[index], 0, sizeof entries_[index]); }
    void clear() { *this = RegisteredNeighbors(); }
    const uint8_t *at(size_t index) const { return entries_[index]; }

  private:
    uint8_t entries_[kCapacity][KV_MAC_LEN] = {};  // all zero: free
};

RegisteredNeighbors &registeredNeighbors();

void registerMAPNeighbor(const uint8_t *alMac);

void initDevice(KvDevVendorData *dev);
void updateDevice(KvDevVendorData *dev);

// Reloads the local files that changed since they were last loaded into dev.
void initDevConfig(KvDevVendorData *dev, bool isController);

// Fills sec from getSecurityConfig, here always type 0 without data. A former block of the record is not freed. On
// failure sec is unchanged.
int initSecurityConfig(SecurityConfig *sec);
int getSecurityConfig(SecurityConfig *sec);

// Returns 0: no network-control state of this device forbids an operation.
int kvNetCtrl_Checkstate(int code, uint32_t state);

void initInterface(KvIntfVendorData *intf, uint32_t mediaType);

// Capabilities of the local device towards its controller, by number.
enum { kCapabilityReboot = 0, kCapabilityInterfacePower = 1 };
int capabilityFromController(int which);

inline int getEnableRebootFromNbrCap() {
    return capabilityFromController(kCapabilityReboot);
}
inline int getEnableIntfPwrCtrlFromNbrCap() {
    return capabilityFromController(kCapabilityInterfacePower);
}

int checkAgentSpeaksProtocol(const uint8_t *alMac, uint8_t *isKovan);

}  // namespace kv
