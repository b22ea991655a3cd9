/**
 * @file
 * kvMAP1905.h - the plug-in's entry points, callback table, globals and the records that cross the boundary.
 *
 * @verbatim
 * Conventions
 *   Language   C11 or later, or C++20.
 *   Threads    Every entry point runs on the host's thread, one call at a time. Nothing is locked. The host
 *              must not call into the plug-in from two threads at once.
 *   Re-entry   A callback of Kv1905BcmCbs runs inside an entry point and must not call an entry point again.
 *   Ownership  Blocks that change hands come from malloc/calloc and go to free. Unless a function states
 *              otherwise, arguments stay the caller's and are only read during the call.
 *   MACs       6 bytes in transmission order. An "AL MAC" is the IEEE 1905.1 abstraction-layer address of a device.
 *   Integers   Host byte order in every record on this page; wire fields are big-endian and never appear here.
 *   Text       Fixed-size, NUL-terminated char arrays; a text that does not fit is cut to the field.
 *   Results    0 for success and KV_RET_ERR for failure, unless a function states otherwise. Failures are logged
 *              where they happen, through kvMAP_syslog (kvlog.h).
 *   Exceptions None leaves an entry point; the plug-in neither aborts nor exits.
 * @endverbatim
 *
 * Order of calls: kvMAP1905_Func_reg before anything else, then kvMAP1905_ApCfg_reg, KvDevAlMac filled by the host,
 * kvMAP1905_DeviceDm_init for the local device, kvMAP1905_DevIntfDm_init for each interface and
 * kvMAP1905_param_update; from then on kvMAP1905_MainLoop about once a second and
 * kvMAP1905_VendSpecTlv_handle for every received vendor-specific TLV.
 */
#ifndef KV1905_KVMAP1905_H
#define KV1905_KVMAP1905_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <assert.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define KVMAP1905_API __attribute__((visibility("default")))

/** Results of operations. */
#define KV_RET_OK 0
#define KV_RET_NOT_FOUND 7 /**< the AL MAC is not this device's, or not in the topology */
#define KV_RET_ERR 16      /**< every other failure */

#define KV_MAC_LEN 6 /**< bytes of a MAC address */
#define KV_OUI_LEN 3 /**< bytes of an OUI */

/** Size of the buffer that carries one encoded vendor-specific TLV value; larger messages are refused. */
#define KV_VEND_MSG_BUFFER_LEN 1514

/* ---- Records of the callback table ---- */

/** A received vendor-specific TLV (IEEE 1905.1 TLV type 0x0B), as the host passes it to the receive entries. */
typedef struct {
    uint8_t srcMac[KV_MAC_LEN]; /**< source of the message; for a relayed message the originator's AL MAC */
    const uint8_t *value;       /**< first byte of the TLV value, which starts with the OUI; the host's memory */
} KvRecvVendTlv;

/** One encoded vendor-specific TLV value, passed to the host's send slots. */
typedef struct {
    uint8_t dstMac[KV_MAC_LEN]; /**< destination AL MAC */
    uint8_t *buffer;            /**< the plug-in's memory, valid during the callback only */
    uint32_t length;            /**< bytes in buffer */
} KvVendMsgDest;

/** Query codes of dmDataGet, with argument, second argument and result. */
enum {
    DM_QUERY_DEVICE = 0,          /**< AL MAC, 0: KV_RET_ERR when no such device is in the topology, else anything */
    DM_QUERY_ALMAC_BY_IFMAC = 1,  /**< interface MAC, uint8_t[6] to fill: KV_RET_ERR if no device owns it, else 0 */
    DM_QUERY_DEV_VENDOR_DATA = 2, /**< AL MAC or null for the local device, 0: KvDevVendorData * or 0 */
    DM_QUERY_INTF_LIST = 3,       /**< AL MAC or null, 0: KvIntfList * or 0; the caller frees entries and head */
    DM_QUERY_DEV_WIFI_NBR = 4     /**< as DM_QUERY_DEV_VENDOR_DATA, for access to the neighbour table */
};

/**
 * Functions of the host. A slot may be null: the plug-in then logs and fails the operation.
 * Message identifiers are those of the frame with the TLV. If *msgId is 0, the host chooses one and writes it back. Any
 * other value is the identifier of the request and must be used unchanged. A null msgId means any identifier.
 */
typedef struct {
    /** Queries the topology database, see DM_QUERY_*. Pointers are passed as uintptr_t. */
    uintptr_t (*dmDataGet)(uint32_t code, void *argument, uintptr_t argument2);
    /** Rewrites the JSON data-model file, now or soon. Called for every station report. Returns 0 on success. */
    int (*jsonDataModelWrite)(uint32_t unused);
    /** Sends the TLV value in a message of type 0x0004 to dest->dstMac. Returns 0 if sent. */
    int (*vendMsgSend)(KvVendMsgDest *dest, uint16_t *msgId);
    /** Sends the TLV value to the IEEE 1905.1 multicast address, neighbours only. Returns 0 if sent. */
    int (*vendMcastMsgSend)(KvVendMsgDest *dest, uint16_t *msgId);
    /** Sends the TLV value as relayed multicast: every device receives it once. Returns 0 if sent. */
    int (*vendRelayMcastMsgSend)(KvVendMsgDest *dest, uint16_t *msgId);
    /** Posts an operator command (code, buffer of size bytes) to the daemon. Set in the command tool. */
    int (*cmdSend)(uint32_t code, void *buffer, uint32_t size);
    /** Set by kvMAP1905_ApCfg_reg for the host. The plug-in never calls it. */
    int (*apCfgSet)(void *argument);
} Kv1905BcmCbs;

/** One interface of a device. The caller that requested the list frees every entry and the list itself. */
typedef struct KvIntfEntry {
    struct KvIntfEntry *next; /**< next interface, or null */
    uint8_t mac[KV_MAC_LEN];  /**< its MAC */
    uint32_t mediaType;       /**< IEEE 1905.1 media type in the low 16 bits */
} KvIntfEntry;

/** The whole result of DM_QUERY_INTF_LIST. */
typedef struct {
    uint32_t count;    /**< entries */
    KvIntfEntry *head; /**< first entry, or null */
} KvIntfList;

