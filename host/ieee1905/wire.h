// Bounds-checked reader and writer for all bytes of the wire. Multi-byte numbers are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "mac_address.h"

namespace kv1905d {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

// A read past the end returns zero and makes ok() false permanently, so the caller checks once, after its last read.
class WireReader {
  public:
    explicit WireReader(ByteView data) : data_(data) {}

    size_t remaining() const { return ok_ ? data_.size() : 0; }
    bool ok() const { return ok_; }
    // Returns whether everything was read, and nothing beyond it.
    bool finished() const { return ok_ && data_.empty(); }

    // Returns the next `count` bytes; empty after a failure.
    ByteView bytes(size_t count) {
        if (!ok_ || count > data_.size()) {
            ok_ = false;
            return {};
        }
        const ByteView taken = data_.first(count);
        data_ = data_.subspan(count);
        return taken;
    }
    ByteView rest() { return bytes(remaining()); }

    uint8_t u8() { return static_cast<uint8_t>(number(1)); }
    uint16_t u16() { return static_cast<uint16_t>(number(2)); }
    uint32_t u24() { return number(3); }
    uint32_t u32() { return number(4); }
    MacAddress mac() {
        const ByteView taken = bytes(6);
        return taken.empty() ? MacAddress{} : MacAddress::copyOf(taken.data());
    }

  private:
    uint32_t number(size_t width) {
        uint32_t value = 0;
        for (const uint8_t byte : bytes(width))
            value = value << 8 | byte;
        return value;
    }

    ByteView data_;
    bool ok_ = true;
};

class WireWriter {
  public:
    // size: bytes to reserve.
    explicit WireWriter(size_t size = 0) { out_.reserve(size); }

    void bytes(ByteView data) { out_.insert(out_.end(), data.begin(), data.end()); }
    void u8(uint8_t value) { out_.push_back(value); }
    void u16(uint16_t value) {
        u8(static_cast<uint8_t>(value >> 8));
        u8(static_cast<uint8_t>(value));
    }
    void u32(uint32_t value) {
        u16(static_cast<uint16_t>(value >> 16));
        u16(static_cast<uint16_t>(value));
    }
    void mac(const MacAddress &value) { bytes(value.bytes); }

    Bytes take() { return std::move(out_); }

  private:
    Bytes out_;
};

}  // namespace kv1905d
