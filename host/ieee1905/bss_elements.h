// A device's BSSs in two vendor-specific TLVs of its topology response: the vendor's OUI, an element
// type, a length and a counted list. They are no vendor messages.
#pragma once

#include <vector>

#include "wire.h"

namespace kv1905d {

struct MdidEntry {
    MacAddress bssid;
    uint16_t mdid = 0;  // mobility-domain identifier
    bool enabled = false;

    bool operator==(const MdidEntry &) const = default;
};

struct BssConfiguration {
    uint8_t bandIndex = 0;
    uint8_t attribute = 0;
    uint16_t mdid = 0;
    uint16_t tci = 0;
    uint8_t wlMode = 0;
    uint8_t extAttribute = 0;

    bool operator==(const BssConfiguration &) const = default;
};

// At most 255 entries each: the wire counts them in one byte, and a repeated element replaces the former.
struct BssElements {
    std::vector<MdidEntry> mdids;
    std::vector<BssConfiguration> configurations;
};

// Whether this vendor-specific value is one of the two, well formed or not.
bool isBssElement(ByteView value);

// Read the value into its list. False, with nothing changed, when it is one of the two and malformed: shorter or longer
// than its length or its count says. Any other value is left unchanged.
bool readBssElement(ByteView value, BssElements &elements);

}  // namespace kv1905d
