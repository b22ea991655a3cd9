#include "features/device_control/firmware_upgrade_list.h"

#include <unistd.h>

#include <cstring>

#include "features/device_control/firmware.h"
#include "frame/file.h"
#include "frame/log.h"
#include "frame/memory.h"

namespace kv {

FWalmacHead *FWalmacDataHead = nullptr;

namespace {

// Appends an entry. Returns null if memory or the count is exhausted.
FWalmacEntry *appendEntry() {
    if (FWalmacDataHead == nullptr) {
        FWalmacDataHead = allocateRecord<FWalmacHead>().release();
    }
    if (FWalmacDataHead == nullptr || FWalmacDataHead->count == UINT16_MAX) return nullptr;
    FWalmacEntry *entry = allocateRecord<FWalmacEntry>().release();
    if (entry == nullptr) return nullptr;
    FWalmacEntry **link = &FWalmacDataHead->first;
    while (*link != nullptr) {
        entry->previous = *link;
        link = &(*link)->next;
    }
    *link = entry;
    ++FWalmacDataHead->count;
    return entry;
}

}  // namespace

int addKvFWupgradealmac(const uint8_t *alMac, int32_t status) {
    const bool isListable = status == FW_STATE_FW_UPGRADE || status == FW_STATE_FINISH_UPGRADE_FW;
    const bool isListed = findFWupgradealmac(alMac) != nullptr;
    writeKvFWupgradeFile(alMac != nullptr && isListable && !isListed ? 1 : 0);
    if (alMac == nullptr) return KV_RET_ERR;
    LOG_DEVICE(KV_LOG_DEBUG, "the new firmware upgrade status %d\n", status);
    if (!isListable) return KV_RET_ERR;
    if (isListed) {
        LOG_PLAIN(KV_LOG_DEBUG, "Find AlMac " KV_MAC "\n", KV_MAC_BYTES(alMac));
        return KV_RET_ERR;
    }
    FWalmacEntry *entry = appendEntry();
    if (entry == nullptr) return KV_RET_ERR;
    std::memcpy(entry->alMac, alMac, sizeof entry->alMac);
    writeKvFWupgradeFile();
    return KV_RET_OK;
}

int rmKvFWupgradealmac(const uint8_t *alMac) {
    writeKvFWupgradeFile();
    if (alMac == nullptr) return KV_RET_ERR;
    LOG_DEVICE(KV_LOG_DEBUG, "remove firmware upgrade AlMac " KV_MAC "\n", KV_MAC_BYTES(alMac));
    FWalmacEntry *entry = findFWupgradealmac(alMac);
    if (entry == nullptr) {
        LOG_PLAIN(KV_LOG_DEBUG, "Not find AlMac " KV_MAC "\n", KV_MAC_BYTES(alMac));
        writeKvFWupgradeFile();
        return KV_RET_ERR;
    }
    (entry->previous == nullptr ? FWalmacDataHead->first : entry->previous->next) = entry->next;
    if (entry->next != nullptr) {
        entry->next->previous = entry->previous;
    }
    std::free(entry);
    --FWalmacDataHead->count;
    writeKvFWupgradeFile();
    return KV_RET_OK;
}

FWalmacEntry *findFWupgradealmac(const uint8_t *alMac) {
    if (alMac == nullptr || FWalmacDataHead == nullptr) return nullptr;
    FWalmacEntry *entry = FWalmacDataHead->first;
    while (entry != nullptr && !sameMac(entry->alMac, alMac)) {
        entry = entry->next;
    }
    return entry;
}

void writeKvFWupgradeFile(unsigned wait) {
    if (FWalmacDataHead == nullptr || FWalmacDataHead->first == nullptr) {
        std::remove(kFirmwareListPath);
        return;
    }
    if (wait > 0) sleep(wait);
    const File file = openFile(kFirmwareListPath, "w");
    if (file == nullptr) return;
    LOG_DEVICE(KV_LOG_INFO, "update firmware file %s\n", kFirmwareListPath);
    for (const FWalmacEntry *entry = FWalmacDataHead->first; entry != nullptr; entry = entry->next) {
        kos_fpk(file.get(), "%02x:%02x:%02x:%02x:%02x:%02x\n", KV_MAC_BYTES(entry->alMac));
    }
}

void clearFWupgradeList() {
    if (FWalmacDataHead != nullptr) {
        FreeLinked()(FWalmacDataHead->first);
    }
    std::free(FWalmacDataHead);
    FWalmacDataHead = nullptr;
}

}  // namespace kv
