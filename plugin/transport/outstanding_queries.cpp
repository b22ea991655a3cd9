#include "transport/outstanding_queries.h"

#include <cstring>

#include "frame/log.h"
#include "protocol/message_row.h"

namespace kv {

namespace {

constexpr double kAnswerWait = 5.0;  // seconds, exclusive
constexpr uint8_t kLastRetry = 1;    // an entry with more earlier sends is not sent again

OutstandingQueries vendQueryTbl;

bool isFree(const KvVendQueryEntry &entry) {
    return isZeroMac(entry.alMac);
}

void release(KvVendQueryEntry &entry) {
    std::memset(entry.alMac, 0, sizeof entry.alMac);
}

// Negative when the clock has stepped back since.
double waited(const KvVendQueryEntry &entry, std::time_t now) {
    return std::difftime(now, static_cast<std::time_t>(entry.sent));
}

}  // namespace

size_t OutstandingQueries::entryForNew(std::time_t now, uint8_t &retry) {
    size_t oldest = 0;
    double oldestAge = 0;
    for (size_t index = 0; index < kCapacity; ++index) {
        if (isFree(entries_[index])) return index;
        const double age = waited(entries_[index], now);
        if (age > oldestAge) {
            oldest = index;
            oldestAge = age;
        }
    }
    if (resending_ != kNone) return resending_;
    retry = 0;
    return oldest;
}

void OutstandingQueries::add(const uint8_t *alMac, uint16_t msgId, uint16_t vendMsgType, uint8_t retry,
                             std::time_t now) {
    const size_t index = entryForNew(now, retry);
    KvVendQueryEntry &entry = entries_[index];
    std::memcpy(entry.alMac, alMac, sizeof entry.alMac);
    entry.msgId = msgId;
    entry.vendMsgType = vendMsgType;
    entry.retry = retry;
    entry.sent = static_cast<uint32_t>(now);
    if (index == resending_) {
        resending_ = kNone;
    }
}

void OutstandingQueries::answer(const uint8_t *alMac, uint16_t msgId, uint16_t respType) {
    for (KvVendQueryEntry &entry : entries_) {
        if (sameMac(entry.alMac, alMac) && entry.msgId == msgId && entry.vendMsgType + 1 == respType) {
            release(entry);
            return;
        }
    }
}

void OutstandingQueries::resendDue(std::time_t now) {
    for (size_t index = 0; index < kCapacity; ++index) {
        const KvVendQueryEntry &entry = entries_[index];
        if (waited(entry, now) <= kAnswerWait || isFree(entry) || entry.retry > kLastRetry) continue;
        LOG_MSG(KV_LOG_DEBUG,
                "resend vendor query msg: AlMac " KV_MAC ", msgId %04x, vendMsgType %d, retry %d, time %ld:%ld\n",
                KV_MAC_BYTES(entry.alMac), entry.msgId, entry.vendMsgType, entry.retry, static_cast<long>(entry.sent),
                static_cast<long>(now));
        resend(index);
    }
}

// The sender records the new send as a separate entry; the old one is occupied until then.
void OutstandingQueries::resend(size_t index) {
    KvVendQueryEntry &entry = entries_[index];
    ++entry.retry;
    const KvVendQueryEntry query = entry;
    resending_ = index;
    const MessageRow *row = findMessageRow(query.vendMsgType);
    if (row != nullptr && row->resend != nullptr) {
        row->resend(query.alMac, query.retry);
    }
    if (resending_ == index) {
        release(entry);
    }
    resending_ = kNone;
}

OutstandingQueries &outstandingQueries() {
    return vendQueryTbl;
}

int registerKvVendQueryMsg(const uint8_t *alMac, uint16_t msgId, uint16_t vendMsgType, uint8_t retry) {
    LOG_MSG(KV_LOG_DEBUG, "register AlMac " KV_MAC ", msgId %04x, vendMsgType %d\n", KV_MAC_BYTES(alMac), msgId,
            vendMsgType);
    vendQueryTbl.add(alMac, msgId, vendMsgType, retry, std::time(nullptr));
    return KV_RET_OK;
}

int reportKvVendRespMsgReceived(const uint8_t *alMac, uint16_t msgId, uint16_t respType) {
    LOG_MSG(KV_LOG_DEBUG, "report AlMac " KV_MAC ", msgId %04x, vendMsgType %d\n", KV_MAC_BYTES(alMac), msgId,
            respType);
    vendQueryTbl.answer(alMac, msgId, respType);
    return KV_RET_OK;
}

int checkKvVendRespMsgReceived(const std::time_t *now) {
    vendQueryTbl.resendDue(*now);
    return KV_RET_OK;
}

}  // namespace kv