/* ---- Records inside the host's topology database ---- */

/** One associated Wi-Fi station, or a station that another device reported. */
typedef struct WIFINeighborEntry {
    struct WIFINeighborEntry *next; /**< next station, or null */
    uint8_t mac[KV_MAC_LEN];        /**< its MAC, or the AL MAC of its owner */
    uint16_t mediaType;             /**< IEEE 1905.1 media type */
    uint16_t Rate;                  /**< Mbit/s */
    int16_t RSSI;                   /**< dBm */
    int16_t SNR;                    /**< dB */
    uint16_t signalLevel;           /**< 0 to 5 */
    uint32_t Tx;                    /**< transmit counter as reported */
    uint32_t Rx;                    /**< receive counter as reported */
    uint16_t tx_rate;               /**< Mbit/s */
    uint16_t rx_rate;               /**< Mbit/s */
    uint32_t lastSeen;              /**< seconds since the epoch; 0 in the local list */
    uint8_t Band;                   /**< 1 = 2.4 GHz, 6 = 5 GHz */
} WIFINeighborEntry;

/** Non-owning view of a station list. The entries belong to the creator unless a function states otherwise. */
typedef struct {
    uint32_t count;          /**< entries */
    WIFINeighborEntry *head; /**< null when empty */
} WIFINeighborList;

/** Security configuration of a device. secData holds secLen bytes from malloc, owned by the record, or is null. */
typedef struct {
    uint32_t secType; /**< type of the configuration */
    uint16_t secLen;  /**< bytes in secData */
    uint8_t *secData; /**< from malloc, or null */
} SecurityConfig;

/**
 * The plug-in's block in the host's device record. The host allocates it zero-filled and frees it, together with
 * security.secData and, for a remote device, the entries of wifiNbrHead. Received texts are cut to their field.
 */
typedef struct {
    uint8_t cfgAttrCount;          /**< attributes of the last configuration response */
    uint8_t rebootFromNbrCap;      /**< non-zero: the controller may reboot or reset this device */
    uint8_t intfPwrCtrlFromNbrCap; /**< non-zero: the controller may switch its Wi-Fi interfaces' power */
    char fwVersion[128];           /**< configuration attribute 2 */
    char newFwVersion[128];        /**< attribute 5 */
    char newFwDate[128];           /**< attribute 6 */
    uint8_t auxStatus;             /**< configuration attribute 9, passed through unchanged */
    uint8_t fwUpgradeStatus;       /**< 0 none, 1 newer known, 2 downloading, 3 downloaded, 4 writing, 5 written */
    char modelName[128];           /**< attribute 7 */
    char ipAddr[128];              /**< dotted text */
    char opMode[32];               /**< "AP", "Repeater" or "Router" */
    char buildNum[32];             /**< decimal text */
    char protoVersion[32];         /**< empty for a device that never reported one */
    char ledStatus[32];            /**< "ON" or "OFF" */
    char appVersion[32];           /**< attribute 101 */
    char l2DevCtrl[32];            /**< attribute 102 */
    char wifiAutoCfg[32];          /**< attribute 103 */
    char wifiOnOff[32];            /**< attribute 104 */
    char fwUpgrade[32];            /**< attribute 105 */
    char ledOnOff[32];             /**< attribute 106 */
    char channel24G[16];           /**< attribute 13 */
    char channel5G[16];            /**< attribute 14 */
    char channelExtra[16];         /**< attribute 15 */
    uint32_t confFileMtime;        /**< seconds since the epoch */
    uint32_t versionFileMtime;     /**< seconds since the epoch */
    char uptime[16];               /**< seconds, decimal text */
    uint32_t uptimeRecvTime;       /**< seconds since the epoch */
    uint32_t wifiNbrNum; /**< entries of a remote device's table; the local device's are counted by WIFINbrNum */
    WIFINeighborEntry *wifiNbrHead; /**< of the local device: the plug-in's own list, renewed by kvMAP1905_MainLoop */
    SecurityConfig security;        /**< security configuration */
} KvDevVendorData;

/** The plug-in's block in the host's interface record. */
typedef struct {
    uint32_t pwrState; /**< IEEE 1905.1 power state: 0 on, 2 off, 255 unknown */
} KvIntfVendorData;

/* ---- Messages in memory ---- */

/** One message of the vendor's set (IEEE 1905.1 vendor-specific TLV, OUI 02:4E:A7). */
typedef struct {
    uint8_t oui[KV_OUI_LEN];   /**< 02:4E:A7 */
    uint8_t alMac[KV_MAC_LEN]; /**< AL MAC of the device that built the message */
    uint8_t marker[2];         /**< 0x00 0x01 in every message sent; stored as received, never checked */
    uint16_t msgType;          /**< VEND_MSG_TYPE_* */
    uint16_t payloadLen;       /**< exact number of payload bytes on the wire */
    void *payload;             /**< the type's payload record, or null */
} KvVendMsg;

/** Signal measurement of one station, the payload record of Intel's RSSI messages. */
typedef struct {
    uint8_t staMac[KV_MAC_LEN]; /**< the station's MAC */
    uint16_t rxRate10;          /**< 100 kbit/s */
    uint16_t txRate10;          /**< 100 kbit/s */
    uint8_t rssi;               /**< low 8 bits of the signed dBm value */
    uint8_t snr;                /**< dB */
} KvRssiMeasurement;

/** One message of Intel's set (IEEE 1905.1 vendor-specific TLV, OUI 00:03:47). */
typedef struct {
    uint8_t oui[KV_OUI_LEN];    /**< 00:03:47 */
    uint8_t field3[4];          /**< passed through, like the other numbered fields */
    uint8_t field7[2];          /**< bytes 7 and 8 */
    uint8_t msgType;            /**< INTEL_MSG_TYPE_* */
    uint8_t field10;            /**< byte 10 */
    uint8_t field11[6];         /**< bytes 11 to 16 */
    uint8_t field18[2];         /**< wire order */
    KvRssiMeasurement *payload; /**< the measurement, or null */
} KvIntelVendMsg;

/* ---- Command buffers, which double as payload records; host byte order ---- */

#define KV_MAX_INTF_PWR_ENTRIES 30 /**< interfaces of one request */
#define KV_MAX_COMMAND_TEXT 2048   /**< characters of a URL or command in its record */

