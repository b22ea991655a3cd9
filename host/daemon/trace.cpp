#include "daemon/trace.h"

#include <sys/time.h>

#include <cstdio>
#include <ctime>

namespace kv1905d {

std::string traceLine(Direction direction, std::string_view peer, uint16_t msgId, const VendorMessage &message) {
    const bool isIn = direction == Direction::In;
    char id[16];
    std::snprintf(id, sizeof id, "0x%04x", msgId);
    return (isIn ? "in   " : "out  ") + message.name + (isIn ? " from " : " to ") + std::string(peer) + " msgId " + id +
           ": " + (message.fault ? "malformed: " + *message.fault : message.words);
}

void printTrace(Direction direction, std::string_view peer, uint16_t msgId, const VendorMessage &message) {
    timeval now{};
    tm clock{};
    gettimeofday(&now, nullptr);
    localtime_r(&now.tv_sec, &clock);
    std::printf("%02d:%02d:%02d.%03ld %s\n", clock.tm_hour, clock.tm_min, clock.tm_sec,
                static_cast<long>(now.tv_usec / 1000), traceLine(direction, peer, msgId, message).c_str());
    std::fflush(stdout);
}

}  // namespace kv1905d
