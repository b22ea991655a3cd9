// A received vendor-specific TLV.
#pragma once

#include <string>

#include "ieee1905/wire.h"

namespace kv1905d {

// Valid during the callback that receives it.
struct VendorTlv {
    const MacAddress &source;      // the originator's AL MAC
    const std::string &interface;  // port that received it
    ByteView value;                // its OUI first
    uint16_t msgId;
};

}  // namespace kv1905d
