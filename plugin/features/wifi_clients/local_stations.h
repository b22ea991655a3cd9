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
    // at once; the host then keeps the previous list.
    void rebuild();
    void clear();

  private:
    void publish();

    WIFINeighborEntry *tail_ = nullptr;   // null when the list is empty
    KvDevVendorData *record_ = nullptr;   // the local device's; looked up once, valid permanently
    WIFINeighborEntry *shown_ = nullptr;  // the list that the host reads, if it is no longer the current one
};

LocalStations &localStations();

// Refreshes the list; called every 10 seconds. Returns 0.
int runNetCtrl();

void kvUpdateWIFINeighborList();
int kvRemoveWIFINeighborList();                         // returns 1
int kvAddWIFINeighbor(const WIFINeighborEntry *entry);  // returns 1, or 0 if memory runs out

// A line of a station file, rates in kbit/s.
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

// Returns the IEEE 1905.1 media type; 0 for an unknown standard. band: 2 or 5.
uint16_t kvGetMediaTypeByStandard(uint16_t standard, int band);

// Returns 0 to 5.
uint16_t signalLevelOf(int rssi);

// Returns a view of the local list. The result is 0.
int kvGetWIFIConfig(WIFINeighborList *list);

// Copies the values of one station of the local list, except out's mac and next. Returns 0; 1 for an unknown station;
// 16 if the list is empty or memory runs out.
int kvGetWIFIStaData(const uint8_t *mac, WIFINeighborEntry *out);

// Copies the local list; the caller owns the copy. Stations that are interfaces of known devices carry the device's AL
// MAC. Returns 0, with an empty list if the view of the local list cannot be allocated; 16 without memory for an entry:
// the entries copied so far then belong to list, whose count stays 0.
int kvGetWIFIConfdata(WIFINeighborList *list);

}  // namespace kv
