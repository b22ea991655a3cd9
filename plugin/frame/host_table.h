// Typed access to the host's callbacks: every query of the topology database and every JSON write is made here.
#pragma once

#include <cstdlib>
#include <memory>

#include "kv1905/kvMAP1905.h"

namespace kv {

struct FreeInterfaceList {
    void operator()(KvIntfList *list) const {
        for (KvIntfEntry *entry = list->head; entry != nullptr;) {
            KvIntfEntry *next = entry->next;
            std::free(entry);
            entry = next;
        }
        std::free(list);
    }
};
using InterfaceList = std::unique_ptr<KvIntfList, FreeInterfaceList>;

void registerHost(const Kv1905BcmCbs *table, uint8_t flag);

// Calls slot 0 with the arguments unchanged; 0 if the slot is empty.
uintptr_t queryDataModel(uint32_t code, const void *argument, uintptr_t argument2);

// Returns the plug-in's block of a device, or null if the host does not know it. alMac null: the local device.
KvDevVendorData *deviceVendorData(const uint8_t *alMac);

// Does the same for access to the table of the device's stations.
KvDevVendorData *wifiNeighborData(const uint8_t *alMac);

// Returns whether the host's topology holds a device with this AL MAC.
bool isInTopology(const uint8_t *alMac);

// Returns the interfaces of a device, or null if the host knows none. alMac null: the local device.
InterfaceList interfacesOf(const uint8_t *alMac);

// Finds the AL MAC of an interface's owner. Returns 0 with alMacOut filled, KV_RET_ERR when there is none.
int getalMacOfDevTableByIfMac(uint8_t *alMacOut, const uint8_t *ifMac);

// Requests a rewrite of the host's JSON data-model file, because a value in it may have changed.
int writeJsonDataModel();

}  // namespace kv
