// What the protocol and the transport know of one message type. The rows stand in message_catalogue.cpp.
#pragma once

#include <cstdint>
#include <type_traits>

#include "kv1905/kvMAP1905.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

// Codes of the maker's message types (u16 at offset 11 of the envelope).
enum : uint16_t {
    VEND_MSG_TYPE_CONF_QUERY = 0,
    VEND_MSG_TYPE_CONF_RESP = 1,
    VEND_MSG_TYPE_INTF_PWR_STATE_QUERY = 2,
    VEND_MSG_TYPE_INTF_PWR_STATE_RESP = 3,
    VEND_MSG_TYPE_REBOOT_REQ = 4,
    VEND_MSG_TYPE_REBOOT_RESP = 5,
    VEND_MSG_TYPE_INTF_PWR_CTRL_REQ = 6,
    VEND_MSG_TYPE_INTF_PWR_CTRL_RESP = 7,
    VEND_MSG_TYPE_WIFI_STATE_REQ = 8,
    VEND_MSG_TYPE_WIFI_STATE_RESP = 9,
    VEND_MSG_TYPE_RESERVED_10 = 10,
    VEND_MSG_TYPE_RESERVED_11 = 11,
    VEND_MSG_TYPE_RESERVED_12 = 12,
    VEND_MSG_TYPE_RESERVED_16 = 16,
    VEND_MSG_TYPE_RESERVED_17 = 17,
    VEND_MSG_TYPE_RESERVED_18 = 18,
    VEND_MSG_TYPE_RESERVED_19 = 19,
    VEND_MSG_TYPE_FW_CTRL_REQ = 20,
    VEND_MSG_TYPE_FW_CTRL_RESP = 21,
    VEND_MSG_TYPE_RESET_DEFAULT_REQ = 22,
    VEND_MSG_TYPE_RESET_DEFAULT_RESP = 23,
    VEND_MSG_TYPE_COMMAND_REQ = 25,
    VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_REQ = 26,
    VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_RESP = 27,
    VEND_MSG_TYPE_COMMAND_RESP = 32,
    VEND_MSG_TYPE_LED_CTRL_REQ = 33,
    VEND_MSG_TYPE_LED_CTRL_MCAST = 34,
    VEND_MSG_TYPE_LED_CTRL_RESP = 35,
    VEND_MSG_TYPE_WIFI_CLIENT_MCAST2 = 36,
    VEND_MSG_TYPE_RESERVED_42 = 42,
    VEND_MSG_TYPE_RESERVED_43 = 43,
    VEND_MSG_TYPE_RESERVED_44 = 44,
    VEND_MSG_TYPE_RESERVED_49 = 49,
    VEND_MSG_TYPE_RESERVED_50 = 50,
    VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP = 69,
    VEND_MSG_TYPE_SYNC_CTRL_PWD_REQ = 70,
    VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_REQ = 76,
    VEND_MSG_TYPE_SYNC_CTRL_COUNTRY_BCN_RESP = 77,
    VEND_MSG_TYPE_LIMIT = 78,  // every code is below
};

// Where a dispatched message came from. A request inside a remote command is answered as a command response.
enum : unsigned { kOriginNetwork = 255, kOriginCommand = VEND_MSG_TYPE_COMMAND_REQ };

// Everything a handler may want to know.
struct Dispatch {
    const KvRecvVendTlv *source;
    uint16_t msgId;
    KvVendMsg *msg;
    unsigned origin;
};

// Reads the payload, whose reader ends where the payload does, into a record from calloc and leaves it in
// msg.payload, which the receive entry frees. Returns the bytes consumed; 0 refuses the message, payload stays null.
using PayloadDecoder = uint16_t (*)(ByteReader &payload, KvVendMsg &msg);

// Writes msg.payload, at most as many bytes as the buffer holds behind the envelope. 0 on success.
using PayloadEncoder = int (*)(const KvVendMsg &msg, ByteWriter &payload);

// Acts on a decoded message. 0 or KV_RET_ERR.
using Handler = int (*)(const Dispatch &dispatch);

// Sends a query again that nobody answered; attempts is the number of earlier sends. 0 or KV_RET_ERR.
using QuerySender = int (*)(const uint8_t *alMac, uint8_t attempts);

struct MessageRow {
    uint16_t type;
    const char *name;
    PayloadDecoder decode;
    PayloadEncoder encode;
    Handler handle;      // null: never dispatched, the decoder refuses it
    QuerySender resend;  // null: not tracked as an outstanding query
};

// Null for a code that is not in the catalogue.
const MessageRow *findMessageRow(uint16_t type);

// Fits a handler that takes some of (source, msgId, msg, origin), in this order, into a row.
template <auto Function>
int handledBy(const Dispatch &d) {
    using F = decltype(Function);
    if constexpr (std::is_invocable_v<F, const KvRecvVendTlv *, uint16_t, KvVendMsg *, unsigned>) {
        return Function(d.source, d.msgId, d.msg, d.origin);
    } else if constexpr (std::is_invocable_v<F, const KvRecvVendTlv *, uint16_t, KvVendMsg *>) {
        return Function(d.source, d.msgId, d.msg);
    } else if constexpr (std::is_invocable_v<F, const KvRecvVendTlv *, uint16_t>) {
        return Function(d.source, d.msgId);
    } else if constexpr (std::is_invocable_v<F, uint16_t, KvVendMsg *>) {
        return Function(d.msgId, d.msg);
    } else {
        return Function(d.msg);
    }
}

}  // namespace kv
