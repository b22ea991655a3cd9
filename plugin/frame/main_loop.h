// The periodic schedule. The plug-in has no timer: periods are lower bounds that depend on how often the host calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace kv {

// When each periodic task last ran. 0 at start, so that the first call runs everything.
class Schedule {
  public:
    // Runs every task that is due at now, in order. Returns the channel check's result, 0 when it was not due.
    int runDue(std::time_t now);
    void clear() { *this = Schedule(); }

  private:
    static constexpr size_t kTaskCount = 4;
    uint32_t lastRun_[kTaskCount] = {};  // seconds since the epoch
};

Schedule &schedule();

int mainLoop();

}  // namespace kv
