// Spaces the writes of the JSON file: every report of stations requests one, and a large network makes a large file.
#pragma once

#include <functional>
#include <utility>

#include "ieee1905/clock.h"
#include "support/log.h"

namespace kv1905d {

class DataModelWriter {
  public:
    static constexpr Duration kSpacing{1000};
    static constexpr int kPause = 4;  // times as long as a write took

    // `clock` says when a write began and ended. `write` throws when it fails.
    DataModelWriter(std::function<TimePoint()> clock, std::function<void()> write)
        : clock_(std::move(clock)), write_(std::move(write)) {}

    // Writes, or has run() write when the spacing has passed. Returns the last write's result.
    int request();

    // Writes when that is due. Returns when to call again; TimePoint::max() while nothing is requested.
    TimePoint run();

  private:
    std::function<TimePoint()> clock_;
    std::function<void()> write_;
    TimePoint earliest_{};
    bool isRequested_ = false;
    int lastResult_ = 0;  // KV_RET_OK
    support::LogGate failures_;
};

}  // namespace kv1905d
