// A vendor-specific TLV that arrived.
#pragma once

#include <string>

#include "ieee1905/wire.h"

namespace kv1905d {

// Valid during the call that gets it.
struct VendorTlv {
    const MacAddress &source;      // the originator's AL MAC
    const std::string &interface;  // where it came in
    ByteView value;                // its OUI first
    uint16_t msgId;
};

}  // namespace kv1905d