/** An interface to switch. */
typedef struct {
    uint8_t mac[KV_MAC_LEN]; /**< all zero: every interface of this media type */
    uint16_t mediaType;      /**< IEEE 1905.1 media type */
} KvIntfPwrCtrlEntry;

/** Interface power control: command 103 and message type 6. */
typedef struct {
    uint8_t alMac[KV_MAC_LEN];                           /**< the requested agent */
    uint8_t count;                                       /**< entries in use, at most 30 */
    uint8_t zero;                                        /**< padding */
    KvIntfPwrCtrlEntry entries[KV_MAX_INTF_PWR_ENTRIES]; /**< the interfaces */
    uint32_t pwrState; /**< IEEE 1905.1 power state; the wire carries its low 8 bits */
} KvIntfPwrCtrlReq;

/** Firmware control: command 109, message type 20. A URL of more than 1495 characters fits no message. Agents accept
 * 1023. */
typedef struct {
    uint8_t alMac[KV_MAC_LEN];       /**< the requested agent */
    uint16_t FWOption;               /**< 1 to 7, the requested action; the wire carries its low 8 bits */
    uint16_t FWTopoOption;           /**< 0: no URL is carried; the wire carries its low 8 bits */
    uint16_t FWURLcount;             /**< characters of FWURL */
    char FWURL[KV_MAX_COMMAND_TEXT]; /**< not NUL-terminated when full */
} KvFWCtrlReq;

/** LED control: command 114 and message types 33 and 34. */
typedef struct {
    uint8_t alMac[KV_MAC_LEN]; /**< the requested device, zero in type 34 */
    uint16_t ledOption;        /**< 0 off, any other value on */
} KvLedCtrlReq;

/** Remote command: command 200 and message type 25. Longer texts are refused. */
typedef struct {
    uint8_t alMac[KV_MAC_LEN];            /**< the requested agent */
    uint16_t CommandDatacount;            /**< words */
    uint16_t CommandURLcount;             /**< characters of CommandURL */
    char CommandURL[KV_MAX_COMMAND_TEXT]; /**< not NUL-terminated when full */
} KvCommandReq;

/* ---- Multi-AP extensions and settings sync ---- */

#define KV_MAX_MDID_INTERFACES 15 /**< BSSs of one list */

/** One BSS of the host's list for the MDID TLV; the plug-in writes only mdid. */
typedef struct {
    uint8_t bssid[KV_MAC_LEN]; /**< its BSSID */
    char ifname[16];           /**< NUL-terminated, such as "wl0.5" */
    uint16_t mdid;             /**< mobility-domain identifier */
    uint8_t enabled;           /**< 1 if the BSS is up */
} KvMdidInterface;

/** The host's BSSs for the MDID TLV. */
typedef struct {
    uint32_t InterfaceNumberOfEntries;                  /**< at most 15; more is refused */
    KvMdidInterface interfaces[KV_MAX_MDID_INTERFACES]; /**< the BSSs */
} KvMdidInterfaceList;

/**
 * One BSS of the BSS configuration TLV; the host's list is a uint32_t count, then that many of these from offset 4.
 * BandIndex: the low four bits are the BSS on its radio (0 main, 1 to 15 virtual), 0x20, 0x40 and 0x80 name the band.
 * MDID: mobility-domain identifier. The other fields belong to the host and are passed through unchanged, numbers
 * big-endian.
 */
typedef struct {
    uint8_t BandIndex;    /**< BSS on its radio, and band */
    uint8_t Attribute;    /**< the host's */
    uint16_t MDID;        /**< mobility-domain identifier */
    uint16_t TCI;         /**< VLAN tag */
    uint8_t WlMode;       /**< the host's */
    uint8_t ExtAttribute; /**< the host's */
} KvBssConfig;

/** One BSS of the AP-configuration extension, as in KvBssConfig. WlMode and the fields after ExtAttribute are not sent.
 */
typedef struct {
    uint8_t BandIndex;    /**< BSS on its radio, and band */
    uint8_t Attribute;    /**< the host's */
    uint16_t MDID;        /**< mobility-domain identifier */
    uint16_t TCI;         /**< VLAN tag */
    uint8_t WlMode;       /**< the host's */
    uint8_t ExtAttribute; /**< the host's */
    uint8_t Channel;      /**< the host's */
    uint8_t ACS_Sideband; /**< the host's */
    uint8_t Bandwidth;    /**< the host's */
} KvBssInfo;

/** Scrambled password: message type 69. More than 255 bytes are refused. */
typedef struct {
    uint8_t alMac[KV_MAC_LEN]; /**< the controller's AL MAC */
    uint16_t pwdLen;           /**< bytes of the password */
    uint8_t pwd[256];          /**< zero beyond pwdLen */
} SyncCtrlerPwdMsgData;

/** Country in beacons: command 205 and message type 77. Longer texts are refused. */
typedef struct {
    uint8_t alMac[KV_MAC_LEN]; /**< the controller's AL MAC */
    uint8_t countryLen;        /**< 0 to 4 */
    char country[4];           /**< no terminator when it is full */
} SyncCtrlerCountryMsgData;

/** Command codes between the command tool and kvMAP1905_VendSpecCmd_handle, with their buffers. */
enum {
    KV_CMD_REBOOT = 102,                /**< AL MAC, 6 bytes */
    KV_CMD_INTF_PWR_CTRL = 103,         /**< KvIntfPwrCtrlReq */
    KV_CMD_FW_CTRL = 109,               /**< KvFWCtrlReq */
    KV_CMD_RESET_DEFAULT = 110,         /**< AL MAC */
    KV_CMD_FW_RESULT = 111,             /**< 8 bytes: int32_t result, zero */
    KV_CMD_LED_CTRL = 114,              /**< KvLedCtrlReq */
    KV_CMD_PARTIAL_RESET_DEFAULT = 120, /**< AL MAC */
    KV_CMD_COMMAND = 200,               /**< KvCommandReq */
    KV_CMD_LOG_SETTING = 201,           /**< three int32_t */
    KV_CMD_SYNC_CTRL_PWD = 202,         /**< text: decimal byte count, one blank, two digits 0-9 A-F per byte */
    KV_CMD_SYNC_COUNTRY_BCN_REQ = 203,  /**< 6 bytes, not read */
    KV_CMD_COUNTRY_IN_BCN = 205,        /**< SyncCtrlerCountryMsgData */
    KV_CMD_UPDATE_DEVICE_INFO = 301     /**< not read */
};

