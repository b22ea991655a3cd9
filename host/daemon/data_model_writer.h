// Spaces the writes of the JSON file: every report of stations requests one, and a large network makes a large file.
// Changes that an operator waits for are written sooner.
#pragma once

#include <functional>
#include <optional>
#include <utility>

#include "ieee1905/clock.h"
#include "support/log.h"

namespace kv1905d {

class DataModelWriter {
  public:
    // Shortest time between the starts of two writes.
    static constexpr Duration kReportSpacing{5000};
    static constexpr Duration kChangeSpacing{1000};
    static constexpr int kPause = 4;  // times as long as a write took

    // Change: a command, a signal or a change of the topology.
    enum class Reason { Report, Change };

    // `clock` returns the time before and after a write. `write` throws on failure.
    DataModelWriter(std::function<TimePoint()> clock, std::function<void()> write)
        : clock_(std::move(clock)), write_(std::move(write)) {}

    // Writes, or lets run() write after the spacing. Returns the last write's result.
    int request(Reason reason);

    // Writes when that is due. Returns when to call again; TimePoint::max() while nothing is requested.
    TimePoint run();

  private:
    void write(TimePoint begin);

    std::function<TimePoint()> clock_;
    std::function<void()> write_;
    std::optional<Reason> requested_;
    TimePoint earliestReport_{}, earliestChange_{};
    int lastResult_ = 0;  // KV_RET_OK
    support::LogGate failures_;
};

}  // namespace kv1905d
