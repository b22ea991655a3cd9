#include "features/multiap/settings_sync_codec.h"

#include <cstring>

#include "features/multiap/country_sync.h"
#include "features/multiap/password_sync.h"
#include "frame/log.h"
#include "frame/shell.h"
#include "protocol/shared_payloads.h"

namespace kv {

uint16_t parseSyncCtrlerPwdMsgData(ByteReader &payload, KvVendMsg &) {
    SyncCtrlerPwdMsgData data = {};
    payload.copyTo(data.alMac, sizeof data.alMac);
    data.pwdLen = payload.u16();
    payload.copyTo(data.pwd, sizeof data.pwd);
    const bool valid = payload.ok() && data.pwdLen <= kMaxPwdLen;
    if (valid) {
        LOG_TLV(KV_LOG_DEBUG, "parse vendor msg for sync controller password from AlMac " KV_MAC "\n",
                KV_MAC_BYTES(data.alMac));
        applyScrambledPassword(data.pwd, data.pwdLen);
    }
    explicit_bzero(&data, sizeof data);
    return valid ? kSyncPwdLen : 0;
}

int genSyncCtrlerPwdMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto &data = recordOf<SyncCtrlerPwdMsgData>(msg);
    if (data.pwdLen > kMaxPwdLen) return KV_RET_ERR;
    writer.bytes(data.alMac, sizeof data.alMac);
    writer.u16(data.pwdLen);
    writer.bytes(data.pwd, sizeof data.pwd);
    return KV_RET_OK;
}

uint16_t parseSyncCtrlerCountryMsgData(ByteReader &payload, KvVendMsg &) {
    uint8_t alMac[KV_MAC_LEN] = {};
    char country[kMaxCountryLen + 1] = {};
    payload.copyTo(alMac, sizeof alMac);
    const uint8_t length = payload.u8();
    if (length > kMaxCountryLen) return 0;
    payload.copyTo(country, length);
    if (!payload.ok()) return 0;
    if (std::strlen(country) != length || !isCountryText(country)) {
        LOG_TLV(KV_LOG_ERROR, "country in bcn from AlMac " KV_MAC " holds more than letters, digits and /\n",
                KV_MAC_BYTES(alMac));
        return 0;
    }
    LOG_TLV(KV_LOG_DEBUG, "parse vendor msg for sync controller country in bcn from AlMac " KV_MAC "\n",
            KV_MAC_BYTES(alMac));
    applyCountry(country);
    return syncCountryLen(length);
}

int genSyncCtrlerCountryMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto &data = recordOf<SyncCtrlerCountryMsgData>(msg);
    if (data.countryLen > kMaxCountryLen) return KV_RET_ERR;
    writer.bytes(data.alMac, sizeof data.alMac);
    writer.u8(data.countryLen);
    writer.bytes(data.country, data.countryLen);
    return KV_RET_OK;
}

}  // namespace kv
