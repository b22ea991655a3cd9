// Lists of stations: WIFINeighborEntry records from malloc, linked by next.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/memory.h"
#include "kv1905/kvMAP1905.h"

namespace kv {

using StationList = std::unique_ptr<WIFINeighborEntry, FreeLinked>;

// Frees the entries of the view, which are as many as it counts or, after a failure, more. A null view is ignored.
inline void freewifiMsgData(WIFINeighborList *list) {
    if (list != nullptr) {
        FreeLinked()(list->head);
        std::free(list);
    }
}

struct FreeStationView {
    void operator()(WIFINeighborList *list) const { freewifiMsgData(list); }
};
// A view that owns its entries.
using OwnedStations = std::unique_ptr<WIFINeighborList, FreeStationView>;

// Returns an empty view, or null if memory runs out.
inline OwnedStations newStations() {
    return allocateRecord<WIFINeighborList, FreeStationView>();
}

// Copies the values of a station: everything but mac, next and lastSeen.
inline void copyStationFields(WIFINeighborEntry &to, const WIFINeighborEntry &from) {
    WIFINeighborEntry copy = from;
    copy.next = to.next;
    copy.lastSeen = to.lastSeen;
    std::memcpy(copy.mac, to.mac, sizeof copy.mac);
    to = copy;
}

}  // namespace kv