/** The layouts are fixed for a major version: hosts that were built earlier rely on them. */
#define KV_LAYOUT(condition) static_assert(condition, "not the layout of major version 1")
#define KV_LP(on64, on32) (sizeof(void *) == 8 ? (size_t)(on64) : (size_t)(on32))
KV_LAYOUT(offsetof(KvRecvVendTlv, value) == 8 && sizeof(KvRecvVendTlv) == KV_LP(16, 12));
KV_LAYOUT(offsetof(KvVendMsgDest, buffer) == 8 && offsetof(KvVendMsgDest, length) == KV_LP(16, 12) &&
          sizeof(KvVendMsgDest) == KV_LP(24, 16));
KV_LAYOUT(offsetof(Kv1905BcmCbs, jsonDataModelWrite) == sizeof(void *) &&
          offsetof(Kv1905BcmCbs, vendMsgSend) == 2 * sizeof(void *) &&
          offsetof(Kv1905BcmCbs, vendMcastMsgSend) == 3 * sizeof(void *) &&
          offsetof(Kv1905BcmCbs, vendRelayMcastMsgSend) == 4 * sizeof(void *) &&
          offsetof(Kv1905BcmCbs, cmdSend) == 5 * sizeof(void *) &&
          offsetof(Kv1905BcmCbs, apCfgSet) == 6 * sizeof(void *) && sizeof(Kv1905BcmCbs) == 7 * sizeof(void *));
KV_LAYOUT(offsetof(KvIntfEntry, mac) == sizeof(void *) && offsetof(KvIntfEntry, mediaType) == KV_LP(16, 12) &&
          sizeof(KvIntfEntry) == KV_LP(24, 16));
KV_LAYOUT(offsetof(KvIntfList, head) == sizeof(void *) && sizeof(KvIntfList) == 2 * sizeof(void *));
KV_LAYOUT(offsetof(WIFINeighborEntry, mac) == sizeof(void *) &&
          offsetof(WIFINeighborEntry, mediaType) == sizeof(void *) + 6 &&
          offsetof(WIFINeighborEntry, Rate) == sizeof(void *) + 8 &&
          offsetof(WIFINeighborEntry, RSSI) == sizeof(void *) + 10 &&
          offsetof(WIFINeighborEntry, SNR) == sizeof(void *) + 12 &&
          offsetof(WIFINeighborEntry, signalLevel) == sizeof(void *) + 14 &&
          offsetof(WIFINeighborEntry, Tx) == sizeof(void *) + 16 &&
          offsetof(WIFINeighborEntry, Rx) == sizeof(void *) + 20 &&
          offsetof(WIFINeighborEntry, tx_rate) == sizeof(void *) + 24 &&
          offsetof(WIFINeighborEntry, rx_rate) == sizeof(void *) + 26 &&
          offsetof(WIFINeighborEntry, lastSeen) == sizeof(void *) + 28 &&
          offsetof(WIFINeighborEntry, Band) == sizeof(void *) + 32 && sizeof(WIFINeighborEntry) == KV_LP(48, 40));
KV_LAYOUT(offsetof(WIFINeighborList, head) == sizeof(void *) && sizeof(WIFINeighborList) == 2 * sizeof(void *));
KV_LAYOUT(offsetof(SecurityConfig, secLen) == 4 && offsetof(SecurityConfig, secData) == 8 &&
          sizeof(SecurityConfig) == KV_LP(16, 12));
KV_LAYOUT(offsetof(KvDevVendorData, rebootFromNbrCap) == 1 && offsetof(KvDevVendorData, intfPwrCtrlFromNbrCap) == 2 &&
          offsetof(KvDevVendorData, fwVersion) == 3 && offsetof(KvDevVendorData, newFwVersion) == 131 &&
          offsetof(KvDevVendorData, newFwDate) == 259 && offsetof(KvDevVendorData, auxStatus) == 387 &&
          offsetof(KvDevVendorData, fwUpgradeStatus) == 388 && offsetof(KvDevVendorData, modelName) == 389 &&
          offsetof(KvDevVendorData, ipAddr) == 517 && offsetof(KvDevVendorData, opMode) == 645 &&
          offsetof(KvDevVendorData, buildNum) == 677 && offsetof(KvDevVendorData, protoVersion) == 709 &&
          offsetof(KvDevVendorData, ledStatus) == 741 && offsetof(KvDevVendorData, appVersion) == 773 &&
          offsetof(KvDevVendorData, l2DevCtrl) == 805 && offsetof(KvDevVendorData, wifiAutoCfg) == 837 &&
          offsetof(KvDevVendorData, wifiOnOff) == 869 && offsetof(KvDevVendorData, fwUpgrade) == 901 &&
          offsetof(KvDevVendorData, ledOnOff) == 933 && offsetof(KvDevVendorData, channel24G) == 965 &&
          offsetof(KvDevVendorData, channel5G) == 981 && offsetof(KvDevVendorData, channelExtra) == 997 &&
          offsetof(KvDevVendorData, confFileMtime) == 1016 && offsetof(KvDevVendorData, versionFileMtime) == 1020 &&
          offsetof(KvDevVendorData, uptime) == 1024 && offsetof(KvDevVendorData, uptimeRecvTime) == 1040 &&
          offsetof(KvDevVendorData, wifiNbrNum) == 1044 && offsetof(KvDevVendorData, wifiNbrHead) == 1048 &&
          offsetof(KvDevVendorData, security) == KV_LP(1056, 1052) && sizeof(KvDevVendorData) == KV_LP(1072, 1064));
KV_LAYOUT(sizeof(KvIntfVendorData) == 4);
KV_LAYOUT(offsetof(KvVendMsg, alMac) == 3 && offsetof(KvVendMsg, marker) == 9 && offsetof(KvVendMsg, msgType) == 12 &&
          offsetof(KvVendMsg, payloadLen) == 14 && offsetof(KvVendMsg, payload) == 16 &&
          sizeof(KvVendMsg) == KV_LP(24, 20));
