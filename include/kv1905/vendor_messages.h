/**
 * @file
 * vendor_messages.h - the vendor messages: OUIs, message type numbers and names.
 *
 * Each name and number is written once, in the two lists below. A list calls X(NAME, NUMBER) for every type:
 *
 *     #define PRINT_ROW(name, number) printf("%3d %s\n", number, #name);
 *     KV_VENDOR_MESSAGES(PRINT_ROW)
 *
 * For C11 and C++20.
 */
#ifndef KV1905_VENDOR_MESSAGES_H
#define KV1905_VENDOR_MESSAGES_H

#include <stddef.h>

/** OUIs of the two message sets, the first three bytes of a vendor-specific TLV. */
enum { KV_VENDOR_OUI = 0x024EA7, KV_INTEL_OUI = 0x000347 };

/** Message types of the vendor OUI, u16 at offset 11 of the TLV's value, rising. Receivers refuse the reserved ones. */
#define KV_VENDOR_MESSAGES(X)         \
    X(CONF_QUERY, 0)                  \
    X(CONF_RESP, 1)                   \
    X(INTF_PWR_STATE_QUERY, 2)        \
    X(INTF_PWR_STATE_RESP, 3)         \
    X(REBOOT_REQ, 4)                  \
    X(REBOOT_RESP, 5)                 \
    X(INTF_PWR_CTRL_REQ, 6)           \
    X(INTF_PWR_CTRL_RESP, 7)          \
    X(WIFI_STATE_REQ, 8)              \
    X(WIFI_STATE_RESP, 9)             \
    X(RESERVED_10, 10)                \
    X(RESERVED_11, 11)                \
    X(RESERVED_12, 12)                \
    X(RESERVED_16, 16)                \
    X(RESERVED_17, 17)                \
    X(RESERVED_18, 18)                \
    X(RESERVED_19, 19)                \
    X(FW_CTRL_REQ, 20)                \
    X(FW_CTRL_RESP, 21)               \
    X(RESET_DEFAULT_REQ, 22)          \
    X(RESET_DEFAULT_RESP, 23)         \
    X(COMMAND_REQ, 25)                \
    X(PARTIAL_RESET_DEFAULT_REQ, 26)  \
    X(PARTIAL_RESET_DEFAULT_RESP, 27) \
    X(COMMAND_RESP, 32)               \
    X(LED_CTRL_REQ, 33)               \
    X(LED_CTRL_MCAST, 34)             \
    X(LED_CTRL_RESP, 35)              \
    X(WIFI_CLIENT_MCAST2, 36)         \
    X(RESERVED_42, 42)                \
    X(RESERVED_43, 43)                \
    X(RESERVED_44, 44)                \
    X(RESERVED_49, 49)                \
    X(RESERVED_50, 50)                \
    X(SYNC_CTRL_PWD_RESP, 69)         \
    X(SYNC_CTRL_PWD_REQ, 70)          \
    X(SYNC_CTRL_COUNTRY_BCN_REQ, 76)  \
    X(SYNC_CTRL_COUNTRY_BCN_RESP, 77)

/** Message types of Intel's OUI, u8 at offset 9 of the TLV's value. */
#define KV_INTEL_MESSAGES(X)       \
    X(RSSI_MEASUREMENT_REQ, 0x67)  \
    X(RSSI_MEASUREMENT_RESP, 0x68) \
    X(RSSI_MEASUREMENT_NOTIFY, 0x6A)

#define KV_VENDOR_MESSAGE_NUMBER(name, number) VEND_MSG_TYPE_##name = (number),
#define KV_INTEL_MESSAGE_NUMBER(name, number) INTEL_MSG_TYPE_##name = (number),
#define KV_MESSAGE_NAME(name, number) \
    case number:                      \
        return #name;

/** VEND_MSG_TYPE_CONF_QUERY and so on. Every number is below VEND_MSG_TYPE_LIMIT. */
enum { KV_VENDOR_MESSAGES(KV_VENDOR_MESSAGE_NUMBER) VEND_MSG_TYPE_LIMIT };

/** INTEL_MSG_TYPE_RSSI_MEASUREMENT_REQ and so on. */
enum { KV_INTEL_MESSAGES(KV_INTEL_MESSAGE_NUMBER) };

/**
 * Returns the name of a message type of the vendor OUI.
 * @param type  type number
 * @return name such as "CONF_QUERY", null for a number without a message
 */
static inline const char *kvVendorMessageName(unsigned type) {
    switch (type) {
        KV_VENDOR_MESSAGES(KV_MESSAGE_NAME)
        default:
            return NULL;
    }
}

/**
 * Returns the name of a message type of Intel's OUI.
 * @param type  type number
 * @return name, null for a number without a message
 */
static inline const char *kvIntelMessageName(unsigned type) {
    switch (type) {
        KV_INTEL_MESSAGES(KV_MESSAGE_NAME)
        default:
            return NULL;
    }
}

#undef KV_VENDOR_MESSAGE_NUMBER
#undef KV_INTEL_MESSAGE_NUMBER
#undef KV_MESSAGE_NAME

#endif
