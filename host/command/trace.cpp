#include "command/trace.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "support/line_output.h"

namespace kv1905d {

std::string traceLine(Direction direction, std::string_view peer, uint16_t msgId, const VendorMessage &message) {
    const bool isIn = direction == Direction::In;
    char id[16];
    std::snprintf(id, sizeof id, "0x%04x", msgId);
    return (isIn ? "in   " : "out  ") + message.name + (isIn ? " from " : " to ") + std::string(peer) + " msgId " + id +
           ": " + (message.fault ? "malformed: " + *message.fault : message.words);
}

void printTrace(const std::string &line) {
    timeval now{};
    tm clock{};
    gettimeofday(&now, nullptr);
    localtime_r(&now.tv_sec, &clock);
    char time[32];
    std::snprintf(time, sizeof time, "%02d:%02d:%02d.%03ld ", clock.tm_hour, clock.tm_min, clock.tm_sec,
                  static_cast<long>(now.tv_usec / 1000));
    static support::LineOutput output(STDOUT_FILENO);
    output.write(time + line);
}

}  // namespace kv1905d
