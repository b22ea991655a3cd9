// Points in time and durations. Points are always passed in, so that tests decide what time it is.
#pragma once

#include <chrono>

namespace kv1905d {

using Duration = std::chrono::milliseconds;
// Counts from an arbitrary start and never steps back.
using TimePoint = std::chrono::time_point<std::chrono::steady_clock, Duration>;

}  // namespace kv1905d
