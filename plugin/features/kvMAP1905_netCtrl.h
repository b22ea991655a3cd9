// What this device does to itself on a controller's request.
#pragma once

#include <cstdint>

namespace kv {

// Refused with KV_RET_ERR while a firmware image is being written. 0 when the action was started.
int kvReboot();
int kvResetToDefault();
int kvPartialResetToDefault();

// Firmware control is not supported on this device: KV_RET_ERR. url: NUL-terminated, empty without one.
int kvFWCtrl(uint16_t FWOption, uint16_t FWTopoOption, const char *url);

// Version and date of a newer firmware, into 128 characters; KV_RET_ERR on this device, which knows none.
int kvGetNewFWversion(char *buffer);
int kvGetNewFWdate(char *buffer);

// Per-interface results of a power control request.
enum : uint8_t {
    kPowerApplied = 0,
    kPowerNoSuchInterface = 1,
    kPowerStateUnsupported = 2,
    kPowerByMediaUnavailable = 64,
};

// Requested states of an interface, as in IEEE 1905.1: 0 on, 1 power save, 2 off.
inline constexpr uint32_t kHighestPowerState = 2;

// Accepts or refuses a power state. No radio is switched on this device.
uint8_t setKvIntfPwrStateById(const uint8_t *interfaceMac, uint16_t mediaType, uint32_t pwrState);
uint8_t setKvIntfPwrStateByMedia(uint16_t mediaType, uint32_t pwrState);

}  // namespace kv
