// What a fuzz target reads its input with. Running out is no failure: numbers become 0, texts end early.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace kvfuzz {

using Bytes = std::vector<uint8_t>;

class Input {
  public:
    Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    explicit Input(const Bytes &bytes) : Input(bytes.data(), bytes.size()) {}

    size_t remaining() const { return size_; }
    bool empty() const { return size_ == 0; }

    uint8_t u8() {
        if (size_ == 0) {
            return 0;
        }
        --size_;
        return *data_++;
    }
    uint16_t u16() {
        const unsigned high = u8();
        return static_cast<uint16_t>(high << 8 | u8());
    }
    uint32_t u32() {
        const uint32_t high = u16();
        return high << 16 | u16();
    }
    bool flag() { return (u8() & 1) != 0; }

    // At most count bytes.
    Bytes bytes(size_t count) {
        const size_t taken = std::min(count, size_);
        Bytes out(data_, data_ + taken);
        data_ += taken;
        size_ -= taken;
        return out;
    }
    Bytes rest() { return bytes(size_); }
    std::string text(size_t count) {
        const Bytes taken = bytes(count);
        return {taken.begin(), taken.end()};
    }

    // Fills as much of a plain record as there is input for; the rest stays.
    template <typename Record>
    void fill(Record &record) {
        const Bytes taken = bytes(sizeof record);
        std::copy(taken.begin(), taken.end(), reinterpret_cast<uint8_t *>(&record));
    }

  private:
    const uint8_t *data_;
    size_t size_;
};

// A heap block of exactly these bytes: the sanitizer sees a read beyond it.
class ExactBlock {
  public:
    explicit ExactBlock(const Bytes &bytes) : block_(new uint8_t[bytes.size()]), size_(bytes.size()) {
        std::copy(bytes.begin(), bytes.end(), block_.get());
    }
    uint8_t *data() { return block_.get(); }
    size_t size() const { return size_; }

  private:
    std::unique_ptr<uint8_t[]> block_;
    size_t size_;
};

// What must hold whatever the input is; ends the process, as a crash would.
inline void require(bool holds, const char *what) {
    if (holds) {
        return;
    }
    std::fprintf(stderr, "broken promise: %s\n", what);
    std::abort();
}

}  // namespace kvfuzz
