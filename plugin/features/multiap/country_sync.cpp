#include "features/multiap/country_sync.h"

#include <algorithm>
#include <cstring>

#include "features/multiap/settings_sync_codec.h"
#include "frame/config_service.h"
#include "frame/file.h"
#include "frame/log.h"
#include "frame/shell.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "transport/send.h"

namespace kv {

namespace {

// Counts the characters of a country code before a "/" and its suffix.
constexpr size_t kMaxCodeLen = 6;

constexpr int kSilentShell = 1;  // kos_formsys: the command's output is not needed

}  // namespace

int handleSyncControllerCountryBcnReqMsg(const KvRecvVendTlv *source, uint16_t msgId) {
    LOG_MSG(KV_LOG_DEBUG, "received vendor msg %04x msgId(%04x) to " KV_MAC "\n",
            VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_REQ, msgId, KV_MAC_BYTES(source->srcMac));
    SyncCtrlerCountryMsgData data = {};
    std::memcpy(data.alMac, getMAPAlMac(), sizeof data.alMac);
    if (const Owned<RdmWifiRadio> radio = readFirstInstance<RdmWifiRadio>(RDM_OID_WIFI_RADIO)) {
        data.countryLen = static_cast<uint8_t>(strnlen(radio->countryInBeacon, sizeof data.country));
        std::memcpy(data.country, radio->countryInBeacon, data.countryLen);
    }
    const KvVendMsg msg = makeVendMsg(VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP, syncCountryLen(data.countryLen), &data);
    if (sendUnicast(source->srcMac, &msgId, &msg) != KV_RET_OK) {
        LOG_MSG(KV_LOG_ERROR, "fail send sync controller country in bcn to " KV_MAC "\n", KV_MAC_BYTES(source->srcMac));
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

void applyCountry(const char *country) {
    forEachInstance<RdmWifiRadio>(RDM_OID_WIFI_RADIO, [&](KcfgInstanceIndex &index, RdmWifiRadio &radio) {
        setText(radio.countryInBeacon, country);
        if (kcfgFeObjStructSetWithoutApply(RDM_OID_WIFI_RADIO, &index, &radio, nullptr) == 0) {
            radio.ifName[sizeof radio.ifName - 1] = '\0';
            radio.countryCode[sizeof radio.countryCode - 1] = '\0';
            updateCountryInBeacon(radio.ifName, radio.countryCode, radio.countryInBeacon);
        }
        return true;
    });
}

int updateCountryInBeacon(const char *ifname, const char *countryCode, const char *beaconCountry) {
    if (ifname == nullptr || countryCode == nullptr || beaconCountry == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "country update without an interface name or a country\n");
        return 0;
    }
    char code[kMaxCodeLen + 1] = {};
    std::memcpy(code, countryCode, std::min(std::strcspn(countryCode, "/"), kMaxCodeLen));
    const char *value = *beaconCountry != '\0' ? beaconCountry : code;

    char command[128];
    const int length = kos_snprintf(command, sizeof command, "wl -i %s country_abbrev_override \"%s\"", ifname, value);
    if (!isShellSafe(ifname) || !isCountryText(value)) {
        LOG_DEVICE(KV_LOG_ERROR, "interface %s or country %s must not reach a shell, wl is not run\n", ifname, value);
        return 0;
    }
    if (length < 0 || static_cast<size_t>(length) >= sizeof command) {
        LOG_DEVICE(KV_LOG_ERROR, "interface %s and country %s are too long, wl is not run\n", ifname, value);
        return 0;
    }
    if (kos_formsys(kSilentShell, command) == -1) {
        kvlog(KV_LOG_ERROR, __FILE_NAME__, __LINE__, __func__, "fail to run system()");
    }
    return 0;
}

}  // namespace kv
