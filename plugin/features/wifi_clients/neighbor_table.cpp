#include "features/wifi_clients/neighbor_table.h"

#include <cstring>
#include <ctime>

#include "features/wifi_clients/station_list.h"
#include "frame/host_table.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/vendor_data.h"

namespace kv {

namespace {

constexpr uint32_t kMaxAge = 600;  // seconds

void dropStaleStations(KvDevVendorData &dev, uint32_t now) {
    for (WIFINeighborEntry **link = &dev.wifiNbrHead; *link != nullptr;) {
        WIFINeighborEntry *entry = *link;
        if (now - entry->lastSeen <= kMaxAge) {
            link = &entry->next;
            continue;
        }
        *link = entry->next;
        std::free(entry);
        dev.wifiNbrNum -= dev.wifiNbrNum > 0;
    }
}

// Merges one report into a table. Reports repeat the order of the table, so that each search begins after the station
// that was found last: a known station costs one step, a new one a search of the table.
class Merge {
  public:
    Merge(KvDevVendorData &dev, uint32_t now) : dev_(dev), now_(now), next_(&dev.wifiNbrHead), end_(next_) {}

    // Returns false if memory ran out.
    bool add(const WIFINeighborEntry &reported) {
        if (WIFINeighborEntry *known = find(reported.mac)) {
            LOG_PLAIN(KV_LOG_DEBUG, "Found, update WiFi neighbor data\n");
            copyStationFields(*known, reported);
            known->lastSeen = now_;
            return true;
        }
        return isFull() || append(reported);
    }

  private:
    // Returns the table's entry, or null: end_ is then the link to append at.
    WIFINeighborEntry *find(const uint8_t *mac) {
        for (end_ = next_; *end_ != nullptr; end_ = &(*end_)->next) {
            if (sameMac((*end_)->mac, mac)) {
                next_ = &(*end_)->next;
                return *end_;
            }
        }
        for (WIFINeighborEntry **link = &dev_.wifiNbrHead; link != next_; link = &(*link)->next) {
            if (sameMac((*link)->mac, mac)) {
                next_ = &(*link)->next;
                return *link;
            }
        }
        return nullptr;
    }

    // Ages a full table once per report: only five devices are registered for ageing.
    bool isFull() {
        if (dev_.wifiNbrNum < kMaxTableStations || isAged_) return dev_.wifiNbrNum >= kMaxTableStations;
        LOG_MSG(KV_LOG_WARNING, "WiFi neighbor table is full, %u stations\n", dev_.wifiNbrNum);
        dropStaleStations(dev_, now_);
        isAged_ = true;
        for (end_ = &dev_.wifiNbrHead; *end_ != nullptr;) {
            end_ = &(*end_)->next;
        }
        next_ = end_;
        return dev_.wifiNbrNum >= kMaxTableStations;
    }

    bool append(const WIFINeighborEntry &reported) {
        LOG_PLAIN(KV_LOG_DEBUG, "Not found, add WiFi neighbor data\n");
        auto entry = allocateRecord<WIFINeighborEntry>();
        if (entry == nullptr) {
            LOG_PLAIN(KV_LOG_ERROR, "Allocate memory failed for WiFiNbr\n");
            return false;
        }
        std::memcpy(entry->mac, reported.mac, sizeof entry->mac);
        copyStationFields(*entry, reported);
        entry->lastSeen = now_;
        next_ = &entry->next;
        *end_ = entry.release();
        ++dev_.wifiNbrNum;
        return true;
    }

    KvDevVendorData &dev_;
    const uint32_t now_;
    WIFINeighborEntry **next_;  // where the next search begins
    WIFINeighborEntry **end_;   // the list's end, once a search has missed
    bool isAged_ = false;
};

}  // namespace

int kvUpdateWiFiNbr(KvDevVendorData *devData, const WIFINeighborList *list) {
    if (devData == nullptr || list == nullptr) {
        LOG_MSG(KV_LOG_WARNING, "invalid input when update WiFiNbr\n");
        return KV_RET_ERR;
    }
    Merge merge(*devData, static_cast<uint32_t>(std::time(nullptr)));
    for (const WIFINeighborEntry *reported = list->head; reported != nullptr; reported = reported->next) {
        const WIFINeighborEntry &r = *reported;
        LOG_PLAIN(KV_LOG_DEBUG,
                  "Neighbor Mac " KV_MAC
                  ", mediaType 0x%04x, Band 0x%x, Rate %d, RSSI %d, SNR %d, signalLevel %d, "
                  "Tx %u, Rx %u, tx_rate %d, rx_rate %d\n",
                  KV_MAC_BYTES(r.mac), r.mediaType, r.Band, r.Rate, r.RSSI, r.SNR, r.signalLevel, r.Tx, r.Rx, r.tx_rate,
                  r.rx_rate);
        if (!merge.add(r)) return KV_RET_ERR;
    }
    return KV_RET_OK;
}

int findReporter(const KvRecvVendTlv *source, uint8_t *alMac) {
    if (getalMacOfDevTableByIfMac(alMac, source->srcMac) != KV_RET_OK) return KV_RET_ERR;
    if (sameMac(alMac, getMAPAlMac())) {
        LOG_MSG(KV_LOG_WARNING, "dropped stations that " KV_MAC " reports in this device's own name\n",
                KV_MAC_BYTES(source->srcMac));
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

int mergeReport(const uint8_t *alMac, const WIFINeighborList *list) {
    if (!isInTopology(alMac)) return KV_RET_ERR;
    KvDevVendorData *dev = wifiNeighborData(alMac);
    if (dev != nullptr) {
        registerMAPNeighbor(alMac);
    }
    kvUpdateWiFiNbr(dev, list);
    writeJsonDataModel();
    return KV_RET_OK;
}

int checkWIFIClientInfo() {
    const auto now = static_cast<uint32_t>(std::time(nullptr));
    for (size_t index = 0; index < RegisteredNeighbors::kCapacity; ++index) {
        const uint8_t *alMac = registeredNeighbors().at(index);
        if (isZeroMac(alMac)) continue;
        if (KvDevVendorData *dev = wifiNeighborData(alMac)) {
            dropStaleStations(*dev, now);
        } else {
            LOG_DEVICE(KV_LOG_WARNING, "get " KV_MAC " info failed\n", KV_MAC_BYTES(alMac));
            registeredNeighbors().remove(index);
        }
    }
    return 0;
}

}  // namespace kv
