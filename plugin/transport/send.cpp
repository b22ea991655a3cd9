#include "transport/send.h"

#include <cstring>

#include "frame/log.h"
#include "frame/memory.h"
#include "protocol/intel_message.h"
#include "protocol/kvMAP1905_message.h"

namespace kv {

namespace {

using SendSlot = int (*)(KvVendMsgDest *dest, uint16_t *msgId);

// What differs between the four ways of sending.
struct Road {
    SendSlot Kv1905BcmCbs::*slot;
    int encoderFailureLevel;
    int resultLevel;
    void (*logEncoderFailure)(int level);
    void (*logResult)(int level, const char *outcome, const uint8_t *destinationMac);
};

void logUnicastEncoderFailure(int level) {
    LOG_MSG(level, "generate vendor msg fail\n");
}

void logMulticastEncoderFailure(int level) {
    LOG_MSG(level, "generate mcast vendor msg fail\n");
}

void logUnicastResult(int level, const char *outcome, const uint8_t *destinationMac) {
    LOG_MSG(level, "%s send vendor message to Device " KV_MAC "\n", outcome, KV_MAC_BYTES(destinationMac));
}

void logMulticastResult(int level, const char *outcome, const uint8_t *) {
    LOG_MSG(level, "%s send multicast vendor message\n", outcome);
}

void logRelayedResult(int level, const char *outcome, const uint8_t *) {
    LOG_MSG(level, "%s send relay multicast vendor message\n", outcome);
}

constexpr Road kUnicast = {&Kv1905BcmCbs::vendMsgSend, KV_LOG_WARNING, KV_LOG_DEBUG, logUnicastEncoderFailure,
                           logUnicastResult};
constexpr Road kIntelUnicast = {&Kv1905BcmCbs::vendMsgSend, KV_LOG_ERROR, KV_LOG_ERROR, logUnicastEncoderFailure,
                                logUnicastResult};
constexpr Road kMulticast = {&Kv1905BcmCbs::vendMcastMsgSend, KV_LOG_WARNING, KV_LOG_DEBUG, logMulticastEncoderFailure,
                             logMulticastResult};
constexpr Road kRelayedMulticast = {&Kv1905BcmCbs::vendRelayMcastMsgSend, KV_LOG_WARNING, KV_LOG_DEBUG,
                                    logMulticastEncoderFailure, logRelayedResult};

// An encoding buffer may have held a password.
struct WipeAndFree {
    void operator()(uint8_t *buffer) const {
        explicit_bzero(buffer, KV_VEND_MSG_BUFFER_LEN);
        std::free(buffer);
    }
};

template <typename Message>
int sendOn(const Road &road, const uint8_t *destinationMac, uint16_t *msgId, const Message *msg,
           int (*encode)(uint8_t *, uint32_t *, const Message *)) {
    const SendSlot slot = g_kv1905_bcm_cbs.*road.slot;
    if (slot == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "NULL registar function\n");
        return KV_RET_ERR;
    }
    if (destinationMac == nullptr || msg == nullptr) {
        LOG_MSG(KV_LOG_ERROR, "invalid vender specific message data\n");
        return KV_RET_ERR;
    }
    // A failed allocation reaches the encoder as a null buffer, which it refuses.
    const std::unique_ptr<uint8_t[], WipeAndFree> buffer(allocateBytes(KV_VEND_MSG_BUFFER_LEN).release());
    KvVendMsgDest dest = {};
    dest.buffer = buffer.get();
    std::memcpy(dest.dstMac, destinationMac, sizeof dest.dstMac);
    if (encode(dest.buffer, &dest.length, msg) != KV_RET_OK) {
        road.logEncoderFailure(road.encoderFailureLevel);
        return KV_RET_ERR;
    }
    const bool sent = slot(&dest, msgId) == 0;
    road.logResult(road.resultLevel, sent ? "SUCCESS" : "FAIL", dest.dstMac);
    return sent ? KV_RET_OK : KV_RET_ERR;
}

}  // namespace

int sendUnicast(const uint8_t *destinationMac, uint16_t *msgId, const KvVendMsg *msg) {
    return sendOn(kUnicast, destinationMac, msgId, msg, genKvVendMsg);
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
