// IEEE 1905.1 messages (CMDUs): header, TLVs and the frames that carry them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "wire.h"

namespace kv1905d {

inline constexpr uint16_t kEtherType = 0x893A;
inline constexpr size_t kMaxFramePayload = 1500;  // bytes after the Ethernet header
inline constexpr size_t kMaxTlvValue = 16383;     // bytes; longer values are neither sent nor accepted

enum MessageType : uint16_t {
    kTopologyDiscovery = 0x0000,
    kTopologyNotification = 0x0001,
    kTopologyQuery = 0x0002,
    kTopologyResponse = 0x0003,
    kVendorSpecific = 0x0004,
    kLinkMetricQuery = 0x0005,
    kLinkMetricResponse = 0x0006,
    kAutoconfigurationSearch = 0x0007,
    kAutoconfigurationResponse = 0x0008,
    kAutoconfigurationWsc = 0x0009,
    kAutoconfigurationRenew = 0x000A,
    kHigherLayerQuery = 0x000D,
    kHigherLayerResponse = 0x000E,
};

enum TlvType : uint8_t {
    kTlvEndOfMessage = 0x00,
    kTlvAlMac = 0x01,
    kTlvMacAddress = 0x02,
    kTlvDeviceInformation = 0x03,
    kTlvBridgingCapability = 0x04,
    kTlvIeee1905Neighbours = 0x07,
    kTlvLinkMetricQuery = 0x08,
    kTlvTransmitterLinkMetric = 0x09,
    kTlvReceiverLinkMetric = 0x0A,
    kTlvVendorSpecific = 0x0B,
    kTlvLinkMetricResult = 0x0C,
    kTlvSearchedRole = 0x0D,
    kTlvAutoconfigFreqBand = 0x0E,
    kTlvSupportedRole = 0x0F,
    kTlvSupportedFreqBand = 0x10,
    kTlvWsc = 0x11,
    kTlvDeviceIdentification = 0x15,
    kTlvProfileVersion = 0x1A,
};

struct Tlv {
    uint8_t type = kTlvEndOfMessage;
    Bytes value;

    bool operator==(const Tlv &) const = default;
};

// A whole message. The end-of-message TLV is implied and never part of `tlvs`.
struct Message {
    uint16_t type = 0;
    uint16_t id = 0;
    bool relay = false;
    std::vector<Tlv> tlvs;

    // Returns the first TLV of that type, or null.
    const Tlv *find(uint8_t tlvType) const;
};

// The part of a message in one frame; `body` points into the frame.
struct Fragment {
    uint16_t type = 0;
    uint16_t id = 0;
    uint8_t index = 0;
    bool last = false;
    bool relay = false;
    ByteView body;
    size_t port = 0;  // that received it; set by the caller
};

// Reads a frame's payload (after the Ethernet header). Returns nullopt if it is shorter than a header and an
// end-of-message TLV, or of a message version other than 0.
std::optional<Fragment> parseFragment(ByteView payload);

/*
 * Returns the TLVs in the bodies of all fragments, in order. Reads both fragmentation styles: at TLV boundaries, with
 * an end of message in every fragment or only in the last, and at any byte. Bytes after an end of message
 * are ignored. Returns nullopt if a TLV or the message is truncated.
 */
std::optional<std::vector<Tlv>> decodeTlvs(std::span<const ByteView> bodies);

// Returns the frame payloads that carry the message, each at most kMaxFramePayload bytes, cut at TLV boundaries. A TLV
// too large for a frame is cut at byte boundaries. Empty if a value is too long or more than 256 frames are needed.
std::vector<Bytes> encodeMessage(const Message &message);

}  // namespace kv1905d
