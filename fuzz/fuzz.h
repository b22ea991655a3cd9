// Shared code of the fuzz targets: input, its division into steps, and checks.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

namespace kvfuzz {

using Bytes = std::vector<uint8_t>;

// The parts in one block, without spare capacity: the sanitizer reports a read past the end.
template <typename... Parts>
Bytes join(const Parts &...parts) {
    Bytes all;
    all.reserve((parts.size() + ...));
    (all.insert(all.end(), parts.begin(), parts.end()), ...);
    return all;
}

// Ends the process when an invariant is broken, as a crash does.
inline void require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "broken invariant: %s\n", what);
    std::abort();
}

struct Step {
    uint8_t argument = 0;
    Bytes body{};

    uint8_t first() const { return body.empty() ? 0 : body[0]; }
    std::string text() const { return {body.begin(), body.end()}; }
};

// Separates the steps, so that the fuzzer's own mutations remove, repeat and exchange whole ones.
inline constexpr uint8_t kMark[] = {0xF5, 0x5F, 0xA5};
inline constexpr size_t kMaxSteps = 64;

// Runs up to kMaxSteps steps on one object, which keeps its state in between and is checked after each.
template <typename Fixture, size_t kinds>
void runSteps(const Bytes &all, Fixture &fixture, void (*const (&runs)[kinds])(Fixture &, const Step &)) {
    auto from = all.begin();
    for (size_t count = 0; from != all.end() && count < kMaxSteps; ++count) {
        const auto to = std::search(from, all.end(), std::begin(kMark), std::end(kMark));
        if (to - from >= 2) runs[*from % kinds](fixture, {from[1], Bytes(from + 2, to)});
        fixture.check();
        from = to + (to == all.end() ? 0 : std::ssize(kMark));
    }
}

// Runs one input from a fresh start. Each target defines it.
void runInput(const Bytes &input);

}  // namespace kvfuzz
