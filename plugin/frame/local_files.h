// Data from the device's own files and tools: the configuration file, the version file, the current
// channels and the bridge's address. All of it is read, never written; shell commands block the host's thread.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Written by other components of the device: one "key=value" per line.
inline constexpr char kDeviceConfigPath[] = "/tmp/.kv1905_conf";
inline constexpr char kVersionPath[] = "/etc/kv1905/kv1905_Version";

inline constexpr size_t kIpTextLen = 128;

// Loads the configuration file into the local record and the SSID and BSSID globals. Empties the firmware version and
// the model name first. Returns KV_RET_ERR if the file cannot be opened.
int readDevConfFile(KvDevVendorData *dev);

// Does the same on the operator's request, but changes only what the file contains.
int updateDeviceConfig(KvDevVendorData *dev);

// Loads the version file; without one, "1.0" and five times "0". Returns KV_RET_ERR if the file cannot be opened.
int readDevVersionFile(KvDevVendorData *dev);

// Refreshes the three channel fields from wl and requests a JSON write when one changed. Returns 0.
int getDeviceChannel(KvDevVendorData *dev);

// Runs getDeviceChannel on the local record, periodically. Returns its result, or 0 without a record.
int checkWIFIChannelInfo();

// Reads the current channel of one Wi-Fi interface; channelOut (16 characters) is unchanged if wl prints nothing.
void readWifiChannel(const char *ifname, char *channelOut);

// Writes the IPv4 address of br0 as text into ipOut (kIpTextLen characters). Returns KV_RET_ERR with ipOut zeroed on
// failure.
int getDeviceIP(char *ipOut);

// Returns the power state of the local interfaces of an IEEE 1905.1 media type: 0 on, 2 off, 255 without a
// configuration file.
uint32_t getIntfPwrSt(uint32_t mediaType);

}  // namespace kv
