// The host's log lines: kvMAP_syslog with the host's facility.
#pragma once

#include <kv1905/kvlog.h>

#include <optional>

#include "ieee1905/clock.h"

namespace kv1905d {

inline constexpr int kLogFacilityHost = 0;

// Writes one line per period and counts those it holds back: whoever sends us frames must not fill the log.
class LogGate {
  public:
    __attribute__((format(printf, 4, 5))) void log(int level, TimePoint now, const char *format, ...);

  private:
    std::optional<TimePoint> last_;
    unsigned held_ = 0;
};

}  // namespace kv1905d

#define KV_HOST_LOG(level, ...) kvMAP_syslog(::kv1905d::kLogFacilityHost, level, __VA_ARGS__)
