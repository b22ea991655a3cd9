// The host's log lines: kvMAP_syslog with the host's facility.
#pragma once

#include <kv1905/kvlog.h>

#include <chrono>

#include "ieee1905/mac_address.h"

namespace kv1905d {

inline constexpr int kLogFacilityHost = 0;

// Lets one line through per period and counts those it held back: whoever sends us frames must not fill the log.
class LogGate {
  public:
    explicit LogGate(Time period = std::chrono::seconds(10)) : period_(period) {}

    // True when the line may be written; *held is the number of lines held back since the last one.
    bool open(Time now, unsigned *held) {
        if (used_ && now - last_ < period_) {
            ++held_;
            return false;
        }
        used_ = true;
        last_ = now;
        *held = held_;
        held_ = 0;
        return true;
    }

  private:
    Time period_;
    Time last_{};
    unsigned held_ = 0;
    bool used_ = false;
};

}  // namespace kv1905d

#define KV_HOST_LOG(level, ...) kvMAP_syslog(::kv1905d::kLogFacilityHost, level, __VA_ARGS__)
