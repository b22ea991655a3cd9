// Filters relayed multicast messages that were received before.
#pragma once

#include <deque>
#include <set>

#include "clock.h"
#include "mac_address.h"

namespace kv1905d {

class DuplicateFilter {
  public:
    // The oldest is evicted. More than the sockets of a ring of busy devices buffer: a message that returns after its
    // entry was evicted would circulate permanently.
    static constexpr size_t kMaxEntries = 16384;
    static constexpr Duration kLifetime{3000};

    struct Key {
        MacAddress originator;  // AL MAC
        uint16_t type = 0;
        uint16_t id = 0;
        auto operator<=>(const Key &) const = default;
    };

    // Returns whether the message is new, and remembers it.
    bool enter(const Key &key, TimePoint now) {
        while (!byAge_.empty() && (now - byAge_.front().since >= kLifetime))
            forgetOldest();
        if (!known_.insert(key).second) return false;
        byAge_.push_back({key, now});
        if (byAge_.size() > kMaxEntries) forgetOldest();
        return true;
    }
    size_t size() const { return byAge_.size(); }

  private:
    struct Entry {
        Key key;
        TimePoint since;
    };
    void forgetOldest() {
        known_.erase(byAge_.front().key);
        byAge_.pop_front();
    }

    std::deque<Entry> byAge_;
    std::set<Key> known_;
};

}  // namespace kv1905d
