#include "features/wifi_clients/local_stations.h"

#include <cstdio>
#include <cstring>

#include "frame/file.h"
#include "frame/host_table.h"
#include "frame/log.h"
#include "frame/mac_text.h"
#include "frame/memory.h"

uint32_t WIFINbrNum = 0;
WIFINeighborEntry *WIFINeighborHead = nullptr;

namespace kv {

namespace {

constexpr size_t kMacTextLen = 17;
constexpr size_t kMaxMacToken = 19;
constexpr size_t kMaxInterfaceToken = 17;
constexpr int kRateUnit = 1000;

LocalStations instance;

struct StationFile {
    const char *path;
    int band;
    const char *name;  // in log lines
    uint8_t bandCode;  // in WIFINeighborEntry::Band
};

constexpr StationFile kFiles[] = {
    {kStationFile24G, 2, "2.4G", 1},
    {kStationFile5G, 5, "5G", 6},
};

struct MediaTypeRow {
    uint16_t standard;  // the driver's bit
    uint16_t on24G;
    uint16_t on5G;
};

constexpr MediaTypeRow kMediaTypes[] = {
    {0x0001, 0x0100, 0x0100}, {0x0002, 0x0101, 0x0101}, {0x0004, 0x0102, 0x0102}, {0x0008, 0x0103, 0x0104},
    {0x0010, 0x0105, 0x0105}, {0x0020, 0x0108, 0x0108}, {0x0040, 0x0109, 0x0109},
};

// Lowest RSSI of each level.
constexpr struct {
    int rssi;
    uint16_t level;
} kSignalLevels[] = {{-50, 5}, {-70, 4}, {-80, 3}, {-85, 2}};

// Reads a line into values. Fields missing from a short line keep their values. Returns false, with values unchanged,
// for a line without a MAC or with a token that is too long.
bool scan(const char *line, StationLine &values) {
    StationLine scanned = values;
    const int count = std::sscanf(line, "%20s %d %d %d %*d %18s %u %u %d %d %hx", scanned.mac, &scanned.rate,
                                  &scanned.rssi, &scanned.snr, scanned.ifname, &scanned.tx, &scanned.rx,
                                  &scanned.txRate, &scanned.rxRate, &scanned.standard);
    if (count < 1 || std::strlen(scanned.mac) > kMaxMacToken || std::strlen(scanned.ifname) > kMaxInterfaceToken) {
        return false;
    }
    values = scanned;
    return true;
}

void takeLine(StationLine line, const StationFile &file, WIFINeighborEntry *scratch) {
    mac_from_cap_to_lower(line.mac, sizeof line.mac);
    line.rate /= kRateUnit;
    line.txRate /= kRateUnit;
    line.rxRate /= kRateUnit;
    LOG_DEVICE(KV_LOG_DEBUG,
               "[WIFI %s] NbrMac %s, Rate %d, RSSI %d, SNR %d, ifname %s, Tx %u, Rx %u, tx_rate %d, rx_rate %d, "
               "standard %04x\n",
               file.name, line.mac, line.rate, line.rssi, line.snr, line.ifname, line.tx, line.rx, line.txRate,
               line.rxRate, line.standard);
    kvWriteWIFINbrInfo(scratch, line.mac, kvGetMediaTypeByStandard(line.standard, file.band), line, file.band);
}

// Returns false if memory ran out. A file that cannot be opened holds no stations.
bool readStations(const StationFile &source) {
    const File file = openFile(source.path, "r");
    if (file == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Can't open file [%s]\n", source.path);
        return true;
    }
    StationLine values = {};  // as scanned; fields missing from a short line keep the previous line's values
    char line[512];
    while (readLine(file.get(), line)) {
        const auto scratch = allocateRecord<WIFINeighborEntry>();
        if (scratch == nullptr) return false;
        if (scan(line, values)) {
            takeLine(values, source, scratch.get());
        }
    }
    return true;
}

}  // namespace

bool LocalStations::append(const WIFINeighborEntry &station) {
    auto entry = allocateRecord<WIFINeighborEntry>();
    if (entry == nullptr) return false;
    std::memcpy(entry->mac, station.mac, sizeof entry->mac);
    copyStationFields(*entry, station);
    (tail_ == nullptr ? WIFINeighborHead : tail_->next) = entry.get();
    tail_ = entry.release();
    ++WIFINbrNum;
    return true;
}

void LocalStations::removeAll() {
    if (WIFINbrNum == 0 || WIFINeighborHead == nullptr) return;
    if (record_ != nullptr && record_->wifiNbrHead == WIFINeighborHead) {
        shown_ = WIFINeighborHead;  // freed after the host got the next one
    } else {
        FreeLinked()(WIFINeighborHead);
    }
    WIFINeighborHead = nullptr;
    WIFINbrNum = 0;
    tail_ = nullptr;
}

void LocalStations::rebuild() {
    removeAll();
    for (const StationFile &file : kFiles) {
        if (!readStations(file)) return;
    }
    publish();
}

void LocalStations::publish() {
    if (record_ == nullptr) {
        record_ = wifiNeighborData(nullptr);
    }
    if (record_ != nullptr) {
        record_->wifiNbrHead = WIFINeighborHead;
    }
    FreeLinked()(shown_);
    shown_ = nullptr;
}

void LocalStations::clear() {
    record_ = nullptr;
    removeAll();
    FreeLinked()(shown_);
    shown_ = nullptr;
}

LocalStations &localStations() {
    return instance;
}

int runNetCtrl() {
    kvUpdateWIFINeighborList();
    return 0;
}

void kvUpdateWIFINeighborList() {
    instance.rebuild();
}

int kvRemoveWIFINeighborList() {
    instance.removeAll();
    return 1;
}

int kvAddWIFINeighbor(const WIFINeighborEntry *entry) {
    return instance.append(*entry) ? 1 : 0;
}

void kvWriteWIFINbrInfo(WIFINeighborEntry *scratch, const char *macText, uint16_t mediaType, const StationLine &line,
                        int band) {
    if (scratch == nullptr || macText == nullptr) {
        LOG_DEVICE(KV_LOG_WARNING, "invalid input when write WiFi Nbr info\n");
        return;
    }
    if (std::strlen(macText) != kMacTextLen || !parseMacText(macText, kMacTextLen, scratch->mac)) {
        LOG_PLAIN(KV_LOG_WARNING, "WiFi MAC formet error!\n");
        return;
    }
    if (CheckingNullMAC(scratch->mac)) return;
    LOG_DEVICE(KV_LOG_DEBUG, "Write WiFi Nbr " KV_MAC "\n", KV_MAC_BYTES(scratch->mac));
    scratch->mediaType = mediaType;
    scratch->Band = kFiles[band == kFiles[0].band ? 0 : 1].bandCode;
    scratch->Rate = static_cast<uint16_t>(line.rate);
    scratch->RSSI = static_cast<int16_t>(line.rssi);
    scratch->SNR = static_cast<int16_t>(line.snr);
    scratch->signalLevel = signalLevelOf(scratch->RSSI);
    scratch->Tx = line.tx;
    scratch->Rx = line.rx;
    scratch->tx_rate = static_cast<uint16_t>(line.txRate);
    scratch->rx_rate = static_cast<uint16_t>(line.rxRate);
    kvAddWIFINeighbor(scratch);
}

void mac_from_cap_to_lower(char *text, size_t size) {
    uint8_t mac[KV_MAC_LEN];
    if (parseMacText(text, std::strlen(text), mac)) {
        std::snprintf(text, size, "%02hhx:%02hhx:%02hhx:%02hhx:%02hhx:%02hhx", KV_MAC_BYTES(mac));
    }
}

bool CheckingNullMAC(const uint8_t *mac) {
    return mac == nullptr || isZeroMac(mac);
}

uint16_t kvGetMediaTypeByStandard(uint16_t standard, int band) {
    for (const MediaTypeRow &row : kMediaTypes) {
        if (row.standard == standard) return band == kFiles[0].band ? row.on24G : row.on5G;
    }
    return 0;
}

uint16_t signalLevelOf(int rssi) {
    if (rssi == 0) return 0;
    for (const auto &[lowest, level] : kSignalLevels) {
        if (rssi >= lowest) return level;
    }
    return 1;
}

int kvGetWIFIConfig(WIFINeighborList *list) {
    LOG_DEVICE(KV_LOG_INFO, "WiFi NBR device count = %d\n", static_cast<int>(WIFINbrNum));
    list->count = WIFINbrNum;
    list->head = WIFINeighborHead;
    return KV_RET_OK;
}

int kvGetWIFIStaData(const uint8_t *mac, WIFINeighborEntry *out) {
    const auto view = allocateRecord<WIFINeighborList>();
    if (view == nullptr) return KV_RET_ERR;
    kvGetWIFIConfig(view.get());
    if (view->count == 0) return KV_RET_ERR;
    for (const WIFINeighborEntry *station = view->head; station != nullptr; station = station->next) {
        if (sameMac(station->mac, mac)) {
            copyStationFields(*out, *station);
            return KV_RET_OK;
        }
    }
    return 1;
}

int kvGetWIFIConfdata(WIFINeighborList *list) {
    *list = {};
    const auto view = allocateRecord<WIFINeighborList>();
    if (view == nullptr) return KV_RET_OK;
    kvGetWIFIConfig(view.get());
    WIFINeighborEntry **end = &list->head;
    for (const WIFINeighborEntry *station = view->head; station != nullptr; station = station->next) {
        LOG_PLAIN(KV_LOG_DEBUG, "Neighbor MAC " KV_MAC "\n", KV_MAC_BYTES(station->mac));
        uint8_t owner[KV_MAC_LEN] = {};
        const bool isOwned = getalMacOfDevTableByIfMac(owner, station->mac) == KV_RET_OK && !isZeroMac(owner);
        auto copy = allocateRecord<WIFINeighborEntry>();
        if (copy == nullptr) return KV_RET_ERR;
        std::memcpy(copy->mac, isOwned ? owner : station->mac, sizeof copy->mac);
        copyStationFields(*copy, *station);
        *end = copy.release();
        end = &(*end)->next;
    }
    list->count = view->count;
    return KV_RET_OK;
}

}  // namespace kv
