// Random durations, so that many devices do not act at the same time.
#pragma once

#include <random>

#include "ieee1905/clock.h"

namespace kv1905d {

inline Duration randomDuration(std::mt19937 &random, Duration least, Duration most) {
    return Duration(std::uniform_int_distribution<Duration::rep>(least.count(), most.count())(random));
}

// Returns a random duration from 5/6 of the interval to all of it.
inline Duration jittered(std::mt19937 &random, Duration interval) {
    return randomDuration(random, interval * 5 / 6, interval);
}

}  // namespace kv1905d
