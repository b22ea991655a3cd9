#include "support/log.h"

#include <cstdarg>
#include <cstdio>
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
    char suffix[64] = "";  // no std::string: the line may be about missing memory
    if (held_ > 0) std::snprintf(suffix, sizeof suffix, " (%u similar lines suppressed)", std::exchange(held_, 0));
    KV_HOST_LOG(level, "%s%s", line, suffix);
}

}  // namespace support
