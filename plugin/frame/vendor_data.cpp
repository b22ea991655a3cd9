#include "frame/vendor_data.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "frame/host_table.h"
#include "frame/local_files.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/parameters.h"

uint32_t NCAL_state = 0;

namespace kv {

namespace {

RegisteredNeighbors mapNbrTbl;

// Returns whether a file has changed since loadedAt, which becomes its modification time. A file that cannot be
// examined counts as changed: its loader then logs the reason.
bool hasChanged(const char *path, uint32_t &loadedAt) {
    struct stat status = {};
    const bool isExamined = stat(path, &status) == 0;
    const auto modified = static_cast<uint32_t>(status.st_mtime);
    const bool changed = !isExamined || modified != loadedAt;
    loadedAt = modified;
    return changed;
}

// isFirst: loads both files regardless of their times, which may be 0 on a read-only image.
void loadFiles(KvDevVendorData *dev, bool isController, bool isFirst) {
    if (hasChanged(kDeviceConfigPath, dev->confFileMtime) || isFirst) {
        LOG_DEVICE(KV_LOG_DEBUG, "initialize KOVAN device configuration\n");
        dev->cfgAttrCount = 0;
        dev->rebootFromNbrCap = isController ? 0 : 1;
        dev->intfPwrCtrlFromNbrCap = isController ? 0 : 1;
        readDevConfFile(dev);
        getDeviceChannel(dev);
    }
    if (hasChanged(kVersionPath, dev->versionFileMtime) || isFirst) {
        readDevVersionFile(dev);
    }
}

}  // namespace

void RegisteredNeighbors::add(const uint8_t *alMac) {
    std::optional<size_t> free;
    for (size_t index = 0; index < kCapacity; ++index) {
        if (isZeroMac(entries_[index])) {
            free = index;
        }
        if (sameMac(entries_[index], alMac)) {
            return;  // also for the all-zero address, which no entry can hold
        }
    }
    if (!free) return;
    std::memcpy(entries_[*free], alMac, KV_MAC_LEN);
    const uint8_t *local = getMAPAlMac();
    LOG_PLAIN(KV_LOG_NOTICE, "Device " KV_MAC " Register MAP Neighbor " KV_MAC ", idx = %d\n", KV_MAC_BYTES(local),
              KV_MAC_BYTES(alMac), static_cast<int>(*free));
}

RegisteredNeighbors &registeredNeighbors() {
    return mapNbrTbl;
}

void registerMAPNeighbor(const uint8_t *alMac) {
    mapNbrTbl.add(alMac);
}

void initDevice(KvDevVendorData *dev) {
    if (dev == nullptr) return;
    dev->confFileMtime = 0;
    dev->versionFileMtime = 0;
    controller = static_cast<uint8_t>(findController());
    loadFiles(dev, controller != 0, true);
    initSecurityConfig(&dev->security);
}

void updateDevice(KvDevVendorData *dev) {
    if (dev == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Allocate memory failed for device vendor data\n");
        return;
    }
    initDevConfig(dev, controller != 0);
    initSecurityConfig(&dev->security);
}

void initDevConfig(KvDevVendorData *dev, bool isController) {
    loadFiles(dev, isController, false);
}

int initSecurityConfig(SecurityConfig *sec) {
    const auto found = allocateRecord<SecurityConfig>();
    if (found == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "allocate memory fail for security config\n");
        return KV_RET_ERR;
    }
    if (const int result = getSecurityConfig(found.get()); result != KV_RET_OK) {
        LOG_DEVICE(KV_LOG_WARNING, "get security config failed\n");
        return result;
    }
    sec->secType = found->secType;
    sec->secLen = found->secLen;
    if (found->secLen != 0 && found->secData != nullptr) {
        sec->secData = std::exchange(found->secData, nullptr);  // the block that was there may be the host's
    }
    std::free(found->secData);
    return KV_RET_OK;
}

int getSecurityConfig(SecurityConfig *) {
    return kvNetCtrl_Checkstate(2, NCAL_state) != 0 ? KV_RET_ERR : KV_RET_OK;
}

int kvNetCtrl_Checkstate(int, uint32_t) {
    return 0;
}

void initInterface(KvIntfVendorData *intf, uint32_t mediaType) {
    if (intf == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Allocate memory failed for interface vendor data\n");
        return;
    }
    intf->pwrState = getIntfPwrSt(mediaType);
}

int capabilityFromController(int which) {
    const KvDevVendorData *dev = deviceVendorData(nullptr);
    if (dev == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Device configuration is NULL.\n");
        return 0;
    }
    if (which == kCapabilityReboot) return dev->rebootFromNbrCap != 0 ? 1 : 0;
    return which == kCapabilityInterfacePower && dev->intfPwrCtrlFromNbrCap != 0 ? 1 : 0;
}

int checkAgentSpeaksProtocol(const uint8_t *alMac, uint8_t *isKovan) {
    if (alMac == nullptr || isKovan == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "checkKovanAgent without an AL MAC or a place for the answer\n");
        return KV_RET_ERR;
    }
    const KvDevVendorData *dev = deviceVendorData(alMac);
    if (dev == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "enrolle_mac [" KV_MAC "] is not exist in DB.\n\n", KV_MAC_BYTES(alMac));
        return KV_RET_ERR;
    }
    *isKovan = dev->protoVersion[0] != '\0' ? 1 : 0;
    return KV_RET_OK;
}

}  // namespace kv
