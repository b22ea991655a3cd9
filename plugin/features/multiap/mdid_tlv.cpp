#include "features/multiap/mdid_tlv.h"

#include <cstdlib>
#include <cstring>

#include "frame/file.h"
#include "frame/log.h"
#include "frame/shell.h"
#include "protocol/byte_writer.h"

namespace kv {

namespace {

constexpr int kFailed = -1;
constexpr uint8_t kElementType = 0xC0;
constexpr size_t kHeaderLen = 7;  // OUI, type, length, count
constexpr size_t kEntryLen = 9;
constexpr char kBackhaulIfname[] = "wl0.5";  // the one BSS that must have an MDID

MdidCache cache;

bool hasUsableCount(const KvMdidInterfaceList &list) {
    if (list.InterfaceNumberOfEntries > 0 && list.InterfaceNumberOfEntries <= KV_MAX_MDID_INTERFACES) return true;
    LOG_PLAIN(KV_LOG_ERROR, "[TLV] Error: InterfaceNumberOfEntries = %d\n",
              static_cast<int>(list.InterfaceNumberOfEntries));
    return false;
}

// The host's name, which may fill its field without a terminator.
void copyIfname(const KvMdidInterface &entry, char (&name)[sizeof entry.ifname + 1]) {
    std::memcpy(name, entry.ifname, sizeof entry.ifname);
    name[sizeof entry.ifname] = '\0';
}

// Returns the number after the first "=" of the first line that begins with the key, else 0. Compares only the key's
// length: "wl0_mdid2" also matches "wl0_mdid".
int readSetting(std::FILE *dump, const char *key) {
    std::rewind(dump);
    char line[32];
    while (readLine(dump, line)) {
        const char *equals = std::strchr(line, '=');
        if (equals != nullptr && std::strncmp(line, key, std::strlen(key)) == 0) return std::atoi(equals + 1);
    }
    return 0;
}

void printBackhaulBanner(uint16_t mdid) {
    constexpr char kStars[] = "**************************************************************";
    constexpr char kBlank[] = "*                                                            *";
    std::printf("%s\n%s\n", kStars, kBlank);
    std::printf("*               In kv1905, BH's MDID = %hx                     *\n", mdid);
    std::printf("%s\n%s\n", kBlank, kStars);
}

// Fills every entry from the dump; false for a backhaul BSS without MDID.
bool fillFromDump(std::FILE *dump, KvMdidInterfaceList &list) {
    for (uint32_t i = 0; i < list.InterfaceNumberOfEntries; ++i) {
        KvMdidInterface &entry = list.interfaces[i];
        char ifname[sizeof entry.ifname + 1];
        copyIfname(entry, ifname);
        char key[sizeof ifname + sizeof "_mdid"];
        std::snprintf(key, sizeof key, "%s_mdid", ifname);
        entry.mdid = static_cast<uint16_t>(readSetting(dump, key));
        LOG_TLV(KV_LOG_DEBUG, "update MDID TLV, ifnames = %s, mdid = %hx\n", ifname, entry.mdid);
        if (std::strcmp(ifname, kBackhaulIfname) == 0 && entry.mdid == 0) {
            printBackhaulBanner(entry.mdid);
            return false;
        }
    }
    return true;
}

}  // namespace

const KvMdidInterface *MdidCache::find(const uint8_t *bssid) const {
    for (uint32_t i = 0; i < list_.InterfaceNumberOfEntries; ++i) {
        if (sameMac(list_.interfaces[i].bssid, bssid)) return &list_.interfaces[i];
    }
    return nullptr;
}

bool MdidCache::fill(KvMdidInterfaceList &list) {
    if (mdidCacheStale_) return false;
    for (uint32_t i = 0; i < list.InterfaceNumberOfEntries; ++i) {
        KvMdidInterface &entry = list.interfaces[i];
        LOG_PLAIN(KV_LOG_DEBUG, "[TLV] Search mdid for BSS[%d] " KV_MAC "\n", static_cast<int>(i),
                  KV_MAC_BYTES(entry.bssid));
        const KvMdidInterface *known = find(entry.bssid);
        if (known == nullptr) {
            mdidCacheStale_ = true;
            LOG_PLAIN(KV_LOG_ERROR, "[TLV] can't find bssid to update mdid!!!\n");
            return false;
        }
        entry.mdid = known->mdid;
        char ifname[sizeof entry.ifname + 1];
        copyIfname(entry, ifname);
        LOG_PLAIN(KV_LOG_DEBUG, "[TLV] Find mdid - BSS[%d] " KV_MAC ", update MDID TLV, ifnames = %s, mdid = %hx\n",
                  static_cast<int>(i), KV_MAC_BYTES(entry.bssid), ifname, entry.mdid);
    }
    return true;
}

void MdidCache::store(const KvMdidInterfaceList &list) {
    list_ = list;
    mdidCacheStale_ = false;
}

MdidCache &mdidCache() {
    return cache;
}

int updateMdid(KvMdidInterfaceList *list) {
    if (list == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "invalid input value when update MDID\n");
        return kFailed;
    }
    if (!hasUsableCount(*list)) return kFailed;
    if (cache.fill(*list)) return 0;
    bool isFilled = false;
    if (!readOutput("nvram show | grep mdid", kNvramScratchPath,
                    [&](std::FILE *dump) { isFilled = fillFromDump(dump, *list); })) {
        return 0;
    }
    if (isFilled) {
        cache.store(*list);
    }
    return isFilled ? 0 : kFailed;
}

int insertMdidTlv(uint8_t *buffer, uint32_t *length, KvMdidInterfaceList *list) {
    if (buffer == nullptr || length == nullptr || list == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "invalid input value when insert MDID\n");
        return kFailed;
    }
    if (updateMdid(list) != 0) return kFailed;
    const uint32_t count = list->InterfaceNumberOfEntries;
    const size_t total = kHeaderLen + kEntryLen * count;
    ByteWriter writer(buffer, total);
    writer.bytes(getMAPAlOui(), KV_OUI_LEN);
    writer.u8(kElementType);
    writer.u16(static_cast<uint16_t>(total - 6));
    writer.u8(static_cast<uint8_t>(count));
    for (uint32_t i = 0; i < count; ++i) {
        const KvMdidInterface &entry = list->interfaces[i];
        writer.bytes(entry.bssid, sizeof entry.bssid);
        writer.u16(entry.mdid);
        writer.u8(entry.enabled);
        char ifname[sizeof entry.ifname + 1];
        copyIfname(entry, ifname);
        LOG_TLV(KV_LOG_INFO, "insert MDID TLV, %s ifnames = %s, mdid = %hx\n",
                entry.enabled != 0 ? "enabled" : "disabled", ifname, entry.mdid);
    }
    *length = static_cast<uint32_t>(total);
    return 0;
}

}  // namespace kv
