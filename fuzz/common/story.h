// Inputs that are a story: steps on a live object, each of which meets the state that the earlier ones left.
//
//   +0  1  kind, the target's       +1  1  argument       +2  2  body length, big-endian       +4  body
//
// A body that is cut short by the input's end is taken as it is.
#pragma once

#include <vector>

#include "common/input.h"

namespace kvfuzz {

struct Step {
    uint8_t kind = 0;
    uint8_t argument = 0;
    Bytes body;
};
using Steps = std::vector<Step>;

inline constexpr size_t kMaxSteps = 64;  // of one story; later ones are not played

inline Steps readSteps(Input in) {
    Steps steps;
    while (!in.empty() && steps.size() < kMaxSteps) {
        Step &step = steps.emplace_back();
        step.kind = in.u8();
        step.argument = in.u8();
        step.body = in.bytes(in.u16());
    }
    return steps;
}

template <typename World>
using Play = void (*)(World &world, const Step &step);

// A play for each kind; whatever a step did, the world is checked behind it.
template <typename World, size_t kinds>
void playStory(const Steps &steps, World &world, const Play<World> (&plays)[kinds]) {
    for (const Step &step : steps) {
        plays[step.kind % kinds](world, step);
        world.check();
    }
}

}  // namespace kvfuzz
