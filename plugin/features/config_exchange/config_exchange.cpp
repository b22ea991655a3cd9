#include "features/config_exchange/config_exchange.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "features/config_exchange/config_codec.h"
#include "features/device_control/firmware_upgrade_list.h"
#include "features/wifi_clients/wifi_state.h"
#include "frame/host_table.h"
#include "frame/local_files.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "transport/outstanding_queries.h"
#include "transport/send.h"
#include "transport/tracked_query.h"

namespace kv {

namespace {

enum : uint8_t {
    CONF_ATTR_REBOOT_CAP = 0,
    CONF_ATTR_INTF_PWR_CTRL_CAP = 1,
    CONF_ATTR_FW_VERSION = 2,
    CONF_ATTR_FW_UPGRADE_STATUS = 4,
    CONF_ATTR_NEW_FW_VERSION = 5,
    CONF_ATTR_NEW_FW_DATE = 6,
    CONF_ATTR_MODEL_NAME = 7,
    CONF_ATTR_IP_ADDR = 8,
    CONF_ATTR_AUX_STATUS = 9,
    CONF_ATTR_MODE = 10,
    CONF_ATTR_BUILD = 11,
    CONF_ATTR_LED_STATUS = 12,
    CONF_ATTR_CHANNEL_24G = 13,
    CONF_ATTR_CHANNEL_5G = 14,
    CONF_ATTR_CHANNEL_EXTRA = 15,
    CONF_ATTR_PROTO_VERSION = 16,
    CONF_ATTR_APP_VERSION = 101,
    CONF_ATTR_L2_DEV_CTRL = 102,
    CONF_ATTR_WIFI_AUTO_CFG = 103,
    CONF_ATTR_WIFI_ON_OFF = 104,
    CONF_ATTR_FW_UPGRADE = 105,
    CONF_ATTR_LED_ON_OFF = 106,
    CONF_ATTR_UPTIME = 116,
};

enum class Kind : uint8_t { Flag, Byte, Text };  // Flag: one byte, stored as 1 or 0

// An attribute and the field of KvDevVendorData that carries it on both sides.
struct Attribute {
    uint8_t type;
    Kind kind;
    uint16_t offset;
    uint16_t size;
};

#define ATTRIBUTE(type, kind, field) \
    { type, Kind::kind, offsetof(KvDevVendorData, field), sizeof(KvDevVendorData::field) }

constexpr Attribute kAttributes[] = {
    ATTRIBUTE(CONF_ATTR_REBOOT_CAP, Flag, rebootFromNbrCap),
    ATTRIBUTE(CONF_ATTR_INTF_PWR_CTRL_CAP, Flag, intfPwrCtrlFromNbrCap),
    ATTRIBUTE(CONF_ATTR_FW_VERSION, Text, fwVersion),
    ATTRIBUTE(CONF_ATTR_FW_UPGRADE_STATUS, Byte, fwUpgradeStatus),
    ATTRIBUTE(CONF_ATTR_NEW_FW_VERSION, Text, newFwVersion),
    ATTRIBUTE(CONF_ATTR_NEW_FW_DATE, Text, newFwDate),
    ATTRIBUTE(CONF_ATTR_MODEL_NAME, Text, modelName),
    ATTRIBUTE(CONF_ATTR_IP_ADDR, Text, ipAddr),
    ATTRIBUTE(CONF_ATTR_AUX_STATUS, Byte, auxStatus),
    ATTRIBUTE(CONF_ATTR_MODE, Text, opMode),
    ATTRIBUTE(CONF_ATTR_BUILD, Text, buildNum),
    ATTRIBUTE(CONF_ATTR_LED_STATUS, Text, ledStatus),
    ATTRIBUTE(CONF_ATTR_CHANNEL_24G, Text, channel24G),
    ATTRIBUTE(CONF_ATTR_CHANNEL_5G, Text, channel5G),
    ATTRIBUTE(CONF_ATTR_CHANNEL_EXTRA, Text, channelExtra),
    ATTRIBUTE(CONF_ATTR_PROTO_VERSION, Text, protoVersion),
    ATTRIBUTE(CONF_ATTR_APP_VERSION, Text, appVersion),
    ATTRIBUTE(CONF_ATTR_L2_DEV_CTRL, Text, l2DevCtrl),
    ATTRIBUTE(CONF_ATTR_WIFI_AUTO_CFG, Text, wifiAutoCfg),
    ATTRIBUTE(CONF_ATTR_WIFI_ON_OFF, Text, wifiOnOff),
    ATTRIBUTE(CONF_ATTR_FW_UPGRADE, Text, fwUpgrade),
    ATTRIBUTE(CONF_ATTR_LED_ON_OFF, Text, ledOnOff),
    ATTRIBUTE(CONF_ATTR_UPTIME, Text, uptime),
};

#undef ATTRIBUTE

constexpr bool isSorted() {
    return std::is_sorted(std::begin(kAttributes), std::end(kAttributes),
                          [](const Attribute &a, const Attribute &b) { return a.type <= b.type; });
}
static_assert(isSorted(), "attribute types rise and are unique");

const Attribute *findAttribute(uint8_t type) {
    const auto row = std::lower_bound(std::begin(kAttributes), std::end(kAttributes), type,
                                      [](const Attribute &a, uint8_t wanted) { return a.type < wanted; });
    return row != std::end(kAttributes) && row->type == type ? row : nullptr;
}

template <typename Record>
auto *fieldOf(Record &dev, const Attribute &row) {
    using Byte = std::conditional_t<std::is_const_v<Record>, const uint8_t, uint8_t>;
    return reinterpret_cast<Byte *>(&dev) + row.offset;
}

enum class When : uint8_t { Always, NotEmpty };

// Appends one attribute with the value that the local record holds.
void append(KvConfRespData &response, const KvDevVendorData &dev, uint8_t type, When when) {
    const Attribute &row = *findAttribute(type);
    const uint8_t *value = fieldOf(dev, row);
    const size_t length = row.kind == Kind::Text ? strnlen(reinterpret_cast<const char *>(value), row.size) : 1;
    if (length == 0 && when == When::NotEmpty) return;
    KvConfAttr &attribute = response.attributes[response.count++];
    attribute.attrType = type;
    attribute.attrLen = static_cast<uint16_t>(length);
    std::memcpy(attribute.attrValue, value, length);
}

// Fills in an agent's attributes, in this order. Refreshes the record's address and channels first.
void fillResponse(KvConfRespData &response, KvDevVendorData &dev) {
    std::memcpy(response.alMac, getMAPAlMac(), sizeof response.alMac);
    append(response, dev, CONF_ATTR_REBOOT_CAP, When::Always);
    append(response, dev, CONF_ATTR_INTF_PWR_CTRL_CAP, When::Always);
    append(response, dev, CONF_ATTR_FW_VERSION, When::Always);
    append(response, dev, CONF_ATTR_FW_UPGRADE_STATUS, When::Always);
    append(response, dev, CONF_ATTR_AUX_STATUS, When::Always);
    append(response, dev, CONF_ATTR_MODEL_NAME, When::NotEmpty);

    char ipAddr[kIpTextLen];
    static_assert(sizeof ipAddr == sizeof dev.ipAddr);
    if (getDeviceIP(ipAddr) == KV_RET_OK) {
        std::memcpy(dev.ipAddr, ipAddr, sizeof dev.ipAddr);
        append(response, dev, CONF_ATTR_IP_ADDR, When::Always);
    }
    append(response, dev, CONF_ATTR_MODE, When::NotEmpty);
    append(response, dev, CONF_ATTR_PROTO_VERSION, When::NotEmpty);

    getDeviceChannel(&dev);
    for (const uint8_t type : {CONF_ATTR_CHANNEL_24G, CONF_ATTR_CHANNEL_5G, CONF_ATTR_CHANNEL_EXTRA,
                               CONF_ATTR_LED_STATUS, CONF_ATTR_UPTIME}) {
        append(response, dev, type, When::NotEmpty);
    }
}

int failedToRespond(uint16_t msgId, bool byMulticast) {
    if (byMulticast) {
        LOG_MSG(KV_LOG_WARNING, "send multicast config response msgId %04x Fail.\n", msgId);
    } else {
        LOG_MSG(KV_LOG_WARNING, "fail to handle config query msgId %04x\n", msgId);
    }
    return KV_RET_ERR;
}

int sendResponseByMulticast(const KvVendMsg &msg, uint16_t msgId) {
    // Passes the identifier by pointer, so that the line shows what the host writes back.
    if (sendRelayedMulticast(&msg, &msgId) != KV_RET_OK) return failedToRespond(msgId, true);
    LOG_MSG(KV_LOG_INFO, "send multicast config response msgId %04x Success.\n", msgId);
    return KV_RET_OK;
}

int sendResponseTo(const uint8_t *destinationMac, const KvVendMsg &msg, uint16_t msgId) {
    if (sendUnicast(destinationMac, &msgId, &msg) != KV_RET_OK) return failedToRespond(msgId, false);
    LOG_MSG(KV_LOG_INFO, "send config response msgId %04x to " KV_MAC "\n", msgId, KV_MAC_BYTES(destinationMac));
    return KV_RET_OK;
}

// Stores a received attribute in its field. Types that are not in the table are skipped, a text is cut to its field,
// and a one-byte attribute without its byte is 0.
void store(KvDevVendorData &dev, const uint8_t *alMac, const KvConfAttr &attribute) {
    const Attribute *row = findAttribute(attribute.attrType);
    if (row == nullptr) return;
    uint8_t *field = fieldOf(dev, *row);
    if (row->kind == Kind::Text) {
        const size_t length = std::min<size_t>(attribute.attrLen, row->size - 1u);
        std::memcpy(field, attribute.attrValue, length);
        field[length] = '\0';
    } else {
        *field = row->kind == Kind::Flag ? attribute.attrValue[0] != 0 : attribute.attrValue[0];
    }
    if (attribute.attrType == CONF_ATTR_UPTIME) {
        dev.uptimeRecvTime = static_cast<uint32_t>(std::time(nullptr));
    }
    if (attribute.attrType == CONF_ATTR_FW_UPGRADE_STATUS) {
        const int listed = addKvFWupgradealmac(alMac, dev.fwUpgradeStatus);
        LOG_PLAIN(KV_LOG_DEBUG, "[DB] addKvFWupgradealmac  return code: %s\n", listed == 0 ? "SUCCESS" : "FAIL");
    }
}

// Agents with an earlier build and no protocol version report their stations only on request.
constexpr int kFirstReportingBuild = 7142;

bool reportsByItself(const KvConfRespData &response, const KvDevVendorData &dev) {
    long build = 0;
    for (unsigned i = 0; i < response.count; ++i) {
        const KvConfAttr &attribute = response.attributes[i];
        if (attribute.attrType == CONF_ATTR_PROTO_VERSION && attribute.attrLen > 0 && attribute.attrValue[0] != 0) {
            return true;
        }
        if (attribute.attrType == CONF_ATTR_BUILD) {
            build = std::strtol(dev.buildNum, nullptr, 10);
        }
    }
    return build >= kFirstReportingBuild;
}

}  // namespace

int sendConfQuery(const uint8_t *alMac, uint8_t retry) {
    return sendTrackedQuery(VEND_MSG_TYPE_CONF_QUERY, "config query", alMac, retry);
}

int sendConfResp(const KvRecvVendTlv *source, uint16_t msgId, uint8_t mcast) {
    if (source == nullptr && mcast != 1) {
        LOG_MSG(KV_LOG_ERROR, "config response without a destination, msgId %04x\n", msgId);
        return KV_RET_ERR;
    }
    KvDevVendorData *dev = deviceVendorData(nullptr);
    if (dev == nullptr) {
        LOG_DB(KV_LOG_WARNING, "device config NULL when handle config query msgId %04x\n", msgId);
        return KV_RET_ERR;
    }
    // Allocates 34 KB on the heap: too much for the stack of a small host thread.
    const auto response = allocateRecord<KvConfRespData>();
    if (response == nullptr) return failedToRespond(msgId, mcast == 1);
    fillResponse(*response, *dev);
    dev->cfgAttrCount = response->count;
    const KvVendMsg msg =
        makeVendMsg(VEND_MSG_TYPE_CONF_RESP, static_cast<uint16_t>(confRespLen(*response)), response.get());
    return mcast == 1 ? sendResponseByMulticast(msg, msgId) : sendResponseTo(source->srcMac, msg, msgId);
}

int handleConfQueryMsg(const KvRecvVendTlv *source, uint16_t msgId) {
    return sendConfResp(source, msgId, 0);
}

int handleConfRespMsg(uint16_t msgId, KvVendMsg *msg) {
    LOG_MSG(KV_LOG_DEBUG, "received Conf Resp msgId %04x\n", msgId);
    const auto *response = static_cast<const KvConfRespData *>(msg->payload);
    KvDevVendorData *dev = deviceVendorData(response->alMac);
    if (dev == nullptr) {
        LOG_DB(KV_LOG_WARNING, "configuration data is null\n");
        return KV_RET_ERR;
    }
    dev->cfgAttrCount = response->count;
    for (unsigned i = 0; i < response->count; ++i) {
        store(*dev, response->alMac, response->attributes[i]);
    }
    reportKvVendRespMsgReceived(msg->alMac, msgId, VEND_MSG_TYPE_CONF_RESP);
    if (!reportsByItself(*response, *dev)) {
        sendWifiStateQuery(response->alMac);
    }
    return KV_RET_OK;
}

}  // namespace kv