KV_LAYOUT(offsetof(KvRssiMeasurement, rxRate10) == 6 && offsetof(KvRssiMeasurement, txRate10) == 8 &&
          offsetof(KvRssiMeasurement, rssi) == 10 && offsetof(KvRssiMeasurement, snr) == 11 &&
          sizeof(KvRssiMeasurement) == 12);
KV_LAYOUT(offsetof(KvIntelVendMsg, field3) == 3 && offsetof(KvIntelVendMsg, field7) == 7 &&
          offsetof(KvIntelVendMsg, msgType) == 9 && offsetof(KvIntelVendMsg, field10) == 10 &&
          offsetof(KvIntelVendMsg, field11) == 11 && offsetof(KvIntelVendMsg, field18) == 17 &&
          offsetof(KvIntelVendMsg, payload) == KV_LP(24, 20) && sizeof(KvIntelVendMsg) == KV_LP(32, 24));
KV_LAYOUT(offsetof(KvIntfPwrCtrlEntry, mediaType) == 6 && sizeof(KvIntfPwrCtrlEntry) == 8);
KV_LAYOUT(offsetof(KvIntfPwrCtrlReq, count) == 6 && offsetof(KvIntfPwrCtrlReq, zero) == 7 &&
          offsetof(KvIntfPwrCtrlReq, entries) == 8 && offsetof(KvIntfPwrCtrlReq, pwrState) == 248 &&
          sizeof(KvIntfPwrCtrlReq) == 252);
KV_LAYOUT(offsetof(KvFWCtrlReq, FWOption) == 6 && offsetof(KvFWCtrlReq, FWTopoOption) == 8 &&
          offsetof(KvFWCtrlReq, FWURLcount) == 10 && offsetof(KvFWCtrlReq, FWURL) == 12 && sizeof(KvFWCtrlReq) == 2060);
KV_LAYOUT(offsetof(KvLedCtrlReq, ledOption) == 6 && sizeof(KvLedCtrlReq) == 8);
KV_LAYOUT(offsetof(KvCommandReq, CommandDatacount) == 6 && offsetof(KvCommandReq, CommandURLcount) == 8 &&
          offsetof(KvCommandReq, CommandURL) == 10 && sizeof(KvCommandReq) == 2058);
KV_LAYOUT(offsetof(KvMdidInterface, ifname) == 6 && offsetof(KvMdidInterface, mdid) == 22 &&
          offsetof(KvMdidInterface, enabled) == 24 && sizeof(KvMdidInterface) == 26);
KV_LAYOUT(offsetof(KvMdidInterfaceList, interfaces) == 4 && sizeof(KvMdidInterfaceList) == 396);
KV_LAYOUT(offsetof(KvBssConfig, Attribute) == 1 && offsetof(KvBssConfig, MDID) == 2 &&
          offsetof(KvBssConfig, TCI) == 4 && offsetof(KvBssConfig, WlMode) == 6 &&
          offsetof(KvBssConfig, ExtAttribute) == 7 && sizeof(KvBssConfig) == 8);
KV_LAYOUT(offsetof(KvBssInfo, Attribute) == 1 && offsetof(KvBssInfo, MDID) == 2 && offsetof(KvBssInfo, TCI) == 4 &&
          offsetof(KvBssInfo, WlMode) == 6 && offsetof(KvBssInfo, ExtAttribute) == 7 &&
          offsetof(KvBssInfo, Channel) == 8 && offsetof(KvBssInfo, ACS_Sideband) == 9 &&
          offsetof(KvBssInfo, Bandwidth) == 10 && sizeof(KvBssInfo) == 12);
KV_LAYOUT(offsetof(SyncCtrlerPwdMsgData, pwdLen) == 6 && offsetof(SyncCtrlerPwdMsgData, pwd) == 8 &&
          sizeof(SyncCtrlerPwdMsgData) == 264);
KV_LAYOUT(offsetof(SyncCtrlerCountryMsgData, countryLen) == 6 && offsetof(SyncCtrlerCountryMsgData, country) == 7 &&
          sizeof(SyncCtrlerCountryMsgData) == 11);

/* ---- Globals ---- */

/** The callbacks in force; all null until kvMAP1905_Func_reg. The host reads slot 6 from here. */
extern KVMAP1905_API Kv1905BcmCbs g_kv1905_bcm_cbs;
/** The local device's AL MAC; written by the host before any message traffic. */
extern KVMAP1905_API uint8_t KvDevAlMac[KV_MAC_LEN];
/** Non-zero when the local device is the Multi-AP controller; set by kvMAP1905_DeviceDm_init, 1 before it. */
extern KVMAP1905_API uint8_t controller;
/** Time of the last registration, seconds since the epoch; the plug-in only writes it. */
extern KVMAP1905_API uint32_t g_timeStamp;
/** Time of the last JSON data-model write, seconds since the epoch; written by the host. While it is more than
 * 2 seconds old, every kvMAP1905_MainLoop requests a write. */
extern KVMAP1905_API uint32_t data_model_time_stamp;
/** 01:80:C2:00:00:13. */
extern KVMAP1905_API const uint8_t I5_MCAST_MAC_ADDRESS[KV_MAC_LEN];
/** Firmware download time-out in seconds, for the host; the plug-in does not read it. */
extern KVMAP1905_API uint32_t download_timeout;
/** Role-selection flags, rebuilt by kvMAP1905_param_update: KV_FLAG_*. */
extern KVMAP1905_API uint32_t kvFlags;
/** Network-control state, written by the host. */
extern KVMAP1905_API uint32_t NCAL_state;
/** Main SSIDs, two NUL-terminated slots of 33 bytes: 2.4 GHz, 5 GHz. */
extern KVMAP1905_API char g_MainSSID[66];
/** Main BSSIDs, 6 bytes each: 2.4 GHz, 5 GHz. */
extern KVMAP1905_API uint8_t g_MainBSSID[12];

/** Stations that are associated with this device: how many. Only read by the host; renewed from the
 * driver's station files every 10 seconds by kvMAP1905_MainLoop, so pointers into the list are valid until the next
 * call. */
