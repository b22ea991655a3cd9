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

// Allocated by the first addition.
extern FWalmacHead *FWalmacDataHead;

// status: FW_STATE_*; only 4 and 5 are listed. Returns KV_RET_ERR without memory, and for another status, a duplicate
// or a missing AL MAC. In the latter cases the file is written without waiting, because every configuration response
// makes this call.
int addKvFWupgradealmac(const uint8_t *alMac, int32_t status);
// Returns KV_RET_ERR if it is not listed.
int rmKvFWupgradealmac(const uint8_t *alMac);
FWalmacEntry *findFWupgradealmac(const uint8_t *alMac);

// Mirrors the list after waiting: seconds. An empty list removes the file.
void writeKvFWupgradeFile(unsigned wait = 1);

// Empties the list; the file stays.
void clearFWupgradeList();

}  // namespace kv
