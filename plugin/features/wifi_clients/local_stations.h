// The stations that are associated with this device's own access points, read from the Wi-Fi driver's station files.
#pragma once

#include <cstddef>
#include <cstdint>

#include "features/wifi_clients/station_list.h"
#include "kv1905/kvMAP1905.h"

namespace kv {

inline constexpr char kStationFile24G[] = "/tmp/assoc_list.24g";
inline constexpr char kStationFile5G[] = "/tmp/assoc_list.5g";

// Owns the list that WIFINbrNum and WIFINeighborHead export.
class LocalStations {
  public:
    // Appends a copy of station; false when memory runs out.
    bool append(const WIFINeighborEntry &station);
    void removeAll();
    // Replaces the list by the stations of both files and publishes it to the host. Without memory for a line it stops
    // at once; the host then keeps the list before.
    void rebuild();
    void clear();

  private:
    void publish();

    WIFINeighborEntry *tail_ = nullptr;   // null when the list is empty
    KvDevVendorData *record_ = nullptr;   // the local device's; looked up once, valid permanently
    WIFINeighborEntry *shown_ = nullptr;  // the list that the host reads, if it is no longer the current one
};

LocalStations &localStations();

// Every 10 seconds. Returns 0.
int runNetCtrl();

void kvUpdateWIFINeighborList();
int kvRemoveWIFINeighborList();                         // 1
int kvAddWIFINeighbor(const WIFINeighborEntry *entry);  // 1, 0 when memory runs out

// One line of a station file, rates in kbit/s.
struct StationLine {
    char mac[21];  // one character more than a token may have, to detect a longer one
    int rate;
    int rssi;
    int snr;
    char ifname[19];  // likewise
    unsigned tx;
    unsigned rx;
    int txRate;
    int rxRate;
    unsigned short standard;
};

// Checks the line's MAC and appends the station to the local list; scratch is filled. band: 2 or 5.
void kvWriteWIFINbrInfo(WIFINeighborEntry *scratch, const char *macText, uint16_t mediaType, const StationLine &line,
                        int band);

// Rewrites a MAC text in place as six two-digit lower-case bytes; anything else is unchanged. size: bytes
// of text, at least 18.
void mac_from_cap_to_lower(char *text, size_t size);

bool CheckingNullMAC(const uint8_t *mac);

// IEEE 1905.1 media type; 0 for an unknown standard. band: 2 or 5.
uint16_t kvGetMediaTypeByStandard(uint16_t standard, int band);

// 0 to 5.
uint16_t signalLevelOf(int rssi);

// A view of the local list, no copy. Returns 0.
int kvGetWIFIConfig(WIFINeighborList *list);

// Figures of one station of the local list; out's mac and next stay. 0, 1 when it is not there, 16 when the list is
// empty or memory runs out.
int kvGetWIFIStaData(const uint8_t *mac, WIFINeighborEntry *out);

// A copy of the local list, which the caller owns. Stations that are interfaces of known devices carry the device's AL
// MAC. 0, with an empty list when the view of the local list cannot be allocated; 16 without memory for an entry: the
// entries copied so far then hang from list, whose count stays 0.
int kvGetWIFIConfdata(WIFINeighborList *list);

}  // namespace kv
