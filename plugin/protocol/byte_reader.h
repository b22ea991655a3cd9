// Bounds-checked big-endian reader. All wire data is read through it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kv {

// A read past the end returns zero and makes ok() false permanently, so a decoder checks ok() once, after its last
// read. Nothing is ever read outside the bytes given to the constructor, which the caller owns.
class ByteReader {
  public:
    ByteReader(const uint8_t *data, size_t size) : position_(data), remaining_(data == nullptr ? 0 : size) {}

    bool ok() const { return !failed_; }
    size_t remaining() const { return remaining_; }
    // Points to the next byte; remaining() bytes may be read there.
    const uint8_t *data() const { return position_; }

    uint8_t u8() {
        uint8_t value = 0;
        copyTo(&value, sizeof value);
        return value;
    }

    uint16_t u16() {
        const unsigned high = u8();
        const unsigned low = u8();
        return static_cast<uint16_t>(high << 8 | low);
    }

    uint32_t u32() {
        const uint32_t high = u16();
        const uint32_t low = u16();
        return high << 16 | low;
    }

    // Copies count bytes; leaves destination unchanged when fewer remain.
    void copyTo(void *destination, size_t count) {
        const uint8_t *source = position_;
        if (advance(count) && count > 0) std::memcpy(destination, source, count);
    }

    // Returns the next byte without consuming it; 0 if there is none.
    uint8_t peek() const { return failed_ || remaining_ == 0 ? uint8_t{0} : *position_; }

    void skip(size_t count) { advance(count); }

    // Returns a reader over the next count bytes, which this one skips. Empty and failed if fewer remain.
    ByteReader take(size_t count) {
        ByteReader part(position_, count);
        if (!advance(count)) {
            part.remaining_ = 0;
            part.failed_ = true;
        }
        return part;
    }

  private:
    bool advance(size_t count) {
        if (failed_ || count > remaining_) {
            failed_ = true;
            return false;
        }
        position_ += count;
        remaining_ -= count;
        return true;
    }

    const uint8_t *position_;
    size_t remaining_;
    bool failed_ = false;
};

}  // namespace kv