extern KVMAP1905_API uint32_t WIFINbrNum;
/** The first of them. */
extern KVMAP1905_API WIFINeighborEntry *WIFINeighborHead;

/** Firmware state, driven by command 111: 0 none, 2 downloading, 3 downloaded. */
extern KVMAP1905_API int32_t State_fw_is_download;
/** The same: 0 none, 4 writing, 5 written. */
extern KVMAP1905_API int32_t State_fw_upgrade;
/* Further firmware values, for the host. */
extern KVMAP1905_API int32_t Download_and_upgrade;  /**< the plug-in does not read it */
extern KVMAP1905_API int32_t Time_download;         /**< the plug-in does not read it */
extern KVMAP1905_API int32_t State_new_fw;          /**< the plug-in does not read it */
extern KVMAP1905_API char FW_file_name[128];        /**< the plug-in does not read it */
extern KVMAP1905_API char FW_file_version_old[128]; /**< the plug-in does not read it */
extern KVMAP1905_API char FW_file_version_new[128]; /**< the plug-in does not read it */
extern KVMAP1905_API char FW_file_date[128];        /**< the plug-in does not read it */

#define KV_FLAG_AUTO_ROLE_SELECT 0x1u                    /**< autoRoleSelect is not 0 */
#define KV_FLAG_AUTO_ROLE_SELECT_ONLY_WHEN_GW_FOUND 0x2u /**< autoRoleSelectOnlyWhenGwFound is not 0 */
#define KV_FLAG_MODE_AP 0x4u                             /**< Mode is ap */
#define KV_FLAG_MODE_REPEATER 0x8u                       /**< Mode is repeater */

/**
 * @name Registration and data-model access
 * @{
 */
/**
 * Copies the host's callbacks and stores the time in g_timeStamp. May be repeated.
 * @param table  the host's seven slots, only read; null is logged and changes no slot
 * @param flag   1 copies only slot 5 (the command tool), any other value slots 0 to 4 (the daemon). A slot that is not
 *               copied keeps its value; slot 6 is never read.
 */
KVMAP1905_API void kvMAP1905_Func_reg(const Kv1905BcmCbs *table, uint8_t flag);

/**
 * Stores kvMAP1905_ApCfg_set in slot 6 of g_kv1905_bcm_cbs.
 * @param ignored  not used
 */
KVMAP1905_API void kvMAP1905_ApCfg_reg(void *ignored);

/**
 * Does nothing: the AP-configuration setter of slot 6.
 * @param argument  not used
 * @return 0
 */
KVMAP1905_API int kvMAP1905_ApCfg_set(void *argument);

/**
 * Queries the host's topology database through slot 0.
 * @param code       DM_QUERY_*
 * @param argument   as DM_QUERY_* defines it, passed through unchanged
 * @param argument2  likewise
 * @return the slot's result; 0 with an empty slot, which is logged
 */
KVMAP1905_API uintptr_t kvMAP1905_DmData_get(uint32_t code, void *argument, uintptr_t argument2);

/**
 * Requests a write of the host's JSON data-model file through slot 1.
 * @return the slot's result; KV_RET_ERR with an empty slot, which is logged
 */
KVMAP1905_API int kvMAP1905_JsonDataModel_write(void);
/** @} */

/**
 * @name Periodic work, role and local record
 * @{
 */
/**
 * Runs the tasks that are due. Call it about once a second. Blocks while shell commands run (every 10 and 120 seconds).
 * @return no meaning
 */
KVMAP1905_API int kvMAP1905_MainLoop(void);

/**
 * Rebuilds kvFlags from /tmp/.kv1905_conf.
 * @retval 0           kvFlags is rebuilt
 * @retval KV_RET_ERR  the file cannot be opened; kvFlags is unchanged
 */
KVMAP1905_API int kvMAP1905_param_update(void);

/**
 * Reads the role from the nvram setting multiap_mode. Runs "nvram show" and waits for it.
 * @retval 1  bit 0 is set: this device is the Multi-AP controller
 * @retval 0  it is not set, or nvram could not be read
 */
KVMAP1905_API int kvMAP1905_findController(void);

/**
 * Initialises the local device's record: sets the exported controller flag, then loads all files.
 * @param dev  zero-filled; null is ignored
 */
KVMAP1905_API void kvMAP1905_DeviceDm_init(KvDevVendorData *dev);

/**
 * Reloads the files that changed since the last call. Costs two stat calls when nothing changed.
 * @param dev  the local device's record; null is logged
 */
KVMAP1905_API void kvMAP1905_DeviceDm_update(KvDevVendorData *dev);

/**
 * Initialises an interface's record from the power settings of its band.
 * @param intf       the record; null is logged
 * @param mediaType  IEEE 1905.1 media type; the low 16 bits are used
 */
KVMAP1905_API void kvMAP1905_DevIntfDm_init(KvIntfVendorData *intf, uint32_t mediaType);

/**
 * Reports whether a device supports the vendor protocol.
 * @param alMac    6 bytes
 * @param isKovan  receives 1 or 0
 * @retval 0           isKovan is set
 * @retval KV_RET_ERR  the host does not know the device; isKovan is unchanged
 */
KVMAP1905_API int checkKovanAgent(const uint8_t *alMac, uint8_t *isKovan);

/**
 * Reports what the controller may do with this device.
 * @param which  0: reboot and reset it, 1: switch the power of its interfaces
 * @return 1 when it may, else 0
 */
KVMAP1905_API int kvMAP1905_CtrlFromNbrCap_get(int which);

/**
 * Reads the current channel of a Wi-Fi interface. Runs "wl -i IFNAME chanspec" and waits for it.
 * @param ifname      at most 144 characters that are safe for a shell; another name is logged and wl is not run
 * @param channelOut  space for 16 characters; unchanged when wl fails
 */
KVMAP1905_API void kvMAP1905_WifiChan_get(const char *ifname, char *channelOut);
/** @} */

/**
 * @name Sending
 * Each function encodes one message and passes it to a slot of the callback table. KV_RET_ERR also means: the slot is
 * empty, memory ran out, the type is unknown, or the encoded message exceeds KV_VEND_MSG_BUFFER_LEN bytes.
 * @{
 */
