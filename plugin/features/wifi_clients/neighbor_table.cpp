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

// Finds reported stations in a table. The table is a list that the host reads, so it carries no index: one walk along
// it, as far as the last of the reported stations, notes where they are, and a merge costs one step per station, known
// or reported. A single station, and every one of a long report without memory, is searched by a walk of its own.
class TableIndex {
  public:
    TableIndex(WIFINeighborEntry *&table, const WIFINeighborEntry *reported) : table_(table), end_(&table) {
        allocate(reported);
        if (slots_ == nullptr) {
            return;
        }
        size_t missing = 0;
        for (; reported != nullptr; reported = reported->next) {
            Slot &slot = slotOf(reported->mac);
            missing += slot.mac == nullptr;
            slot.mac = reported->mac;
            filterWord(reported->mac) |= filterBit(reported->mac);
        }
        for (WIFINeighborEntry *known = table; known != nullptr && missing > 0; known = known->next) {
            end_ = &known->next;
            if ((filterWord(known->mac) & filterBit(known->mac)) == 0) {
                continue;
            }
            Slot &slot = slotOf(known->mac);
            if (slot.mac != nullptr && slot.known == nullptr) {
                slot.known = known;
                --missing;
            }
        }
    }

    // The table's entry of a reported station, or null.
    WIFINeighborEntry *find(const uint8_t *mac) {
        if (slots_ != nullptr) {
            return slotOf(mac).known;
        }
        for (end_ = &table_; *end_ != nullptr; end_ = &(*end_)->next) {
            if (sameMac((*end_)->mac, mac)) {
                return *end_;
            }
        }
        return nullptr;
    }

    // Appends the entry of the station that find missed last.
    void append(WIFINeighborEntry *entry) {
        *end_ = entry;
        end_ = &entry->next;
        if (slots_ != nullptr) {
            slotOf(entry->mac).known = entry;
        }
    }

  private:
    struct Slot {
        const uint8_t *mac;  // of a reported station; null: free
        WIFINeighborEntry *known;
    };

    static constexpr unsigned kSmallBits = 6;  // a message's worth of stations needs no heap

    void allocate(const WIFINeighborEntry *reported) {
        size_t count = 0;
        for (; reported != nullptr; reported = reported->next) {
            ++count;
        }
        if (count == 1) {  // a walk is all that it takes
            return;
        }
        while (count > capacity() / 2) {  // at least half of the slots stay free, so every probe ends soon
            ++bits_;
        }
        std::memset(filter_, 0, sizeof filter_);
        if (bits_ == kSmallBits) {
            std::memset(small_, 0, sizeof small_);
            slots_ = small_;
        } else {
            large_.reset(static_cast<Slot *>(std::calloc(capacity(), sizeof(Slot))));
            slots_ = large_.get();
        }
    }

    // A bit for each value of the last ten bits of a MAC: most stations of a long table are not in a report.
    uint64_t &filterWord(const uint8_t *mac) { return filter_[(mac[4] & 3) << 2 | mac[5] >> 6]; }
    static uint64_t filterBit(const uint8_t *mac) { return uint64_t{1} << (mac[5] & 63); }

    size_t capacity() const { return size_t{1} << bits_; }

    // The station's slot, or the free one where it would stand.
    Slot &slotOf(const uint8_t *mac) {
        uint64_t bits = 0;
        std::memcpy(&bits, mac, KV_MAC_LEN);
        size_t at = static_cast<size_t>(bits * 0x9E3779B97F4A7C15u >> (64 - bits_));
        while (slots_[at].mac != nullptr && !sameMac(slots_[at].mac, mac)) {
            at = (at + 1) & (capacity() - 1);
        }
        return slots_[at];
    }

    WIFINeighborEntry *&table_;
    WIFINeighborEntry **end_;  // the link to append at, once a search has missed
    unsigned bits_ = kSmallBits;
    uint64_t filter_[16];  // both set when there is an index
    Slot small_[size_t{1} << kSmallBits];
    Owned<Slot[]> large_;
    Slot *slots_ = nullptr;
};

// False when memory ran out. A full table takes nobody in.
bool addStation(KvDevVendorData &dev, TableIndex &index, const WIFINeighborEntry &reported, uint32_t now) {
    LOG_PLAIN(KV_LOG_DEBUG, "Not found, add WiFi neighbor data\n");
    if (dev.wifiNbrNum >= kMaxTableStations) {
        return true;
    }
    auto entry = allocateRecord<WIFINeighborEntry>();
    if (entry == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Allocate memory failed for WiFiNbr\n");
        return false;
    }
    std::memcpy(entry->mac, reported.mac, sizeof entry->mac);
    copyFigures(*entry, reported);
    entry->lastSeen = now;
    index.append(entry.release());
    ++dev.wifiNbrNum;
    return true;
}

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

}  // namespace

int kvUpdateWiFiNbr(KvDevVendorData *devData, const WIFINeighborList *list) {
    if (devData == nullptr || list == nullptr) {
        LOG_MSG(KV_LOG_WARNING, "invalid input when update WiFiNbr\n");
        return KV_RET_ERR;
    }
    const auto now = static_cast<uint32_t>(std::time(nullptr));
    if (devData->wifiNbrNum >= kMaxTableStations) {
        LOG_MSG(KV_LOG_WARNING, "WiFi neighbor table is full, %u stations\n", devData->wifiNbrNum);
        dropStaleStations(*devData, now);  // only five devices are registered for ageing
    }
    TableIndex index(devData->wifiNbrHead, list->head);
    for (const WIFINeighborEntry *reported = list->head; reported != nullptr; reported = reported->next) {
        const WIFINeighborEntry &r = *reported;
        LOG_PLAIN(KV_LOG_DEBUG,
                  "Neighbor Mac " KV_MAC
                  ", mediaType 0x%04x, Band 0x%x, Rate %d, RSSI %d, SNR %d, signalLevel %d, "
                  "Tx %u, Rx %u, tx_rate %d, rx_rate %d\n",
                  KV_MAC_BYTES(r.mac), r.mediaType, r.Band, r.Rate, r.RSSI, r.SNR, r.signalLevel, r.Tx, r.Rx, r.tx_rate,
                  r.rx_rate);
        if (WIFINeighborEntry *known = index.find(r.mac)) {
            LOG_PLAIN(KV_LOG_DEBUG, "Found, update WiFi neighbor data\n");
            copyFigures(*known, r);
            known->lastSeen = now;
        } else if (!addStation(*devData, index, r, now)) {
            return KV_RET_ERR;
        }
    }
    return KV_RET_OK;
}

int findReporter(const KvRecvVendTlv *source, uint8_t *alMac) {
    if (getalMacOfDevTableByIfMac(alMac, source->srcMac) != KV_RET_OK || isZeroMac(alMac)) {
        return KV_RET_ERR;
    }
    if (sameMac(alMac, getMAPAlMac())) {
        LOG_MSG(KV_LOG_WARNING, "dropped stations that " KV_MAC " reports in this device's own name\n",
                KV_MAC_BYTES(source->srcMac));
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

int mergeReport(const uint8_t *alMac, const WIFINeighborList *list) {
    if (!isInTopology(alMac)) {
        return KV_RET_ERR;
    }
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
        if (isZeroMac(alMac)) {
            continue;
        }
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
