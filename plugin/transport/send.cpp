#include "transport/send.h"

#include <cstring>

#include "frame/log.h"
#include "frame/memory.h"
#include "protocol/intel_message.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/shared_payloads.h"

namespace kv {

namespace {

// A host slot and the texts and levels of its log lines.
struct SendPath {
    int (*Kv1905BcmCbs::*slot)(KvVendMsgDest *dest, uint16_t *msgId);
    const char *kind;  // in the line of the result; null: unicast, which names the destination
    int encoderFailureLevel;
    int resultLevel;
};

constexpr SendPath kUnicast = {&Kv1905BcmCbs::vendMsgSend, nullptr, KV_LOG_WARNING, KV_LOG_DEBUG};
constexpr SendPath kIntelUnicast = {&Kv1905BcmCbs::vendMsgSend, nullptr, KV_LOG_ERROR, KV_LOG_ERROR};
constexpr SendPath kMulticast = {&Kv1905BcmCbs::vendMcastMsgSend, "multicast", KV_LOG_WARNING, KV_LOG_DEBUG};
constexpr SendPath kRelayedMulticast = {&Kv1905BcmCbs::vendRelayMcastMsgSend, "relay multicast", KV_LOG_WARNING,
                                        KV_LOG_DEBUG};

void logResult(const SendPath &path, const char *outcome, const uint8_t *destinationMac) {
    if (path.kind == nullptr) {
        LOG_MSG(path.resultLevel, "%s send vendor message to Device " KV_MAC "\n", outcome,
                KV_MAC_BYTES(destinationMac));
    } else {
        LOG_MSG(path.resultLevel, "%s send %s vendor message\n", outcome, path.kind);
    }
}

// An encoding buffer may have held a password.
struct WipeAndFree {
    void operator()(uint8_t *buffer) const {
        explicit_bzero(buffer, KV_VEND_MSG_BUFFER_LEN);
        std::free(buffer);
    }
};

template <typename Message>
int sendOn(const SendPath &path, const uint8_t *destinationMac, uint16_t *msgId, const Message *msg,
           int (*encode)(uint8_t *, uint32_t *, const Message *)) {
    const auto slot = g_kv1905_bcm_cbs.*path.slot;
    if (slot == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "NULL registar function\n");
        return KV_RET_ERR;
    }
    if (destinationMac == nullptr || msg == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "invalid vender specific message data\n");
        return KV_RET_ERR;
    }
    // A failed allocation reaches the encoder as a null buffer, which it refuses.
    const std::unique_ptr<uint8_t[], WipeAndFree> buffer(
        static_cast<uint8_t *>(std::calloc(KV_VEND_MSG_BUFFER_LEN, 1)));
    KvVendMsgDest dest = {};
    dest.buffer = buffer.get();
    std::memcpy(dest.dstMac, destinationMac, sizeof dest.dstMac);
    if (encode(dest.buffer, &dest.length, msg) != KV_RET_OK) {
        LOG_MSG(path.encoderFailureLevel, "generate %svendor msg fail\n", path.kind == nullptr ? "" : "mcast ");
        return KV_RET_ERR;
    }
    const bool sent = slot(&dest, msgId) == 0;
    logResult(path, sent ? "SUCCESS" : "FAIL", dest.dstMac);
    return sent ? KV_RET_OK : KV_RET_ERR;
}

}  // namespace

int sendUnicast(const uint8_t *destinationMac, uint16_t *msgId, const KvVendMsg *msg) {
    return sendOn(kUnicast, destinationMac, msgId, msg, genKvVendMsg);
}

int sendTarget(const uint8_t *alMac, uint16_t type, uint16_t *msgId) {
    KvTargetData target;
    std::memcpy(target.alMac, alMac, sizeof target.alMac);
    const KvVendMsg msg = makeVendMsg(type, kTargetLen, &target);
    return sendUnicast(alMac, msgId, &msg);
}

int sendIntelUnicast(const uint8_t *destinationMac, uint16_t *msgId, const KvIntelVendMsg *msg) {
    return sendOn(kIntelUnicast, destinationMac, msgId, msg, genIntelVendMsg);
}

int sendMulticast(const KvVendMsg *msg, uint16_t *msgId) {
    return sendOn(kMulticast, I5_MCAST_MAC_ADDRESS, msgId, msg, genKvVendMsg);
}

int sendRelayedMulticast(const KvVendMsg *msg, uint16_t *msgId) {
    return sendOn(kRelayedMulticast, I5_MCAST_MAC_ADDRESS, msgId, msg, genKvVendMsg);
}

}  // namespace kv
