// Points in time and durations. Callers pass the current time, so that tests control it.
#pragma once

#include <chrono>

namespace kv1905d {

using Duration = std::chrono::milliseconds;
// Counts from an arbitrary start and never steps back.
using TimePoint = std::chrono::time_point<std::chrono::steady_clock, Duration>;

}  // namespace kv1905d
