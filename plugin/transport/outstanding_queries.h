// Queries that wait for a response: recorded when sent, cleared by the response, sent again without one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "kv1905/kvMAP1905.h"

namespace kv {

struct KvVendQueryEntry {
    uint8_t alMac[KV_MAC_LEN];  // the queried device; all zero: the entry is free
    uint16_t msgId;             // the query's message identifier
    uint16_t vendMsgType;       // the query's type; its response's is one more
    uint8_t retry;              // earlier sends
    uint32_t sent;              // seconds since the epoch
};

class OutstandingQueries {
  public:
    static constexpr size_t kCapacity = 64;

    // Uses the first free entry. With none free, a resend replaces its own entry; any other query replaces the oldest
    // and counts as a first send.
    void add(const uint8_t *alMac, uint16_t msgId, uint16_t vendMsgType, uint8_t retry, std::time_t now);

    // Frees the first entry that respType answers, if any.
    void answer(const uint8_t *alMac, uint16_t msgId, uint16_t respType);

    // Sends every query again that has waited too long and was sent less than three times.
    void resendDue(std::time_t now);

    void clear() { *this = OutstandingQueries(); }
    const KvVendQueryEntry &at(size_t index) const { return entries_[index]; }

  private:
    size_t entryForNew(std::time_t now, uint8_t &retry);
    void resend(size_t index);

    static constexpr size_t kNone = kCapacity;

    KvVendQueryEntry entries_[kCapacity] = {};
    size_t resending_ = kNone;  // the entry whose query is being sent again, until its successor is recorded
};

OutstandingQueries &outstandingQueries();

// Operations for senders, response handlers and the main loop. Each returns 0.
int registerKvVendQueryMsg(const uint8_t *alMac, uint16_t msgId, uint16_t vendMsgType, uint8_t retry);
int reportKvVendRespMsgReceived(const uint8_t *alMac, uint16_t msgId, uint16_t respType);
int checkKvVendRespMsgReceived(const std::time_t *now);

}  // namespace kv
