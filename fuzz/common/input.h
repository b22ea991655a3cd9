// What a fuzz target reads its input with. Running out is no failure: numbers become 0, texts end early.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kvfuzz {

using Bytes = std::vector<uint8_t>;

class Input {
  public:
    explicit Input(std::span<const uint8_t> bytes) : left_(bytes) {}

    bool empty() const { return left_.empty(); }

    // At most count bytes.
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

// A heap block of exactly these bytes, even of none: the sanitizer sees a read beyond it.
class ExactBlock {
  public:
    explicit ExactBlock(const Bytes &bytes) : block_(new uint8_t[bytes.size()]), size_(bytes.size()) {
        std::copy(bytes.begin(), bytes.end(), block_.get());
    }
    uint8_t *data() const { return block_.get(); }
    size_t size() const { return size_; }

  private:
    std::unique_ptr<uint8_t[]> block_;
    size_t size_;
};

template <typename... Parts>
Bytes join(const Parts &...parts) {
    Bytes all;
    (all.insert(all.end(), parts.begin(), parts.end()), ...);
    return all;
}

// What must hold whatever the input is; ends the process, as a crash would.
inline void require(bool holds, const char *what) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", what);
        std::abort();
    }
}

// Each target's own: one input, from a fresh start.
void playInput(Input in);

}  // namespace kvfuzz
