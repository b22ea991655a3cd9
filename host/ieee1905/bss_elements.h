// A device's BSSs in two vendor-specific TLVs of its topology response: the vendor's OUI, an element type, a length and
// a counted list. They are not vendor messages.
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

// Limited to 255 entries each by the one-byte count. A repeated element replaces the earlier one.
struct BssElements {
    std::vector<MdidEntry> mdids;
    std::vector<BssConfiguration> configurations;
};

// Returns whether this vendor-specific value is one of the two, well formed or not.
bool isBssElement(ByteView value);

// Reads the value into its list. Returns false, with nothing changed, if it is one of the two but its length or count
// does not match. Ignores any other value.
bool readBssElement(ByteView value, BssElements &elements);

}  // namespace kv1905d
