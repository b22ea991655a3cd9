// A host that implements the callback table: knows devices, records what is sent, and fails on demand.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv1905/kvMAP1905.h"

namespace kvtest {

using Mac = std::array<uint8_t, KV_MAC_LEN>;
using Bytes = std::vector<uint8_t>;

inline constexpr Mac kLocal = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
inline constexpr Mac kAgent = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};
inline constexpr Mac kUnknown = {0x02, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};

template <typename Range>
void append(Bytes &bytes, const Range &more) {
    for (const auto byte : more)
        bytes.push_back(static_cast<uint8_t>(byte));
}

// The first count bytes.
inline Bytes head(const Bytes &bytes, size_t count) {
    return Bytes(bytes.data(), bytes.data() + count);
}

// Returns the bytes of hexadecimal digits; blanks are ignored.
Bytes fromHex(std::string text);

enum class Slot { Unicast, Multicast, RelayedMulticast };

struct Sent {
    Slot slot;
    Mac destination;
    Bytes value;
    std::optional<uint16_t> msgIdIn;  // none: the plug-in passed a null pointer
};

// Registers itself, fills KvDevAlMac, and resets the plug-in's state at its start and end. Exists once at a time.
class FakeHost {
  public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost &) = delete;
    FakeHost &operator=(const FakeHost &) = delete;

    KvDevVendorData &addDevice(const Mac &alMac);
    void removeDevice(const Mac &alMac);
    KvDevVendorData &local() { return *devices.at(kLocal); }

    // Passes a TLV value to the plug-in in a block of exactly its size, so that a read past it is caught.
    void receive(const Mac &source, const Bytes &value, uint16_t msgId, bool hasLength = true);

    // Passes an operator command to the plug-in, in a separate block at an odd address: no alignment is guaranteed.
    void command(uint32_t code, const Bytes &buffer);

    std::map<Mac, std::unique_ptr<KvDevVendorData>> devices;
    std::map<Mac, Mac> owners;                         // interface MAC -> AL MAC
    std::vector<std::pair<Mac, uint32_t>> interfaces;  // of every device: MAC, media type; none: query 3 finds nothing
    std::vector<Sent> sent;
    int sendResult = 0;
    int jsonResult = 0;
    int postResult = 0;
    uint16_t nextMsgId = 0x1000;  // given to requests
};

// Returns a message of a device: 15-byte envelope, then payload.
Bytes message(const Mac &alMac, uint16_t type, const Bytes &payload);

}  // namespace kvtest
