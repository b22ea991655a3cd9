#include "support/log.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

namespace support {

void LogGate::log(int level, TimePoint now, const char *format, ...) {
    if (last_ && now - *last_ < std::chrono::seconds(10)) {
        ++held_;
        return;
    }
    last_ = now;
    char line[512];
    va_list values;
    va_start(values, format);
    std::vsnprintf(line, sizeof line, format, values);
    va_end(values);
    const unsigned held = std::exchange(held_, 0);
    const std::string suffix = held == 0 ? "" : " (" + std::to_string(held) + " similar lines suppressed)";
    KV_HOST_LOG(level, "%s%s", line, suffix.c_str());
}

}  // namespace support
