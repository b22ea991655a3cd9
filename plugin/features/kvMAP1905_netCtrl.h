// Actions on this device that a controller requests.
#pragma once

#include <cstdint>

namespace kv {

// Return 0 if the action was started, KV_RET_ERR while a firmware image is being written.
int kvReboot();
int kvResetToDefault();
int kvPartialResetToDefault();

// Returns KV_RET_ERR: this device does not support firmware control. url: NUL-terminated, empty without one.
int kvFWCtrl(uint16_t FWOption, uint16_t FWTopoOption, const char *url);

// Returns version and date of a newer firmware in 128 characters; KV_RET_ERR on this device, which knows none.
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
