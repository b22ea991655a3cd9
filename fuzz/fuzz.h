// Shared by the fuzz targets: input, its division into steps, and checks.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <span>
#include <string>
#include <vector>

namespace kvfuzz {

using Bytes = std::vector<uint8_t>;

// Reads from front to back. Past the end, numbers are 0 and blocks are shorter.
class Input {
  public:
    explicit Input(std::span<const uint8_t> bytes) : left_(bytes) {}

    bool empty() const { return left_.empty(); }
    // At most count bytes, without spare capacity behind them: the sanitizer reports a read past the end.
    Bytes bytes(size_t count) {
        const auto taken = left_.first(std::min(count, left_.size()));
        left_ = left_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }
    Bytes rest() { return bytes(left_.size()); }
    uint8_t u8() {
        const Bytes byte = bytes(1);
        return byte.empty() ? 0 : byte[0];
    }
    uint16_t u16() {
        const unsigned high = u8();
        return static_cast<uint16_t>(high << 8 | u8());
    }

  private:
    std::span<const uint8_t> left_;
};

// The parts in one block, without spare capacity.
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
    uint8_t kind = 0;
    uint8_t argument = 0;
    Bytes body{};

    std::string text() const { return {body.begin(), body.end()}; }
};

// Steps are divided by this mark, so that the fuzzer's own mutations remove, repeat and exchange whole steps.
inline constexpr uint8_t kMark[] = {0xF5, 0x5F, 0xA5};
inline constexpr size_t kMaxSteps = 64;

// Plays up to kMaxSteps steps on one object, which keeps its state in between and is checked after each.
template <typename World, size_t kinds>
void playSteps(Input in, World &world, void (*const (&plays)[kinds])(World &, const Step &)) {
    const Bytes all = in.rest();
    auto from = all.begin();
    for (size_t count = 0; from != all.end() && count < kMaxSteps; ++count) {
        const auto to = std::search(from, all.end(), std::begin(kMark), std::end(kMark));
        Input step({from, to});
        const uint8_t kind = step.u8(), argument = step.u8();
        plays[kind % kinds](world, {kind, argument, step.rest()});
        world.check();
        from = to + (to == all.end() ? 0 : std::ssize(kMark));
    }
}

// Of each target: plays one input from a fresh start.
void playInput(Input in);

}  // namespace kvfuzz
