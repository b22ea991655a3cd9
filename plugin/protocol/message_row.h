// Describes one message type. Rows are defined in message_catalogue.cpp.
#pragma once

#include <cstdint>
#include <type_traits>

#include "kv1905/kvMAP1905.h"
#include "kv1905/vendor_messages.h"
#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace kv {

// Origin of a dispatched message. A request inside a remote command is answered as a command response.
enum : unsigned { kOriginNetwork = 255, kOriginCommand = VEND_MSG_TYPE_COMMAND_REQ };

// The arguments of a handler.
struct Dispatch {
    const KvRecvVendTlv *source;
    uint16_t msgId;
    KvVendMsg *msg;
    unsigned origin;
};

// Reads the payload, whose reader ends where the payload does, into a record from the heap and leaves it in
// msg.payload, which the receive entry frees. Returns the bytes consumed; 0 refuses the message and leaves payload
// null.
using PayloadDecoder = uint16_t (*)(ByteReader &payload, KvVendMsg &msg);

// Writes msg.payload, which is not null, as far as the buffer allows. Returns 0 on success.
using PayloadEncoder = int (*)(const KvVendMsg &msg, ByteWriter &payload);

// Handles a decoded message. Returns 0 or KV_RET_ERR.
using Handler = int (*)(const Dispatch &dispatch);

// Resends an unanswered query; attempts counts the earlier sends. Returns 0 or KV_RET_ERR.
using QuerySender = int (*)(const uint8_t *alMac, uint8_t attempts);

struct MessageRow {
    uint16_t type;
    PayloadDecoder decode;  // null: the decoder refuses the message
    PayloadEncoder encode;  // null: no payload is written
    Handler handle;         // null: never dispatched
    QuerySender resend;     // null: not tracked as an outstanding query
};

// Returns null for a code that is not in the catalogue.
const MessageRow *findMessageRow(uint16_t type);

// Adapts a handler with some of the parameters (source, msgId, msg, origin), in this order, to a row.
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
