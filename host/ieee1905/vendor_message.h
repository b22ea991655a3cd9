// Reads vendor messages for trace, log and settings guard: one table of layouts, one parser of the envelopes.
#pragma once

#include <optional>
#include <string>

#include "ieee1905/wire.h"

namespace kv1905d {

// Effect of a message on this device: the settings guard has rules for each.
enum class Admission {
    Free,           // none: read only, or ignored by the plug-in
    Request,        // costs time: the plug-in may run a program, or wait
    Setting,        // changes this device, and costs time
    Command,        // the same, and is answered with a result
    Configuration,  // replaces what is known of a device, and costs time
    Stations,       // adds stations of a device
    Result,         // reports the result of a command to the operator
    Unknown         // not in the table: a type of the vendor's or Intel's set
};

// Texts are always printable ASCII without an end of line.
struct VendorMessage {
    std::string name{};      // of the message type, or words for an unknown one
    bool isForeign = false;  // of an OUI that the plug-in does not handle
    bool isVendors = false;  // of a type in the vendor's own set; Intel's is another
    Admission admission = Admission::Free;
    MacAddress subject{};                // the AL MAC that most payloads begin with; all zero in a shorter payload
    std::string words{};                 // summary of the message; of a password, only the length
    std::optional<std::string> fault{};  // first violation of the layout; only of known types
};

// `value`: of a vendor-specific TLV, OUI first.
VendorMessage readVendorMessage(ByteView value);

}  // namespace kv1905d
