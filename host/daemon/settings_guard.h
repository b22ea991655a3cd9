// Decides which vendor messages may reach the plug-in. The protocol proves nothing about a sender, so without
// a guard any device of the network may reboot this one, give it a password, replace its known configuration or keep it
// busy.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "daemon/topology.h"
#include "daemon/vendor_message.h"
#include "daemon/vendor_tlv.h"
#include "support/log.h"

namespace kv1905d {

// Whose messages may change this device.
enum class SettingsFrom { Any, Controller };

// So many at once, then so many per time: each costs some time, and what is not spent is saved up to the credit.
class RateLimit {
  public:
    RateLimit(Duration cost, Duration credit) : cost_(cost), credit_(credit) {}

    bool take(TimePoint now) {
        spent_ = std::max(spent_, now - credit_);
        if (spent_ + cost_ > now) return false;
        spent_ += cost_;
        return true;
    }

  private:
    Duration cost_, credit_;
    TimePoint spent_{-std::chrono::hours(24)};  // long before any start
};

class SettingsGuard {
  public:
    // All remote devices' stations together; the local list is the driver's. Each costs some kilobytes when the JSON
    // file is made.
    static constexpr size_t kMaxStations = 16384;
    // Questions that make the plug-in run a program: 20 per second, and a large mesh may start at once.
    static constexpr Duration kQuestionCost{50};
    static constexpr Duration kQuestionCredit{10000};

    explicit SettingsGuard(SettingsFrom from) : from_(from) {}

    /*
     * Whether a vendor-specific TLV, read as `message`, may reach the plug-in. `controller`: the network's, nothing
     * while none is known. Refused are
     *  - what changes this device, unless the controller or this device itself says it (SettingsFrom::Controller),
     *  - this device's own configuration in reports of others,
     *  - stations of a device that has more than its even share of kMaxStations, once that many are known,
     *  - costly questions that come too fast, but not the controller's.
     */
    bool admits(const VendorTlv &tlv, const VendorMessage &message, const std::optional<MacAddress> &controller,
                const Topology &topology, TimePoint now);

    // Messages refused since the start.
    uint64_t refused() const { return refused_; }

  private:
    SettingsFrom from_;
    RateLimit questions_{kQuestionCost, kQuestionCredit};
    uint64_t refused_ = 0;
    support::LogGate refusals_;
};

}  // namespace kv1905d
