// The agents that reported a firmware upgrade in progress or finished, mirrored in a file.
//
// A write of entries waits a second first, so a change of the list blocks the caller for up to two.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

inline constexpr char kFirmwareListPath[] = "/tmp/kv1905_FWupgrade";

struct FWalmacEntry {
    FWalmacEntry *previous;
    FWalmacEntry *next;
    uint8_t alMac[KV_MAC_LEN];
};

struct FWalmacHead {
    uint16_t count;
    FWalmacEntry *first;  // the oldest
};

// Exists from the first addition on.
extern FWalmacHead *FWalmacDataHead;

// status: FW_STATE_*; only 4 and 5 are listed. KV_RET_ERR for others, for a duplicate or without an AL MAC: the file
// is then written without waiting, because every configuration response makes this call. KV_RET_ERR without memory, too.
int addKvFWupgradealmac(const uint8_t *alMac, int32_t status);
// KV_RET_ERR when it is not listed.
int rmKvFWupgradealmac(const uint8_t *alMac);
FWalmacEntry *findFWupgradealmac(const uint8_t *alMac);

// Mirrors the list after waiting: seconds. An empty list removes the file.
void writeKvFWupgradeFile(unsigned wait = 1);

// Empties the list as at start; the file stays.
void clearFWupgradeList();

}  // namespace kv
