// Reassembles fragmented messages; bounded in messages, bytes and time.
#pragma once

#include <map>
#include <optional>
#include <utility>

#include "clock.h"
#include "cmdu.h"

namespace kv1905d {

class Reassembly {
  public:
    static constexpr size_t kMaxMessages = 64;            // unfinished ones; the oldest is evicted
    static constexpr size_t kMaxMessageBytes = 64 << 10;  // of one message; a larger one is malformed
    static constexpr size_t kMaxBytes = 512 << 10;        // of all unfinished ones; the oldest is evicted
    static constexpr Duration kLifetime{3000};            // after the first fragment was received

    enum class Status { Waiting, Complete, Malformed };
    struct Result {
        Status status = Status::Waiting;
        Message message;  // filled when Complete
    };

    // A message that was abandoned unfinished.
    struct Lost {
        MacAddress source;
        uint16_t type;
        size_t port;  // of its first fragment
        const char *reason;
    };

    // Adds a fragment from the Ethernet address `source`, in any order. Ignores a repeated one.
    Result add(const MacAddress &source, const Fragment &fragment, TimePoint now);

    // Removes messages older than kLifetime and returns their number.
    size_t expire(TimePoint now);

    // Messages evicted since the start.
    uint64_t evicted() const { return evicted_; }
    // Returns the last one abandoned since the last call, or nullopt.
    std::optional<Lost> takeLost() { return std::exchange(lost_, std::nullopt); }
    size_t waiting() const { return entries_.size(); }
    // Returns when expire() must run next; TimePoint::max() if no message is unfinished.
    TimePoint nextExpiry() const;

  private:
    struct Key {
        MacAddress source;
        uint16_t type;
        uint16_t id;
        bool relay;
        auto operator<=>(const Key &) const = default;
    };
    struct Entry {
        TimePoint since;
        size_t port;
        size_t bytes = 0;
        int last = -1;  // index of the last fragment, -1 while unknown
        std::map<int, Bytes> bodies;

        bool accepts(const Fragment &fragment) const;
        bool complete() const { return last >= 0 && bodies.size() == static_cast<size_t>(last) + 1; }
    };
    using Entries = std::map<Key, Entry>;

    void remove(Entries::iterator at);
    void giveUp(Entries::iterator at, const char *reason);
    void makeRoom(size_t bytes, bool newMessage);
    Entries::iterator oldest();

    Entries entries_;
    size_t bytes_ = 0;
    uint64_t evicted_ = 0;
    std::optional<Lost> lost_;
};

}  // namespace kv1905d
