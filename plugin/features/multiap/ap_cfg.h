// The AP-configuration extension of Multi-AP onboarding: Wi-Fi Simple Configuration attribute 0x1049 (Vendor Extension)
// with vendor ID 0A 61 C4 and sub-elements of ID (1), length (1), value:
//
//   1  1  BandIndex      2  1  Attribute      3  2  MDID, big-endian      4  2  TCI, big-endian      7  1  ExtAttribute
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// The setter that the host finds in slot 6 of the callback table. Returns 0.
int setApConfiguration(void *argument);

// Writes the attribute; returns its 24 bytes.
int fillApConfiguration(uint8_t *attribute, const KvBssInfo *bss);

// Parse from the vendor ID on; see kvMAP1905_ApCfg_parse and _check_len. Return 0 or -1.
int parseInOrder(const uint8_t *data, KvBssInfo *bss);
int parseWithLength(const uint8_t *data, uint32_t len, KvBssInfo *bss);

// Sets ExtAttribute from nvram, for the BSS whose BandIndex is the third byte; unchanged without a setting.
int initParameters(const uint8_t *subElements, KvBssInfo *bss);

void logBssInfo(const KvBssInfo *bss);

// The radio of the main BSS that was looked up last: a virtual BSS belongs to it.
class RememberedRadio {
  public:
    int indexFor(uint8_t bandIndex);
    void clear() { *this = RememberedRadio(); }

  private:
    int index_ = 0;
};

RememberedRadio &rememberedRadio();

}  // namespace kv
