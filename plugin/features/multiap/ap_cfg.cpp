#include "features/multiap/ap_cfg.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "kv1905/kvlog.h"
#include "kv1905/nvram.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

namespace {

#define LOG_AP_CFG(level, ...) kvMAP_syslog(KV_LOG_FACILITY_AP_CFG, level, __VA_ARGS__)

constexpr int kFailed = -1;
constexpr uint16_t kAttributeType = 0x1049;
constexpr size_t kAttributeHeaderLen = 4;
constexpr size_t kAttributeLen = 24;
constexpr uint8_t kVendorId[3] = {0x0A, 0x61, 0xC4};

// A sub-element: its exact length, and the field it carries.
struct SubElement {
    uint8_t id;
    uint8_t length;  // 1: byte, 2: number
    uint8_t KvBssInfo::*byte;
    uint16_t KvBssInfo::*number;
    const char *name;
    bool readInOrder;  // by the parser that is given no length
};

// Sorted in the order of writing.
constexpr SubElement kSubElements[] = {
    {1, 1, &KvBssInfo::BandIndex, nullptr, "BandIndex", true},
    {2, 1, &KvBssInfo::Attribute, nullptr, "Attribute", true},
    {3, 2, nullptr, &KvBssInfo::MDID, "MDID", true},
    {4, 2, nullptr, &KvBssInfo::TCI, "TCI", true},
    {7, 1, &KvBssInfo::ExtAttribute, nullptr, "ExtAttribute", false},
};

// Limit of the parser without a length: the vendor ID, sub-elements 1 to 4.
constexpr size_t kInOrderLen = sizeof kVendorId + 3 + 3 + 4 + 4;

// Logs a call with a null argument.
bool isNull(const uint8_t *data, const KvBssInfo *bss) {
    if (data != nullptr && bss != nullptr) return false;
    LOG_AP_CFG(KV_LOG_ERROR, "multiap extension attr without data or BSS information\n");
    return true;
}

bool readVendorId(ByteReader &data) {
    uint8_t vendorId[sizeof kVendorId] = {};
    data.copyTo(vendorId, sizeof vendorId);
    if (data.ok() && std::memcmp(vendorId, kVendorId, sizeof vendorId) == 0) return true;
    LOG_AP_CFG(KV_LOG_ERROR, "Invalid vendor ID\n");
    return false;
}

int refuseLength(size_t length) {
    LOG_AP_CFG(KV_LOG_ERROR, "Invalid length for multiap extension attr %d\n", static_cast<int>(length));
    return kFailed;
}

void store(const SubElement &row, ByteReader value, KvBssInfo &bss) {
    if (row.byte != nullptr) {
        bss.*row.byte = value.u8();
        LOG_AP_CFG(KV_LOG_DEBUG, "%s:[0x%02x]\n", row.name, bss.*row.byte);
    } else {
        bss.*row.number = value.u16();
        LOG_AP_CFG(KV_LOG_DEBUG, "%s:[0x%04x]\n", row.name, bss.*row.number);
    }
}

// Reads one complete sub-element, or nothing. Returns 0 or -1.
int readSubElement(ByteReader &elements, KvBssInfo &bss) {
    const uint8_t id = elements.u8();
    const uint8_t length = elements.u8();
    ByteReader value = elements.take(length);
    if (!elements.ok()) return refuseLength(length);
    const auto row = std::find_if(std::begin(kSubElements), std::end(kSubElements),
                                  [&](const SubElement &element) { return element.id == id; });
    if (row == std::end(kSubElements)) {
        LOG_AP_CFG(KV_LOG_INFO, "Unsupport extension type %d\n", id);
        return 0;
    }
    if (length != row->length) return refuseLength(length);
    store(*row, value, bss);
    return 0;
}

// Maps bits of BandIndex, tested in this order, to a band's nvram value; 0 without a match.
struct Band {
    uint8_t bit;
    int nvramValue;
};

constexpr Band kBands[] = {{0x20, 4}, {0x40, 1}, {0x80, 2}};

int wantedBand(uint8_t bandIndex) {
    for (const Band &band : kBands) {
        if ((bandIndex & band.bit) != 0) return band.nvramValue;
    }
    return 0;
}

constexpr int kRadios = 2;

// Returns the value of "wlRADIO" and the setting, or of "wlRADIO.BSS" and the setting for a virtual BSS; null if it is
// not set. Avoids snprintf for a main BSS, because every parsed extension makes this call.
template <size_t Size>
const char *radioSetting(int radioIndex, unsigned bss, const char (&setting)[Size]) {
    char name[32] = "wl0";
    name[2] = static_cast<char>('0' + radioIndex);
    if (bss == 0) {
        std::memcpy(name + 3, setting, Size);
    } else {
        std::snprintf(name + 3, sizeof name - 3, ".%u%s", bss, setting);
    }
    return nvram_get(name);
}

RememberedRadio radio;

constexpr unsigned bssNumber(uint8_t bandIndex) {
    return bandIndex & 0x0F;
}

// Skips ID and length of sub-element 1, the first in every attribute that this system writes.
constexpr size_t kBandIndexOffset = 2;

void initExtAttribute(uint8_t bandIndex, KvBssInfo &bss) {
    if (const char *value = radioSetting(radio.indexFor(bandIndex), bssNumber(bandIndex), "_extattr")) {
        bss.ExtAttribute = static_cast<uint8_t>(std::atoi(value));
    }
}

// Does nothing if the elements are too short to hold a band.
void initFromBandByte(ByteReader elements, KvBssInfo &bss) {
    elements.skip(kBandIndexOffset);
    const uint8_t bandIndex = elements.u8();
    if (elements.ok()) {
        initExtAttribute(bandIndex, bss);
    }
}

}  // namespace