/**
 * Sends a message of the vendor's set by unicast (slot 2).
 * @param destinationMac  6 bytes
 * @param msgId           in and out, as Kv1905BcmCbs defines it; may be null
 * @param msg             only read
 * @return 0 when the host accepted it, else KV_RET_ERR
 */
KVMAP1905_API int kvMAP1905_VenderSpecMsg_send(const uint8_t *destinationMac, uint16_t *msgId, const KvVendMsg *msg);

/**
 * Sends a message of Intel's set by unicast (slot 2).
 * @param destinationMac  6 bytes
 * @param msgId           in and out, as Kv1905BcmCbs defines it; may be null
 * @param msg             only read
 * @return 0 when the host accepted it, else KV_RET_ERR
 */
KVMAP1905_API int kvMAP1905_IntelVenderSpecMsg_send(const uint8_t *destinationMac, uint16_t *msgId,
                                                    const KvIntelVendMsg *msg);

/**
 * Sends a message of the vendor's set to the neighbours, 01:80:C2:00:00:13 (slot 3).
 * @param msg    only read
 * @param msgId  in and out, as Kv1905BcmCbs defines it; may be null
 * @return 0 when the host accepted it, else KV_RET_ERR
 */
KVMAP1905_API int kvMAP1905_VenderSpecMcastMsg_send(const KvVendMsg *msg, uint16_t *msgId);

/**
 * Sends a message of the vendor's set to every device by relayed multicast (slot 4).
 * @param msg    only read
 * @param msgId  in and out, as Kv1905BcmCbs defines it; may be null
 * @return 0 when the host accepted it, else KV_RET_ERR
 */
KVMAP1905_API int kvMAP1905_VenderSpecRelayMcastMsg_send(const KvVendMsg *msg, uint16_t *msgId);
/** @} */

/**
 * @name Receiving
 * Malformed and unknown messages are logged and dropped.
 * @{
 */
/**
 * Handles one received vendor-specific TLV of any OUI.
 * @param tlv     source and value
 * @param length  bytes at tlv->value; nothing beyond them is read
 * @param msgId   message identifier of the frame (low 16 bits)
 */
KVMAP1905_API void kvMAP1905_VendSpecTlv_handle(const KvRecvVendTlv *tlv, uint32_t length, uint32_t msgId);

/**
 * Handles one message of the vendor's set whose length the host does not know. Prefer kvMAP1905_VendSpecTlv_handle.
 * @param tlv    source and value: 15 readable bytes, plus the big-endian number of bytes at offset 13
 * @param msgId  message identifier of the frame (low 16 bits)
 */
KVMAP1905_API void kvMAP1905_VendSpecMsg_handle(const KvRecvVendTlv *tlv, uint32_t msgId);

/**
 * Handles one message of Intel's set whose length the host does not know.
 * @param tlv    source and value: 28 readable bytes
 * @param msgId  message identifier of the frame (low 16 bits)
 */
KVMAP1905_API void kvMAP1905_VendSpecMsg_handle_Intel(const KvRecvVendTlv *tlv, uint32_t msgId);
/** @} */

/**
 * @name Queries and notifications that the host starts
 * @{
 */
/**
 * Queries an agent's configuration. Sent again after more than 5 seconds without a response, at most twice.
 * @param alMac  the agent's AL MAC
 * @param retry  number of earlier attempts: 0 from a host
 * @return 0 when it was sent, else KV_RET_ERR
 */
KVMAP1905_API int kvMAP1905_ConfQuery_send(const uint8_t *alMac, uint8_t retry);

/**
 * Sends this device's configuration. Runs ifconfig and wl and waits for them.
 * @param source  the query's source, whose MAC receives the response; not used with mcast 1
 * @param msgId   the query's; with mcast 1, 0 lets the host choose one
 * @param mcast   1 sends to every device by relayed multicast
 * @return 0 when it was sent, else KV_RET_ERR
 */
KVMAP1905_API int kvMAP1905_ConfRespMsg_send(const KvRecvVendTlv *source, uint16_t msgId, uint8_t mcast);

/**
 * Queries the stations that are associated with an agent. Sent once; responses are merged into the agent's table.
 * @param alMac     the agent's AL MAC
 * @param reserved  not read
 * @return 0 when it was sent, else KV_RET_ERR
 */
KVMAP1905_API int kvMAP1905_WifiStateQuery_send(const uint8_t *alMac, uint8_t reserved);

/**
 * Reports the signal of one of this device's stations in Intel's message 0x6A.
 * @param destination  AL MAC of the receiver
 * @param msg          the host sets payload (null is refused), its staMac, field11 and field18; the function fills in
 *                     the rest, payload included when the station is known
 * @retval 0           sent with the measured values
 * @retval 1           the station is not in the list; sent with the caller's values
 * @retval KV_RET_ERR  the list is empty (sent with the caller's values), or nothing could be sent
 */
KVMAP1905_API int kvMAP1905_RssiMeasurementNotify_send(const uint8_t *destination, KvIntelVendMsg *msg);

/**
 * Queries the power state of an agent's interfaces. Sent again like a configuration query.
 * @param alMac  the agent's AL MAC
 * @param retry  number of earlier attempts: 0 from a host
 * @return 0 when it was sent, else KV_RET_ERR
 */
KVMAP1905_API int kvMAP1905_IntfPwrStateQuery_send(const uint8_t *alMac, uint8_t retry);

/**
 * Records in the local device's record that a newer firmware is available.
 * @param result  1 records it; another value changes nothing
 * @return 0, or KV_RET_ERR without a local record
 */
KVMAP1905_API int updateKvFWNewfirmware(int result);

/**
 * Requests the controller's administrator password or country. A response is applied when it arrives, and none
 * is awaited.
 * @param alMac    the controller's AL MAC
 * @param command  0: password, 1: country in beacons
 * @return 0 when it was sent, KV_RET_ERR for another command or a failed send
 */
KVMAP1905_API int kvMAP1905_SyncCtrlSettingReq_send(const uint8_t *alMac, int command);

/**
 * Applies one radio's country with wl and waits for it. Texts that are not safe for a shell are logged, without wl.
 * @param ifname         the radio's interface
 * @param countryCode    its part before "/" is used when beaconCountry is empty
 * @param beaconCountry  the country in beacons, or empty
 * @return 0
 */
