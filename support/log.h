// The host's log lines: kvMAP_syslog with the host's facility.
#pragma once

#include <kv1905/kvlog.h>

#include <chrono>
#include <optional>

namespace support {

inline constexpr int kLogFacilityHost = 0;

// Writes one line per period and counts the suppressed ones, so that received frames cannot fill the log.
class LogGate {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;

    __attribute__((format(printf, 4, 5))) void log(int level, TimePoint now, const char *format, ...);

  private:
    std::optional<TimePoint> last_;
    unsigned held_ = 0;
};

}  // namespace support

#define KV_HOST_LOG(level, ...) kvMAP_syslog(::support::kLogFacilityHost, level, __VA_ARGS__)
