// The mobility-domain identifier TLV, a vendor-specific TLV value:
//
//   0  3  OUI 02:4E:A7      3  1  0xC0      4  2  bytes that follow, big-endian      6  1  count
//   7     per BSS: BSSID (6), MDID (2, big-endian), enabled flag (1)
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Caches the last list that nvram filled in, and serves its BSSIDs while it is fresh.
class MdidCache {
  public:
    // Fills in the MDIDs up to the first unknown BSSID; true if all were known. A miss makes the cache stale.
    bool fill(KvMdidInterfaceList &list);
    void store(const KvMdidInterfaceList &list);
    void clear() { *this = MdidCache(); }

  private:
    const KvMdidInterface *find(const uint8_t *bssid) const;

    KvMdidInterfaceList list_ = {};
    bool mdidCacheStale_ = true;
};

MdidCache &mdidCache();

int insertMdidTlv(uint8_t *buffer, uint32_t *length, KvMdidInterfaceList *list);
int updateMdid(KvMdidInterfaceList *list);

}  // namespace kv