int setApConfiguration(void *) {
    LOG_AP_CFG(KV_LOG_DEBUG, "Enter.\n");
    return 0;
}

int fillApConfiguration(uint8_t *attribute, const KvBssInfo *bss) {
    LOG_AP_CFG(KV_LOG_DEBUG, "Enter.\n");
    logBssInfo(bss);
    if (isNull(attribute, bss)) return 0;
    ByteWriter writer(attribute, kAttributeLen);
    writer.u16(kAttributeType);
    writer.u16(static_cast<uint16_t>(kAttributeLen - kAttributeHeaderLen));
    writer.bytes(kVendorId, sizeof kVendorId);
    for (const SubElement &row : kSubElements) {
        writer.u8(row.id);
        writer.u8(row.length);
        if (row.byte != nullptr) {
            writer.u8(bss->*row.byte);
        } else {
            writer.u16(bss->*row.number);
        }
    }
    LOG_AP_CFG(KV_LOG_DEBUG, "KOVAN proprietary field length %d\n", static_cast<int>(kAttributeLen));
    return static_cast<int>(kAttributeLen);
}

int parseInOrder(const uint8_t *data, KvBssInfo *bss) {
    LOG_AP_CFG(KV_LOG_DEBUG, "Enter.\n");
    ByteReader elements(data, kInOrderLen);
    if (isNull(data, bss) || !readVendorId(elements)) return kFailed;
    for (const SubElement &row : kSubElements) {
        if (!row.readInOrder || elements.peek() != row.id) continue;
        elements.skip(1);
        const uint8_t length = elements.u8();
        if (length != row.length) return refuseLength(length);
        store(row, elements.take(length), *bss);
    }
    return 0;
}

int parseWithLength(const uint8_t *data, uint32_t len, KvBssInfo *bss) {
    LOG_AP_CFG(KV_LOG_DEBUG, "Enter.\n");
    ByteReader elements(data, len);
    if (isNull(data, bss) || !readVendorId(elements)) return kFailed;
    initFromBandByte(elements, *bss);
    while (elements.remaining() > 0) {
        if (const int result = readSubElement(elements, *bss); result != 0) return result;
    }
    return 0;
}

int RememberedRadio::indexFor(uint8_t bandIndex) {
    if (bssNumber(bandIndex) != 0) return index_;
    const int wanted = wantedBand(bandIndex);
    for (int candidate = 0; candidate < kRadios; ++candidate) {
        const char *band = radioSetting(candidate, 0, "_nband");
        if (band != nullptr && std::atoi(band) == wanted) {
            index_ = candidate;
            break;
        }
    }
    return index_;
}

RememberedRadio &rememberedRadio() {
    return radio;
}

int initParameters(const uint8_t *subElements, KvBssInfo *bss) {
    if (!isNull(subElements, bss)) {
        initFromBandByte(ByteReader(subElements, kBandIndexOffset + 1), *bss);
    }
    return 0;
}

void logBssInfo(const KvBssInfo *bss) {
    if (bss == nullptr) {
        LOG_AP_CFG(KV_LOG_DEBUG, "dump_bssinfo is NULL!\n\n");
        return;
    }
    LOG_AP_CFG(KV_LOG_DEBUG, "BandIndex   : 0x%02x\n", bss->BandIndex);
    LOG_AP_CFG(KV_LOG_DEBUG, "Attribute   : 0x%02x\n", bss->Attribute);
    LOG_AP_CFG(KV_LOG_DEBUG, "MDID        : 0x%04x\n", bss->MDID);
    LOG_AP_CFG(KV_LOG_DEBUG, "TCI         : 0x%04x\n", bss->TCI);
    LOG_AP_CFG(KV_LOG_DEBUG, "WlMode      : 0x%02x\n", bss->WlMode);
    LOG_AP_CFG(KV_LOG_DEBUG, "ExtAttribute: 0x%02x\n", bss->ExtAttribute);
    LOG_AP_CFG(KV_LOG_DEBUG, "Channel     : 0x%02x\n", bss->Channel);
    LOG_AP_CFG(KV_LOG_DEBUG, "ACS_Sideband: 0x%02x\n", bss->ACS_Sideband);
    LOG_AP_CFG(KV_LOG_DEBUG, "Bandwidth   : 0x%02x\n", bss->Bandwidth);
}

}  // namespace kv
