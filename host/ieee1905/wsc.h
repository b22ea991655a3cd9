// Wi-Fi Simple Configuration messages in the WSC TLV, as far as onboarding.h uses them: attributes of type u16, length
// u16.
#pragma once

#include <array>
#include <optional>

#include "wire.h"

namespace kv1905d {

using WscNonce = std::array<uint8_t, 16>;

inline constexpr uint8_t kWscM1 = 0x04;
inline constexpr uint8_t kWscM2 = 0x05;
inline constexpr size_t kMaxWscAttributes = 128;  // of one message; more are refused

struct WscMessage {
    uint8_t type = 0;   // kWscM1 or kWscM2
    uint8_t bands = 0;  // RF bands
    WscNonce enrolleeNonce{};
    WscNonce registrarNonce{};  // only in M2
};

// extension: a whole vendor extension attribute, put last; may be empty.
Bytes encodeWsc(const WscMessage &message, ByteView extension);

struct ReceivedWsc {
    WscMessage message;
    ByteView extension;  // the vendor's extension from its vendor ID on, in the parsed value; empty: none
};

// Returns nullopt if an attribute is truncated or has the wrong size, or a required one is missing.
std::optional<ReceivedWsc> parseWsc(ByteView value);

}  // namespace kv1905d
