// Filters vendor messages for the plug-in. The protocol has no authentication: without the filter any device can reboot
// this one, set its password, replace its known configuration, forge the results of its commands or overload it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>

#include "daemon/topology.h"
#include "daemon/vendor_tlv.h"
#include "ieee1905/vendor_message.h"
#include "support/log.h"

namespace kv1905d {

// Senders whose messages may change this device.
enum class SettingsFrom { Any, Controller };

// Limits the processing time of messages: one second at once, then a quarter of the time.
class TimeBudget {
  public:
    static constexpr Duration kCredit{1000};
    static constexpr int kShare = 4;

    bool isOpen(TimePoint now) const { return spent_ <= now; }
    void charge(Duration used, TimePoint now) { spent_ = std::max(spent_, now - kShare * kCredit) + kShare * used; }

  private:
    TimePoint spent_{-std::chrono::hours(24)};  // long before any start
};

class SettingsGuard {
  public:
    // Limit for all remote devices' stations together. The local list comes from the driver. Each station costs some
    // kilobytes when the JSON file is made.
    static constexpr size_t kMaxStations = 16384;
    // A result is admitted once, within this time after its command. The oldest of too many commands is removed.
    static constexpr Duration kResultWait{60000};
    static constexpr size_t kMaxCommands = 256;

    explicit SettingsGuard(SettingsFrom from) : from_(from) {}

    /*
     * Returns whether a vendor-specific TLV, read as `message`, may reach the plug-in. `controller`: the network's,
     * nullopt while unknown. Refuses
     *  - what changes this device, unless the controller or this device sent it (SettingsFrom::Controller),
     *  - what costs time, when its budget is spent: the controller has one, and all others share one,
     *  - results of commands that this device did not send,
     *  - this device's own configuration in reports of others,
     *  - stations of a device that has more than its even share of kMaxStations, once that many are known,
     *  - types without a rule.
     */
    bool admits(const VendorTlv &tlv, const VendorMessage &message, const std::optional<MacAddress> &controller,
                const Topology &topology, TimePoint now);

    // Charges the time that the plug-in spent on the message that was admitted last.
    void charge(Duration used, TimePoint now);

    // Records a message to one other device. If it is a command, its result is admitted.
    void sent(const MacAddress &alMac, uint16_t msgId, const VendorMessage &message, TimePoint now);

    // Messages refused since the start.
    uint64_t refused() const { return refused_; }

  private:
    struct Command {
        MacAddress alMac;
        uint16_t msgId;
        TimePoint sent;
    };
    struct Request;
    struct Check;
    static const Check kChecks[];

    bool maySet(const Request &request);
    bool isAffordable(const Request &request);
    bool isOfAnother(const Request &request);
    bool isWithinShare(const Request &request);
    bool isAwaited(const Request &request);
    bool never(const Request &) { return false; }

    SettingsFrom from_;
    TimeBudget controllersTime_, othersTime_;
    TimeBudget *charged_ = nullptr;  // by the message admitted last; null: none
    std::deque<Command> commands_;   // without a result yet, oldest first
    uint64_t refused_ = 0;
    support::LogGate refusals_;
};

}  // namespace kv1905d