KVMAP1905_API int kvMAP1905_CountryInBcn_update(const char *ifname, const char *countryCode, const char *beaconCountry);
/** @} */

/**
 * @name TLVs and the Wi-Fi Simple Configuration extension
 * @{
 */
/**
 * Writes the value of the MDID TLV (IEEE 1905.1 vendor-specific TLV, element 0xC0), after filling in every mdid.
 * @param buffer  space for 142 bytes
 * @param length  receives the number of bytes written
 * @param list    1 to 15 entries
 * @retval 0   written
 * @retval -1  a null argument, a wrong number of entries, or a backhaul BSS "wl0.5" without MDID; length is unchanged
 */
KVMAP1905_API int kvMAP1905_TlvMDID_insert(uint8_t *buffer, uint32_t *length, KvMdidInterfaceList *list);

/**
 * Fills in every mdid of the list from the last result or, when a BSSID is new, from "nvram show".
 * @param list  1 to 15 entries; without nvram every mdid is 0; they stay when its output file cannot be opened
 * @return 0, or -1 as kvMAP1905_TlvMDID_insert
 */
KVMAP1905_API int kvMAP1905_mdid_update(KvMdidInterfaceList *list);

/**
 * Writes the value of the BSS configuration TLV (IEEE 1905.1 vendor-specific TLV, element 0xD0).
 * @param buffer  space for 7 + 8 * count bytes
 * @param length  receives the number of bytes written
 * @param list    a uint32_t count, 1 to 255, then as many KvBssConfig entries from offset 4
 * @return 0, or -1 with length unchanged
 */
KVMAP1905_API int kvMAP1905_TlvBss_Config_insert(uint8_t *buffer, uint32_t *length, const void *list);

/**
 * Writes the vendor's Wi-Fi Simple Configuration attribute (0x1049, vendor ID 0A 61 C4) for one BSS.
 * @param buffer  the attribute list under construction
 * @param offset  position in buffer, with space for 24 bytes
 * @param bss     only read
 * @return bytes written: 24, or 0 for a null argument
 */
KVMAP1905_API int kvMAP1905_ApCfg_fill(uint8_t *buffer, uint32_t offset, const KvBssInfo *bss);

/**
 * Parses sub-elements 1 to 4, in this order, up to the first one that is missing. Prefer the function below.
 * @param data  the attribute from its vendor ID on: the sub-elements and one more readable byte; reads at most 17 bytes
 * @param bss   receives the fields
 * @return 0, or -1 for a wrong vendor ID or a null argument
 */
KVMAP1905_API int kvMAP1905_ApCfg_parse(const uint8_t *data, KvBssInfo *bss);

/**
 * Parses sub-elements in any order. ExtAttribute defaults to the nvram setting of the interface that BandIndex names.
 * @param data  the attribute from its vendor ID on
 * @param len   bytes from there to the attribute's end
 * @param bss   receives the fields; those parsed before a fault stay
 * @retval 0   parsed
 * @retval -1  a null argument, a wrong vendor ID, a wrong length of a sub-element, or one that exceeds len
 */
KVMAP1905_API int kvMAP1905_ApCfg_parse_check_len(const uint8_t *data, uint32_t len, KvBssInfo *bss);

/**
 * Sets ExtAttribute from nvram.
 * @param subElements  at least 3 bytes, the third of which is the BandIndex
 * @param bss          receives ExtAttribute; unchanged when nvram has no setting
 * @return 0
 */
KVMAP1905_API int kvMAP1905_parameter_init(const uint8_t *subElements, KvBssInfo *bss);

/**
 * Logs the nine fields at debug level.
 * @param bss  only read
 */
KVMAP1905_API void dumpBssInfo(const KvBssInfo *bss);
/** @} */

/**
 * @name Operator commands
 * @{
 */
/**
 * Runs one posted command in the daemon. The outcome is logged. An agent's response arrives later in the result file
 * /tmp/1905ReturnValue: one byte as two hexadecimal digits and a newline.
 * @param buffer  laid out as KV_CMD_* defines for the code, any alignment, only read
 * @param code    KV_CMD_*
 */
KVMAP1905_API void kvMAP1905_VendSpecCmd_handle(void *buffer, uint32_t code);
/** @} */

/**
 * @name Tool commands
 * Each function checks the arguments of one command of the tool, fills its buffer and posts it through slot 5.
 * @{
 */
/**
 * Posts a reboot (command "2"): AL MAC.
 * @param context  not read
 * @param argc     number of entries in argv
 * @param argv     the command's arguments from argv[2] on; argv[0] and argv[1] are not read
 * @return slot 5's result; -1 when the arguments are refused or the slot is empty
 */
KVMAP1905_API int kvMAP1905_RebootQuery_send(void *context, int argc, char **argv);
/** Posts interface power control ("3"): AL MAC, interface MAC, media type (hexadecimal), power state.
 * @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_CtrlInftPwrQuery_send(void *context, int argc, char **argv);
/** Posts firmware control ("9"): AL MAC, option 1 to 7, topology option, URL.
 * @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_FWCtrlQuery_send(void *context, int argc, char **argv);
/** Posts a reset to factory defaults ("10"): AL MAC. @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_ResetDefaultQuery_send(void *context, int argc, char **argv);
/** Posts a firmware result ("11"): number; 0 and 2 to 5 have an effect. @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_FwResult_set(void *context, int argc, char **argv);
/** Posts LED control ("14"): AL MAC, state. @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_ledStatus_send(void *context, int argc, char **argv);
/** Posts a partial reset ("20"): AL MAC. @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_PartialResetDefaultQuery_send(void *context, int argc, char **argv);
/** Posts a remote command ("100"): AL MAC, words. @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_CmdQuery_send(void *context, int argc, char **argv);
/** Posts log settings ("d"): two or three numbers. @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_SyslogDbg_set(void *context, int argc, char **argv);
/** Posts a request for the controller's country: one argument, not read. @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_sync_country_req_send(void *context, int argc, char **argv);
/** Posts the country in beacons: a text of 0 to 4 characters. @copydetails kvMAP1905_RebootQuery_send */
KVMAP1905_API int kvMAP1905_CountryInBcn_send(void *context, int argc, char **argv);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
