#include "transport/receive.h"

#include <cstring>

#include "frame/log.h"
#include "frame/memory.h"
#include "protocol/byte_reader.h"
#include "protocol/intel_message.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"

namespace kv {

namespace {

// A received message owns its payload until the entry returns. A handler that keeps the payload nulls the pointer.
struct FreeMessage {
    template <typename Message>
    void operator()(Message *msg) const {
        std::free(msg->payload);
        std::free(msg);
    }
};

bool isUsable(const KvRecvVendTlv *tlv) {
    if (tlv == nullptr || tlv->value == nullptr) {
        LOG_PLAIN(KV_LOG_WARNING, "Invalid vendor specific message\n");
        return false;
    }
    return true;
}

template <typename Message>
void receive(const KvRecvVendTlv *tlv, size_t length, uint16_t msgId, int (*parse)(ByteReader, Message *),
             int (*dispatch)(const KvRecvVendTlv *, uint16_t, Message *, unsigned)) {
    const auto msg = allocateRecord<Message, FreeMessage>();
    if (msg == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Allocate memory failed for vendor msg\n");
        return;
    }
    if (parse(ByteReader(tlv->value, length), msg.get()) == KV_RET_OK) {
        dispatch(tlv, msgId, msg.get(), kOriginNetwork);
    }
}

void receiveVendor(const KvRecvVendTlv *tlv, size_t length, uint16_t msgId) {
    receive<KvVendMsg>(tlv, length, msgId, parseKvVendMsg, handleKvVendSpecMsg);
}

void receiveIntel(const KvRecvVendTlv *tlv, size_t length, uint16_t msgId) {
    receive<KvIntelVendMsg>(tlv, length, msgId, parseIntelVendMsg, handleIntelVendSpecMsg);
}

// Returns the bytes of a value without a known length: only the OUI if it is another vendor's, else the length in the
// envelope. The caller guarantees that much readable memory.
size_t claimedLength(const uint8_t *value) {
    if (std::memcmp(value, getMAPAlOui(), KV_OUI_LEN) != 0) return KV_OUI_LEN;
    ByteReader header(value, kEnvelopeLen);
    header.skip(kEnvelopeLen - sizeof(uint16_t));
    return kEnvelopeLen + header.u16();
}

}  // namespace

void receiveTlv(const KvRecvVendTlv *tlv, uint32_t length, uint16_t msgId) {
    if (!isUsable(tlv)) return;
    if (length >= sizeof kIntelOui && std::memcmp(tlv->value, kIntelOui, sizeof kIntelOui) == 0) {
        receiveIntel(tlv, length, msgId);
    } else {
        receiveVendor(tlv, length, msgId);
    }
}

void receiveVendorTlv(const KvRecvVendTlv *tlv, uint16_t msgId) {
    if (isUsable(tlv)) {
        receiveVendor(tlv, claimedLength(tlv->value), msgId);
    }
}

void receiveIntelTlv(const KvRecvVendTlv *tlv, uint16_t msgId) {
    if (isUsable(tlv)) {
        receiveIntel(tlv, kIntelRequestLen, msgId);
    }
}

int handleKvVendSpecMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin) {
    LOG_PLAIN(KV_LOG_DEBUG, "Vendor specific message type (%d)\n", msg->msgType);
    const MessageRow *row = findMessageRow(msg->msgType);
    if (row == nullptr || row->handle == nullptr) {
        LOG_PLAIN(KV_LOG_WARNING, "Vendor specific message type (%d) is unsoppourted\n", msg->msgType);
        return KV_RET_ERR;
    }
    return row->handle({source, msgId, msg, origin});
}

int handleIntelVendSpecMsg(const KvRecvVendTlv *source, uint16_t msgId, KvIntelVendMsg *msg, unsigned) {
    LOG_PLAIN(KV_LOG_DEBUG, "Vendor specific message type (%x)\n", msg->msgType);
    const IntelMessageRow *row = findIntelMessageRow(msg->msgType);
    if (row == nullptr || row->handle == nullptr) {
        LOG_PLAIN(KV_LOG_WARNING, "Vendor specific message type (%d) is unsoppourted\n", msg->msgType);
        return KV_RET_ERR;
    }
    return row->handle(source, msgId, msg);
}

}  // namespace kv
