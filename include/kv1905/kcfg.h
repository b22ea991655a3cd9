/**
 * @file
 * kcfg.h - the device's configuration library, as the plug-in calls it.
 *
 * The configuration service behind it holds the device's configuration data model as numbered objects with instances
 * and performs system-wide requests. A device brings its own implementation; libkvplatform.so is the development
 * stand-in. All calls are synchronous and run on the caller's thread. Each returns 0 on success and non-zero on failure.
 *
 * Copies: a get hands out a newly allocated copy. A structure is released with free(), a JSON object with
 * json_object_put(). On failure the out pointer is set to null. A set only reads what it is given.
 */
#ifndef KV1905_KCFG_H
#define KV1905_KCFG_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <assert.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct json_object;

/** Which instance of an object. All zero: the only instance, and the start of an iteration. Level 1 with
 * instance[0] == 1: the first instance of a multi-instance object. */
typedef struct {
    uint8_t level;       /**< index levels in use, 0 to 6 */
    uint8_t instance[6]; /**< one instance number per level, counted from 1 */
} KcfgInstanceIndex;

/** Objects that the plug-in uses, with their structures. */
enum {
    RDM_OID_NAT_INTF_SETTING = 68104, /**< login accounts: RdmNatIntfSetting per instance */
    RDM_OID_FACTORY_RESET = 75172,    /**< member "FactoryResetUnpurgedList"; JSON alone */
    RDM_OID_LED_CTRL = 88892,         /**< RdmLedCtrl, one instance */
    RDM_OID_WIFI_RADIO = 110680,      /**< RdmWifiRadio per instance */
    RDM_OID_SYNC_KEY_SOURCE = 114476  /**< RdmSyncKeySource, one instance */
};

/** The device's LEDs. */
typedef struct {
    uint8_t enable; /**< 1 LEDs on, 0 off */
} RdmLedCtrl;

/** One login account. */
typedef struct {
    char userName[256];
    char password[256];
} RdmNatIntfSetting;

/** One radio's country. */
typedef struct {
    char ifName[32];
    char countryCode[16];
    char countryInBeacon[5];
} RdmWifiRadio;

/** What the key of the settings sync is made from. */
typedef struct {
    char key[257];
} RdmSyncKeySource;

/** Service requests. */
enum {
    KCFG_REQ_RESET_DEFAULT = 8,         /**< restore the factory defaults */
    KCFG_REQ_PARTIAL_RESET_DEFAULT = 34 /**< the same, but for what "FactoryResetUnpurgedList" selects */
};

/** The instance as a structure of the object's type. */
int kcfgFeObjStructGetWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy);

/** The next instance after the index, in the service's order; the index is advanced to it. Non-zero after the last. */
int kcfgFeObjStructGetNextWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy);

/** Write the instance from a structure and apply it. options: null. */
int kcfgFeObjStructSet(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options);

/** Write the instance; applying is left to the service. options: null. */
int kcfgFeObjStructSetWithoutApply(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options);

/** The instance as a JSON object. */
int kcfgFeObjJsonGet(uint32_t object, KcfgInstanceIndex *index, struct json_object **copy);

/** Write the instance from a JSON object without applying it. options: null. */
int kcfgFeObjJsonSetWithoutApply(uint32_t object, KcfgInstanceIndex *index, struct json_object *value,
                                 const char *options);

/** Ask the service for a KCFG_REQ_*. payload: null, length: 0 for the requests above. 0 when it was accepted. */
int kcfgFeReqSend(uint32_t request, const void *payload, uint32_t length);

#define KCFG_LAYOUT(condition) static_assert(condition, "binary layout of a configuration object changed")
KCFG_LAYOUT(offsetof(KcfgInstanceIndex, instance) == 1 && sizeof(KcfgInstanceIndex) == 7);
KCFG_LAYOUT(offsetof(RdmNatIntfSetting, password) == 256 && sizeof(RdmNatIntfSetting) == 512);
KCFG_LAYOUT(sizeof(RdmLedCtrl) == 1 && sizeof(RdmSyncKeySource) == 257);
KCFG_LAYOUT(offsetof(RdmWifiRadio, countryCode) == 32 && offsetof(RdmWifiRadio, countryInBeacon) == 48 &&
            sizeof(RdmWifiRadio) == 53);

#ifdef __cplusplus
}
#endif

#endif
