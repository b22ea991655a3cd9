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

inline constexpr size_t kMaxSteps = 64;  // of one story; later ones are not played

inline std::vector<Step> readSteps(const uint8_t *data, size_t size) {
    std::vector<Step> steps;
    Input in(data, size);
    while (!in.empty() && steps.size() < kMaxSteps) {
        Step step;
        step.kind = in.u8();
        step.argument = in.u8();
        step.body = in.bytes(in.u16());
        steps.push_back(std::move(step));
    }
    return steps;
}

inline Bytes writeSteps(const std::vector<Step> &steps) {
    Bytes out;
    for (const Step &step : steps) {
        const size_t length = std::min<size_t>(step.body.size(), UINT16_MAX);
        out.insert(out.end(),
                   {step.kind, step.argument, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
        out.insert(out.end(), step.body.begin(), step.body.begin() + static_cast<ptrdiff_t>(length));
    }
    return out;
}

}  // namespace kvfuzz
