#include "features/multiap/bss_config_tlv.h"

#include <cstring>

#include "frame/log.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

namespace {

constexpr int kFailed = -1;
constexpr uint8_t kElementType = 0xD0;
constexpr size_t kHeaderLen = 7;       // OUI, type, length, count
constexpr uint32_t kMaxEntries = 255;  // the count has one byte

}  // namespace

int insertBssConfigTlv(uint8_t *buffer, uint32_t *length, const void *list) {
    if (buffer == nullptr || length == nullptr || list == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "invalid input value when insert BSS Config\n");
        return kFailed;
    }
    const auto *bytes = static_cast<const uint8_t *>(list);
    uint32_t count = 0;
    std::memcpy(&count, bytes, sizeof count);
    if (count == 0 || count > kMaxEntries) {
        LOG_PLAIN(KV_LOG_ERROR, "[TLV] Error: InterfaceNumberOfEntries = %d\n", static_cast<int>(count));
        return kFailed;
    }
    const size_t total = kHeaderLen + sizeof(KvBssConfig) * count;
    ByteReader entries(bytes + sizeof count, sizeof(KvBssConfig) * count);
    ByteWriter writer(buffer, total);
    writer.bytes(getMAPAlOui(), KV_OUI_LEN);
    writer.u8(kElementType);
    writer.u16(static_cast<uint16_t>(total - 6));
    writer.u8(static_cast<uint8_t>(count));
    for (uint32_t i = 0; i < count; ++i) {
        KvBssConfig bss = {};
        entries.copyTo(&bss, sizeof bss);  // the host's memory, of any alignment
        writer.u8(bss.BandIndex);
        writer.u8(bss.Attribute);
        writer.u16(bss.MDID);
        writer.u16(bss.TCI);
        writer.u8(bss.WlMode);
        writer.u8(bss.ExtAttribute);
        LOG_PLAIN(KV_LOG_ERROR,
                  "[TLV] Bss insert BandIndex = %hhu Attribute = %hhu, MDID = %hu, TCI = %hu, WlMode = %hhu, "
                  "ExtAttribute = %hhu\n",
                  bss.BandIndex, bss.Attribute, bss.MDID, bss.TCI, bss.WlMode, bss.ExtAttribute);
    }
    *length = static_cast<uint32_t>(total);
    return 0;
}

}  // namespace kv
