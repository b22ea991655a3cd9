/**
 * @file
 * kcfg.h - the device's configuration library, as the plug-in calls it.
 *
 * The configuration service holds the device's configuration data model as numbered objects with instances
 * and performs system-wide requests. A device brings its own implementation; libkvplatform.so is the development
 * stand-in. All calls are synchronous and run on the caller's thread.
 *
 * Ownership: a get returns a newly allocated copy. The caller releases a structure with free() and a JSON object with
 * json_object_put(). On failure the out pointer is set to null. A set only reads its arguments.
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

/** Index of an instance of an object. All zero: the only instance, and the start of an iteration. Level 1 with
 * instance[0] == 1: the first instance of a multi-instance object. */
typedef struct {
    uint8_t level;       /**< index levels in use, 0 to 6 */
    uint8_t instance[6]; /**< one instance number per level, counted from 1 */
} KcfgInstanceIndex;

/** Objects that the plug-in uses, with their structures. */
enum {
    RDM_OID_NAT_INTF_SETTING = 68104, /**< login accounts: RdmNatIntfSetting per instance */
    RDM_OID_FACTORY_RESET = 75172,    /**< member "FactoryResetUnpurgedList"; only as JSON */
    RDM_OID_LED_CTRL = 88892,         /**< RdmLedCtrl, one instance */
    RDM_OID_WIFI_RADIO = 110680,      /**< RdmWifiRadio per instance */
    RDM_OID_SYNC_KEY_SOURCE = 114476  /**< RdmSyncKeySource, one instance */
};

/** The device's LEDs. */
typedef struct {
    uint8_t enable; /**< 1 LEDs on, 0 off */
} RdmLedCtrl;

/** A login account. */
typedef struct {
    char userName[256]; /**< NUL-terminated */
    char password[256]; /**< NUL-terminated, empty for none */
} RdmNatIntfSetting;

/** A radio's country. */
typedef struct {
    char ifName[32];         /**< the radio's interface, such as "wl0" */
    char countryCode[16];    /**< country of the radio */
    char countryInBeacon[5]; /**< country in beacons, such as "E0/1" */
} RdmWifiRadio;

/** Source of the key that scrambles passwords. */
typedef struct {
    char key[257]; /**< NUL-terminated, empty for none */
} RdmSyncKeySource;

/** Service requests. */
enum {
    KCFG_REQ_RESET_DEFAULT = 8,         /**< restore the factory defaults */
    KCFG_REQ_PARTIAL_RESET_DEFAULT = 34 /**< the same, except for the objects in "FactoryResetUnpurgedList" */
};

/**
 * Reads an instance as a structure of the object's type.
 * @param number  RDM_OID_*
 * @param index   the instance
 * @param copy    receives the structure, which the caller frees
 * @return 0, or non-zero on failure
 */
int kcfgFeObjStructGetWithoutUpdate(uint32_t number, KcfgInstanceIndex *index, void **copy);

/**
 * Reads the next instance after the index, in the service's order.
 * @param number  RDM_OID_*
 * @param index   all zero at the start; advanced to the instance that was read
 * @param copy    receives the structure, which the caller frees
 * @return 0, or non-zero after the last instance
 */
int kcfgFeObjStructGetNextWithoutUpdate(uint32_t number, KcfgInstanceIndex *index, void **copy);

/**
 * Writes an instance from a structure and applies it.
 * @param number  RDM_OID_*
 * @param index   the instance
 * @param value   structure of the object's type
 * @param options null
 * @return 0, or non-zero on failure
 */
int kcfgFeObjStructSet(uint32_t number, KcfgInstanceIndex *index, void *value, const char *options);

/**
 * Writes an instance from a structure and leaves applying it to the service.
 * @param number  RDM_OID_*
 * @param index   the instance
 * @param value   structure of the object's type
 * @param options null
 * @return 0, or non-zero on failure
 */
int kcfgFeObjStructSetWithoutApply(uint32_t number, KcfgInstanceIndex *index, void *value, const char *options);

/**
 * Reads an instance as a JSON object.
 * @param number  RDM_OID_*
 * @param index   the instance
 * @param copy    receives the object, which the caller releases
 * @return 0, or non-zero on failure
 */
int kcfgFeObjJsonGet(uint32_t number, KcfgInstanceIndex *index, struct json_object **copy);

/**
 * Writes an instance from a JSON object without applying it.
 * @param number  RDM_OID_*
 * @param index   the instance
 * @param value   stays the caller's
 * @param options null
 * @return 0, or non-zero on failure
 */
int kcfgFeObjJsonSetWithoutApply(uint32_t number, KcfgInstanceIndex *index, struct json_object *value,
                                 const char *options);

/**
 * Sends a request to the service.
 * @param request  KCFG_REQ_*
 * @param payload  null
 * @param length   0
 * @return 0 when the service accepted it, else non-zero
 */
int kcfgFeReqSend(uint32_t request, const void *payload, uint32_t length);

#define KCFG_LAYOUT(condition) static_assert(condition, "not the layout of major version 1")
KCFG_LAYOUT(offsetof(KcfgInstanceIndex, instance) == 1 && sizeof(KcfgInstanceIndex) == 7);
KCFG_LAYOUT(offsetof(RdmNatIntfSetting, password) == 256 && sizeof(RdmNatIntfSetting) == 512);
KCFG_LAYOUT(sizeof(RdmLedCtrl) == 1 && sizeof(RdmSyncKeySource) == 257);
KCFG_LAYOUT(offsetof(RdmWifiRadio, countryCode) == 32 && offsetof(RdmWifiRadio, countryInBeacon) == 48 &&
            sizeof(RdmWifiRadio) == 53);

#ifdef __cplusplus
}
#endif

#endif
