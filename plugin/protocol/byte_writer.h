// Bounds-checked big-endian writer. All wire data is written through it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kv {

// A write that does not fit writes nothing and makes ok() false permanently, so an encoder checks ok() once, after its
// last write.
class ByteWriter {
  public:
    ByteWriter(uint8_t *data, size_t size) : position_(data), remaining_(data == nullptr ? 0 : size) {}

    bool ok() const { return !failed_; }

    void u8(uint8_t value) { bytes(&value, sizeof value); }

    void u16(uint16_t value) {
        const uint8_t wire[] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
        bytes(wire, sizeof wire);
    }

    void u32(uint32_t value) {
        u16(static_cast<uint16_t>(value >> 16));
        u16(static_cast<uint16_t>(value));
    }

    void bytes(const void *source, size_t count) {
        if (failed_ || count > remaining_) {
            failed_ = true;
            return;
        }
        if (count > 0) {
            std::memcpy(position_, source, count);
            position_ += count;
            remaining_ -= count;
        }
    }

  private:
    uint8_t *position_;
    size_t remaining_;
    bool failed_ = false;
};

}  // namespace kv
